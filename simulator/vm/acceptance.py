"""Carries out updates on the virtual machine and checks each with tools that have nothing to do with the updater."""

import concurrent.futures
import pathlib
import random
import shutil
import subprocess
import sys
import time

from guest import PANEL, SHARE, TRACE, Guest, wait_until

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build"
OUTPUT = BUILD / "acceptance"
PICTURES = OUTPUT / "pictures"
PACKAGES = OUTPUT / "packages"

KEYS = {"pc": "f1", "stick": "f2", "sd": "f3"}
GREEN, RED, BLACK = (0, 128, 0), (255, 0, 0), (0, 0, 0)
MAIN_APP = "/usr/local/Trolltech/Qt-Target-version-optimised/mainApp"
NAND = "modprobe nandsim id_bytes=0x20,0xaa,0x00,0x15 parts=8,64"  # pages of 2 KiB, blocks of 128 KiB
KERNEL, IMAGE = ["KERNEL:/uImage"], ["IMAGE:/rootfs.ubi"]
FILES = ["APP:/mainApp", "FILE:/etc/instrument.conf", "SCRIPT:/finish.sh 1.1"]
BOARDS = ["PIC1:/pic1.hex", "PIC4:/pic4.hex", "ESA_IO_APP:/esa_io.bin", "ESA_M_APP:/esa_m.bin",
          "ESA_IO_EEP:/esa_io.eep", "ESA_M_EEP:/esa_m.eep"]
# The root file system of most units here is on the SD card: only then does an IMAGE line leave it alone.
COMMANDS = {
    "nand": ["SYSTEM:NAND"] + KERNEL + IMAGE + ["SYSTEM:SDCARD"] + FILES,
    "sdcard": ["SYSTEM:SDCARD"] + KERNEL + FILES,
    "nand-root": ["SYSTEM:NAND"] + KERNEL + FILES,
    "image": ["SYSTEM:NAND"] + IMAGE,
    "boards": ["SYSTEM:NAND"] + KERNEL + BOARDS,
    "large": ["SYSTEM:NAND"] + KERNEL,
}
PAYLOAD = f"{SHARE}/acceptance/packages/files"


class Checks:
    """The table: what was checked in which scenario, and whether it held."""

    def __init__(self, scenario):
        self.scenario = scenario
        self.rows = []

    def that(self, what, holds, otherwise=""):
        self.rows.append((what, bool(holds), "" if holds else otherwise))

    def table(self):
        rows = [f"  {'pass' if holds else 'FAIL'}  {what}{otherwise and ': '}{otherwise}\n"
                for what, holds, otherwise in self.rows]
        return f"{self.scenario}\n" + "".join(rows)


