"""Executes updates in the guest and checks each with tools that have nothing to do with the updater."""

import argparse
import concurrent.futures
import functools
import random
import shutil
import subprocess
import sys
import time

import journal  # of simulator/rehearsal, like running
import running
from guest import SHARE, Guest, read_picture, wait_until

BUILD = running.PROJECT / "build"
OUTPUT = BUILD / "acceptance"
PICTURES, PACKAGES = OUTPUT / "pictures", OUTPUT / "packages"
PACKAGES_IN_GUEST = f"{SHARE}/acceptance/packages"
PAYLOAD = f"{PACKAGES_IN_GUEST}/files"

PRODUCT = "Quorvin"  # the simulator's
CARD, STICK = "/dev/mmcblk0p4", "/dev/sda"
SOURCES = {  # the operator's key, where a package is put, and what makes a file system there
    "sd": ("f3", CARD, ":"),
    "stick": ("f2", STICK, f"mkfs.vfat -I {STICK}"),
    "partitioned stick": ("f2", f"{STICK}1", f"echo 1M,,c | sfdisk -q -w always {STICK} && mkfs.vfat {STICK}1"),
    "pc": ("f1", None, "mkfs.ext4 -q -F /dev/mmcblk0p3 && mount /dev/mmcblk0p3 /mnt/ubiData && cd /mnt/ubiData"
           " && truncate -s 16M backfile && echo 8,,c | sfdisk -q -w always backfile && mkfs.vfat --offset 8 backfile"
           " && cd / && sync"),
}
GREEN, RED, BLACK, WHITE = (0, 128, 0), (255, 0, 0), (0, 0, 0), (255, 255, 255)
MAIN_APP = "/usr/local/Trolltech/Qt-Target-version-optimised/mainApp"
NAND = "modprobe nandsim id_bytes=0x20,0xaa,0x00,0x15 parts=8,64"  # pages of 2 KiB, blocks of 128 KiB
ON_NAND, ON_CARD = ["SYSTEM:NAND"], ["SYSTEM:SDCARD"]
NAND_KERNEL, CARD_KERNEL, IMAGE = ON_NAND + ["KERNEL:/uImage"], ON_CARD + ["KERNEL:/uImage"], ["IMAGE:/rootfs.ubi"]
FILES = ["APP:/mainApp", "FILE:/etc/instrument.conf", "SCRIPT:/finish.sh 1.1"]
BOARDS = ["PIC1:/pic1.hex", "PIC4:/pic4.hex", "ESA_IO_APP:/esa_io.bin", "ESA_M_APP:/esa_m.bin",
          "ESA_IO_EEP:/esa_io.eep", "ESA_M_EEP:/esa_m.eep"]
# The root file system of most instruments here is on the SD card: only then does an IMAGE line leave it alone.
LINES = {
    "nand": (NAND_KERNEL, IMAGE, ON_CARD, FILES),
    "sdcard": (CARD_KERNEL, FILES),
    "nand-root": (NAND_KERNEL, FILES),
    "image": (ON_NAND, IMAGE),
    "boards": (NAND_KERNEL, BOARDS),
    "large": (CARD_KERNEL, FILES, ["FILE:/ballast"]),
    "failing": (ON_CARD, ["KERNEL:/missing", "FILE:/missing", "SCRIPT:/missing", "OTHER:/uImage", "KERNEL"]),
}


