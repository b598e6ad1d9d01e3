"""The micro-benchmarks: small pieces of the server, measured in a loop."""

import json
import subprocess

from comparison import CannotMeasure, Comparison, Goal
from session import KOVA

PEER = "http_parser"
# As bench/micro/http_bench.cpp numbers them.
REQUESTS = ["a browser's request", "another browser's request",
            "a print client's form"]
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def parse_google(text):
    """CPU time of each repetition in ns, by the benchmark's name."""
    figures = {}
    for run_ in json.loads(text)["benchmarks"]:
        if run_.get("run_type", "iteration") != "iteration":
            continue
        if run_.get("error_occurred"):
            raise CannotMeasure("%s: %s" % (run_["name"],
                                            run_.get("error_message")))
        name = run_.get("run_name", run_["name"])
        figures.setdefault(name, []).append(
            run_["cpu_time"] * NANOSECONDS[run_["time_unit"]])
    if not figures:
        raise CannotMeasure("no benchmark was run")
    # They ran in a random order.
    return dict(sorted(figures.items()))


def comparisons(figures):
    """The parse of each sample request beside the peer's, all fields kept; a
    line on a disabled log channel beside the clock read and the load that it
    cannot do without; and everything."""
    line, least = "Log/disabled_line", "Log/clock_and_load"
    return [
        *[Comparison("micro-parse-%d" % i,
                     "The parse of %s, all fields kept (CPU time)" % request,
                     "ns", {KOVA: figures["Request/all_fields/%d" % i],
                            PEER: figures["Peer/all_fields/%d" % i]},
                     PEER, [Goal(KOVA, "<=", 2.5, "ratio", PEER)])
          for i, request in enumerate(REQUESTS)],
        Comparison("micro-log", "A disabled log channel (CPU time)", "ns",
                   {who: figures[who] for who in (least, line)}, least,
                   [Goal(line, "<=", 3, "ratio", least)]),
        Comparison("micro-native", "Pieces of the server, built for this "
                   "machine (CPU time)", "ns", figures)]


def run(session, program):
    try:
        result = subprocess.run(
            [program, "--benchmark_format=json",
             "--benchmark_repetitions=%d" % session.scale.rounds,
             "--benchmark_enable_random_interleaving=true",
             "--benchmark_min_time=%g" % min(
                 0.1, 0.04 * session.scale.seconds)],
            capture_output=True, text=True, stdin=subprocess.DEVNULL,
            timeout=500, check=True)
    except (OSError, subprocess.SubprocessError) as error:
        raise CannotMeasure(str(error)) from error
    return comparisons(parse_google(result.stdout))
