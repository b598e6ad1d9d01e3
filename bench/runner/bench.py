"""Measures the server beside others. See script/bench."""

import argparse
import dataclasses
import datetime
import os
import platform
import sys

import plot
import report
from catalogue import choose, entries
from comparison import CannotMeasure
from progress import Progress
from servers import Programs
from session import QUICK, Scale, Session

CANNOT = 1
USAGE = 2
STOPPED = 130
# A load of more than this means that something else runs.
BUSY = 0.7


def positive(text):
    number = int(text)
    if number < 1:
        raise ValueError(text)
    return number


def parse(arguments):
    parser = argparse.ArgumentParser(prog="script/bench", allow_abbrev=False,
                                     add_help=False)
    parser.add_argument("names", nargs="*")
    parser.add_argument("--rounds", type=positive)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--json")
    parser.add_argument("--document")
    parser.add_argument("--programs", required=True)
    parser.add_argument("--launcher", default="wine")
    parser.add_argument("--native")
    parser.add_argument("--out", required=True)
    parser.add_argument("--commit", default="unknown")
    return parser.parse_args(arguments)


def scale_of(options):
    scale = QUICK if options.quick else Scale()
    if options.rounds:
        scale = dataclasses.replace(scale, rounds=options.rounds)
    return scale


def _processor():
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as lines:
            return next(line.split(":", 1)[1].strip() for line in lines
                        if line.startswith("model name"))
    except (OSError, StopIteration):
        return platform.machine()


def facts_of(options, scale):
    return {
        "date": datetime.datetime.now().strftime("%Y-%m-%d %H:%M"),
        "commit": options.commit,
        "processor": "%s, %d cores" % (_processor(), os.cpu_count()),
        "load when it began": "%.1f" % os.getloadavg()[0],
        "rounds": str(scale.rounds) + (", quick" if options.quick else "")}


def measure(session, chosen):
    """The comparisons of all; what fails goes to the session's problems."""
    comparisons = []
    for entry in chosen:
        session.progress.begin(entry.name)
        session.progress.show(entry.name)
        try:
            found = entry.run(session)
        except (CannotMeasure, OSError) as error:
            session.fail(entry.name, error)
            continue
        session.progress.clear()
        for comparison in found:
            if comparison.figures:
                comparisons.append(comparison)
                print("\n".join(report.table(comparison)), flush=True)
    session.progress.finish()
    return comparisons


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def write_results(options, facts, comparisons, session):
    result = (facts, comparisons, session.problems, session.repeated)
    data = report.as_json(*result)
    text = report.markdown(*result)
    write(os.path.join(options.out, "result.json"), data)
    write(os.path.join(options.out, "result.md"), text)
    write(os.path.join(options.out, "result.svg"), plot.draw(comparisons))
    if options.json:
        write(options.json, data)
    if options.document:
        # What is compared with nothing is too much for a document.
        compared = [each for each in comparisons if each.baseline]
        text = report.markdown(facts, compared, *result[2:])
        with open(options.document, encoding="utf-8") as file:
            document = file.read()
        write(options.document, report.put_between(document, text))


def main(arguments):
    options = parse(arguments)
    scale = scale_of(options)
    all_entries = entries(options.native,
                          os.path.join(options.out, "wine-calls.log"))
    try:
        chosen = choose(all_entries, options.names)
    except ValueError as error:
        print("error: %s; see script/bench --list" % error, file=sys.stderr)
        return USAGE
    pace = scale.rounds / Scale().rounds * (0.25 if options.quick else 1)
    progress = Progress({entry.name: entry.seconds * pace
                         for entry in chosen}, sys.stderr)
    programs = Programs(options.programs, [options.launcher],
                        os.path.join(options.out, "servers.log"))
    session = Session(programs, scale, progress)
    facts = facts_of(options, scale)
    if os.getloadavg()[0] > BUSY:
        progress.complain("This machine is busy (load %.1f): believe the "
                          "processor times rather than the rates."
                          % os.getloadavg()[0])
    comparisons = measure(session, chosen)
    write_results(options, facts, comparisons, session)
    print("\n".join(report.goal_table(comparisons)))
    for problem in session.problems:
        print("not measured: " + problem)
    print("Tables, figures and a picture: %s" % os.path.join(
        options.out, "result.{md,json,svg}"))
    return CANNOT if session.problems else 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(STOPPED)
