"""Measures the server beside others. See script/bench."""

import argparse
import dataclasses
import datetime
import os
import platform
import sys

import many
import micro
import rates
import report
import wine_calls
from comparison import CannotMeasure
from session import QUICK, Scale, Session

CANNOT = 1
USAGE = 2
STOPPED = 130
# A load of more than this means that something else runs.
BUSY = 0.7

# Name: what it is, and how it is measured: (session, options), which gives a
# list of comparisons.
CATALOGUE = {
    "refusal-16": (
        "connections a second, answered with status 400, 16 clients",
        lambda s, _: rates.refusal(s, 16)),
    "refusal-64": ("the same, 64 clients", lambda s, _: rates.refusal(s, 64)),
    "routed-16": (
        "connections a second, routed to an extension, 16 clients",
        lambda s, _: rates.routed(s, 16)),
    "routed-64": ("the same, 64 clients", lambda s, _: rates.routed(s, 64)),
    "kept-open": ("requests a second on connections that stay open",
                  lambda s, _: rates.kept_open(s)),
    "wait": ("how long one client waits that connects again and again",
             lambda s, _: rates.wait(s)),
    "large-answers": ("answers of 8 MiB", lambda s, _: rates.large(s)),
    "upload": ("a body of 64 MiB in one go", lambda s, _: rates.upload(s)),
    "endless-header": ("a header block of 16 MiB",
                       lambda s, _: rates.endless_header(s)),
    "idle-memory": (
        "memory of 500 and 2000 idle connections", lambda s, _: [
            c for count in s.scale.idle for c in many.idle_memory(s, count)]),
    "stop": (
        "a stop with 500 and 2000 idle connections", lambda s, _: [
            c for count in s.scale.idle for c in many.stop(s, count)]),
    "host-cost": ("what loading, starting and stopping cost a host",
                  lambda s, _: many.host_cost(s)),
    "addresses": ("connections a second after 100000 addresses",
                  lambda s, _: many.addresses(s)),
    "extensions": ("1 to 100 extensions: load, memory, look-up",
                   lambda s, _: many.extensions(s)),
    "wine-calls": (
        "what a request asks of Wine's server: a count",
        lambda s, o: wine_calls.run(s, os.path.join(o.out,
                                                    "wine-calls.log"))),
    "micro": ("small pieces of the server in a loop",
              lambda s, o: micro.run(s, o.native)),
}


class Parser(argparse.ArgumentParser):
    def error(self, message):
        print("error: %s; see script/bench --help" % message, file=sys.stderr)
        sys.exit(USAGE)


def positive(text):
    number = int(text)
    if number < 1:
        raise ValueError(text)
    return number


def parse(arguments):
    parser = Parser(allow_abbrev=False, add_help=False)
    parser.add_argument("names", nargs="*", metavar="NAME")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--rounds", type=positive)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--json", default="")
    parser.add_argument("--document", default="")
    # Where the user is: what files are relative to.
    parser.add_argument("--folder", default=".")
    parser.add_argument("--programs")
    parser.add_argument("--native")
    parser.add_argument("--out", default=".")
    parser.add_argument("--commit", default="unknown")
    options = parser.parse_args(arguments)
    for name in options.names:
        if name not in CATALOGUE:
            parser.error("nothing is called " + name)
    options.names = [name for name in CATALOGUE
                     if not options.names or name in options.names]
    return options


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


def measure(session, options):
    """The comparisons of all; what fails goes to the session's problems."""
    comparisons = []
    for index, name in enumerate(options.names):
        session.show("%s (%d of %d)" % (name, index + 1, len(options.names)))
        try:
            found = CATALOGUE[name][1](session, options)
        except (CannotMeasure, OSError) as error:
            session.fail(name, error)
            continue
        session.show("", stays=True)
        for comparison in found:
            if comparison.figures:
                comparisons.append(comparison)
                print("\n".join(report.table(comparison)), flush=True)
    return comparisons


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def write_results(options, facts, comparisons, session):
    rest = session.problems, session.repeated
    data = report.as_json(facts, comparisons, *rest)
    write(os.path.join(options.out, "result.json"), data)
    write(os.path.join(options.out, "result.md"),
          report.markdown(facts, comparisons, *rest))
    if options.json:
        write(os.path.join(options.folder, options.json), data)
    if options.document:
        path = os.path.join(options.folder, options.document)
        # What is compared with nothing is too much for a document.
        compared = [each for each in comparisons if each.baseline]
        with open(path, encoding="utf-8") as file:
            document = file.read()
        write(path, report.put_between(
            document, report.markdown(facts, compared, *rest)))


def main(arguments):
    options = parse(arguments)
    if options.list:
        for name, (text, _) in CATALOGUE.items():
            print("%-16s %s" % (name, text))
        return 0
    if options.check:
        print(" ".join(options.names))
        return 0
    scale = scale_of(options)
    session = Session(options.programs,
                      os.path.join(options.out, "servers.log"), scale)
    facts = facts_of(options, scale)
    if os.getloadavg()[0] > BUSY:
        session.show("This machine is busy (load %.1f): believe the processor "
                     "times rather than the rates." % os.getloadavg()[0],
                     stays=True)
    comparisons = measure(session, options)
    write_results(options, facts, comparisons, session)
    print("\n".join(report.goal_table(comparisons)))
    for problem in session.problems:
        print("not measured: " + problem)
    print("Tables and figures: %s" % os.path.join(options.out,
                                                  "result.{md,json}"))
    return CANNOT if session.problems else 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(STOPPED)
