"""The journal of a virtual instrument: what happened, in order."""

import collections

Event = collections.namedtuple("Event", "kind fields")


def parse(line):
    kind, *fields = line.split("\t")
    return Event(kind, fields)


def read(instrument):
    """All events. A power cut may have left the last one incomplete."""
    journal = instrument / "run/instrument/journal"
    text = journal.read_text(errors="replace") if journal.exists() else ""
    return [parse(line) for line in text.split("\n")[:-1]]


def calls(events):
    """The tools that were called: (command line, exit status)."""
    return [(event.fields[1], int(event.fields[0])) for event in events if event.kind == "call"]
