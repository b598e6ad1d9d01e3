"""What a server asks of Wine's server for one request. A count, so the same on
every machine, busy or not."""

import collections
import contextlib
import os
import re
import subprocess
import time

import sockets
from comparison import CannotMeasure, Comparison
from session import KOVA, bare, bare_with_look_up, beast, host

# A request of a thread of four or more digits. An answer has ") = " instead.
CALL = re.compile(rb"^[0-9a-f]{4,}: (\w+)\((?!\) = )", re.M)
WARM_UP = 20
REQUESTS = 100
QUIET_SECONDS = 0.3
NOTED = 6


def parse_calls(trace):
    """How many calls of each name are in a piece of the trace."""
    return collections.Counter(
        found.group(1).decode("ascii") for found in CALL.finditer(trace))


def wine_server(*options):
    subprocess.run(["wineserver", *options], check=False, timeout=60,
                   stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


@contextlib.contextmanager
def traced(log):
    """Wine's server tells all it does in the file `log`, for a with block in
    which all programs are started and ended."""
    wine_server("-k")
    wine_server("-w")
    with open(log, "wb") as file:
        process = subprocess.Popen(["wineserver", "-f", "-d1"], stderr=file,
                                   stdin=subprocess.DEVNULL)
    try:
        time.sleep(QUIET_SECONDS)
        if process.poll() is not None:
            raise CannotMeasure("Wine's server does not start")
        yield
    finally:
        wine_server("-k")
        process.wait(60)
        os.remove(log)


def wait_until_quiet(log, patience=30):
    """Until the file has not grown for a while; its size."""
    deadline = time.monotonic() + patience
    size, quiet_since = -1, time.monotonic()
    while time.monotonic() < quiet_since + QUIET_SECONDS:
        if time.monotonic() > deadline:
            raise CannotMeasure("Wine's server does not come to rest")
        now = os.path.getsize(log)
        if now != size:
            size, quiet_since = now, time.monotonic()
        time.sleep(0.02)
    return size


def _ask(port, path, status, is_kept, times):
    if not is_kept:
        for _ in range(times):
            sockets.ask(port, sockets.get(path, "1.0"), status)
        return
    with sockets.connect(port) as connection:
        for _ in range(times):
            connection.sendall(sockets.get(path))
            sockets.receive_one(connection)


def _count(log, *asked):
    _ask(*asked, WARM_UP)
    begin = wait_until_quiet(log)
    _ask(*asked, REQUESTS)
    wait_until_quiet(log)
    with open(log, "rb") as file:
        file.seek(begin)
        return parse_calls(file.read())


def difference(mine, base, requests):
    """In words: of which calls there are more or fewer, most first."""
    changes = {name: (mine[name] - base[name]) / requests
               for name in set(mine) | set(base)}
    most = sorted(changes, key=lambda name: (-abs(changes[name]), name))
    return ", ".join("%s %+.1f" % (name, changes[name])
                     for name in most[:NOTED] if abs(changes[name]) >= 0.1)


def _compare(session, log, name, title, contestants, status=200,
             is_kept=False):
    """The first contestant is the product, the second the baseline."""
    counts = {}
    with session.all_started(contestants) as servers:
        for contestant in contestants:
            if contestant.name not in servers:
                continue
            session.show("wine-calls: " + contestant.name)
            counts[contestant.name] = _count(
                log, servers[contestant.name].port, contestant.path, status,
                is_kept)
    baseline = contestants[1].name
    notes = []
    if KOVA in counts and baseline in counts:
        notes = ["%s more or less than %s: %s" % (
            KOVA, baseline, difference(counts[KOVA], counts[baseline],
                                       REQUESTS) or "none")]
    return Comparison(name, title, "calls", {
        who: [sum(calls.values()) / REQUESTS]
        for who, calls in counts.items()}, baseline, notes=notes)


def run(session, log):
    with traced(log):
        return [
            _compare(session, log, "wine-calls-refusal", "Calls of Wine's "
                     "server for a connection that is answered with status "
                     "400",
                     [host(), bare("bare", "refusal"), *beast("refusal")],
                     400),
            _compare(session, log, "wine-calls-routed",
                     "The same for a routed one",
                     [host("/small"), bare_with_look_up(), *beast("small")]),
            _compare(session, log, "wine-calls-kept-open",
                     "The same for a routed request on a connection that "
                     "stays open",
                     [host("/keep"), bare_with_look_up("--keep-open"),
                      *beast("small")], is_kept=True)]