class Instrument:
    """The instrument in the guest, the person in front of it and the one who inspects it afterwards."""

    def __init__(self, name, root_in_nand=False):
        self.name = name
        self.root_in_nand = root_in_nand
        self.folder = OUTPUT / "run" / name
        self.folder.mkdir(parents=True)
        shutil.copy(OUTPUT / "guest" / "root.img", self.folder)
        subprocess.run(["truncate", "-s", "64M", self.folder / "card", self.folder / "stick"], check=True)
        self.picture_count = 0
        self.guest = self.undisturbed = None
        self.rows = []

    def check(self, what, holds, otherwise=""):
        """A row of the table: what was checked, and whether it held."""
        self.rows.append((what, bool(holds), "" if holds else otherwise))

    def switch_on(self):
        self.guest = Guest(BUILD, self.folder, self.root_in_nand)
        self.run, self.must, self.succeeds = self.guest.run, self.guest.must, self.guest.succeeds

    def install(self):
        """The package for a board. What it depends on is there as files, of which dpkg does not know."""
        self.switch_on()
        self.must(f"mount / -o remount,rw && dpkg --install --force-depends {SHARE}/acceptance/board/*.deb"
                  f" && echo 'PRODUCT={PRODUCT} FLAGS=\"--pic-enable --avr-enable\"' >>/etc/default/updater"
                  " && mount / -o remount,ro")

    def deliver(self, source=None, package=None, nand=""):
        """An instrument as it leaves the factory (erased NAND, old files, an empty card), and the operator's medium."""
        self.run("/etc/init.d/updater stop; umount /mnt/update /mnt/ubiData; rmmod nandsim; cat /dev/zero >/dev/fb0")
        self.must(f"mount -o remount,rw / && echo old >{MAIN_APP} && echo old >/etc/instrument.conf"
                  f" && rm -rf /var/lib/updates /ballast /tmp/* && sync && mount -o remount,ro / && {NAND} {nand}")
        self.make_card()
        if source:
            self.bring(source, package)

    def make_card(self):
        self.must("printf '4M,4M,53\\n8M,8M\\n16M,20M\\n36M,,c\\n' | sfdisk -q -w always /dev/mmcblk0"
                  f" && head -c 1M /dev/zero >/dev/mmcblk0p1 && mkfs.vfat {CARD}")

    def bring(self, source, package):
        _, device, make = SOURCES[source]
        if "stick" in source:
            self.guest.plug(self.folder / "stick")
        self.must(make)
        if device:
            self.put_package(device, package)

    def put_package(self, device, package):
        self.must(f"mount {device} /mnt/pc && cp {PACKAGES_IN_GUEST}/{package}_firmware_update.tar.bz2 /mnt/pc"
                  " && umount /mnt/pc")

    def start(self, source):
        """To the prompt of a source."""
        self.pictures = {}
        self.must("/etc/init.d/updater start")
        self.wait_for_screen(main=True)
        self.guest.trace("$(cat /run/updater.pid)")
        self.take_picture("main-screen")
        self.choose(source)

    def choose(self, source):
        self.guest.press(SOURCES[source][0])
        self.wait_for_screen(main=False)
        self.take_picture("prompt")

    def return_to_main_screen(self):
        self.guest.press("f1")
        self.wait_for_screen(main=True)

    def wait_for_screen(self, main):
        """The main screen is white where the other one has its keys."""
        wait_until(lambda: (self.guest.display()[231][103] == WHITE) == main and WHITE in self.guest.colours(), 60,
                   "the main screen" if main else "the progress screen")
        time.sleep(0.5)

    def take_picture(self, what):
        self.picture_count += 1
        self.pictures[what] = self.guest.display(PICTURES / f"{self.name}-{self.picture_count:02}-{what}.png")

    def wait_for_calls(self, *ending, failed=False):
        """Until these are the last tools that ran (the last one with a failure), and the panel shows it."""
        def reached():
            calls = self.guest.calls()[-len(ending):]
            return (len(calls) == len(ending) and (not failed or calls[-1][1] != 0)
                    and all(call.startswith(start) for (call, _), start in zip(calls, ending)))
        wait_until(reached, 120, f"the end of the update ({', '.join(ending)})")
        time.sleep(1)

    def begin(self, source, package):
        """From the prompt to where the package is read."""
        self.guest.press("f1")
        if source == "pc":
            wait_until(lambda: self.succeeds("test -b /dev/sda1"), 30, "the USB drive at the PC")
            if package:
                self.put_package("/dev/sda1", package)
            self.take_picture("copy-prompt")
            self.guest.press("f1")

    def update(self, source, package):
        """A whole update from the prompt to the last message."""
        self.begin(source, package)
        self.wait_for_calls("sync")
        self.take_picture("running")
        if source == "pc":
            self.wait_for_calls("umount /mnt/update", "losetup -d /dev/loop0")
        else:
            self.wait_for_calls("sync", "umount /mnt/update")

    def stop_in(self, tool, run, call, count):
        """The tool will stop in its run of that number, after its system call of that kind and number."""
        traced = f"strace -o /run/stopped -e trace={call} -e inject={call}:signal=STOP:when={count}"
        script = (f"#!/bin/sh\necho >>/run/runs\n[ $(wc -l </run/runs) = {run} ] && exec {traced} /run/tool \"$@\"\n"
                  "exec /run/tool \"$@\"\n")
        self.must(f"cp {tool} /run/tool && echo '{script}' >/run/stop && chmod +x /run/stop && killall strace"
                  f" && mount --bind /run/stop {tool} && echo 0 >/proc/sys/vm/dirty_writeback_centisecs")
        wait_until(lambda: not self.succeeds("pidof strace"), 20, "the tools to be traced no more")

    def cut_power(self, nand):
        """Pulls the plug and switches on again. The emulated NAND forgets without power: its content is put back."""
        partitions = ("mtd0", "mtd1") if nand else ()
        for partition in partitions:
            (self.folder / partition).write_text(self.must(f"nanddump -q /dev/{partition} | gzip -1 | base64"))
        self.guest.cut_power()
        self.switch_on()
        self.must(NAND)
        for partition in partitions:
            self.must(f"base64 -d {SHARE}/acceptance/run/{self.name}/{partition} | gunzip"
                      f" | nandwrite -q --skip-all-ffs /dev/{partition} -")
        self.run("mount /dev/mmcblk0p3 /mnt/ubiData")

    def contents(self):
        """All that an update can change: flash, kernel of the card, files of the root file system."""
        return self.must("sha256sum /dev/mtd0 /dev/mmcblk0p1; ubiattach -p /dev/mtd1 && sha256sum /dev/ubi0_0;"
                         " ubidetach -p /dev/mtd1; cd /; find . -xdev ! -type d -exec stat -c '%n %A %s' {} + | sort;"
                         " find . -xdev -type f -newer sbin/init -exec sha256sum {} + | sort")

    def panel_in_its_place(self):
        """281 by 208 pixels at (3, 31), and black around them."""
        rows = self.guest.display()
        around = rows[:31] + rows[239:] + [row[:3] + row[284:] for row in rows]
        return all(pixel == BLACK for row in around for pixel in row) and rows[31][3] != BLACK

    def kernel_in_nand(self):
        return self.succeeds(f"set -- $(stat -c %s {PAYLOAD}/uImage) && nanddump -q --bb=skipbad -l $1 -f /run/kernel"
                             f" /dev/mtd0 && cmp -n $1 /run/kernel {PAYLOAD}/uImage")

    def kernel_on_card(self, size=f"$(stat -c %s {PAYLOAD}/uImage)"):
        return self.succeeds(f"cmp -n {size} /dev/mmcblk0p1 {PAYLOAD}/uImage")

    def erased(self, partition):
        return self.succeeds(f"! nanddump -q --bb=skipbad /dev/{partition} | tr -d '\\377' | grep -q .")

    def programmed(self, partition, page):
        return self.succeeds(f"dd if=/dev/{partition} bs=2k skip={page} count=1 | tr -d '\\377' | grep -q .")

    def issue_in_nand(self):
        return self.run("ubiattach -p /dev/mtd1 && mount -t ubifs -o ro ubi0:rootfs /mnt/pc && cat /mnt/pc/etc/issue;"
                        " umount /mnt/pc; ubidetach -p /dev/mtd1")[1]

    def files_copied(self):
        return self.succeeds(f"cmp {MAIN_APP} {PAYLOAD}/mainApp && cmp /etc/instrument.conf"
                             f" {PAYLOAD}/etc/instrument.conf && grep -qx 'updated to 1.1' /var/lib/updates/last")

    def released(self):
        return not self.succeeds("grep -E ' /mnt/update ' /proc/mounts || test -e /sys/block/loop0/loop"
                                 " || grep -E '^(g_mass_storage|fsl_usb2_udc) ' /proc/modules")

    def packages_on(self, device):
        return self.must(f"mount -o ro {device} /mnt/pc && ls -A /mnt/pc && umount /mnt/pc").split()

    def packages_at_the_pc(self):
        self.must("losetup -r -o 4096 /dev/loop1 /mnt/ubiData/backfile")
        packages = self.packages_on("/dev/loop1")
        self.must("losetup -d /dev/loop1")
        return packages


