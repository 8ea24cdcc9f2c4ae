"""Updates on virtual instruments."""

import argparse
import os
import pathlib
import random
import shutil
import subprocess
import sys
import time

import journal

SIMULATOR = pathlib.Path(__file__).resolve().parents[1]
PROJECT = SIMULATOR.parent
USAGE_ERROR = 2
MEDIA = {"sd": "mmcblk0p4", "stick": "sda1"}  # a PC gets the package when the instrument asks for it


def fail(text):
    print(f"rehearsal: {text}", file=sys.stderr)
    sys.exit(USAGE_ERROR)


def add_arguments(parser, boards=True):
    parser.add_argument("--build", type=pathlib.Path, metavar="FOLDER", default=PROJECT / "build/release",
                        help="the project's build folder (default: build/release)")
    name = parser.prog.replace("/", " ").split()[-1]
    parser.add_argument("--output", type=pathlib.Path, metavar="FOLDER", default=PROJECT / "build" / name,
                        help=f"where the virtual instrument and the pictures go (default: build/{name})")
    parser.add_argument("--source", choices=["sd", "stick", "pc"], default="sd",
                        help="where the update comes from (default: sd)")
    if boards:
        parser.add_argument("--pic-enable", action="store_true", help="""an instrument whose PICs may be updated; without
            it PIC lines fail, as on a new instrument""")
        parser.add_argument("--avr-enable", action="store_true", help="the same for the ESA boards")


def existing_package(text):
    if not pathlib.Path(text).is_file():
        raise argparse.ArgumentTypeError(f"no package '{text}'")
    return pathlib.Path(text).resolve()


def make_sample(output):
    package = output.resolve() / "sample_firmware_update.tar.bz2"
    subprocess.run([SIMULATOR / "sample-package", package], check=True)
    return package


class Updates:
    """Updates with one package and one choice of options."""

    def __init__(self, options, package):
        self.build = options.build.resolve()
        self.package = package
        self.source = options.source
        self.pic_enabled = options.pic_enable
        self.program = [f"/run/host{self.build}/simulator/virtual-updater", "Quorvin",
                        "--pic-enable" if options.pic_enable else "--pic-disable",
                        "--avr-enable" if options.avr_enable else "--avr-disable"]
        if not (self.build / "simulator/virtual-updater").exists():
            fail(f"no program in '{self.build}'; build the project first")

    def new_instrument(self, output, system="nand"):
        for folder in "instrument", "pictures":
            shutil.rmtree(output / folder, ignore_errors=True)
        output.mkdir(parents=True, exist_ok=True)
        subprocess.run([SIMULATOR / "new-instrument", "--tools", self.build / "simulator", "--system", system,
                        output / "instrument"], check=True)
        return output / "instrument"

    def update(self, output, plan=(), show=lambda message: None):
        """On the instrument in `output`, after a power cycle. True when the program came back to the main screen."""
        instrument = output / "instrument"
        self._insert_medium(instrument, [("operator", self.source, f"/run/host{self.package}"), *plan])
        with open(output / "log", "w") as log, subprocess.Popen(
                [SIMULATOR / "sandbox", "--fast-timers", instrument, *self.program], stdout=log, stderr=log) as process:
            _follow(process, instrument / "run/instrument/journal", show)
        self._keep_pictures(output)
        return process.returncode == 0

    def attend(self, output, display):
        """The same with a person at the keys, on the desktop ("--interactive") or in a VNC viewer ("--vnc")."""
        instrument = output / "instrument"
        self._insert_medium(instrument, [])
        if self.source == "pc":
            print(f"When asked to copy the package: cp {self.package} {instrument}/run/instrument/media/backfile")
        if display == "--vnc":
            print("Press the keys in a VNC viewer at port 5900 of this host (no password); Ctrl-C here ends it.")
            return self._wait_for("--vnc", output, os.environ)
        if "DISPLAY" not in os.environ:
            fail("--interactive needs a desktop (DISPLAY is not set)")
        panel = f":{random.randrange(100, 1100)}"
        window = subprocess.Popen(["Xephyr", panel, "-screen", "320x240", "-title", "Virtual instrument: F1 to F4",
                                   "-nolisten", "tcp"])
        try:
            while not pathlib.Path(f"/tmp/.X11-unix/X{panel[1:]}").exists():
                if window.poll() is not None:
                    fail("the window for the panel cannot be opened")
                time.sleep(0.1)
            print("Press the keys in the window; close it to end.")
            return self._wait_for("--x11", output, {**os.environ, "DISPLAY": panel})
        finally:
            window.terminate()

    def _insert_medium(self, instrument, plan):
        state = instrument / "run/instrument"
        shutil.rmtree(state / "pictures", ignore_errors=True)
        (state / "journal").unlink(missing_ok=True)
        (state / "plan").write_text("".join("\t".join(map(str, record)) + "\n" for record in plan))
        if self.source in MEDIA:
            medium = state / "media" / MEDIA[self.source]
            medium.mkdir(exist_ok=True)
            shutil.copy(self.package, medium)

    def _wait_for(self, display, output, environment):
        with subprocess.Popen([SIMULATOR / "sandbox", display, output / "instrument", *self.program],
                              env=environment) as process:
            try:
                process.wait()
            except KeyboardInterrupt:  # ends the program, not this one
                process.wait()
        self._keep_pictures(output)

    @staticmethod
    def _keep_pictures(output):
        pictures = output / "instrument/run/instrument/pictures"
        if pictures.exists():
            shutil.copytree(pictures, output / "pictures", dirs_exist_ok=True)


def _follow(process, path, show):
    """Shows the messages of the panel as the journal grows."""
    position, ended = 0, False
    while not ended:
        time.sleep(0.05)
        ended = process.poll() is not None
        grown = path.read_bytes()[position:] if path.exists() else b""
        complete = grown[:grown.rfind(b"\n") + 1]
        position += len(complete)
        for line in complete.decode(errors="replace").split("\n")[:-1]:
            event = journal.parse(line)
            if event.kind in ("message", "prompt") and event.fields[0] != "orange":
                show(event.fields[1])