class Unit:
    """The instrument in the virtual machine, the person in front of it and the one who inspects it afterwards."""

    def __init__(self, name, root_in_nand=False, again=False):
        self.name = name
        self.folder = OUTPUT / "run" / name
        if not again:
            self.folder.mkdir(parents=True)
            shutil.copy(OUTPUT / "guest" / "root.img", self.folder)
            for medium in "card", "stick":
                with open(self.folder / medium, "wb") as file:
                    file.truncate(64 << 20)
        self.guest = Guest(BUILD, self.folder, self.folder / "card", root_in_nand)
        self.run, self.must, self.succeeds = self.guest.run, self.guest.must, self.guest.succeeds
        self.picture_count = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.guest.cut_power()

    def deliver(self):
        """A unit as it leaves the factory: erased NAND, old files, root file system not writable, an empty card."""
        self.run("killall updater; umount /mnt/update; rmmod nandsim")
        self.must("mount -o remount,rw /")
        for file in MAIN_APP, "/etc/instrument.conf":
            self.must(f"echo old >{file}")
        self.must("rm -rf /var/lib/updates /tmp/* && sync && mount -o remount,ro /")
        self.must(NAND)
        self.make_card()

    def start_updater(self, program="updater", setup=""):
        self.run("cat /dev/zero >/dev/fb0")  # what an earlier one left there
        self.must(f"cd /tmp; {setup} {PANEL} {TRACE} {SHARE}/release/{program} </dev/null >/run/log 2>&1 &")
        wait_until(lambda: (255, 255, 255) in self.guest.colours(), 30, "the panel")

    def take_picture(self, what):
        self.picture_count += 1
        self.guest.picture(PICTURES / f"{self.name}-{self.picture_count:02}-{what}.png")

    def choose(self, source):
        """To the prompt of a source, as the operator does it."""
        self.turn_page(KEYS[source])

    def turn_page(self, key):
        before = self.guest.display()
        self.guest.press(key)
        wait_until(lambda: self.guest.display() != before, 20, "another screen")
        time.sleep(0.5)

    def wait_for_calls(self, *ending, failed=False):
        """Until these are the last tools that ran (the last one with a failure), and the panel has said so."""
        def reached():
            calls = self.guest.calls()[-len(ending):]
            return (len(calls) == len(ending) and (not failed or calls[-1][1] != 0)
                    and all(call.startswith(start) for (call, _), start in zip(calls, ending)))
        wait_until(reached, 120, f"the end of the update ({', '.join(ending)})")
        time.sleep(1)

    def update(self, source, package):
        """A whole update from the prompt to the last message."""
        self.guest.press("f1")
        if source == "pc":
            self.copy_as_the_pc(package)
            self.guest.press("f1")
            self.wait_for_calls("umount /mnt/update", "losetup -d /dev/loop0")
        else:
            self.wait_for_calls("sync", "umount /mnt/update")

    def put_package(self, device, package):
        self.must(f"mount {device} /mnt/pc && cp {SHARE}/acceptance/packages/{package}_firmware_update.tar.bz2 /mnt/pc"
                  " && umount /mnt/pc")

    def copy_as_the_pc(self, package):
        wait_until(lambda: self.succeeds("test -b /dev/sda1"), 30, "the USB drive at the PC")
        self.put_package("/dev/sda1", package)
        self.take_picture("copy-prompt")

    def make_card(self):
        self.must("printf '4M,4M,53\\n8M,8M\\n16M,8M\\n24M,,c\\n' | sfdisk -q -w always /dev/mmcblk0"
                  " && mkfs.vfat /dev/mmcblk0p4")

    def make_stick(self, partitioned):
        self.guest.plug(self.folder / "stick")
        if partitioned:
            self.must("echo '1M,,c' | sfdisk -q -w always /dev/sda && mkfs.vfat /dev/sda1")
        else:
            self.must("mkfs.vfat -I /dev/sda")

    def make_backing_file(self):
        self.must("cd /mnt/ubiData && truncate -s 16M backfile && echo '8,,c' | sfdisk -q -w always backfile"
                  " && mkfs.vfat --offset 8 backfile")

    # What is read back.

    def panel_in_its_place(self):
        """281 by 208 pixels at (3, 31), and black around them."""
        rows = self.guest.display()
        around = rows[:31] + rows[239:] + [row[:3] + row[284:] for row in rows]
        return all(pixel == BLACK for row in around for pixel in row) and rows[31][3] != BLACK

    def kernel_in_nand(self):
        return self.succeeds(f"set -- $(stat -c %s {PAYLOAD}/uImage) && nanddump -q --bb=skipbad -l $1 -f /run/kernel"
                             f" /dev/mtd0 && cmp -n $1 /run/kernel {PAYLOAD}/uImage")

    def erased(self, partition):
        return self.succeeds(f"! nanddump -q --bb=skipbad /dev/{partition} | tr -d '\\377' | grep -q .")

    def issue_in_nand(self):
        return self.run("ubiattach -p /dev/mtd1 && mount -t ubifs -o ro ubi0:rootfs /mnt/pc && cat /mnt/pc/etc/issue;"
                         " umount /mnt/pc; ubidetach -p /dev/mtd1")[1]

    def kernel_on_card(self):
        return self.succeeds(f"cmp -n $(stat -c %s {PAYLOAD}/uImage) /dev/mmcblk0p1 {PAYLOAD}/uImage")

    def files_copied(self):
        return self.succeeds(f"cmp {MAIN_APP} {PAYLOAD}/mainApp && cmp /etc/instrument.conf"
                             f" {PAYLOAD}/etc/instrument.conf && grep -qx 'updated to 1.1' /var/lib/updates/last")

    def released(self):
        return not self.succeeds("grep -E ' /mnt/update ' /proc/mounts || test -e /sys/block/loop0/loop"
                                 " || grep -E '^(g_mass_storage|fsl_usb2_udc) ' /proc/modules")

    def packages_on(self, device):
        return self.must(f"mount -o ro {device} /mnt/pc && ls -A /mnt/pc && umount /mnt/pc").split()


