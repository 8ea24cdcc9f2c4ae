"""Executes updates in the guest and reads back what they left, with tools that the updater does not use."""

import argparse
import concurrent.futures
import random
import shutil
import subprocess
import sys
import time
from functools import partial

import journal  # of simulator/rehearsal, like running
import running
from guest import SHARE, WIDTH, Guest, read_picture, wait_until

BUILD = running.PROJECT / "build"
OUTPUT = BUILD / "acceptance"
PICTURES, PACKAGES = OUTPUT / "pictures", OUTPUT / "packages"
PACKAGES_IN_GUEST = f"{SHARE}/acceptance/packages"
PAYLOAD = f"{PACKAGES_IN_GUEST}/files"

PRODUCT = "Quorvin"  # the simulator's
SOURCES = {  # the operator's key, what mount gets to reach the packages, what makes the file system
    "sd": ("f3", "/dev/mmcblk0p4", "true"),
    "stick": ("f2", "/dev/sda", "mkfs.vfat -I /dev/sda"),
    "partitioned stick": ("f2", "/dev/sda1", "echo 1M,,c | sfdisk -q -w always /dev/sda && mkfs.vfat /dev/sda1"),
    "pc": ("f1", "-o loop,offset=4096 /mnt/ubiData/backfile",
           "mkfs.ext4 -q -F /dev/mmcblk0p3 && mount /dev/mmcblk0p3 /mnt/ubiData && cd /mnt/ubiData"
           " && truncate -s 16M backfile && echo 8,,c | sfdisk -q -w always backfile && mkfs.vfat --offset 8 backfile"
           " && cd / && sync"),
}
MAIN_APP = "/usr/local/Trolltech/Qt-Target-version-optimised/mainApp"
NAND = "modprobe nandsim id_bytes=0x20,0xaa,0x00,0x15 parts=8,64"  # pages of 2 KiB, blocks of 128 KiB
OLD_NAND = f"nandwrite -q -p /dev/mtd0 {PAYLOAD}/mainApp && ubiformat -q -y /dev/mtd1"

GREEN, RED, BLACK, WHITE = (0, 128, 0), (255, 0, 0), (0, 0, 0), (255, 255, 255)
F1_LABEL = 220 * WIDTH + 32  # a pixel of its first letter; the main screen is white there
STAGES = {  # of the panel: the colour of F1's label, which is grey during an update, and colours of which it shows one
    "main-screen": (WHITE, {WHITE}), "prompt": (BLACK, {WHITE}), "end": (BLACK, {GREEN, RED}),
    "after-f1": (WHITE, {WHITE}),
}

ON_NAND, ON_CARD = "SYSTEM:NAND\n", "SYSTEM:SDCARD\n"
NAND_KERNEL, CARD_KERNEL, IMAGE = ON_NAND + "KERNEL:/uImage\n", ON_CARD + "KERNEL:/uImage\n", "IMAGE:/rootfs.ubi\n"
FILES = "APP:/mainApp\nFILE:/etc/instrument.conf\nSCRIPT:/finish.sh 1.1\n"
# The root file system of most instruments here is on the SD card: only then does an IMAGE line leave it alone.
UPDATE_CONFIGS = {
    "nand": NAND_KERNEL + IMAGE + ON_CARD + FILES,
    "sdcard": CARD_KERNEL + FILES,
    "nand-root": NAND_KERNEL + FILES,
    "image": ON_NAND + IMAGE,
    "boards": NAND_KERNEL + "PIC1:/pic1.hex\nPIC4:/pic4.hex\nESA_IO_APP:/esa_io.bin\nESA_M_APP:/esa_m.bin\n"
              "ESA_IO_EEP:/esa_io.eep\nESA_M_EEP:/esa_m.eep\n",
    "failing": ON_CARD + "KERNEL:/missing\nFILE:/missing\nSCRIPT:/missing\nOTHER:/uImage\nKERNEL\n",
    "large": CARD_KERNEL + FILES + "FILE:/ballast\n",
}


# Conditions: shell commands that succeed when the guest is in the state of their name.

