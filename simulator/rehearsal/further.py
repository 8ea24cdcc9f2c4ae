"""Further updates: of PICs in use, with injected faults, and ones that a power cut ends."""

import collections
import concurrent.futures
import dataclasses
import os
import random
import shutil

import journal
from outcome import BLOCK_SIZE, Outcome, differences, snapshot

MOST_FAULTS = 3
# Failures that the update does not report, because it continues all the same or has another way.
TOLERATED = ("umount ", "losetup -d ", "modprobe g_mass_storage ", "sync")
SMALLEST_PROGRAM_MEMORY = 0x10000
CUTS_AT_A_TIME = 2 * os.cpu_count()  # an update also waits; with many more, its waits reach their limits
# An update erases the boot block and blocks 0 to 3, which lifts this protection; by configuration byte.
BLOCK_PROTECTION = {8: 0x0F, 9: 0x40, 10: 0x0F, 11: 0x40}
OLD_PROGRAM = bytes(range(256)) * (SMALLEST_PROGRAM_MEMORY // 256)


@dataclasses.dataclass
class FurtherUpdate:
    title: str
    good: bool = True
    entries: list = dataclasses.field(default_factory=list)  # (text, "good", "FAILED" or "", details)

    def add(self, text, outcome="", details=()):
        self.entries.append((text, outcome, list(details)))
        self.good = self.good and outcome != "FAILED"


class FurtherUpdates:
    def __init__(self, updates, package, output):
        self._updates = updates
        self._package = package
        self._output = output

    def _outcome(self, output):
        return Outcome(self._package, output, self._updates.pic_enabled)

    def update_of_used_pics(self):
        """From PICs that hold an old program, block protection and another configuration."""
        result = FurtherUpdate("An update of PICs in use")
        output = self._output / "used-pics"
        boards = self._updates.new_instrument(output) / "run/instrument/boards"
        boards.mkdir()
        for number, pic in enumerate(self._package.facts["pics"], 1):
            (boards / f"pic{number}.program").write_bytes(OLD_PROGRAM.ljust(pic["programSize"], b"\xff"))
            (boards / f"pic{number}.configuration").write_bytes(
                bytes(mask & (0x5A if index < 8 else ~BLOCK_PROTECTION.get(index, 0))
                      for index, mask in enumerate(pic["configurationMask"])))
        self._updates.update(output)
        self._judge(result, "PICs with an old program, block protection and another configuration", output)
        return result

    def _judge(self, result, text, output):
        outcome = self._outcome(output)
        reasons = [f"line {line.number}: {failure}" for line in outcome.lines for failure in line.failures]
        reasons += [board for board in outcome.boards if "DIFFERS" in board] + outcome.violations
        reasons += outcome.left_behind() + [f"last message: {outcome.last_message[1]}"]
        result.add(text, "good" if outcome.good else "FAILED", [] if outcome.good else reasons)

    def update_with_faults(self, seed, undisturbed):
        result = FurtherUpdate(f"An update with the faults of seed {seed}")
        faults = FaultPlan(seed, undisturbed, self._package).faults
        if not faults:
            result.add("no fault matters to this update", "FAILED")
            return result
        for fault in faults:
            result.add(f"fault: {fault.description}")
        output = self._output / "faults"
        self._updates.new_instrument(output)
        self._updates.update(output, [fault.record for fault in faults])
        disturbed = self._outcome(output)
        for line in disturbed.lines:
            if not line.executed:
                result.add(f"line {line.number} and those after it are not executed")
                break
            for failure in line.failures:
                result.add(f"reported at line {line.number}: {failure}")
        result.add(f"reported at the end: {disturbed.last_message[1]}")
        for text in unreported_faults(faults, disturbed):
            result.add(f"NOT REPORTED: {text}", "FAILED")
        self._updates.update(output)
        self._judge(result, "the update repeated without faults", output)
        return result

    def updates_that_a_power_cut_ends(self, which, undisturbed):
        result = FurtherUpdate("Updates that a power cut ends")
        calls = journal.calls(undisturbed.all_events)
        if which != "all" and int(which) > len(calls):
            result.add(f"the update calls {len(calls)} tools only", "FAILED")
            return result
        cuts = [("call", number, f"tool call {number}: {command}") for number, (command, _) in enumerate(calls, 1)]
        cuts = cuts + cuts_in_lines(undisturbed) if which == "all" else [cuts[int(which) - 1]]
        whole = snapshot(undisturbed.instrument)
        with concurrent.futures.ThreadPoolExecutor(CUTS_AT_A_TIME) as pool:
            for parts in pool.map(lambda cut: self._cut(*cut, whole), cuts):
                for entry in parts.entries:
                    result.add(*entry)
        return result

    def _cut(self, event, number, text, whole):
        result = FurtherUpdate("")
        output = self._output / f"cut-{event.replace(' ', '-')}-{number}"
        instrument = self._updates.new_instrument(output)
        returned = self._updates.update(output, [("power-cut", event, number)])
        happened = sum(event in (entry.kind, entry.fields[0]) for entry in journal.read(instrument))
        if returned or happened != number:
            result.add(f"no power cut after {text}", "FAILED")
            return result
        self._updates.update(output)
        self._judge(result, f"power cut after {text}", output)
        different = differences(whole, snapshot(instrument)) if result.good else []
        if different:
            result.entries.clear()
            result.add(f"power cut after {text}", "FAILED", [f"the instrument differs: {path}" for path in different])
        if result.good:
            shutil.rmtree(output)
        return result


def cuts_in_lines(undisturbed):
    """One cut for each kind of moment in a line, in the middle of those moments."""
    cuts, before = [], collections.Counter()
    for line in undisturbed.lines:
        for moment, count in collections.Counter(line.moments).items():
            cuts.append((moment, before[moment] + (count + 1) // 2, f"{moment} in line {line.number}"))
            before[moment] += count
    return cuts


@dataclasses.dataclass
class Fault:
    record: tuple  # of the plan
    description: str
    lines: list  # numbers of those that must fail; None: no line is executed


class FaultPlan:
    """One to three faults, chosen by a seed among those that matter to the undisturbed update."""

    def __init__(self, seed, undisturbed, package):
        self._random = random.Random(seed)
        self._undisturbed = undisturbed
        self._package = package
        self.faults = []
        places = [None, *undisturbed.lines]  # None: before the lines
        for _ in range(self._random.randint(1, MOST_FAULTS)):
            candidates = []
            while places and not candidates:
                place = places.pop(self._random.randrange(len(places)))
                candidates = self._faults_at(place)
            if candidates and place is None:
                self.faults = [self._random.choice(candidates)]  # no line is executed, so no other fault happens
                return
            if candidates:
                self.faults.append(self._random.choice(candidates))

    def _faults_at(self, line):
        if line is None:
            return self._tool_faults(self._undisturbed.calls_before_lines)
        if line.facts["kind"] == "SCRIPT":  # decides itself what a failure of its tools means
            return []
        boards = {"PIC": self._pic_faults, "ESA": self._esa_faults}.get(line.facts["kind"])
        return self._tool_faults(line.calls) + (boards(line) if boards else [])

    def _tool_faults(self, calls):
        return [Fault(("tool", 1, command), f"fails: {command}", self._lines_that_call(command))
                for command, code in calls if code == 0 and not command.startswith(TOLERATED)]

    def _lines_that_call(self, command):
        """A tool fails in every command line that begins like the chosen one."""
        return [line.number for line in self._undisturbed.lines if line.facts["kind"] != "SCRIPT"
                and any(other.startswith(command) for other, _ in line.calls)] or None

    def _pic_faults(self, line):
        pic = line.facts["pic"]
        faults = [Fault(("pic", pic, "absent"), f"PIC {pic} does not answer", [line.number])]
        ranges = [written for written in self._package.hex_file(line.facts)["written"]
                  if written[0] < SMALLEST_PROGRAM_MEMORY]
        if ranges:
            address, bit = self._random.randrange(*self._random.choice(ranges)), self._random.randrange(8)
            for name, text in ("never-erased", "does not erase"), ("flipped", "is programmed wrongly"):
                faults.append(Fault(("pic", pic, name, address, bit), f"PIC {pic}: bit {bit} at address {address} {text}",
                                    [line.number]))
        return faults

    def _esa_faults(self, line):
        """After most of them the board stays in its transfer, and answers no later line. Of the rejected end and of the
        garbage the updater notices nothing: it does not wait for the one, and ignores the other."""
        board = line.facts["board"]
        blocks = self._blocks(line)
        if blocks == 0 or any(fault.record[:2] == ("esa", board) for fault in self.faults):
            return []
        block = self._random.randrange(blocks)
        of_board = [other for other in self._undisturbed.lines if other.facts.get("board") == board]
        later = [other for other in of_board if other.number >= line.number]
        kinds = [("silent", "never asks for the image", later), (f"rejected {block}", f"rejects block {block}", later),
                 (f"unanswered {block}", f"does not answer block {block}", later),
                 (f"cancelled {block}", f"cancels the transfer at block {block}",
                  [other for other in later if self._blocks(other) > block]),
                 (f"garbage {block}", f"sends garbage after its reply to block {block}", []),
                 ("rejected-end", "rejects the end of the transfer", of_board[1:])]
        return [Fault(("esa", board, *kind.split()), f"the ESA {board} board {text}", [other.number for other in failing])
                for kind, text, failing in kinds]

    def _blocks(self, line):
        return -(-self._package.payload(line.facts).stat().st_size // BLOCK_SIZE)


def unreported_faults(faults, disturbed):
    """What the operator of the disturbed update should have seen and did not."""
    end = "green" if all(fault.lines == [] for fault in faults) else "red"
    unreported = [] if disturbed.last_message[0] == end else [f"the update did not end in {end}"]
    for fault in faults:
        unreported += [f"line {number} did not fail: {disturbed.lines[number - 1].facts['text']}"
                       for number in fault.lines or [] if disturbed.lines[number - 1].outcome == "ok"]
        if fault.lines is None and any(line.executed for line in disturbed.lines):
            unreported.append(f"the update began: {fault.description}")
    return unreported