def on_the_bench(source, package):
    """The calls of the same update on the bench, with its stand-in tools."""
    output = OUTPUT / "bench" / f"{source}-{package}"
    subprocess.run([PROJECT / "simulator/rehearsal/run", "--build", BUILD / "release", "--output", output, "--fast-clock",
                    "--source", source, "--system", "sdcard",
                    "--package", PACKAGES / f"{package}_firmware_update.tar.bz2"], check=True, capture_output=True)
    calls = (output / "instrument/run/instrument/calls").read_text().splitlines()
    return [(command, int(status)) for status, command in (line.split("\t") for line in calls)]


def check_update(unit, checks, package):
    colours = unit.guest.colours()
    unit.take_picture("end")
    checks.that("the panel ends in green, without red", GREEN in colours and RED not in colours)
    checks.that("the panel lies in the black at (3, 31)", unit.panel_in_its_place())
    if package == "nand":
        checks.that("kernel read back from mtd0", unit.kernel_in_nand())
        issue = unit.issue_in_nand()
        checks.that("root image attached, mounted and read", "root file system 1.1\n" in issue, issue)
    else:
        checks.that("kernel read back from the SD card", unit.kernel_on_card())
    checks.that("files copied, script run", unit.files_copied())
    checks.that("medium, loop device and modules released", unit.released())


def check_same_as_bench(unit, checks, source, package):
    """Up to the press of F1 that shows the main screen again."""
    unit.turn_page("f1")
    unit.wait_for_calls("umount /mnt/update", failed=True)
    real, bench = unit.guest.calls(), on_the_bench(source, package)
    different = [f"{here} here, {there} on the bench" for here, there in zip(real, bench) if here != there]
    checks.that("the bench's tools say the same", real == bench, "; ".join(different) or f"{real} against {bench}")


def update_from_card(unit, package, checks):
    unit.deliver()
    unit.put_package("/dev/mmcblk0p4", package)
    unit.start_updater()
    unit.take_picture("main-screen")
    unit.choose("sd")
    unit.update("sd", package)
    check_update(unit, checks, package)
    checks.that("the package is still on the card", len(unit.packages_on("/dev/mmcblk0p4")) == 1)
    check_same_as_bench(unit, checks, "sd", package)


def update_from_stick(unit, package, partitioned, checks):
    device = "/dev/sda1" if partitioned else "/dev/sda"
    unit.deliver()
    unit.make_stick(partitioned)
    unit.put_package(device, package)
    unit.start_updater()
    unit.choose("stick")
    unit.take_picture("prompt")
    unit.update("stick", package)
    check_update(unit, checks, package)
    checks.that("the package is still on the stick", len(unit.packages_on(device)) == 1)
    if partitioned:
        check_same_as_bench(unit, checks, "stick", package)
    unit.guest.unplug()


def update_from_pc(unit, package, checks):
    unit.deliver()
    unit.make_backing_file()
    unit.start_updater()
    unit.choose("pc")
    unit.update("pc", package)
    check_update(unit, checks, package)
    unit.must("losetup -o 4096 /dev/loop1 /mnt/ubiData/backfile")
    checks.that("the package is deleted from the PC's storage", unit.packages_on("/dev/loop1") == [])
    unit.must("losetup -d /dev/loop1")
    check_same_as_bench(unit, checks, "pc", package)


def pc_without_backing_file(unit, checks):
    """This kernel loads the gadget all the same, with no drive; the SD card's partition is never tried."""
    unit.deliver()
    unit.must("rm /mnt/ubiData/backfile")
    unit.start_updater()
    unit.choose("pc")
    unit.guest.press("f1")
    unit.wait_for_calls("modprobe g_mass_storage")
    unit.guest.press("f1")
    unit.wait_for_calls("losetup -o 4096", failed=True)
    check_failed_early(unit, checks)
    checks.that("loop device and modules released", unit.released())


def boards(unit, checks):
    """The bench program with its boards, and the real tools."""
    on_the_bench("sd", "boards")
    unit.deliver()
    unit.put_package("/dev/mmcblk0p4", "boards")
    unit.must("mkdir /run/instrument && printf 'sd\\t-\\n' >/run/instrument/operator")
    unit.start_updater("simulator/virtual-updater --pic-enable --avr-enable")
    wait_until(lambda: not unit.succeeds("pidof virtual-updater"), 300, "the update of the boards")
    checks.that("the update is complete", "Update complete" in unit.run("tail -n 1 /run/instrument/messages")[1])
    checks.that("no violation", unit.succeeds("test ! -s /run/instrument/boards/violations"))
    bench = f"{SHARE}/acceptance/bench/sd-boards/instrument/run/instrument/boards"
    checks.that("every memory is what it is on the bench", unit.succeeds(f"diff -r {bench} /run/instrument/boards"))
    checks.that("kernel read back from mtd0", unit.kernel_in_nand())


