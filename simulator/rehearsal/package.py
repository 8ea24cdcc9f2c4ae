"""An update package as its author packed it: what the product's grammar says about it, its mistakes, and remarks."""

import collections
import fnmatch
import json
import os
import pathlib
import subprocess

Finding = collections.namedtuple("Finding", "line kind text")  # line 0: the package as a whole

# The memories of the PIC18 family, from address 0 on: end, name.
PIC_MEMORIES = [(0x200000, "program memory"), (0x200008, "user id"), (0x300000, "no memory"),
                (0x30000E, "configuration"), (0xF00000, "no memory"), (0xF00400, "data EEPROM"),
                (1 << 32, "no memory")]
CONFIGURATION, CONFIGURATION_SIZE = 0x300000, 14
CONFIG6H, WRTC = 0x30000B, 0x20  # write protection of the configuration, for good


class Package:
    """Unpacked into a folder of its own. The one on the instrument may be changed by a script."""

    def __init__(self, build, archive, folder):
        tar = subprocess.run(["tar", "xjf", archive, "-C", folder], capture_output=True, text=True)
        facts = subprocess.run([build / "simulator/package-facts", folder], check=True, capture_output=True,
                               env={**os.environ, "LC_ALL": "C.UTF-8"}).stdout
        self.facts = json.loads(facts)
        self.archive = archive
        self.error = tar.stderr.partition("\n")[0] if tar.returncode else ""
        self.folder = pathlib.Path(folder) / self.facts["folder"]
        self.lines = self.facts["lines"]

    def payload(self, line):
        """The file that a line names."""
        return self.folder / line["argument"].partition(" ")[0].lstrip("/")

    def hex_file(self, line):
        return self.facts["hexFiles"].get(line["argument"], {"rejected": "not found"})

    def hex_content(self, line, begin, size, fill):
        """`size` bytes from `begin` on of a HEX file, as srecord reads it; what it does not hold is `fill`."""
        file = self.hex_file(line)
        if not file["written"] and not file["skipped"]:
            return bytes([fill]) * size
        place = [str(begin), str(begin + size)]
        return subprocess.run(["srec_cat", "-multiple", "-", "-intel", "-crop", *place, "-fill", str(fill), *place,
                               "-offset", str(-begin), "-o", "-", "-binary"],
                              input=file["records"].encode(), check=True, capture_output=True).stdout

    def clears_wrtc(self):
        """Whether a line takes away that its PIC's configuration can be written again."""
        return any(self.line_clears_wrtc(line) for line in self.lines if line["kind"] == "PIC" and line["executable"])

    def line_clears_wrtc(self, line):
        return "records" in self.hex_file(line) and not self.hex_content(line, CONFIG6H, 1, 0xFF)[0] & WRTC


def merged(ranges):
    """The same bytes in as few ranges as possible, in the order in which they come."""
    result = []
    for begin, end in ranges:
        if result and result[-1][1] == begin:
            result[-1] = (result[-1][0], end)
        else:
            result.append((begin, end))
    return result