def erased(partition):
    return (f"nanddump -q --bb=skipbad -f /run/{partition} /dev/{partition}"
            f" && test $(tr -d '\\377' </run/{partition} | wc -c) = 0")


def programmed(partition, page):
    return f"test $(dd if=/dev/{partition} bs=2k skip={page} count=1 | tr -d '\\377' | wc -c) != 0"


def kernel_on_card(size=f"$(stat -c %s {PAYLOAD}/uImage)"):
    return f"cmp -s -n {size} /dev/mmcblk0p1 {PAYLOAD}/uImage"


def packages_on(source, count):
    return (f"mount -o ro {SOURCES[source][1]} /mnt/pc && count=$(ls -A /mnt/pc | wc -l) && umount /mnt/pc"
            f" && [ $count = {count} ]")


KERNEL_IN_NAND = (f"size=$(stat -c %s {PAYLOAD}/uImage) && nanddump -q --bb=skipbad -l $size -f /run/kernel /dev/mtd0"
                  f" && cmp -s -n $size /run/kernel {PAYLOAD}/uImage")
ROOT_IN_NAND = ("ubiattach -p /dev/mtd1 && mount -t ubifs -o ro ubi0:rootfs /mnt/pc"
                " && grep -x 'root file system 1.1' /mnt/pc/etc/issue && umount /mnt/pc && ubidetach -p /dev/mtd1")
FILES_COPIED = (f"cmp {MAIN_APP} {PAYLOAD}/mainApp && cmp /etc/instrument.conf {PAYLOAD}/etc/instrument.conf"
                " && grep -qx 'updated to 1.1' /var/lib/updates/last")
FILE_NOT_COPIED = f"! cmp -s /ballast {PACKAGES_IN_GUEST}/ballast"
RELEASED = ("! grep ' /mnt/update ' /proc/mounts && ! test -e /sys/block/loop0/loop"
            " && ! grep -E '^(g_mass_storage|fsl_usb2_udc) ' /proc/modules")
NOTHING_WRITTEN = ("nothing was written", f"{erased('mtd0')} && {erased('mtd1')} && grep -qx old {MAIN_APP}"
                   " && test $(head -c 1M /dev/mmcblk0p1 | tr -d '\\0' | wc -c) = 0")
READ_BACK = [  # after a good update with these lines
    (NAND_KERNEL, "kernel read back from mtd0", KERNEL_IN_NAND),
    (IMAGE, "root image attached, mounted and read", ROOT_IN_NAND),
    (CARD_KERNEL, "kernel read back from the SD card", kernel_on_card()),
    (FILES, "files copied, script run", FILES_COPIED),
    ("", "medium, loop device and modules released", RELEASED),
]
# All that an update can change: flash, kernel of the card, files of the root file system.
CONTENTS = ("sha256sum /dev/mtd0 /dev/mmcblk0p1; ubiattach -p /dev/mtd1 && sha256sum /dev/ubi0_0;"
            " ubidetach -p /dev/mtd1; cd /; find . -xdev ! -type d -exec stat -c '%n %A %s' {} + | sort;"
            " find . -xdev -type f -newer sbin/init -exec sha256sum {} + | sort")


def copy_package(package, file_system):
    return (f"mount {file_system} /mnt/pc && cp {PACKAGES_IN_GUEST}/{package}_firmware_update.tar.bz2 /mnt/pc;"
            " umount /mnt/pc")


