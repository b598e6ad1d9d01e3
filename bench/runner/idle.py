"""Connections that say nothing: what each holds, and how they are stopped.
Every figure is of a server started for it, for what a process once held it
keeps for the next."""

import sockets
from comparison import CannotMeasure, Comparison, Goal
from rates import bare, host
from session import KOVA

MOST_EXTRA_KIB = 8
MOST_STOP_MS = {500: 130, 2000: 300}
WARM_UP = 4


def _contestants(session):
    return [c for c in (host("/small"), bare("bare", "small"))
            if session.is_here(c)]


def _warm_up(server, contestant):
    """Lets what is made once be made before anything is measured; returns the
    number of threads at rest."""
    at_rest = server.threads()
    for _ in range(WARM_UP):
        sockets.check_answer(
            sockets.ask(server.port, sockets.get(contestant.path)), 200)
    server.wait_for_threads(lambda threads: threads <= at_rest)
    return at_rest


def _kib_each(server, contestant, count):
    """Of the kernel's and of the program's own count."""
    at_rest = _warm_up(server, contestant)
    before = (server.private_dirty_kib(),
              server.ask("usage")["privateBytes"] / 1024)
    with sockets.idle_connections(server.port, count):
        server.wait_for_threads(lambda threads: threads >= at_rest + count)
        after = (server.private_dirty_kib(),
                 server.ask("usage")["privateBytes"] / 1024)
    return [(more - less) / count for more, less in zip(after, before)]


def memory(session, count):
    name = "idle-memory-%d" % count
    contestants = _contestants(session)

    def measure(contestant):
        with session.start(contestant) as server:
            return _kib_each(server, contestant, count)

    both = session.take_turns(name, contestants, measure)
    goal = Goal(KOVA, "<=", MOST_EXTRA_KIB, "more", "bare")
    return [Comparison(
        name + suffix, "Memory of each of %d idle connections, %s" % (
            count, counted), "KiB",
        {who: [round_[index] for round_ in rounds]
         for who, rounds in both.items()}, "bare", [goal])
        for index, (suffix, counted) in enumerate([
            ("", "private dirty pages as Linux counts them"),
            ("-committed", "private bytes as Windows counts them")])]


def stop(session, count):
    name = "stop-%d" % count
    terminated = {}

    def measure(contestant):
        with session.start(contestant) as server:
            at_rest = _warm_up(server, contestant)
            with sockets.idle_connections(server.port, count):
                server.wait_for_threads(
                    lambda threads: threads >= at_rest + count)
                answer = server.ask("stop")
        terminated[contestant.name] = (terminated.get(contestant.name, 0)
                                       + answer["terminated"])
        return answer["stopMs"]

    figures = session.take_turns(name, _contestants(session), measure)
    limit = MOST_STOP_MS.get(count)
    if any(terminated.values()):
        session.fail(name, CannotMeasure("threads were terminated: %s"
                                         % terminated))
    return [Comparison(
        name, "A stop with %d idle connections" % count, "ms", figures,
        "bare", [Goal(KOVA, "<=", limit)] if limit else [],
        ["%s: %d threads terminated" % each for each in terminated.items()])]