def on_the_simulator(source, package):
    """The same update on a virtual instrument: the calls of its tools, and its state."""
    options = argparse.Namespace(build=BUILD / "release", source=source.split()[-1], pic_enable=True, avr_enable=True)
    updates = running.Updates(options, PACKAGES / f"{package}_firmware_update.tar.bz2")
    instrument = updates.new_instrument(OUTPUT / "simulator" / f"{source}-{package}", "sdcard")
    updates.update(instrument.parent)
    return journal.calls(journal.read(instrument)), instrument / "run/instrument"


def tool_calls_on_the_simulator():
    instrument = OUTPUT / "simulator/tools"
    subprocess.run([running.SIMULATOR / "new-instrument", "--tools", BUILD / "release/simulator", "--system", "sdcard",
                    instrument], check=True)
    shutil.copy(PACKAGES / "files/rootfs.ubi", instrument / "run/instrument")
    return subprocess.run([running.SIMULATOR / "sandbox", instrument, f"/run/host{running.SIMULATOR}/vm/tool-calls"],
                          check=True, capture_output=True, text=True).stdout.splitlines()


def check_end(instrument, good=True):
    colours = instrument.guest.colours()
    instrument.take_picture("end")
    instrument.check(f"the panel ends in {'green, without red' if good else 'red'}",
                     (GREEN in colours) == good and (RED in colours) != good)


