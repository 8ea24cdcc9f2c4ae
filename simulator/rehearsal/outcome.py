"""What an update did to a virtual instrument: each line with its outcome, and the instrument afterwards."""

import dataclasses
import hashlib
import itertools
import os

import journal
from package import CONFIGURATION, CONFIGURATION_SIZE
from running import SIMULATOR

SKELETON = SIMULATOR / "skeleton"
# Folders of the root file system that hold no installed files.
VOLATILE_FOLDERS = ["dev", "proc", "run", "tmp", "root", "mnt/update", "mnt/data"]
NOT_PRODUCTS_OF_AN_UPDATE = ["usr/bin/ubiformat", "mnt/ubiData/backfile"]
RELEASES = ("umount ", "losetup -d ")  # releasing what is not there is part of every update
MESSAGES_AFTER_LINES = 3  # finalising, removing temporary files, the result
BLOCK_SIZE, PADDING, ERASED = 128, b"\x1a", 0xFF


@dataclasses.dataclass
class Line:
    number: int
    facts: dict
    executed: bool = False
    messages: list = dataclasses.field(default_factory=list)  # (colour, text)
    changes: list = dataclasses.field(default_factory=list)  # files, flash and boards
    calls: list = dataclasses.field(default_factory=list)  # (command line, exit status)
    moments: list = dataclasses.field(default_factory=list)

    @property
    def failures(self):
        return [text for colour, text in self.messages if colour == "red"]

    @property
    def outcome(self):
        if not self.executed:
            return "not executed"
        return "failed" if self.failures else "ok"


class Outcome:
    def __init__(self, package, output, pic_enabled):
        self.instrument = output / "instrument"
        self._package = package
        self._pic_enabled = pic_enabled
        self.lines = [Line(number, facts) for number, facts in enumerate(package.lines, 1)]
        self.all_events = events = journal.read(self.instrument)
        prompts = [index for index, event in enumerate(events) if event.kind == "prompt"]
        self.events = events[prompts[-1]:] if prompts else []
        self.messages = [tuple(event.fields) for event in self.events if event.kind == "message"]
        self.violations = [event.fields[0] for event in self.events if event.kind == "violation"]
        self.boards_good = True
        self.pics = []
        self._read_lines()
        self._payload = {_digest(path.read_bytes()): str(path.relative_to(package.folder))
                         for path in sorted(package.folder.rglob("*")) if path.is_file()}
        self.boards = self._compare_boards()

    @property
    def good(self):
        """The update ended in its success message, released the medium, and the boards hold what they should."""
        return (self.last_message[0] == "green" and not self.left_behind() and self.boards_good
                and not self.violations)

    @property
    def last_message(self):
        return self.messages[-1] if self.messages else ("plain", "")

    def _read_lines(self):
        """The lines follow the unpacking. The events from a line's first message on are the line's."""
        unpacked = [index for index, event in enumerate(self.events)
                    if event.kind == "call" and event.fields[0] == "0" and event.fields[1].startswith("tar ")]
        shown = [index for index, event in enumerate(self.events) if event.kind == "message"]
        candidates = [index for index in shown if unpacked and index > unpacked[0]]
        end = len(self.events)
        if self._is_complete(candidates):
            end = candidates[-MESSAGES_AFTER_LINES]
            candidates = candidates[:-MESSAGES_AFTER_LINES]
        begins = self._begins(candidates)
        self.calls_before_lines = journal.calls(self.events[:begins[0] if begins else end])
        for line, begin, line_end in zip(self.lines, begins, [*begins[1:], end]):
            line.executed = True
            self._read_line(line, self.events[begin:line_end])

    def _is_complete(self, shown):
        """The medium is released between the last two messages."""
        return len(shown) >= MESSAGES_AFTER_LINES and any(
            command.startswith("umount ") for command, _ in journal.calls(self.events[shown[-2]:shown[-1]]))

    def _begins(self, candidates):
        """The first message of each line that was executed. All candidates belong to lines."""
        for count in range(len(self.lines), 0, -1):
            begins, rest = [], list(candidates)
            for line in reversed(self.lines[:count]):
                while rest and not self._is_first(line, rest[-1]):
                    rest.pop()
                begins.append(rest.pop() if rest else None)
            if not rest and None not in begins:
                return begins[::-1]
        return []

    def _is_first(self, line, index):
        colour, text = self.events[index].fields
        if line.facts["kind"] == "PIC" and not self._pic_enabled:
            return colour == "red"  # its only message
        return " ".join(text.split()) == line.facts["firstMessage"]

    @staticmethod
    def _read_line(line, events):
        line.calls = journal.calls(events)
        for event in events:
            if event.kind == "message":
                line.messages.append(tuple(event.fields))
            elif event.kind == "change":
                line.changes.append(event.fields[0])
            elif event.kind == "moment":
                line.moments.append(event.fields[0])

    def _compare_boards(self):
        """The memories with the payload of the lines that were for them. When several lines name one memory, the last
        counts."""
        payloads = {}
        for line in self.lines:
            if line.facts["kind"] == "PIC" and line.facts["executable"]:
                payloads["pic", line.facts["pic"]] = line
            elif line.facts["kind"] == "ESA":
                payloads["esa", f"esa-{line.facts['board']}.{line.facts['memory']}"] = line
        texts = []
        for (kind, name), line in sorted(payloads.items(), key=lambda item: item[1].number):
            what, equal = self._compare_pic(line) if kind == "pic" else self._compare_esa(name, line)
            text = f"{what}: {'equal to' if equal else 'DIFFERS FROM'} {line.facts['argument'].lstrip('/')}"
            line.changes.append(text)
            texts.append(text)
            self.boards_good = self.boards_good and equal
        return texts

    def _board(self, name):
        path = self.instrument / "run/instrument/boards" / name
        return path.read_bytes() if path.exists() else b""

    def _compare_esa(self, name, line):
        payload = self._package.payload(line.facts)
        sent = payload.read_bytes() if payload.is_file() else None
        padding = PADDING * (-len(sent or b"") % BLOCK_SIZE)
        return name, sent is not None and self._board(name).startswith(sent + padding)

    def _compare_pic(self, line):
        number = line.facts["pic"]
        file = self._package.hex_file(line.facts)
        program, configuration = self._board(f"pic{number}.program"), self._board(f"pic{number}.configuration")
        if len(configuration) < CONFIGURATION_SIZE or "records" not in file:
            return f"PIC {number}: program memory and configuration", False
        mask = self._package.facts["pics"][number - 1]["configurationMask"]
        ones, zeros = (self._package.hex_content(line.facts, CONFIGURATION, CONFIGURATION_SIZE, fill)
                       for fill in (0xFF, 0))
        expected = self._package.hex_content(line.facts, 0, len(program), ERASED)
        states = _states(program, expected, file)
        configured = ["different" if one == zero and (one ^ held) & implemented else
                      "programmed" if one == zero else "kept"
                      for one, zero, held, implemented in zip(ones, zeros, configuration, mask)]
        self.pics.append({"number": number, "line": line.number,
                          "regions": _regions(0, states) + _regions(CONFIGURATION, configured)})
        return (f"PIC {number}: program memory and configuration",
                program == expected and "different" not in configured)

    def failed_tools(self):
        return [(command, code) for command, code in journal.calls(self.events)
                if code and not command.startswith(RELEASES)]

    def flash(self):
        return [self._describe_flash(name) for name in ("mtd0", "mtd1", "mmcblk0")]

    def _describe_flash(self, name):
        """A payload is followed by erased bytes, and may end in some of its own."""
        content = (self.instrument / "run/instrument/flash" / name).read_bytes()
        written = len(content.rstrip(b"\xff"))
        if not written:
            return f"{name}: erased, as delivered"
        for size in sorted(path.stat().st_size for path in self._package.folder.rglob("*") if path.is_file()):
            payload = self._payload.get(_digest(content[:size])) if written <= size <= len(content) else None
            if payload:
                return f"{name}: {size} bytes, equal to {payload}"
        return f"{name}: written, EQUAL TO NO FILE OF THE PACKAGE"

    def files(self):
        changes = []
        for path in _files(self.instrument):
            file = self.instrument / path
            if (path in NOT_PRODUCTS_OF_AN_UPDATE or _is_in(VOLATILE_FOLDERS, path)
                    or file.is_symlink() and os.readlink(file).startswith("/run/host/")):
                continue
            content = file.read_bytes() if file.is_file() else b""
            delivered = SKELETON / path
            if not delivered.is_file() or delivered.read_bytes() != content:
                payload = self._payload.get(_digest(content))
                changes.append(f"{'changed' if delivered.is_file() else 'new'} /{path}, {len(content)} bytes"
                               + (f", equal to {payload}" if payload else ""))
        return changes + [f"removed /{path}" for path in _files(SKELETON)
                          if not os.path.lexists(self.instrument / path)]

    def left_behind(self):
        power = self.instrument / "run/instrument/power"
        kinds = ("mounts", "mounted", 1), ("modules", "module loaded", 0), ("loops", "loop device attached", 0)
        return [f"{text}: {' '.join(record.split())}" for name, text, skipped in kinds if (power / name).exists()
                for record in (power / name).read_text().splitlines()[skipped:]]