def tools(unit, checks):
    """The same calls of the system tools, good and bad ones, here and on the bench."""
    unit.deliver()
    unit.make_backing_file()
    unit.must(f"mkdir -p /run/instrument && cp {PAYLOAD}/rootfs.ubi /run/instrument")
    real = unit.must(f"{SHARE}/acceptance/packages/tool-calls").splitlines()
    bench = tool_calls_on_the_bench()
    checks.that("as many calls here as on the bench", len(real) == len(bench))
    for here, there in zip(real, bench):
        checks.that(there.split(" ", 1)[1], here == there, f"{here.split()[0]} here, {there.split()[0]} on the bench")


def tool_calls_on_the_bench():
    instrument = OUTPUT / "bench" / "tools"
    bench = PROJECT / "simulator"
    subprocess.run([bench / "new-instrument", "--tools", BUILD / "release/simulator", "--system", "sdcard", instrument],
                   check=True)
    shutil.copy(PACKAGES / "files/rootfs.ubi", instrument / "run/instrument")
    return subprocess.run([bench / "sandbox", instrument, f"/run/host{bench}/vm/tool-calls"],
                          check=True, capture_output=True, text=True).stdout.splitlines()


def check_failed_early(unit, checks):
    colours = unit.guest.colours()
    unit.take_picture("end")
    checks.that("the panel ends in red", RED in colours and GREEN not in colours)
    checks.that("nothing was written", unit.erased("mtd0") and unit.erased("mtd1"))


def stick_pulled(unit, checks):
    unit.deliver()
    unit.make_stick(partitioned=False)
    unit.put_package("/dev/sda", "large")
    unit.guest.unplug()
    unit.guest.plug(unit.folder / "stick", bytes_per_second=400_000)
    unit.start_updater()
    unit.choose("stick")
    unit.guest.press("f1")
    wait_until(lambda: unit.succeeds("pidof bzip2 && test -e /tmp/firmware_update/ballast"), 30, "the unpacking")
    unit.guest.unplug()
    unit.wait_for_calls("tar", failed=True)
    check_failed_early(unit, checks)
    unit.guest.plug(unit.folder / "stick", device="/dev/sdb")
    checks.that("put back before F1, the stick has another name", not unit.succeeds("test -b /dev/sda"))
    unit.guest.unplug("/dev/sdb")
    unit.turn_page("f1")
    unit.guest.plug(unit.folder / "stick")
    unit.choose("stick")
    unit.update("stick", "large")
    unit.take_picture("repeated")
    checks.that("put back after F1, it updates the unit", GREEN in unit.guest.colours() and unit.kernel_in_nand())
    unit.guest.unplug()


def no_room_to_unpack(unit, checks):
    unit.deliver()
    unit.must("mount -o remount,size=1M /tmp")
    unit.put_package("/dev/mmcblk0p4", "nand")
    unit.start_updater()
    unit.choose("sd")
    unit.guest.press("f1")
    unit.wait_for_calls("tar", failed=True)
    check_failed_early(unit, checks)
    checks.that("tar fails with 2", unit.guest.calls()[-1][1] == 2, unit.guest.calls()[-1])
    unit.must("mount -o remount,size=50% /tmp")


def no_room_for_the_image(unit, checks):
    """Room for what is unpacked, none for the copy of the image that is made before the flash is erased."""
    unit.deliver()
    unit.must(f"nandwrite -q -p /dev/mtd1 {PAYLOAD}/mainApp")
    unit.must(f"mount -o remount,size=$(( $(du -sk {PAYLOAD} | cut -f 1) + 1000 ))k /tmp")
    unit.put_package("/dev/mmcblk0p4", "nand")
    unit.start_updater()
    unit.choose("sd")
    unit.update("sd", "nand")
    unit.take_picture("end")
    checks.that("the panel ends in red", RED in unit.guest.colours() and GREEN not in unit.guest.colours())
    checks.that("the old image was not erased", unit.succeeds(
        f"nanddump -q -f /run/old /dev/mtd1 && cmp -n $(stat -c %s {PAYLOAD}/mainApp) /run/old {PAYLOAD}/mainApp"))
    checks.that("the other lines were carried out", unit.kernel_in_nand() and unit.files_copied())
    unit.must("mount -o remount,size=50% /tmp")


