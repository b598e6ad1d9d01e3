"""Connections and requests a second."""

from dataclasses import dataclass

import sockets
from comparison import Comparison, Goal
from load import ab, wrk
from session import KOVA, PRINTER, Contestant

# One unrecorded run that also tells how many requests fill the time.
WARM_UP_SECONDS = 0.3
MOST_REQUESTS = 50000


def host(path):
    return Contestant(KOVA, "bench_host",
                      path="%s?printer=%s" % (path, PRINTER) if path else "/")


def bare(name, answer, *more):
    return Contestant(name, "bench_bare", ("--answer", answer, *more))


def beast(answer):
    return [Contestant("Beast, a thread each", "bench_beast",
                       ("--mode", "thread", "--answer", answer)),
            Contestant("Beast, asynchronous", "bench_beast",
                       ("--mode", "async", "--answer", answer))]


def requests_for(seconds, rate, clients):
    """How many requests take about that long; a multiple of the clients."""
    wanted = min(int(seconds * rate), MOST_REQUESTS)
    return max(clients, wanted // clients * clients)


@dataclass(frozen=True)
class Speed:
    rate: float
    cpu_us: float  # of the processors, for each request


def timed(server, load):
    """The speed at which load() is served."""
    before = server.processor_seconds()
    report = load()
    took = server.processor_seconds() - before
    return Speed(report.rate(), 1e6 * took / report.requests)


def both(name, title, unit, speeds, baseline, limit):
    """The rates, which have a goal, and the processor time beside them."""
    return [
        Comparison(name, title, unit + "/s",
                   {who: [speed.rate for speed in rounds]
                    for who, rounds in speeds.items()}, baseline,
                   [Goal(KOVA, ">=", limit, "ratio", baseline)]),
        Comparison(name + "-cpu", "Processor time of that, for one of the "
                   + unit, "us",
                   {who: [speed.cpu_us for speed in rounds]
                    for who, rounds in speeds.items()}, baseline)]


class NewConnections:
    """ab's connections a second, a request each, whose whole answers are
    counted to the byte."""

    def __init__(self, servers, clients, status, seconds):
        self._servers = servers
        self._clients = clients
        self._status = status
        self._seconds = seconds
        self._plans = {}

    def __call__(self, contestant):
        server = self._servers[contestant.name]
        url = "http://%s:%d%s" % (sockets.HOST, server.port, contestant.path)
        if contestant.name not in self._plans:
            self._plans[contestant.name] = self._plan(contestant, url)
        count, length = self._plans[contestant.name]
        return timed(server, lambda: ab(url, self._clients, count,
                                        self._status, length))

    def _plan(self, contestant, url):
        """How many requests, and how long each answer is."""
        port = self._servers[contestant.name].port
        answer = sockets.ask(port, sockets.get(contestant.path, "1.0"))
        sockets.check_answer(answer, self._status)

        def rate(count):
            return ab(url, self._clients, count, self._status,
                      len(answer)).rate()

        count = requests_for(WARM_UP_SECONDS, rate(self._clients),
                             self._clients)
        return (requests_for(self._seconds, rate(count), self._clients),
                len(answer))


def _new_connections(session, name, title, clients, status, contestants,
                     baseline, limit):
    with session.all_started(contestants) as servers:
        measure = NewConnections(servers, clients, status,
                                 session.scale.seconds)
        speeds = session.take_turns(
            name, [c for c in contestants if c.name in servers], measure,
            session.scale.rate_rounds)
    return both(name, title, "connections", speeds, baseline, limit)


def refusal(session, clients):
    return _new_connections(
        session, "refusal-%d" % clients,
        "A connection each, answered with status 400, %d clients" % clients,
        clients, 400, [host(""), bare("bare", "refusal"), *beast("refusal")],
        "bare", 0.95)


def routed(session, clients):
    return _new_connections(
        session, "routed-%d" % clients,
        "A connection each, routed, 1 KiB, %d clients" % clients,
        clients, 200,
        [host("/small"),
         bare("bare with look-up", "small", "--lookup", PRINTER),
         *beast("small")],
        "bare with look-up", 0.95)


def large(session):
    return _new_connections(
        session, "large-answers", "A connection each, 8 MiB, 8 clients", 8,
        200,
        [host("/large"), bare("bare", "large"),
         bare("bare with copies", "large", "--copy"), *beast("large")],
        "bare", 1.0)


def kept_open(session, clients=16):
    contestants = [
        host("/keep"),
        bare("bare with look-up", "small", "--keep-open", "--lookup",
             PRINTER),
        *beast("small")]
    with session.all_started(contestants) as servers:
        def measure(contestant):
            server = servers[contestant.name]
            url = "http://%s:%d%s" % (sockets.HOST, server.port,
                                      contestant.path)
            sockets.check_kept(server.port, contestant.path)
            return timed(server, lambda: wrk(
                url, clients, max(1, round(session.scale.seconds))))

        speeds = session.take_turns(
            "kept-open", [c for c in contestants if c.name in servers],
            measure, session.scale.rate_rounds)
    return both(
        "kept-open",
        "Requests on %d connections that stay open, routed, 1 KiB" % clients,
        "requests", speeds, "bare with look-up", 0.95)