def check_failed_early(instrument):
    check_end(instrument, good=False)
    in_nand = not instrument.erased("mtd0") or not instrument.erased("mtd1")
    instrument.check("nothing was written", not in_nand and instrument.succeeds(
        f"grep -qx old {MAIN_APP} && ! head -c 1M /dev/mmcblk0p1 | tr -d '\\0' | grep -q ."))


def check_update(instrument, package):
    check_end(instrument)
    instrument.check("the panel lies in the black at (3, 31)", instrument.panel_in_its_place())
    if NAND_KERNEL in LINES[package]:
        instrument.check("kernel read back from mtd0", instrument.kernel_in_nand())
    if IMAGE in LINES[package]:
        issue = instrument.issue_in_nand()
        instrument.check("root image attached, mounted and read", "root file system 1.1\n" in issue, issue)
    if CARD_KERNEL in LINES[package]:
        instrument.check("kernel read back from the SD card", instrument.kernel_on_card())
    if FILES in LINES[package]:
        instrument.check("files copied, script run", instrument.files_copied())
    instrument.check("medium, loop device and modules released", instrument.released())


def perform(instrument, source, package):
    instrument.start(source)
    instrument.update(source, package)
    check_update(instrument, package)


def check_same_as_simulator(instrument, source, package):
    """Up to the press of F1 that shows the main screen again."""
    instrument.return_to_main_screen()
    instrument.wait_for_calls("umount /mnt/update", failed=True)
    real, (simulated, state) = instrument.guest.calls(), on_the_simulator(source, package)
    different = [f"{here} here, {there} in the simulator" for here, there in zip(real, simulated) if here != there]
    instrument.check("the simulator's tools say the same", real == simulated, different or (real, simulated))
    for file in sorted((state / "pictures").iterdir()):
        stage = file.stem.split("-", 1)[1]
        different = [(x, y) for y, row in enumerate(read_picture(file)) for x, pixel in enumerate(row)
                     if pixel != instrument.pictures[stage][y][x]]
        instrument.check(f"the picture {stage} is the simulator's, pixel for pixel", not different,
                         f"{len(different)} pixels differ, the first at {different[:1]}")


