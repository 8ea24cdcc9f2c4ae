"""The verdict on a package, as one data structure, and that as text, JSON and HTML."""

import base64
import html
import json
import string

import running

FORMAT = 1
ROW_SIZE, ROWS_A_LINE, CELL = 64, 64, 9  # of the picture of a PIC's memory: bytes, cells, pixels
STATES = {"erased": "#e8e8e8", "kept": "#c8d4e8", "programmed": "#4a90d9", "skipped": "#f0a030", "different": "#d0021b"}
SECTIONS = {"failedTools": "Tools that failed", "flash": "Flash", "files": "Files of the root file system",
            "boards": "Boards", "violations": "What the boards do not accept", "leftBehind": "Left behind"}
TEMPLATE = string.Template((running.SIMULATOR / "rehearsal/report.html").read_text())


def make(package, inspection, outcome, further, pictures):
    good = outcome.good and not inspection.mistakes and all(result.good for result in further)
    return {
        "format": FORMAT, "package": package.archive.name, "verdict": _verdict(good),
        "lines": [{"number": line.number, "command": line.facts["text"], "kind": line.facts["kind"], "outcome": line.outcome,
                   "messages": _messages(line.messages), "changes": line.changes, "calls": _calls(line.calls)}
                  for line in outcome.lines],
        "mistakes": [finding._asdict() for finding in inspection.mistakes],
        "remarks": [finding._asdict() for finding in inspection.remarks],
        "update": {"failedTools": _calls(outcome.failed_tools()), "flash": outcome.flash(), "files": outcome.files(),
                   "boards": outcome.boards, "violations": outcome.violations, "leftBehind": outcome.left_behind(),
                   "lastMessage": _messages([outcome.last_message])[0]},
        "pics": outcome.pics,
        "furtherUpdates": [{"title": result.title, "verdict": _verdict(result.good),
                            "entries": [dict(zip(("text", "outcome", "details"), entry)) for entry in result.entries]}
                           for result in further],
        "pictures": [str(path) for path in sorted(pictures.glob("*.png"), key=lambda path: int(path.name.split("-")[0]))],
    }


def _verdict(good):
    return "good" if good else "FAILED"


def _messages(messages):
    return [{"colour": colour, "text": text} for colour, text in messages]


def _calls(calls):
    return [{"command": command, "exitCode": code} for command, code in calls]


def _call_text(call):
    return call["command"] + (f" (exit status {call['exitCode']})" if call["exitCode"] else "")


def _line_details(line):
    """What a line did besides its plain messages. The tools that a script calls are not known from its keyword."""
    details = [message["text"] for message in line["messages"] if message["colour"] == "red"] + line["changes"]
    if line["kind"] == "SCRIPT":
        details += ["called " + _call_text(call) for call in line["calls"]]
    return details + ["not executed"] * (line["outcome"] == "not executed")


def _finding_text(finding):
    return (f"line {finding['line']}, " if finding["line"] else "") + f"{finding['kind']}: {finding['text']}"


def _sections(report):
    yield "Mistakes in the package", [_finding_text(finding) for finding in report["mistakes"]]
    yield "Remarks on the package", [_finding_text(finding) for finding in report["remarks"]]
    for key, title in SECTIONS.items():
        yield title, [_call_text(entry) if isinstance(entry, dict) else entry for entry in report["update"][key]]
    yield "Last message", [report["update"]["lastMessage"]["text"]]


def _entry_text(entry):
    return entry["text"] + (f": {entry['outcome']}" if entry["outcome"] else "")


def text(report):
    out = ["Command lines"]
    for line in report["lines"]:
        out.append(f"  {'ok    ' if line['outcome'] == 'ok' else 'FAILED'}  {line['number']:3}  {line['command']}")
        out += [f"               {detail}" for detail in _line_details(line)]
    for title, entries in _sections(report):
        out += [title, *(f"  {entry}" for entry in entries or ["none"])]
    for result in report["furtherUpdates"]:
        out.append(result["title"])
        for entry in result["entries"]:
            out += [f"  {_entry_text(entry)}", *(f"    {detail}" for detail in entry["details"])]
        out.append(f"  {result['verdict']}")
    return "\n".join([*out, f"Verdict: {report['verdict']}"])


