"""The program that ships, keys from a keyboard, and what the display shows.

usage: end_to_end_test.py SECONDS TOOLS PROGRAM...
Each test is ended after SECONDS. TOOLS is the folder of the stand-in tools; PROGRAM may begin with an emulator.
"""

import base64
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib

SIMULATOR = pathlib.Path(__file__).resolve().parents[1] / "simulator"
WIDTH, HEIGHT, PIXEL = 320, 240, 4
BLACK, WHITE, RED, GREEN = bytes(3), b"\xFF" * 3, b"\0\0\xFF", b"\0\x80\0"  # blue comes first
BESIDE_THE_WINDOW, BETWEEN_THE_BUTTONS = (310, 10), (123, 236)  # of the progress screen
MESSAGES = [(x, y) for y in range(31, 196) for x in range(3, 284)]
BLOCKING_SCRIPT = "#!/bin/sh\ntouch /tmp/blocking\nwhile [ -e /tmp/blocking ]; do sleep 0.02; done\n"


class Picture:
    def __init__(self, pixels):
        self.pixels = pixels

    def colour(self, position):
        begin = (position[1] * WIDTH + position[0]) * PIXEL
        return self.pixels[begin:begin + 3]

    def count(self, colour):
        """In the message window."""
        return [self.colour(position) for position in MESSAGES].count(colour)

    def is_main_screen(self):
        return (self.colour(BETWEEN_THE_BUTTONS) == WHITE and self.colour(BESIDE_THE_WINDOW) == BLACK
                and self.count(BLACK) > 0)

    def is_progress_screen(self):
        """Only this screen shows the grey of a window."""
        return self.colour(BETWEEN_THE_BUTTONS) not in (b"", WHITE, BLACK)

    def png(self):
        rows = (b"\0" + b"".join(self.colour((x, y))[::-1] for x in range(WIDTH)) for y in range(HEIGHT))
        chunks = ((b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)),
                  (b"IDAT", zlib.compress(b"".join(rows))), (b"IEND", b""))
        return b"\x89PNG\r\n\x1A\n" + b"".join(
            struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
            for kind, data in chunks)


class EndToEndTest(unittest.TestCase):
    def setUp(self):
        self.deadline = time.monotonic() + SECONDS
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.instrument = self.folder / "instrument"
        # The root is white, so that only the program can make the display black. A key that a busy machine releases
        # late must not repeat.
        server = self.start("Xvfb", "-displayfd", "1", "-screen", "0", f"{WIDTH}x{HEIGHT}x24", "-wr", "-r", "-fbdir",
                            self.folder, "-noreset", "-nolisten", "tcp", stdout=subprocess.PIPE, text=True)
        self.environment = {**os.environ, "DISPLAY": f":{server.stdout.readline().strip()}"}
        self.addCleanup(server.stdout.close)

    def start(self, *command, **options):
        process = subprocess.Popen(command, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def xdotool(self, *arguments, check=True):
        return subprocess.run(["xdotool", *arguments], env=self.environment, stdout=subprocess.PIPE, text=True,
                              timeout=10, check=check).stdout

    def picture(self):
        """The server keeps the display as an X window dump, in which the pixels come last."""
        return Picture((self.folder / "Xvfb_screen0").read_bytes()[-WIDTH * HEIGHT * PIXEL:])

    def wait_for(self, what, condition):
        while not condition():
            if time.monotonic() > self.deadline:
                picture = base64.b64encode(self.picture().png()).decode()
                self.fail(f"no {what}; the keyboard is with {self.focused_window()}; the picture, an address for a "
                          f"browser: data:image/png;base64,{picture}")
            time.sleep(0.05)

    def focused_window(self):
        """Title, position and size of the window that has the keyboard; empty when no window has it."""
        return " ".join(self.xdotool("getwindowfocus", "getwindowname", "getwindowgeometry", check=False).split())

    def wait_for_main_screen(self):
        """A key reaches the main screen once its window has the keyboard."""
        self.wait_for("main screen", lambda: self.picture().is_main_screen())
        self.wait_for("keyboard", lambda: self.focused_window().endswith(
            "Position: 3,31 (screen: 0) Geometry: 281x208"))

    def insert_package(self, device):
        subprocess.run([SIMULATOR / "new-instrument", "--tools", TOOLS, self.instrument], check=True)
        package = self.folder / "firmware_update"
        package.mkdir()
        (package / "update_config").write_text("SYSTEM:SDCARD\nSYSTEM:NAND\nKERNEL:/uImage\nSCRIPT:/block.sh\n")
        (package / "uImage").write_text(f"kernel from {device}")
        (package / "block.sh").write_text(BLOCKING_SCRIPT)
        (package / "block.sh").chmod(0o755)
        medium = self.instrument / "run/instrument/media" / device
        medium.mkdir(exist_ok=True)
        subprocess.run(["tar", "cjf", medium / "firmware_update.tar.bz2", "-C", self.folder, package.name], check=True)

    def start_window_manager(self):
        managed = self.folder / "managed"
        self.start("openbox", "--sm-disable", "--startup", f"touch {managed}", env=self.environment)
        self.wait_for("window manager", managed.exists)

    def update(self, device, first_key, *keys_of_a_pc):
        self.insert_package(device)
        self.start(SIMULATOR / "sandbox", "--x11", "--fast-clock", self.instrument, *PROGRAM, "Quorvin",
                   env=self.environment)
        self.wait_for_main_screen()
        self.xdotool("key", first_key)
        self.wait_for("progress screen", lambda: self.picture().is_progress_screen())
        ink_of_the_prompt = self.picture().count(BLACK)
        self.assertGreater(ink_of_the_prompt, 0)
        self.xdotool("key", "F1")
        modules = self.instrument / "run/instrument/power/modules"
        for key in keys_of_a_pc:
            self.wait_for("exported storage", lambda: modules.exists() and modules.read_text().count("\n") == 2)
            self.xdotool("key", key)

        # The lines are on the display before the step that they announce is over.
        blocking = self.instrument / "tmp/blocking"
        self.wait_for("script", blocking.exists)
        self.wait_for("announcements", lambda: self.picture().count(BLACK) > 2 * ink_of_the_prompt)
        blocking.unlink()
        self.wait_for("success", lambda: self.picture().count(GREEN) > 0)
        self.assertEqual(self.picture().count(RED), 0)
        kernel = (self.instrument / "run/instrument/flash/mtd0").read_bytes()
        self.assertTrue(kernel.startswith(f"kernel from {device}".encode() + b"\xFF"))
        self.xdotool("key", "F1")
        self.wait_for_main_screen()
        self.assertEqual((self.instrument / "mnt/data/settings/Vantrel/Updater.conf").read_text(),
                         "[General]\nProductName=Quorvin\n")

    def test_pc(self):
        self.update("backfile", "F1", "F1")

    def test_stick(self):
        self.update("sda1", "F2")

    def test_card(self):
        self.update("mmcblk0p4", "F3")

    def test_card_under_a_window_manager(self):
        self.start_window_manager()
        self.update("mmcblk0p4", "F3")


if __name__ == "__main__":
    SECONDS, TOOLS, PROGRAM = int(sys.argv[1]), sys.argv[2], sys.argv[3:]
    unittest.main(argv=sys.argv[:1])