def update(source, package, instrument):
    instrument.deliver(source, package)
    perform(instrument, source, package)
    if source == "pc":
        instrument.check("the package is deleted from the PC's storage", instrument.packages_at_the_pc() == [])
    else:
        instrument.check("the package is still on the medium", len(instrument.packages_on(SOURCES[source][1])) == 1)
    if source != "stick":
        check_same_as_simulator(instrument, source, package)
    if "stick" in source:
        instrument.guest.unplug()


def failing_lines(instrument):
    instrument.deliver("sd", "failing")
    instrument.start("sd")
    instrument.update("sd", "failing")
    check_failed_early(instrument)
    check_same_as_simulator(instrument, "sd", "failing")


def pc_without_backing_file(instrument):
    """This kernel loads the gadget all the same, with no drive; the SD card's partition is never tried."""
    instrument.deliver()
    instrument.start("pc")
    instrument.guest.press("f1")
    instrument.wait_for_calls("modprobe g_mass_storage")
    instrument.guest.press("f1")
    instrument.wait_for_calls("losetup -o 4096", failed=True)
    check_failed_early(instrument)
    instrument.check("loop device and modules released", instrument.released())


def read_only_pc_storage(instrument):
    """The package is already there, and cannot be deleted."""
    instrument.deliver("pc")
    instrument.must("losetup -o 4096 /dev/loop1 /mnt/ubiData/backfile")
    instrument.put_package("/dev/loop1", "nand")
    instrument.must("losetup -d /dev/loop1 && mount -o remount,ro /mnt/ubiData")
    instrument.start("pc")
    instrument.update("pc", None)
    check_update(instrument, "nand")
    instrument.check("the package is still on the PC's storage", len(instrument.packages_at_the_pc()) == 1)


def boards(instrument):
    """The virtual instrument's program with its boards, started as the real one is, and the real tools."""
    state = on_the_simulator("sd", "boards")[1]
    instrument.deliver("sd", "boards")
    instrument.must("mkdir /run/instrument && printf 'operator\\tsd\\t-\\n' >/run/instrument/plan && mount --bind"
                    f" {SHARE}/release/simulator/virtual-updater /usr/bin/updater && /etc/init.d/updater start")
    wait_until(lambda: not instrument.succeeds("/etc/init.d/updater status"), 300, "the update of the boards")
    events = instrument.must("cat /run/instrument/journal")
    instrument.check("the update is complete", "message\tgreen\tUpdate complete" in events, events)
    instrument.check("no violation", "violation" not in events, events)
    for what in "boards", "pictures":
        status, difference = instrument.run(f"diff -r {SHARE}/{state.relative_to(BUILD)}/{what} /run/instrument/{what}")
        instrument.check(f"{what}: the same bytes as in the simulator", status == 0, difference)
    instrument.check("kernel read back from mtd0", instrument.kernel_in_nand())


def tools(instrument):
    """The same calls of the system tools, good and bad ones, here and in the simulator."""
    instrument.deliver("pc")
    instrument.must(f"mkdir -p /run/instrument && cp {PAYLOAD}/rootfs.ubi /run/instrument")
    real, simulated = instrument.must(f"{PACKAGES_IN_GUEST}/tool-calls").splitlines(), tool_calls_on_the_simulator()
    instrument.check("as many calls here as in the simulator", len(real) == len(simulated))
    for here, there in zip(real, simulated):
        instrument.check(there.split(" ", 1)[1], here == there, f"{here.split()[0]}; simulator: {there.split()[0]}")