class Instrument(Guest):
    """The instrument in the guest, its operator, and the checks."""

    def __init__(self, name):
        super().__init__(OUTPUT / "run" / name, "root_in_nand" if name == "nand" else "")
        self.name = name
        self.folder.mkdir(parents=True)
        shutil.copy(OUTPUT / "guest/root.img", self.folder)
        subprocess.run(["truncate", "-s", "64M", "card", "stick", "nand"], cwd=self.folder, check=True)
        self.picture_count = 0
        self.checks = []  # of the current scenario: what, passed, details

    def check(self, what, passed, details=""):
        self.checks.append((what, passed, "" if passed else details))

    def check_that(self, *conditions):
        for what, command in conditions:
            status, output = self.run(command)
            self.check(what, status == 0, output)

    def install(self):
        """The Debian package. What it depends on is there as files that dpkg does not know."""
        self.switch_on()
        self.must(f"mount / -o remount,rw && dpkg --install --force-depends {SHARE}/acceptance/debian/*.deb"
                  f" && echo 'PRODUCT={PRODUCT} FLAGS=\"--pic-enable --avr-enable\"' >>/etc/default/updater"
                  " && mount / -o remount,ro")

    def deliver(self, source, package, prepare="true", nand="", stick=""):
        """An instrument as it leaves the factory: erased NAND, old files, an empty card. The package is on its medium.
        `nand` and `stick` are options of the emulated ones, `prepare` is the last command."""
        self.run("/etc/init.d/updater stop; umount /mnt/update /mnt/ubiData /mnt/pc; ubidetach -p /dev/mtd1;"
                 " rmmod nandsim; mount -o remount,size=50% /tmp; cat /dev/zero >/dev/fb0")
        self.must(f"mount -o remount,rw / && echo old >{MAIN_APP} && echo old >/etc/instrument.conf"
                  f" && rm -rf /var/lib/updates /ballast /tmp/* && sync && mount -o remount,ro / && {NAND} {nand}")
        self.make_media(source, package, stick)
        self.must(prepare)

    def make_media(self, source, package, stick=""):
        self.must("printf '4M,4M,53\\n8M,8M\\n16M,20M\\n36M,,c\\n' | sfdisk -q -w always /dev/mmcblk0"
                  " && head -c 1M /dev/zero >/dev/mmcblk0p1 && mkfs.vfat /dev/mmcblk0p4")
        if self.succeeds("test -b /dev/sda"):
            self.unplug()
        if "stick" in source:
            self.plug()
        _, file_system, make = SOURCES[source]
        self.must(make)
        if source != "pc":  # a PC copies the package when the instrument asks for it
            self.must(copy_package(package, file_system))
        if stick:
            self.unplug()
            self.plug(stick)

    def take_picture(self, stage):
        self.picture_count += 1
        self.pictures[stage] = self.display(PICTURES / f"{self.name}-{self.picture_count:02}-{stage}.png")

    def wait_for(self, stage):
        """Until the panel shows this stage; takes the picture."""
        f1_label, colours = STAGES[stage]

        def shown():
            pixels = self.display()
            return pixels[F1_LABEL] == f1_label and not colours.isdisjoint(pixels)
        wait_until(shown, 180, f"the panel to show the {stage}")
        time.sleep(0.5)  # the panel appears part by part
        self.take_picture(stage)

    def start(self, source):
        """From the start of the program to the prompt of a source."""
        self.pictures = {}
        self.must("/etc/init.d/updater start")
        self.wait_for("main-screen")
        self.trace("$(cat /run/updater.pid)")
        self.choose(source)

    def choose(self, source):
        self.press(SOURCES[source][0])
        self.wait_for("prompt")

    def return_to_main_screen(self):
        self.press("f1")
        self.wait_for("after-f1")

    def begin(self, source, package):
        """From the prompt to where the instrument reads the package."""
        self.press("f1")
        if source == "pc":
            wait_until(lambda: self.succeeds("test -b /dev/sda1"), 30, "the USB drive at the PC")
            self.run(copy_package(package, "/dev/sda1"))
            self.take_picture("copy-prompt")
            self.press("f1")

    def update(self, source, package, good=True, conditions=()):
        """A whole update from the prompt to the last message."""
        self.begin(source, package)
        wait_until(lambda: self.calls()[-1:] == [("sync", 0)], 180, "the call of sync")
        time.sleep(1)
        self.take_picture("running")
        self.wait_for("end")
        self.check_end(good, *[(what, condition) for lines, what, condition in READ_BACK
                               if good and lines in UPDATE_CONFIGS[package]], *conditions)

    def fail_early(self, source, package):
        self.begin(source, package)
        self.wait_for("end")
        self.check_end(False, NOTHING_WRITTEN)

    def stop_in(self, tool, run, call, count):
        """The tool will stop in its run of that number, after its system call of that kind and number."""
        script = f"""#!/bin/sh
echo >>/run/runs
[ $(wc -l </run/runs) = {run} ] || exec /run/tool "$@"
exec strace -o /run/stopped -e trace={call} -e inject={call}:signal=STOP:when={count} /run/tool "$@"
"""
        self.must(f"cp {tool} /run/tool && echo '{script}' >/run/stop && chmod +x /run/stop && killall -9 strace"
                  f" && mount --bind /run/stop {tool} && echo 0 >/proc/sys/vm/dirty_writeback_centisecs"
                  " && while pidof strace; do sleep 0.1; done")

    def repeat_power_on(self):
        """Kills the emulator and starts it again. The emulated NAND forgets its content, which is put back."""
        self.must("cat /dev/mtd0 /dev/mtd1 | dd of=/dev/vdb bs=1M iflag=fullblock oflag=direct")
        self.cut_power()
        self.switch_on()
        self.must(f"{NAND} && head -c 1M /dev/vdb | nandwrite -q --skip-all-ffs /dev/mtd0 -"
                  " && tail -c +1048577 /dev/vdb | head -c 8M | nandwrite -q --skip-all-ffs /dev/mtd1 -")
        self.run("mount /dev/mmcblk0p3 /mnt/ubiData")

    def check_end(self, good, *conditions):
        colours = set(self.pictures["end"])
        self.check(f"the panel ends in {'green, without red' if good else 'red'}",
                   (GREEN in colours, RED in colours) == (good, not good))
        panel = {y * WIDTH + x for y in range(31, 31 + 208) for x in range(3, 3 + 281)}
        lit = {index for index, pixel in enumerate(self.pictures["end"]) if pixel != BLACK}
        self.check("the panel lies in the black at (3, 31)", lit <= panel and min(panel) in lit)
        self.check_that(*conditions)

    def check_same_as_simulator(self, source, package):
        """Up to the press of F1 that shows the main screen again."""
        self.return_to_main_screen()
        instrument = virtual_instrument(source.split()[-1], package)
        real, simulated = self.calls(), journal.calls(journal.read(instrument))
        self.check("the same calls of tools as in the simulator", real == simulated, f"{real}; simulator: {simulated}")
        for file in sorted((instrument / "run/instrument/pictures").iterdir()):
            stage = file.stem.split("-", 1)[1]
            different = sum(here != there for here, there in zip(self.pictures[stage], read_picture(file)))
            self.check(f"the picture {stage} is the simulator's, pixel for pixel", different == 0,
                       f"{different} pixels differ from {file}")