class Inspection:
    """What reading a package shows: lines that cannot do what they say, and what its author may not know."""

    def __init__(self, package):
        self.package = package
        self.mistakes = []
        self.remarks = []
        self._line = 0
        self._system = None
        self._used = set()  # paths in the package that lines name
        self._scripts = b""
        self._inspect_archive()
        command_file = package.facts["commandFile"]
        if not package.folder.is_dir():
            self._mistake("no package folder", f"the archive holds no folder {package.folder.name}")
        elif not (package.folder / command_file).is_file():
            self._mistake("no command file", f"the package holds no file {command_file}")
        else:
            self._used.add(command_file)
            for self._line, line in enumerate(package.lines, 1):
                self._inspect_line(line)
            self._line = 0
            self._find_unused_payload()

    def _mistake(self, kind, text):
        self.mistakes.append(Finding(self._line, kind, text))

    def _remark(self, kind, text):
        self.remarks.append(Finding(self._line, kind, text))

    def _inspect_archive(self):
        name, pattern = self.package.archive.name, self.package.facts["archivePattern"]
        if not fnmatch.fnmatchcase(name.lower(), pattern.lower()):
            self._mistake("archive name", f"the updater looks for {pattern}, and skips {name}")
        if " " in name:
            self._mistake("archive name", "with a blank in its name the archive cannot be unpacked")
        if self.package.error:
            self._mistake("archive", f"tar cannot unpack it: {self.package.error}")

    def _inspect_line(self, line):
        kind, keyword = line["kind"], line["keyword"]
        near = f"; did you mean {line['nearKeyword']}?" if line["nearKeyword"] else ""
        if kind == "malformed":
            colons = line["text"].count(":")
            self._mistake("malformed line", f"{colons} colons in place of one" if line["text"] else "empty line")
        elif kind == "unknown":
            self._mistake("unknown keyword", f"{keyword} is unknown{near}")
        elif kind == "SYSTEM":
            self._system = line["systemType"]
            if not self._system:
                self._mistake("system type", f"'{line['argument']}' is neither NAND nor SDCARD, and KERNEL, IMAGE"
                                             " and FILE lines after it do not write")
        else:
            if kind == "PIC" and not line["executable"]:
                self._mistake("no such PIC", f"{keyword} selects no PIC{near}")
            self._inspect_payload(line)

    def _inspect_payload(self, line):
        kind = line["kind"]
        path = line["argument"].partition(" ")[0] if kind == "SCRIPT" else line["argument"]
        if kind not in ("SCRIPT", "PIC", "ESA"):
            self._inspect_system_type(kind)
        if kind == "IMAGE":
            self._inspect_image(path)
        if kind not in ("PIC", "ESA") and " " in path:
            self._mistake("blank in a path", f"the tools take {path} for several files")
        elif self._inspect_path(kind, path):
            if kind == "SCRIPT":
                self._inspect_script(path)
            elif kind == "PIC":
                self._inspect_hex_file(line, path)

    def _inspect_system_type(self, kind):
        if self._system is None:
            self._remark("no system type", "no SYSTEM line above: the type is that of the update before, or NAND")
            self._system = "NAND"
        if not self._system:
            self._mistake("system type", {
                "KERNEL": "of an unknown type nothing is written, and the line counts as successful",
                "APP": "fails for an unknown type, even when the file is copied",
            }.get(kind, "fails for an unknown type"))
        elif kind == "IMAGE" and self._system != "NAND":
            self._mistake("system type", "an image is for NAND only")

    def _inspect_path(self, kind, path):
        """True when it is the path of a file in the package."""
        if not path.startswith("/"):
            self._mistake("path", f"'{path}' does not begin with /")
            return False
        in_package = os.path.normpath(path).lstrip("/")
        payload = self.package.folder / in_package
        self._used.add(in_package)
        if not payload.exists():
            self._mistake("missing payload", f"{path} is not in the package")
        elif payload.is_dir() and kind != "FILE":
            self._mistake("missing payload", f"{path} is a folder")
        return payload.is_file()

    def _inspect_image(self, path):
        """The image is copied to /tmp under its bare name, and expected there under its path, beside its tool."""
        if path.rfind("/") > 0:
            self._mistake("image path", f"{path} is not at the top of the package: the line erases the flash and then"
                                        " does not find the image")
        if path == "/ubiformat":
            self._mistake("image path", "the image replaces the tool that writes it")

    def _inspect_script(self, path):
        payload = self.package.folder / path.lstrip("/")
        text = payload.read_bytes()
        self._scripts += text
        if not os.access(payload, os.X_OK):
            self._mistake("script", f"{path} is not executable")
        if text.startswith(b"#!") and text.partition(b"\n")[0].endswith(b"\r"):
            self._mistake("script", f"{path} has CR LF line ends: its interpreter is not found")
        elif not text.startswith((b"#!", b"\x7fELF")):
            self._mistake("script", f"{path} does not begin with #!")

    def _inspect_hex_file(self, line, path):
        file = self.package.hex_file(line)
        if "rejected" in file:
            return self._mistake("rejected HEX file", f"{path}, {file['rejected']}")
        if not file["ends"]:
            self._mistake("end of file", f"{path} has no end-of-file record: it may be cut short")
        if not file["written"]:
            self._mistake("rejected HEX file", f"{path} holds no byte for the PIC")
        if self.package.line_clears_wrtc(line):
            self._mistake("configuration protected", f"{path} clears WRTC: the configuration cannot be written again")
        for begin, end in merged(file["skipped"]):
            memory = next(name for limit, name in PIC_MEMORIES if begin < limit)
            self._remark("HEX range skipped", f"{path}: 0x{begin:06x} to 0x{end - 1:06x} ({end - begin} bytes, {memory})")

    def _find_unused_payload(self):
        files = (path.relative_to(self.package.folder) for path in self.package.folder.rglob("*")
                 if path.is_symlink() or not path.is_dir())
        for path in sorted(map(str, files)):
            folders = [str(folder) for folder in pathlib.PurePath(path).parents][:-1]
            by_script = path.encode() in self._scripts or any(
                f"{self.package.facts['unpackedTo']}/{folder}".encode() in self._scripts for folder in folders)
            if not self._used.intersection([path, *folders]) and not by_script:
                self._remark("unused payload", f"no line and no script names /{path}")
