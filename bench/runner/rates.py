"""Connections and requests a second, the wait of one client, and the time that
large requests take."""

import statistics
import time

import sockets
from comparison import Comparison, Goal
from load import ab, wrk
from session import KOVA, PRINTER, bare, bare_with_look_up, beast, host

# One unrecorded run that also tells how many requests fill the time.
WARM_UP_SECONDS = 0.3
MOST_REQUESTS = 50000


def requests_for(seconds, load, clients):
    """How many requests take about that long, after a load; a multiple of the
    clients."""
    wanted = min(int(seconds * load.requests / load.seconds), MOST_REQUESTS)
    return max(clients, wanted // clients * clients)


def _timed(server, load):
    """The rate at which load() is served, and the microseconds that it takes
    of the processors for each request."""
    before = server.processor_seconds()
    served = load()
    took = server.processor_seconds() - before
    return served.requests / served.seconds, 1e6 * took / served.requests


def _url(contestant, server):
    return "http://%s:%d%s" % (sockets.HOST, server.port, contestant.path)


def _rates(session, name, title, unit, contestants, baseline, limit, measure):
    """The rates, and beside them the processor time, which has the goal: a
    rate depends on what else the machine does."""
    speeds = session.all_in_turns(name, contestants, measure,
                                  session.scale.rate_rounds)

    def column(index):
        return {who: [speed[index] for speed in rounds]
                for who, rounds in speeds.items()}

    return [Comparison(name, title, unit + "/s", column(0), baseline),
            Comparison(name + "-cpu", "Processor time of that, for one of the "
                       + unit, "us", column(1), baseline,
                       [Goal(KOVA, "<=", limit, "ratio", baseline)])]


def _new_connections(session, name, title, clients, status, contestants,
                     baseline, limit):
    """ab's connections a second, a request each, whose whole answers are
    counted to the byte."""
    plans = {}

    def plan(contestant, server):
        """How many requests, and how long each answer is."""
        length = len(sockets.ask(
            server.port, sockets.get(contestant.path, "1.0"), status))
        count = clients
        for seconds in WARM_UP_SECONDS, session.scale.seconds:
            count = requests_for(seconds, ab(
                _url(contestant, server), clients, count, status, length),
                clients)
        return count, length

    def measure(contestant, server):
        if contestant.name not in plans:
            plans[contestant.name] = plan(contestant, server)
        count, length = plans[contestant.name]
        return _timed(server, lambda: ab(
            _url(contestant, server), clients, count, status, length))

    return _rates(session, name, title, "connections", contestants, baseline,
                  limit, measure)


def refusal(session, clients):
    return _new_connections(
        session, "refusal-%d" % clients,
        "A connection each, answered with status 400, %d clients" % clients,
        clients, 400, [host(), bare("bare", "refusal"), *beast("refusal")],
        "bare", 1.02)


def routed(session, clients):
    return _new_connections(
        session, "routed-%d" % clients,
        "A connection each, routed, 1 KiB, %d clients" % clients,
        clients, 200,
        [host("/small"), bare_with_look_up(), *beast("small")],
        "bare with look-up", 1.02)


def large(session):
    return _new_connections(
        session, "large-answers", "A connection each, 8 MiB, 8 clients", 8,
        200,
        [host("/large"), bare("bare", "large"),
         bare("bare with copies", "large", "--copy"), *beast("large")],
        "bare with copies", 0.87)


def kept_open(session, clients=16):
    def measure(contestant, server):
        sockets.check_kept(server.port, contestant.path)
        return _timed(server, lambda: wrk(
            _url(contestant, server), clients,
            max(1, round(session.scale.seconds))))

    return _rates(
        session, "kept-open",
        "Requests on %d connections that stay open, routed, 1 KiB" % clients,
        "requests",
        [host("/keep"), bare_with_look_up("--keep-open"), *beast("small")],
        "bare with look-up", 1.01, measure)


def wait(session):
    """One client that connects again and again: the milliseconds from there to
    the last byte of the answer, half of the times and 99 of 100 at most."""
    contestants = [host("/small"), bare_with_look_up(), *beast("small")]

    def measure(contestant, server):
        took = []
        for _ in range(session.scale.waits):
            start = time.monotonic()
            sockets.ask(server.port, sockets.get(contestant.path), 200)
            took.append(1000 * (time.monotonic() - start))
        return statistics.median(took), statistics.quantiles(took, n=100)[-1]

    waits = session.all_in_turns("wait", contestants, measure,
                                 session.scale.rate_rounds)
    return [Comparison(
        "wait-" + which, "How long one client waits, " + title, "ms",
        {who: [one[index] for one in rounds]
         for who, rounds in waits.items()}, "bare with look-up",
        [Goal(KOVA, "<=", 1.05, "ratio", "bare with look-up")])
        for index, (which, title) in enumerate(
            [("p50", "the median"), ("p99", "99 of 100 times at most")])]


def _milliseconds(session, name, contestants, pieces):
    """Until the answer to the pieces of a request is there."""
    return session.all_in_turns(
        name, contestants, lambda _, server:
        1000 * sockets.timed_send(server.port, pieces))


def _gathering(growth, length):
    return bare("bare, %s block" % growth, "small", "--body", str(length),
                "--receive", growth)


def upload(session):
    size = session.scale.upload_bytes
    request = sockets.post("/upload?printer=" + PRINTER, size)
    baseline = _gathering("reserved", len(request))
    return [Comparison(
        "upload", "A body of %d MiB sent in one go" % (size >> 20), "ms",
        _milliseconds(session, "upload",
                      [host("/upload"), baseline, *beast("small")],
                      [request]),
        baseline.name,
        [Goal(KOVA, "<=", 1.5, "ratio", baseline.name),
         *[Goal(KOVA, "<=", 0.2, "ratio", peer.name)
           for peer in beast("small")]])]


def endless_header(session):
    size = session.scale.header_bytes
    baseline = _gathering("reserved", size)
    found = Comparison(
        "endless-header", "A header block of %d MiB in pieces of %d KiB" % (
            size >> 20, sockets.PIECE_BYTES >> 10), "ms",
        _milliseconds(
            session, "endless-header",
            [host("/small"), baseline, _gathering("exact", size)],
            sockets.endless_pieces("/small?printer=" + PRINTER, size)),
        baseline.name)
    found.notes = ["%s: %.1f MiB/s" % (
        who, 1000 * (size >> 20) / found.summary(who)["median"])
        for who in found.figures]
    return [found]