def virtual_instrument(source, package):
    """The folder of a new one in the simulator, after an update."""
    options = argparse.Namespace(build=BUILD / "release", source=source, pic_enable=True, avr_enable=True)
    updates = running.Updates(options, PACKAGES / f"{package}_firmware_update.tar.bz2")
    instrument = updates.new_instrument(OUTPUT / "simulator" / f"{source}-{package}", "sdcard")
    updates.update(instrument.parent)
    return instrument


def execute(it, source, package, good=True, conditions=(), compare=False, **delivery):
    """The scenario of most rows: one update of an instrument from the factory."""
    it.deliver(source, package, **delivery)
    it.start(source)
    it.update(source, package, good, conditions)
    if compare:
        it.check_same_as_simulator(source, package)


def pc_without_backing_file(it):
    """This kernel loads the gadget all the same, without a drive; the program does not use the SD card's partition."""
    it.deliver("sd", "nand")
    it.start("pc")
    it.press("f1")
    wait_until(lambda: any(call.startswith("modprobe g_mass_storage") for call, _ in it.calls()), 60, "the gadget")
    time.sleep(1)
    it.fail_early("sd", "nand")
    it.check_that(("loop device and modules released", RELEASED))


def boards(it):
    """The virtual instrument's program with its boards, started as the real one is, and the real tools."""
    state = virtual_instrument("sd", "boards").relative_to(BUILD) / "run/instrument"
    it.deliver("sd", "boards", "mkdir /run/instrument && printf 'operator\\tsd\\t-\\n' >/run/instrument/plan && mount"
               f" --bind {SHARE}/release/simulator/virtual-updater /usr/bin/updater && /etc/init.d/updater start")
    wait_until(lambda: not it.succeeds("/etc/init.d/updater status"), 300, "the update of the boards")
    events = it.must("cat /run/instrument/journal")
    it.check("the update is complete", "message\tgreen\tUpdate complete" in events, events)
    it.check("no violation", "violation" not in events, events)
    it.check_that(("kernel read back from mtd0", KERNEL_IN_NAND), *[
        (f"{folder}: the same bytes as in the simulator", f"diff -r {SHARE}/{state}/{folder} /run/instrument/{folder}")
        for folder in ("boards", "pictures")])