def stick_pulled(instrument):
    instrument.deliver("stick", "large")
    instrument.guest.unplug()
    instrument.guest.plug(instrument.folder / "stick", options=",throttling.bps-total=400000")
    instrument.start("stick")
    instrument.guest.press("f1")
    wait_until(lambda: instrument.succeeds("pidof bzip2 && test -e /tmp/firmware_update/ballast"), 30, "the unpacking")
    instrument.guest.unplug()
    instrument.wait_for_calls("tar", failed=True)
    check_failed_early(instrument)
    instrument.guest.plug(instrument.folder / "stick", device="/dev/sdb")
    instrument.check("put back before F1, the stick has another name", not instrument.succeeds("test -b /dev/sda"))
    instrument.guest.unplug("/dev/sdb")
    instrument.return_to_main_screen()
    instrument.guest.plug(instrument.folder / "stick")
    instrument.choose("stick")
    instrument.update("stick", "large")
    check_update(instrument, "large")
    instrument.guest.unplug()


def no_room_to_unpack(instrument):
    instrument.deliver("sd", "nand")
    instrument.must("mount -o remount,size=1M /tmp")
    instrument.start("sd")
    instrument.guest.press("f1")
    instrument.wait_for_calls("tar", failed=True)
    check_failed_early(instrument)
    instrument.check("tar fails with 2", instrument.guest.calls()[-1][1] == 2, instrument.guest.calls()[-1])
    instrument.must("mount -o remount,size=50% /tmp")


def no_room_for_the_image(instrument):
    """Room for what is unpacked, none for the copy of the image that is made before the flash is erased."""
    instrument.deliver("sd", "nand")
    instrument.must(f"nandwrite -q -p /dev/mtd1 {PAYLOAD}/mainApp"
                    f" && mount -o remount,size=$(( $(du -sk {PAYLOAD} | cut -f 1) + 1000 ))k /tmp")
    instrument.start("sd")
    instrument.update("sd", "nand")
    check_end(instrument, good=False)
    instrument.check("the old image was not erased", instrument.succeeds(
        f"nanddump -q -f /run/old /dev/mtd1 && cmp -n $(stat -c %s {PAYLOAD}/mainApp) /run/old {PAYLOAD}/mainApp"))
    instrument.check("the other lines were executed", instrument.kernel_in_nand() and instrument.files_copied())
    instrument.must("mount -o remount,size=50% /tmp")


def read_only_stick(instrument):
    instrument.deliver("partitioned stick", "sdcard")
    instrument.guest.unplug()
    instrument.guest.plug(instrument.folder / "stick", options=",readonly=on")
    perform(instrument, "stick", "sdcard")
    instrument.guest.unplug()


def bad_blocks(instrument):
    instrument.deliver("sd", "nand", nand="badblocks=1,10")  # the second of mtd0, the third of mtd1
    perform(instrument, "sd", "nand")
    instrument.check("the bad blocks were skipped", instrument.succeeds(
        "test $(cat /sys/class/mtd/mtd0/bad_blocks) = 1 && test $(cat /sys/class/mtd/mtd1/bad_blocks) = 1"))


def name_outside_ascii(instrument):
    """It counts as a second package, and is found when it is the only one."""
    instrument.deliver("sd", "sdcard")
    instrument.must(f"mount {CARD} /mnt/pc && cd /mnt/pc && cp sdcard_* größe_$(echo sdcard_*) && cd /"
                    " && umount /mnt/pc")
    instrument.start("sd")
    instrument.guest.press("f1")
    wait_until(lambda: RED in instrument.guest.colours(), 60, "the failure")
    check_failed_early(instrument)
    instrument.must("rm /mnt/update/sdcard_*")
    instrument.return_to_main_screen()
    instrument.choose("sd")
    instrument.update("sd", "sdcard")
    check_update(instrument, "sdcard")


def without_power_cut(source, package, instrument):
    """What an update must leave after each power cut."""
    instrument.deliver(source, package)
    perform(instrument, source, package)
    instrument.undisturbed = instrument.contents()


