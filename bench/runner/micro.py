"""The micro-benchmarks: small pieces of the server, measured in a loop."""

import json
import re
import subprocess

from comparison import CannotMeasure, Comparison, Goal
from session import KOVA

ROW = re.compile(r"^(.+?) +([\d.]+) ns +([\d.]+) +([\d.]+) to ([\d.]+) ns$")
PEER = "http_parser"
# As bench/micro/sample_requests.cpp numbers them.
REQUESTS = ["a browser's request", "another browser's request",
            "a print client's form"]
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def parse_log_table(text):
    """Rows of kova_bench: the name, and quartiles and median in ns."""
    rows = {}
    for line in text.splitlines():
        found = ROW.match(line.strip())
        if found:
            name, median, _, lower, upper = found.groups()
            rows[name] = [float(lower), float(median), float(upper)]
    if not rows:
        raise CannotMeasure("kova_bench printed no table")
    return rows


def parse_google(text):
    """CPU time of each repetition in ns, by the benchmark's name."""
    figures = {}
    for run in json.loads(text)["benchmarks"]:
        if run.get("run_type", "iteration") != "iteration":
            continue
        if run.get("error_occurred"):
            raise CannotMeasure("%s: %s" % (run["name"],
                                            run.get("error_message")))
        name = run.get("run_name", run["name"])
        figures.setdefault(name, []).append(
            run["cpu_time"] * NANOSECONDS[run["time_unit"]])
    if not figures:
        raise CannotMeasure("no benchmark was run")
    # They ran in a random order.
    return dict(sorted(figures.items()))


def google_options(rounds, seconds):
    return ["--benchmark_format=json",
            "--benchmark_repetitions=%d" % rounds,
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_min_time=%g" % seconds]


def _log_line(session):
    rows = parse_log_table(session.programs.run("kova_bench"))
    base, line = list(rows)[:2]
    return [Comparison(
        "micro-log", "A disabled log channel, under Wine (lower quartile, "
        "median and upper quartile of 101 rounds)", "ns", rows, base,
        [Goal(line, "<=", 3, "ratio", base)])]


def parses(figures):
    """The parse of each sample request beside the peer's, all fields kept."""
    return [
        Comparison("micro-parse-%d" % i,
                   "The parse of %s, all fields kept (CPU time)" % request,
                   "ns", {KOVA: figures["Request/all_fields/%d" % i],
                          PEER: figures["Peer/all_fields/%d" % i]},
                   PEER, [Goal(KOVA, "<=", 2.5, "ratio", PEER)])
        for i, request in enumerate(REQUESTS)]


def _native(session, program):
    quick = session.scale.seconds < 1
    command = [program, *google_options(session.scale.rounds,
                                        0.02 if quick else 0.1)]
    try:
        result = subprocess.run(command, capture_output=True, text=True,
                                stdin=subprocess.DEVNULL, timeout=500,
                                check=True)
    except (OSError, subprocess.SubprocessError) as error:
        raise CannotMeasure(str(error)) from error
    figures = parse_google(result.stdout)
    return [*parses(figures),
            Comparison("micro-native", "Pieces of the server, built for this "
                       "machine (CPU time)", "ns", figures)]


def run(session, native_program):
    """The native program is left out if it has not been built."""
    comparisons = []
    for name, measure in [
            ("kova_bench", lambda: _log_line(session)),
            ("kova_micro_bench", lambda: _native(session, native_program)
             if native_program else [])]:
        session.progress.show("micro: " + name)
        try:
            comparisons += measure()
        except CannotMeasure as error:
            session.fail("micro, " + name, error)
    return comparisons