def tools(it):
    """The calls of the system tools, valid and invalid ones, that the suite makes of the stand-in tools."""
    it.deliver("pc", None, f"mkdir -p /run/instrument && cp {PAYLOAD}/rootfs.ubi /run/instrument")
    for line in it.must(f"{PACKAGES_IN_GUEST}/calls || [ $? -eq 1 ]").splitlines():
        expected, status, call = line.split(" ", 2)
        it.check(call, status == expected, f"{status}; simulator: {expected}")


def stick_pulled(it):
    it.deliver("stick", "large", stick=",throttling.bps-total=400000")
    it.start("stick")
    it.press("f1")
    wait_until(lambda: it.succeeds("pidof bzip2 && test -e /tmp/firmware_update/ballast"), 30, "the unpacking")
    it.unplug()
    it.wait_for("end")
    it.check_end(False, NOTHING_WRITTEN)
    it.plug(device="/dev/sdb")
    it.check_that(("put back before F1, the stick has another name", "! test -b /dev/sda"))
    it.unplug()
    it.return_to_main_screen()
    it.plug()
    it.choose("stick")
    it.update("stick", "large")


def no_room_to_unpack(it):
    it.deliver("sd", "nand", "mount -o remount,size=1M /tmp")
    it.start("sd")
    it.fail_early("sd", "nand")
    call, status = it.calls()[-1]
    it.check("tar fails with 2", call.startswith("tar ") and status == 2, f"{call}: {status}")


def name_outside_ascii(it):
    """It counts as a second package, and is found when it is the only one."""
    it.deliver("sd", "sdcard", "mount /dev/mmcblk0p4 /mnt/pc && cd /mnt/pc && cp sdcard_* größe_$(echo sdcard_*)"
               " && cd / && umount /mnt/pc")
    it.start("sd")
    it.fail_early("sd", "sdcard")
    it.must("rm /mnt/update/sdcard_*")
    it.return_to_main_screen()
    it.choose("sd")
    it.update("sd", "sdcard")


def without_power_cut(it, source, package):
    """What an update must leave after each power cut."""
    execute(it, source, package)
    it.expected_contents = it.must(CONTENTS)


def power_cut(it, source, package, prepare, stop, command, state):
    """The power is cut while a tool is stopped, after a command in the guest."""
    it.deliver(source, package, prepare)
    it.start(source)
    it.stop_in(*stop)
    it.begin(source, package)
    wait_until(lambda: it.succeeds("grep -q 'stopped by' /run/stopped"), 120, "the tool to stop")
    it.must(command)
    it.repeat_power_on()
    it.check_that(("the power cut came at its moment", state))
    it.start(source)
    it.update(source, package)
    same = it.must(CONTENTS) == it.expected_contents
    it.check("the instrument is the same as after an update without a power cut", same)


def power_cuts(source, package, prepare, cuts):
    """An update without a power cut, then a scenario for each of the cuts."""
    return {f"no power cut, {source}": partial(without_power_cut, source=source, package=package)} | {
        f"power cut, {title}": partial(power_cut, source=source, package=package, prepare=prepare, stop=stop,
                                       command=command, state=state) for title, stop, command, state in cuts}