def power_cut(source, package, stop, is_left, commands, instrument):
    """The plug is pulled while a tool has stopped, after commands in the guest; `is_left` says what that leaves."""
    in_nand = NAND_KERNEL in LINES[package]
    instrument.deliver(source, package)
    if in_nand:
        instrument.must(f"nandwrite -q -p /dev/mtd0 {PAYLOAD}/mainApp && ubiformat -q -y /dev/mtd1")
    instrument.start(source)
    instrument.stop_in(*stop)
    instrument.begin(source, package)
    wait_until(lambda: instrument.succeeds("grep -q 'stopped by' /run/stopped"), 120, "the tool to stop")
    for command in commands:
        instrument.must(command)
    instrument.cut_power(in_nand)
    instrument.check("the power cut came at its moment", is_left(instrument))
    perform(instrument, source, package)
    instrument.check("the instrument is the same as after an update without a power cut",
                     instrument.contents() == instrument.undisturbed)


def file_is_missing(instrument):
    return not instrument.succeeds(f"cmp /ballast {PACKAGES_IN_GUEST}/ballast")


def power_cuts(source, package, cuts):
    """An update without a power cut, then one for each title, moment and state that the cut leaves."""
    return {f"no power cut, {source}": functools.partial(without_power_cut, source, package)} | {
        f"power cut, {title}": functools.partial(power_cut, source, package, stop, is_left, commands)
        for title, stop, is_left, *commands in cuts}


def root_in_nand(instrument):
    for file in MAIN_APP, "/etc/instrument.conf":
        instrument.check(f"{file} cannot be written before", not instrument.succeeds(f"echo old >{file}"))
    instrument.make_card()
    instrument.bring("sd", "nand-root")
    perform(instrument, "sd", "nand-root")


def image_over_the_running_root(instrument):
    """What happens to an instrument whose root file system is in the NAND that an IMAGE line writes."""
    instrument.return_to_main_screen()
    # Programs that run go on as long as all that they touch is in memory.
    instrument.must("cat $(cat /proc/*/maps | grep -o /usr/.* | sort -u) /bin/umount /bin/sync /lib/*/*.so* >/dev/null")
    instrument.make_card()
    instrument.bring("sd", "image")
    instrument.choose("sd")
    instrument.update("sd", "image")
    check_end(instrument, good=False)
    calls = instrument.guest.calls()[-4:]
    instrument.check("the flash is erased and ubiformat refuses", calls[:2] == [
        ("flash_eraseall /dev/mtd1", 0), ("/tmp/ubiformat /dev/mtd1 -f /tmp/rootfs.ubi", 255)], calls)
    instrument.check("no program starts any more", "Invalid argument" in instrument.run("ls /")[1])
    instrument.return_to_main_screen()  # the updater itself runs on
    instrument.take_picture("after-f1")


# Where a tool stops: in which of its runs, after which system call. The first file that it opens is a library: there it
# has not begun. Of umount, one run is the PC's.
NAND_CUTS = [
    ("KERNEL between erase and write", ("/usr/sbin/nandwrite", 1, "openat", 1), lambda it: it.erased("mtd0")),
    ("KERNEL half written", ("/usr/sbin/nandwrite", 1, "write", 80),
     lambda it: it.programmed("mtd0", 70) and not it.programmed("mtd0", 160)),
    ("IMAGE between erase and write", ("/usr/bin/ubiformat", 1, "openat", 1), lambda it: it.erased("mtd1")),
    ("IMAGE half written", ("/usr/bin/ubiformat", 1, "write", 80),
     lambda it: it.programmed("mtd1", 3 * 64) and not it.programmed("mtd1", 14 * 64)),
]
CARD_CUTS = [
    ("KERNEL half written", ("/sbin/sdimage", 1, "write", 3),
     lambda it: it.kernel_on_card(100_000) and not it.kernel_on_card()),
    ("FILE half on the disk", ("/bin/cp", 3, "write", 16), file_is_missing, "sync"),
    ("FILE copied, not on the disk", ("/bin/sync", 1, "openat", 1), file_is_missing),
]
PC_CUTS = [
    ("package deleted, not on the medium", ("/bin/sync", 2, "openat", 1), lambda it: it.packages_at_the_pc() != []),
    ("package deleted on the medium", ("/bin/umount", 4, "openat", 1), lambda it: it.packages_at_the_pc() == [],
     "sync", "sync"),
]

