"""Rehearses update packages on the virtual instrument."""

import argparse
import concurrent.futures
import pathlib
import re
import sys
import tempfile

import package
import report
import running
from outcome import Outcome
from further import FurtherUpdate, FurtherUpdates

GOOD, FAILED = 0, 1


def report_file(text):
    path = pathlib.Path(text)
    if path.suffix not in (".json", ".html") or not path.resolve().parent.is_dir():
        raise argparse.ArgumentTypeError(f"'{text}' is not a file FILE.json or FILE.html in a folder that exists")
    return path


def matching(pattern, what):
    def check(text):
        if not re.fullmatch(pattern, text):
            raise argparse.ArgumentTypeError(f"'{text}' is not {what}")
        return text
    return check


def parse_arguments():
    parser = argparse.ArgumentParser(prog="rehearsal", description=__doc__)
    commands = parser.add_subparsers(dest="command", required=True)
    verdict = "Exit status: 0 good (there may be remarks), 1 FAILED, 2 usage error."

    rehearse = commands.add_parser("rehearse", prog="scripts/rehearse", epilog=verdict, description="""Executes a package
        on the virtual instrument without a display and prints what it did, line by line, and what reading the package
        shows: mistakes, and remarks on what its author may not know.""")
    rehearse.add_argument("package", type=running.existing_package)
    running.add_arguments(rehearse)
    rehearse.add_argument("--faults", type=matching("[0-9]{1,9}", "a number of up to 9 digits"), metavar="SEED", help="""a
        further update with one to three faults, chosen by the number SEED; good when every line that meets one fails in red
        and the update, repeated without them, is good""")
    rehearse.add_argument("--power-cut", type=matching("[1-9][0-9]*|all", "a number or all"), metavar="N|all",
                          help="""a further update that ends after the Nth call of a system tool, or one for each call and
        for moments inside the PIC and ESA lines; good when the update, repeated, leaves the same instrument""")
    rehearse.add_argument("--report", type=report_file, metavar="FILE.html|FILE.json", action="append", default=[],
                          help="writes the report for a browser or for a program, too; may be given twice")

    demo = commands.add_parser("demo", prog="scripts/demo", epilog=verdict, description="""The updater's main job: an
        update on the virtual instrument, what it changed, and the panel's pictures.""")
    demo.add_argument("--package", type=running.existing_package, help="your own update package in place of the sample")
    running.add_arguments(demo, boards=False)
    attended = demo.add_mutually_exclusive_group()
    attended.add_argument("--interactive", dest="display", action="store_const", const="--interactive",
                          help="opens the panel on the desktop, for you to press F1 to F4")
    attended.add_argument("--vnc", dest="display", action="store_const", const="--vnc", help="""the same in a VNC viewer at
        port 5900 of the host; whoever reaches it needs no password""")

    return parser.parse_args()


def show(message):
    print(f"  {message}", flush=True)


def rehearse(updates, options):
    print(f"Rehearsing {options.package}", flush=True)
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor() as pool:
        unpacked = package.Package(updates.build, options.package, folder)
        further = FurtherUpdates(updates, unpacked, options.output)
        used_pics = None
        if options.pic_enable and any(line["kind"] == "PIC" for line in unpacked.lines):
            used_pics = pool.submit(further.update_of_used_pics)
        updates.new_instrument(options.output)
        if not updates.update(options.output, show=show):
            print("The program did not come back to the main screen.")
        print(f"Debug output and output of the tools: {options.output}/log")
        undisturbed = Outcome(unpacked, options.output, options.pic_enable)
        done = further_updates(further, undisturbed, unpacked, options)
        if used_pics and undisturbed.good:
            done.append(used_pics.result())
        return finish(options, unpacked, undisturbed, done)


def further_updates(further, undisturbed, unpacked, options):
    done = []
    for chosen, title, run in ((options.faults, "An update with faults", further.update_with_faults),
                                 (options.power_cut, "Updates that a power cut ends",
                                  further.updates_that_a_power_cut_ends)):
        if chosen and not undisturbed.good:
            done.append(FurtherUpdate(title))
            done[-1].add("not run, because the undisturbed update is not good", "FAILED")
        elif chosen and unpacked.clears_wrtc():
            done.append(FurtherUpdate(title))
            done[-1].add("not run, because the package protects the configuration of a PIC for good", "FAILED")
        elif chosen:
            print(title, flush=True)
            done.append(run(chosen, undisturbed))
    return done


def finish(options, unpacked, outcome, further):
    made = report.make(unpacked, package.Inspection(unpacked), outcome, further, options.output / "pictures")
    print(report.text(made))
    print(f"Pictures of the panel: {options.output}/pictures")
    for path in options.report:
        report.write(made, path)
        print(f"Report: {path}")
    return GOOD if made["verdict"] == "good" else FAILED


def demo(updates, options):
    if not options.display:
        return rehearse(updates, options)
    updates.new_instrument(options.output)
    updates.attend(options.output, options.display)
    with tempfile.TemporaryDirectory() as folder:
        unpacked = package.Package(updates.build, options.package, folder)
        return finish(options, unpacked, Outcome(unpacked, options.output, True), [])


def main():
    options = parse_arguments()
    if options.command == "demo":
        options.faults = options.power_cut = None
        options.report = []
        options.pic_enable = options.avr_enable = True
        options.package = options.package or running.make_sample(options.output)
    updates = running.Updates(options, options.package)
    return demo(updates, options) if options.command == "demo" else rehearse(updates, options)


if __name__ == "__main__":
    sys.exit(main())