def read_only_stick(unit, checks):
    unit.deliver()
    unit.make_stick(partitioned=True)
    unit.put_package("/dev/sda1", "sdcard")
    unit.guest.unplug()
    unit.guest.plug(unit.folder / "stick", read_only=True)
    unit.start_updater()
    unit.choose("stick")
    unit.update("stick", "sdcard")
    check_update(unit, checks, "sdcard")
    unit.guest.unplug()


def read_only_pc_storage(unit, checks):
    """The package is already there, and cannot be deleted."""
    unit.deliver()
    unit.make_backing_file()
    unit.must("losetup -o 4096 /dev/loop1 /mnt/ubiData/backfile")
    unit.put_package("/dev/loop1", "nand")
    unit.must("losetup -d /dev/loop1 && mount -o remount,ro /mnt/ubiData")
    unit.start_updater()
    unit.choose("pc")
    unit.guest.press("f1")
    wait_until(lambda: unit.succeeds("test -b /dev/sda1"), 30, "the USB drive at the PC")
    unit.guest.press("f1")
    unit.wait_for_calls("umount /mnt/update", "losetup -d /dev/loop0")
    check_update(unit, checks, "nand")
    unit.must("losetup -r -o 4096 /dev/loop1 /mnt/ubiData/backfile")
    checks.that("the package is still on the PC's storage", len(unit.packages_on("/dev/loop1")) == 1)
    unit.must("losetup -d /dev/loop1 && mount -o remount,rw /mnt/ubiData")


def bad_blocks(unit, checks):
    unit.deliver()
    unit.must(f"rmmod nandsim && {NAND} badblocks=1,10")  # the second of mtd0, the third of mtd1
    unit.put_package("/dev/mmcblk0p4", "nand")
    unit.start_updater()
    unit.choose("sd")
    unit.update("sd", "nand")
    check_update(unit, checks, "nand")
    checks.that("the bad blocks were passed over", unit.succeeds(
        "test $(cat /sys/class/mtd/mtd0/bad_blocks) = 1 && test $(cat /sys/class/mtd/mtd1/bad_blocks) = 1"))


def power_cut(unit, checks):
    """A flash_eraseall that says when it is done and never comes back holds the moment for the cut."""
    unit.deliver()
    unit.must(f"nandwrite -q -p /dev/mtd0 {PAYLOAD}/mainApp")
    unit.put_package("/dev/mmcblk0p4", "nand")
    hold = '#!/bin/sh\\n/usr/sbin/flash_eraseall "$@"\\ntouch /run/erased\\nsleep 1000\\n'
    unit.must(f"mkdir /run/hold && printf '{hold}' >/run/hold/flash_eraseall && chmod +x /run/hold/flash_eraseall")
    unit.start_updater(setup="PATH=/run/hold:$PATH")
    unit.choose("sd")
    unit.guest.press("f1")
    wait_until(lambda: unit.succeeds("test -e /run/erased"), 60, "the erased NAND")
    checks.that("at the cut the kernel's partition is erased", unit.erased("mtd0"))
    unit.take_picture("at-the-cut")
    unit.guest.cut_power()
    with Unit(unit.name, again=True) as repeated:
        repeated.must(NAND)  # which forgets without power, and so is erased as it was at the cut
        repeated.picture_count = unit.picture_count
        repeated.start_updater()
        repeated.choose("sd")
        repeated.update("sd", "nand")
        check_update(repeated, checks, "nand")


def root_in_nand(unit, checks):
    for file in MAIN_APP, "/etc/instrument.conf":
        checks.that(f"{file} cannot be written before", not unit.succeeds(f"echo old >{file}"))
    unit.make_card()
    unit.put_package("/dev/mmcblk0p4", "nand-root")
    unit.start_updater()
    unit.choose("sd")
    unit.update("sd", "nand-root")
    unit.take_picture("end")
    colours = unit.guest.colours()
    checks.that("the panel ends in green, without red", GREEN in colours and RED not in colours)
    checks.that("kernel read back from mtd0", unit.kernel_in_nand())
    checks.that("files copied, script run", unit.files_copied())