def root_in_nand(it):
    it.check_that(*[(f"{file} cannot be written before", f"! echo old >{file}")
                    for file in (MAIN_APP, "/etc/instrument.conf")])
    it.make_media("sd", "nand-root")
    it.start("sd")
    it.update("sd", "nand-root")


def image_over_the_running_root(it):
    """What happens to an instrument whose root file system is in the NAND that an IMAGE line writes."""
    it.return_to_main_screen()
    # A program runs on as long as all that it touches is in memory.
    it.must("cat $(cat /proc/*/maps | grep -o '/usr/.*' | sort -u) /bin/umount /bin/sync /lib/*/*.so* >/dev/null")
    it.make_media("sd", "image")
    it.choose("sd")
    it.update("sd", "image", good=False)
    calls = it.calls()[-4:-2]
    it.check("the flash is erased, then ubiformat fails", calls == [
        ("flash_eraseall /dev/mtd1", 0), ("/tmp/ubiformat /dev/mtd1 -f /tmp/rootfs.ubi", 255)], calls)
    it.check("no program starts any more", "Invalid argument" in it.run("ls /")[1])
    it.return_to_main_screen()  # the updater itself runs on


# Each row: title; the tool, which of its runs, the system call and its number after which it stops; a command before the
# cut; what the cut leaves. A tool's first `openat` opens a library: the tool has done nothing yet. One run of umount is
# not the instrument's but the PC's.
NAND_CUTS = [
    ("KERNEL between erase and write", ("/usr/sbin/nandwrite", 1, "openat", 1), "true", erased("mtd0")),
    ("KERNEL half written", ("/usr/sbin/nandwrite", 1, "write", 80), "true",
     f"{programmed('mtd0', 70)} && ! {programmed('mtd0', 160)}"),
    ("IMAGE between erase and write", ("/usr/bin/ubiformat", 1, "openat", 1), "true", erased("mtd1")),
    ("IMAGE half written", ("/usr/bin/ubiformat", 1, "write", 80), "true",
     f"{programmed('mtd1', 3 * 64)} && ! {programmed('mtd1', 14 * 64)}"),
]
CARD_CUTS = [
    ("KERNEL half written", ("/sbin/sdimage", 1, "write", 3), "true",
     f"{kernel_on_card(100_000)} && ! {kernel_on_card()}"),
    ("FILE half on the disk", ("/bin/cp", 3, "write", 16), "sync", FILE_NOT_COPIED),
    ("FILE copied, not on the disk", ("/bin/sync", 1, "openat", 1), "true", FILE_NOT_COPIED),
]
PC_CUTS = [
    ("package deleted, not on the medium", ("/bin/sync", 2, "openat", 1), "true", packages_on("pc", 1)),
    ("package deleted on the medium", ("/bin/umount", 4, "openat", 1), "sync; sync", packages_on("pc", 0)),
]


def updates(source, compare=True):
    what, count = ("the package is deleted from the PC's storage", 0) if source == "pc" else (
        "the package is still on the medium", 1)
    return {f"{source}, SYSTEM {package.upper()}": partial(
        execute, source=source, package=package, compare=compare, conditions=[(what, packages_on(source, count))])
        for package in ("nand", "sdcard")}


