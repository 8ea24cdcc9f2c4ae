"""What a package author and CI get from a rehearsal: findings, verdict, exit status, reports.

usage: rehearsal_test.py BUILD [TEST...]
"""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(PROJECT / "simulator/rehearsal"))

import package  # noqa: E402
import further  # noqa: E402
from outcome import Outcome  # noqa: E402

BUILD = pathlib.Path()
SCRIPT = "#!/bin/sh\ncp /tmp/firmware_update/tables/a /etc\ncp notes.txt /etc\n"


def record(kind, address, data):
    content = bytes([len(data), address >> 8, address & 0xFF, kind, *data])
    return f":{(content + bytes([-sum(content) & 0xFF])).hex().upper()}\n"


END = record(1, 0, b"")
HEX = record(0, 0, b"\1\1") + END
FILES = {"k": "1", "folder/a": "2", "ubiformat": "3", "crlf.sh": "#!/bin/sh\r\n", "p.hex": HEX,
         "corrupt.hex": HEX + record(0, 2, b"\1\1")[:-3] + "0\n", "cut.hex": record(0, 0, b"\1\1"),
         "empty.hex": record(0, 0xFFFE, b"\1\1") + END,
         "wrtc.hex": HEX + record(4, 0, b"\0\x30") + record(0, 0xB, b"\xC0")}


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.work)

    def pack(self, lines, files, name="unit_firmware_update.tar.bz2", top="firmware_update"):
        folder = self.work / "packed" / top
        for path, content in {"update_config": "".join(f"{line}\n" for line in lines), **files}.items():
            file = folder / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(content, newline="")
            file.chmod(0o755 if content.startswith("#!") else 0o644)
        return self.archive(name)

    def archive(self, name):
        packed = self.work / "packed"
        subprocess.run(["tar", "cjf", self.work / name, *os.listdir(packed)], cwd=packed, check=True)
        shutil.rmtree(packed)
        return self.work / name

    def sample(self, without):
        """The sample package without the lines that begin with one of these words."""
        subprocess.run([PROJECT / "simulator/sample-package", self.work / "sample.tar.bz2"], check=True)
        (self.work / "packed").mkdir()
        subprocess.run(["tar", "xjf", self.work / "sample.tar.bz2"], cwd=self.work / "packed", check=True)
        folder = self.work / "packed/firmware_update"
        kept = []
        for line in (folder / "update_config").read_text().splitlines():
            if line.startswith(without):
                (folder / line.partition("/")[2]).unlink()
            else:
                kept.append(line + "\n")
        (folder / "update_config").write_text("".join(kept))
        return self.archive("sample_firmware_update.tar.bz2")

    def unpack(self, archive):
        folder = self.work / "unpacked"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        return package.Package(BUILD, archive, folder)

    def rehearse(self, status, *arguments):
        """Its output and its report; fails on any other exit status."""
        run = subprocess.run([sys.executable, "-B", PROJECT / "simulator/rehearsal", "rehearse", "--build", BUILD,
                              "--output", self.work / "output", "--report", self.work / "report.json", *arguments],
                             text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(run.returncode, status, run.stdout)
        return run.stdout, json.loads((self.work / "report.json").read_text()) if status < 2 else None


class PackageInspectionTest(Case):
    def findings(self, archive):
        inspection = package.Inspection(self.unpack(archive))
        return ([" ".join(map(str, finding)) for finding in found]
                for found in (inspection.mistakes, inspection.remarks))

    def test_accepts_what_the_updater_executes(self):
        lines = ["SYSTEM:SDCARD\r", "KERNEL:/k\r", "SYSTEM:NAND\r", "IMAGE:/image", "FILE:/etc", "APP:/boot/app",
                 "SCRIPT:/go.sh now", "PIC4:/p.hex", "ESA_IO_APP_V2:/k"]
        files = {"k": "1", "image": "2", "etc/deep/a": "3", "boot/app": "4", "go.sh": SCRIPT, "tables/a": "5",
                 "notes.txt": "6", "p.hex": HEX}
        self.assertEqual([*self.findings(self.pack(lines, files))], [[], []])

    def test_finds_mistakes(self):
        for line, mistakes in [
                ("KERNELL:/k", "2 unknown keyword KERNELL is unknown; did you mean KERNEL?"),
                ("SYSTM:NAND", "2 unknown keyword SYSTM is unknown; did you mean SYSTEM?"),
                ("ESA_I0_APP:/k", "2 unknown keyword ESA_I0_APP is unknown; did you mean ESA_IO_APP?"),
                ("FLIE:/k", "2 unknown keyword FLIE is unknown; did you mean FILE?"),
                ("image:/k", "2 unknown keyword image is unknown; did you mean IMAGE?"),
                ("SCRIPT :/k", "2 unknown keyword SCRIPT  is unknown; did you mean SCRIPT?"),
                ("KRNLE:/k", "2 unknown keyword KRNLE is unknown"),
                ("PIC5:/p.hex", "2 no such PIC PIC5 selects no PIC; did you mean PIC1?"),
                ("FILE:/k:", "2 malformed line 2 colons in place of one"),
                ("", "2 malformed line empty line"),
                ("APP:/folder", "2 missing payload /folder is a folder"),
                ("APP:/none", "2 missing payload /none is not in the package"),
                ("FILE:k", "2 path 'k' does not begin with /"),
                ("APP:/k k", "2 blank in a path the tools take /k k for several files"),
                ("IMAGE:/ubiformat", "2 image path the image replaces the tool that writes it"),
                ("IMAGE:/folder/a", "2 image path /folder/a is not at the top of the package: the line erases the flash"
                                    " and then does not find the image"),
                ("SCRIPT:/crlf.sh", "2 script /crlf.sh has CR LF line ends: its interpreter is not found"),
                ("SCRIPT:/k", "2 script /k is not executable\n2 script /k does not begin with #!"),
                ("SYSTEM:NAN", "2 system type 'NAN' is neither NAND nor SDCARD, and KERNEL, IMAGE and FILE"
                               " lines after it do not write\n"
                               "3 system type of an unknown type nothing is written, and the line counts as successful"),
                ("PIC1:/corrupt.hex", "2 rejected HEX file /corrupt.hex, line 3: shorter than its data byte count"),
                ("PIC1:/empty.hex", "2 rejected HEX file /empty.hex holds no byte for the PIC"),
                ("PIC1:/cut.hex", "2 end of file /cut.hex has no end-of-file record: it may be cut short"),
                ("PIC1:/wrtc.hex", "2 configuration protected /wrtc.hex clears WRTC: the configuration cannot be written"
                                   " again")]:
            with self.subTest(line):
                found, _ = self.findings(self.pack(["SYSTEM:NAND", line, "KERNEL:/k"], FILES))
                self.assertEqual("\n".join(found), mistakes)

    def test_names_skipped_ranges_and_unused_payload(self):
        hex_file = (record(4, 0, b"\0\0") + record(0, 0xFFEE, bytes(16)) + record(0, 0xFFFE, bytes(2))
                    + record(4, 0, b"\0\x20") + record(0, 0, bytes(8)) + record(4, 0, b"\0\x30")
                    + record(0, 0, b"\xFF" * 16) + record(4, 0, b"\0\xF0") + record(0, 0, bytes(16))
                    + record(0, 16, bytes(16)) + END)
        _, remarks = self.findings(self.pack(["PIC1:/p.hex", "KERNEL:/k"], {
            "p.hex": hex_file, "k": "1", "old/k": "2", "run.sh": SCRIPT}))
        self.assertEqual(remarks, [
            "1 HEX range skipped /p.hex: 0x00fffe to 0x00ffff (2 bytes, program memory)",
            "1 HEX range skipped /p.hex: 0x200000 to 0x200007 (8 bytes, user id)",
            "1 HEX range skipped /p.hex: 0x30000e to 0x30000f (2 bytes, no memory)",
            "1 HEX range skipped /p.hex: 0xf00000 to 0xf0001f (32 bytes, data EEPROM)",
            "2 no system type no SYSTEM line above: the type is that of the update before, or NAND",
            "0 unused payload no line and no script names /old/k",
            "0 unused payload no line and no script names /run.sh"])

    def test_wants_an_archive_that_the_updater_finds(self):
        mistakes, _ = self.findings(self.pack([], {}, "update_firmware 1.tar.bz2", "firmware"))
        self.assertEqual(mistakes, [
            "0 archive name the updater looks for *firmware_update*.tar.bz2, and skips update_firmware 1.tar.bz2",
            "0 archive name with a blank in its name the archive cannot be unpacked",
            "0 no package folder the archive holds no folder firmware_update"])
        text = self.work / "firmware_update.tar.bz2"
        text.write_text("no archive")
        self.assertTrue(next(self.findings(text))[0].startswith("0 archive tar cannot unpack it: "))


class RehearsalTest(Case):
    def line(self, report, command):
        return next(line for line in report["lines"] if line["command"] == command)

    def test_reports_a_good_update_and_one_with_faults(self):
        archive = self.sample(without="ESA")
        output, report = self.rehearse(0, archive, "--source", "stick", "--pic-enable", "--faults", "1")
        self.assertIn("\nVerdict: good\n", output)
        self.assertEqual((report["format"], report["verdict"]), (1, "good"))
        for command, change in [("KERNEL:/uImage", "wrote /dev/mtd0"),
                                ("FILE:/etc/instrument.conf", "wrote /etc/instrument.conf, 57 bytes"),
                                ("PIC1:/pic1.hex", "PIC 1: program memory and configuration: equal to pic1.hex"),
                                ("SCRIPT:/finish.sh 1.1", "new /var/lib/updates/last, 15 bytes")]:
            self.assertIn(change, self.line(report, command)["changes"])
        self.assertIn({"command": "flash_eraseall /dev/mtd0", "exitCode": 0}, self.line(report, "KERNEL:/uImage")["calls"])
        states = {region["state"] for region in report["pics"][0]["regions"]}
        self.assertEqual(states, {"erased", "programmed", "kept"})
        self.assertTrue(pathlib.Path(report["pictures"][0]).name.startswith("1-main-screen"))
        faults, used = report["furtherUpdates"]
        self.assertTrue(any(entry["text"].startswith("reported at line ") for entry in faults["entries"]))
        self.assertEqual((used["title"], used["verdict"]), ("An update of PICs in use", "good"))

        unpacked = self.unpack(archive)
        undisturbed = Outcome(unpacked, self.work / "output", True)
        plan = further.FaultPlan("1", undisturbed, unpacked)
        unreported = further.unreported_faults(plan.faults, undisturbed)
        self.assertEqual(len(unreported), 1 + sum(len(fault.lines or []) for fault in plan.faults))

    def test_names_mistakes_and_shows_what_they_do(self):
        files = {"pic.hex": FILES["empty.hex"], "forgotten.sh": "cp /etc/issue /etc/issue.old\n",
                 "images/rootfs.ubi": "", "uImage": "", "<b>&": "1"}
        lines = ["SYSTEM:NAND", "KERNAL:/uImage", "APP:/<b>&", "IMAGE:/images/rootfs.ubi", "", "PIC1:/pic.hex",
                 "SCRIPT:/forgotten.sh"]
        output, report = self.rehearse(1, self.pack(lines, files), "--pic-enable", "--power-cut", "1")
        self.assertEqual([line["outcome"] for line in report["lines"]],
                         ["ok", "failed", "ok", "failed", "failed", "failed", "failed"])
        self.assertEqual({mistake["line"] for mistake in report["mistakes"]}, {2, 4, 5, 6, 7})
        self.assertIn("Failed - Updating root image with file: /images/rootfs.ubi",
                      [message["text"] for message in self.line(report, lines[3])["messages"]])
        self.assertEqual(report["furtherUpdates"][0]["verdict"], "FAILED")
        self.assertIn("not run, because the undisturbed update is not good", output)

    def test_lines_of_disabled_boards_fail_one_by_one(self):
        lines = ["ESA_IO_APP:/k", "PIC1:/p.hex", "PIC2:/p.hex", "ESA_M_EEP:/k", "SCRIPT:/go.sh"]
        _, report = self.rehearse(1, self.pack(lines, {**FILES, "go.sh": "#!/bin/sh\numount /mnt/none\nexit 0\n"}))
        self.assertEqual([len(line["messages"]) for line in report["lines"]], [3, 1, 1, 3, 1])
        self.assertEqual(self.line(report, "SCRIPT:/go.sh")["calls"], [{"command": "umount /mnt/none", "exitCode": 32}])

    def test_a_package_that_the_updater_does_not_find(self):
        _, report = self.rehearse(1, self.pack(["KERNEL:/k"], {"k": "1"}, "update.tar.bz2"))
        self.assertEqual(report["lines"][0]["outcome"], "not executed")
        self.assertEqual(report["update"]["lastMessage"]["colour"], "red")

    def test_the_html_report_holds_everything(self):
        archive = self.pack(["PIC1:/p.hex", "FILE:/<i>"], {"p.hex": HEX, "<i>": "1"})
        page = self.work / "report.html"
        self.rehearse(0, archive, "--pic-enable", "--report", page)
        text = page.read_text()
        for part in ('<span class="good">good</span>', "data:image/png;base64,", "<svg", "FILE:/&lt;i&gt;",
                     "An update of PICs in use", "</span>different ", "new /&lt;i&gt;, 1 bytes"):
            self.assertTrue(part in text, part)
        self.assertTrue('src="' not in text.replace('src="data:', ""), "refers to other files")

    def test_usage_errors(self):
        archive = self.pack(["KERNEL:/k"], {"k": "1"})
        for arguments in ([], [self.work / "none.tar.bz2"], [archive, archive], [archive, "--source", "disk"],
                          [archive, "--faults", "x"], [archive, "--report", "x.txt"], [archive, "--power-cut", "0"],
                          [archive, "--unknown"], [archive, "--build", "/none"]):
            with self.subTest(arguments):
                self.rehearse(2, *arguments)


class PowerCutTest(Case):
    def test_every_cut_is_followed_by_the_same_instrument(self):
        archive = self.sample(without=("APP", "IMAGE", "PIC4", "ESA_M", "ESA_IO_EEP"))
        _, report = self.rehearse(0, archive, "--source", "pc", "--pic-enable", "--avr-enable", "--power-cut", "all")
        cuts = [entry["text"] for entry in report["furtherUpdates"][0]["entries"]]
        for moment in ("pic 1 erase", "pic 1 row", "pic 1 configuration", "esa io boot loader", "esa io erase",
                       "esa io block", "esa io end"):
            self.assertTrue(any(f" {moment} in line " in cut for cut in cuts), moment)
        self.assertTrue(any("tool call 16: " in cut for cut in cuts), cuts)

    def test_a_script_that_cannot_run_twice(self):
        script = ("#!/bin/sh\necho again >>/etc/log\ntouch \"/etc/two\nlines\"\n"
                  "echo x >>/tmp/firmware_update/update_config\n")
        output, report = self.rehearse(1, self.pack(["SCRIPT:/log.sh"], {"log.sh": script}), "--power-cut", "4")
        self.assertEqual(report["furtherUpdates"][0]["entries"][0]["details"], ["the instrument differs: /etc/log"])
        self.assertIn("new /etc/two lines, 0 bytes", report["lines"][0]["changes"])
        self.assertEqual(len(report["lines"]), 1)  # what the script does to the command file comes too late

    def test_a_protected_configuration_is_not_cut(self):
        output, report = self.rehearse(1, self.pack(["PIC1:/wrtc.hex"], {"wrtc.hex": FILES["wrtc.hex"] + END}),
                                       "--pic-enable", "--power-cut", "all")
        self.assertIn("not run, because the package protects the configuration", output)
        self.assertEqual([mistake["kind"] for mistake in report["mistakes"]], ["configuration protected"])


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()