def snapshot(instrument):
    """Everything that outlives a power cycle, by its path."""
    kept = {}
    for folder, folders, files in os.walk(instrument):
        place = os.path.relpath(folder, instrument)
        if place == ".":
            folders[:] = set(folders) - {"dev", "proc", "root", "tmp"}
        elif place == "run/instrument":
            folders[:], files = {"flash", "media", "boards"}, []
        for name in [*folders, *files]:
            path = os.path.join(folder, name)
            content = "folder or device"
            if os.path.islink(path):
                content = "link to " + os.readlink(path)
            elif os.path.isfile(path):
                with open(path, "rb") as file:
                    content = _digest(file.read())
            kept["/" + os.path.normpath(f"{place}/{name}")] = content
    return kept


def differences(before, after):
    return sorted(path for path in before.keys() | after.keys() if before.get(path) != after.get(path))


def _digest(content):
    return hashlib.sha256(content).hexdigest()


def _files(folder):
    return sorted(os.path.relpath(os.path.join(place, name), folder) for place, _, names in os.walk(folder)
                  for name in names)


def _is_in(folders, path):
    return any(path.startswith(folder + "/") for folder in folders)


def _states(memory, expected, file):
    """Of each byte of a PIC's program memory."""
    states = ["erased" if held == wanted else "different" for held, wanted in zip(memory, expected)]
    for begin, end in file["written"]:
        for address in range(begin, min(end, len(memory))):
            if states[address] == "erased":
                states[address] = "programmed"
    for begin, end in file["skipped"]:
        for address in range(begin, min(end, len(memory))):
            states[address] = "skipped"
    return states


def _regions(begin, states):
    regions = []
    for state, run in itertools.groupby(states):
        end = begin + len(list(run))
        regions.append({"begin": begin, "end": end, "state": state})
        begin = end
    return regions