def image_over_the_running_root(unit, checks):
    """What happens to a unit whose root file system is in the NAND that an IMAGE line writes."""
    unit.turn_page("f1")
    unit.must("mount /dev/mmcblk0p4 /mnt/pc && rm /mnt/pc/* && umount /mnt/pc")
    unit.put_package("/dev/mmcblk0p4", "image")
    unit.choose("sd")
    unit.update("sd", "image")
    unit.take_picture("end")
    checks.that("the panel ends in red", RED in unit.guest.colours() and GREEN not in unit.guest.colours())
    checks.that("the flash is erased and ubiformat refuses", unit.guest.calls()[-4:-2] == [
        ("flash_eraseall /dev/mtd1", 0), ("/tmp/ubiformat /dev/mtd1 -f /tmp/rootfs.ubi", 255)], unit.guest.calls()[-4:])
    checks.that("no program starts any more", "Invalid argument" in unit.run("ls /")[1])
    unit.turn_page("f1")  # the updater itself runs on
    unit.take_picture("after-f1")


def with_each_package(title, scenario, *arguments):
    return {f"{title}, SYSTEM {package.upper()}":
            (lambda unit, checks, package=package: scenario(unit, package, *arguments, checks))
            for package in ("nand", "sdcard")}


# The units, each with the scenarios that are carried out on it one after the other.
UNITS = [
    ("card", {}, with_each_package("SD card", update_from_card)),
    ("stick", {}, with_each_package("stick without partition table", update_from_stick, False)
     | with_each_package("stick with partition table", update_from_stick, True)),
    ("pc", {}, with_each_package("PC", update_from_pc)
     | {"PC, no backing file": pc_without_backing_file, "PC, read-only storage": read_only_pc_storage}),
    ("faults", {}, {"stick pulled during unpacking": stick_pulled, "no room to unpack in /tmp": no_room_to_unpack,
                    "no room for the image in /tmp": no_room_for_the_image, "read-only stick": read_only_stick,
                    "bad blocks": bad_blocks}),
    ("tools", {}, {"the system tools": tools}),
    ("boards", {}, {"PIC and ESA lines": boards}),
    ("power", {}, {"power cut between erase and write": power_cut}),
    ("nand", {"root_in_nand": True}, {"root in NAND": root_in_nand,
                                      "IMAGE over the running root": image_over_the_running_root}),
]


def make_packages():
    """One package for each list of command lines, all with the files of the bench's sample package."""
    subprocess.run([PROJECT / "simulator" / "sample-package", "--sub-page", "512", PACKAGES / "sample.tar.bz2"], check=True)
    subprocess.run(["tar", "xjf", "sample.tar.bz2"], cwd=PACKAGES, check=True)
    folder = PACKAGES / "firmware_update"
    shutil.copytree(folder, PACKAGES / "files")
    shutil.copy(PROJECT / "simulator/vm/tool-calls", PACKAGES)
    for package, lines in COMMANDS.items():
        (folder / "update_config").write_text("".join(f"{line}\n" for line in lines))
        if package == "large":  # cannot be compressed, so that unpacking takes its time
            (folder / "ballast").write_bytes(random.Random(1).randbytes(4 << 20))
        subprocess.run(["tar", "cjf", f"{package}_firmware_update.tar.bz2", "firmware_update"], cwd=PACKAGES,
                       check=True)


def run_unit(name, options, scenarios):
    """Every scenario on one unit; its table."""
    table = []
    try:
        with Unit(name, **options) as unit:
            for title, scenario in scenarios.items():
                table.append(run_scenario(unit, title, scenario))
    except (RuntimeError, OSError) as error:
        table.append(Checks(f"unit {name}"))
        table[-1].that("can be switched on", False, str(error))
        print(table[-1].table(), flush=True)
    return table


def run_scenario(unit, title, scenario):
    checks = Checks(title)
    try:
        scenario(unit, checks)
    except (RuntimeError, OSError, subprocess.CalledProcessError) as error:  # the others are carried out
        checks.that("comes to its end", False, repr(error))
    print(checks.table(), flush=True)
    return checks


def main():
    start = time.monotonic()
    for folder in OUTPUT / "run", OUTPUT / "bench", PICTURES, PACKAGES:
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
    make_packages()
    names = sys.argv[1:] or [unit[0] for unit in UNITS]
    units = [unit for unit in UNITS if unit[0] in names]
    if len(units) < len(set(names)):
        sys.exit(f"usage: acceptance.py [{'|'.join(dict.fromkeys(unit[0] for unit in UNITS))}]...")
    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        tables = [table for part in pool.map(lambda unit: run_unit(*unit), units) for table in part]
    count = sum(len(checks.rows) for checks in tables)
    failures = sum(not holds for checks in tables for _, holds, _ in checks.rows)
    print(f"{count} checks, {failures} failed, {time.monotonic() - start:.0f} s; pictures: {PICTURES}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