# Each group has a guest of its own, which executes its scenarios one after the other.
GROUPS = {
    "card": updates("sd"),
    "stick": updates("stick", compare=False) | updates("partitioned stick"),
    "pc": updates("pc"),
    "faults": {
        "lines that fail": partial(execute, source="sd", package="failing", good=False, conditions=[NOTHING_WRITTEN],
                                   compare=True),
        "PC, no backing file": pc_without_backing_file,
        "PC, read-only storage": partial(
            execute, source="pc", package="nand",
            prepare=f"{copy_package('nand', SOURCES['pc'][1])} && mount -o remount,ro /mnt/ubiData",
            conditions=[("the package is still on the PC's storage", packages_on("pc", 1))]),
        "stick pulled during unpacking": stick_pulled,
        "no room to unpack in /tmp": no_room_to_unpack,
        # Room for what is unpacked, but not for the copy of the image that is made before the flash is erased.
        "no room for the image in /tmp": partial(
            execute, source="sd", package="nand", good=False,
            prepare=f"nandwrite -q -p /dev/mtd1 {PAYLOAD}/mainApp"
                    f" && mount -o remount,size=$(( $(du -sk {PAYLOAD} | cut -f 1) + 1000 ))k /tmp",
            conditions=[("the old image was not erased", "nanddump -q -f /run/old /dev/mtd1"
                         f" && cmp -s -n $(stat -c %s {PAYLOAD}/mainApp) /run/old {PAYLOAD}/mainApp"),
                        ("the other lines were executed", f"{KERNEL_IN_NAND} && {FILES_COPIED}")]),
        "read-only stick": partial(execute, source="partitioned stick", package="sdcard", stick=",readonly=on"),
        "bad blocks": partial(  # the second of mtd0, the third of mtd1
            execute, source="sd", package="nand", nand="badblocks=1,10",
            conditions=[("the bad blocks were skipped", "cd /sys/class/mtd && grep -x 1 mtd0/bad_blocks"
                         " && grep -x 1 mtd1/bad_blocks")]),
        "package name outside ASCII": name_outside_ascii},
    "tools": {"the system tools": tools},
    "boards": {"PIC and ESA lines": boards},
    "power-nand": power_cuts("sd", "nand", OLD_NAND, NAND_CUTS),
    "power-card": power_cuts("sd", "large", "true", CARD_CUTS),
    "power-pc": power_cuts("pc", "nand", OLD_NAND, PC_CUTS),
    "nand": {"root in NAND": root_in_nand, "IMAGE over the running root": image_over_the_running_root},
}


def make_packages():
    """A package for each update_config, with the files of the simulator's sample package."""
    subprocess.run([running.SIMULATOR / "sample-package", "--sub-page", "512", PACKAGES / "sample.tar.bz2"], check=True)
    shutil.unpack_archive(PACKAGES / "sample.tar.bz2", PACKAGES)
    folder = PACKAGES / "firmware_update"
    shutil.copytree(folder, PACKAGES / "files")
    shutil.copy(running.SIMULATOR / "tools/calls", PACKAGES)
    ballast = random.Random(1).randbytes(4 << 20)  # cannot be compressed: takes its time
    (PACKAGES / "ballast").write_bytes(ballast)
    for package, commands in UPDATE_CONFIGS.items():
        (folder / "update_config").write_text(commands)
        if package == "large":
            (folder / "ballast").write_bytes(ballast)
        shutil.make_archive(PACKAGES / f"{package}_firmware_update", "bztar", PACKAGES, folder.name)


def run_group(name):
    """Executes every scenario of a group; returns whether each check passed."""
    it = Instrument(name)
    try:
        return [passed for title, scenario in ({f"instrument {name}": Instrument.install} | GROUPS[name]).items()
                for passed in run_scenario(it, title, scenario)]
    finally:
        it.cut_power()


def run_scenario(it, title, scenario):
    start, it.checks = time.monotonic(), []
    try:
        scenario(it)
    except Exception as error:  # of any kind: the next scenario is executed
        it.check("the scenario ends without an error", False, repr(error))
    rows = [f"  {'pass' if passed else 'FAIL'}  {what}{details and ': '}{details}\n"
            for what, passed, details in it.checks]
    print(f"{title} ({time.monotonic() - start:.0f} s)\n" + "".join(rows), flush=True)
    return [passed for _, passed, _ in it.checks]


def main():
    start = time.monotonic()
    names = sys.argv[1:] or list(GROUPS)
    if not set(names) <= set(GROUPS):
        print(f"usage: acceptance.py [{'|'.join(GROUPS)}]...", file=sys.stderr)
        return 2
    for folder in OUTPUT / "run", OUTPUT / "simulator", PICTURES, PACKAGES:
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
    make_packages()
    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        passed = [passed for part in pool.map(run_group, names) for passed in part]
    print(f"{len(passed)} checks, {passed.count(False)} failed, {time.monotonic() - start:.0f} s; pictures: {PICTURES}")
    return 0 if all(passed) else 1


if __name__ == "__main__":
    sys.exit(main())