def write(report, path):
    if path.suffix == ".json":
        path.write_text(json.dumps(report, indent=1) + "\n")
    else:
        path.write_text(_html(report))


def _html(report):
    lines = "".join(_line_html(line) for line in report["lines"])
    sections = [f"<h2>{_(title)}</h2>{_list(map(_, entries))}" for title, entries in _sections(report)]
    return TEMPLATE.substitute(
        package=_(report["package"]), verdict=report["verdict"], lines=lines,
        findings="".join(sections[:2]), sections="".join(sections[2:]),
        further_updates="".join(_further_html(result) for result in report["furtherUpdates"]),
        pictures="".join(map(_picture_html, report["pictures"])),
        pics="".join(map(_pic_html, report["pics"])) or "<p>none</p>",
        legend="".join(f'<span class="key" style="background:{colour}"></span>{state} '
                       for state, colour in STATES.items()))


_ = html.escape


def _list(items):
    return "<ul>" + "".join(f"<li>{item}</li>" for item in items) + "</ul>" if (items := list(items)) else "<p>none</p>"


def _line_html(line):
    shown = "".join(f'<div class="{message["colour"]}">{_(message["text"])}</div>' for message in line["messages"])
    details = [*line["changes"], *("called " + _call_text(call) for call in line["calls"])]
    return (f'<tr class="{"ok" if line["outcome"] == "ok" else "failed"}"><td>{line["number"]}</td><td>{line["outcome"]}</td>'
            f'<td><code>{_(line["command"])}</code></td><td class="panel">{shown}</td>'
            f'<td>{_list(map(_detail_html, details)) if details else ""}</td></tr>')


def _detail_html(detail):
    return f'<span class="FAILED">{_(detail)}</span>' if "DIFFERS" in detail else _(detail)


def _further_html(result):
    entries = (f'<span class="{entry["outcome"]}">{_(_entry_text(entry))}</span>'
               + (_list(map(_, entry["details"])) if entry["details"] else "") for entry in result["entries"])
    return f'<h2>{_(result["title"])}: <span class="{result["verdict"]}">{result["verdict"]}</span></h2>{_list(entries)}'


def _picture_html(path):
    with open(path, "rb") as file:
        data = base64.b64encode(file.read()).decode()
    name = path.rpartition("/")[2].removesuffix(".png")
    return f'<figure><img src="data:image/png;base64,{data}"><figcaption>{_(name)}</figcaption></figure>'


def _pic_html(pic):
    """A cell for each row of 64 bytes, in the colour of its worst byte; below them the configuration, byte by byte."""
    rank = list(STATES)
    cells, configuration = {}, []
    for region in pic["regions"]:
        if region["begin"] >= 0x300000:
            configuration += [region["state"]] * (region["end"] - region["begin"])
            continue
        for row in range(region["begin"] // ROW_SIZE, (region["end"] - 1) // ROW_SIZE + 1):
            cells[row] = max(cells.get(row, rank[0]), region["state"], key=rank.index)
    lines = -(-len(cells) // ROWS_A_LINE)
    places = [(row % ROWS_A_LINE, row // ROWS_A_LINE, state) for row, state in cells.items()]
    places += [(byte, lines + 1, state) for byte, state in enumerate(configuration)]
    squares = "".join(f'<rect x="{x * CELL}" y="{y * CELL}" width="{CELL - 1}" height="{CELL - 1}" fill="{STATES[state]}"/>'
                      for x, y, state in places)
    return (f'<figure><figcaption>PIC {pic["number"]}, line {pic["line"]}</figcaption><svg width="{ROWS_A_LINE * CELL}" '
            f'height="{(lines + 2) * CELL}">{squares}</svg></figure>')