# The instruments, each with the scenarios that are executed on it one after the other.
INSTRUMENTS = {
    name: {f"{source}, SYSTEM {package.upper()}": functools.partial(update, source, package)
           for source in sources for package in ("nand", "sdcard")}
    for name, sources in {"card": ["sd"], "stick": ["stick", "partitioned stick"], "pc": ["pc"]}.items()} | {
    "faults": {
        "lines that fail": failing_lines, "PC, no backing file": pc_without_backing_file,
        "PC, read-only storage": read_only_pc_storage, "stick pulled during unpacking": stick_pulled,
        "no room to unpack in /tmp": no_room_to_unpack, "no room for the image in /tmp": no_room_for_the_image,
        "read-only stick": read_only_stick, "bad blocks": bad_blocks, "package name outside ASCII": name_outside_ascii},
    "tools": {"the system tools": tools},
    "boards": {"PIC and ESA lines": boards},
    "power-nand": power_cuts("sd", "nand", NAND_CUTS),
    "power-card": power_cuts("sd", "large", CARD_CUTS),
    "power-pc": power_cuts("pc", "nand", PC_CUTS),
    "nand": {"root in NAND": root_in_nand, "IMAGE over the running root": image_over_the_running_root},
}


def make_packages():
    """One package for each list of lines, all with the files of the simulator's sample package."""
    subprocess.run([running.SIMULATOR / "sample-package", "--sub-page", "512", PACKAGES / "sample.tar.bz2"], check=True)
    subprocess.run(["tar", "xjf", "sample.tar.bz2"], cwd=PACKAGES, check=True)
    folder = PACKAGES / "firmware_update"
    shutil.copytree(folder, PACKAGES / "files")
    shutil.copy(running.SIMULATOR / "vm/tool-calls", PACKAGES)
    (PACKAGES / "ballast").write_bytes(random.Random(1).randbytes(4 << 20))  # cannot be compressed: takes its time
    for package, lists in LINES.items():
        (folder / "update_config").write_text("".join(f"{line}\n" for lines in lists for line in lines))
        if package == "large":
            shutil.copy(PACKAGES / "ballast", folder)
        subprocess.run(["tar", "cjf", f"{package}_firmware_update.tar.bz2", folder.name], cwd=PACKAGES, check=True)
        (folder / "ballast").unlink(missing_ok=True)


def run_instrument(name):
    """Every scenario on one instrument; the rows of all."""
    instrument = Instrument(name, root_in_nand=name == "nand")
    try:
        scenarios = {f"instrument {name}": Instrument.install} | INSTRUMENTS[name]
        return [row for title, scenario in scenarios.items() for row in run_scenario(instrument, title, scenario)]
    finally:
        if instrument.guest:
            instrument.guest.cut_power()


def run_scenario(instrument, title, scenario):
    start, instrument.rows = time.monotonic(), []
    try:
        scenario(instrument)
    except Exception as error:  # of any kind: the others are executed
        instrument.check("comes to its end", False, repr(error))
    rows = [f"  {'pass' if holds else 'FAIL'}  {what}{otherwise and ': '}{otherwise}\n"
            for what, holds, otherwise in instrument.rows]
    print(f"{title} ({time.monotonic() - start:.0f} s)\n" + "".join(rows), flush=True)
    return instrument.rows


def main():
    start = time.monotonic()
    names = sys.argv[1:] or list(INSTRUMENTS)
    if not set(names) <= set(INSTRUMENTS):
        sys.exit(f"usage: acceptance.py [{'|'.join(INSTRUMENTS)}]...")
    for folder in OUTPUT / "run", OUTPUT / "simulator", PICTURES, PACKAGES:
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
    make_packages()
    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        rows = [row for part in pool.map(run_instrument, names) for row in part]
    failures = sum(not holds for _, holds, _ in rows)
    print(f"{len(rows)} checks, {failures} failed, {time.monotonic() - start:.0f} s; pictures: {PICTURES}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
