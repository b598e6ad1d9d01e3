"""Many of something: connections that say nothing, client addresses, printers
with an extension library each. Every round starts servers of its own, for what
a process once held it keeps for the next."""

import ipaddress
import itertools
import statistics
import time

import sockets
from comparison import CannotMeasure, Comparison, Goal
from session import KOVA, Contestant, bare, bare_with_look_up, host

MOST_EXTRA_KIB = 8
MOST_EXTRA_STOP_MS = {500: 10, 2000: 30}
WARM_UP = 4
# Rates that differ by less are the same on a machine of two cores.
RATE_NOISE = 0.1
# What varies by less grows with the number of extensions, or stays as it is.
NOISE = 0.25
FILL_STEP = 5000
IDLE = (host("/small"), bare("bare", "small"))


def _with_idle(server, contestant, count, before, then):
    """before() of the server at rest and then() while that many connections
    are idle."""
    # What is made once is made before anything is measured.
    at_rest = server.threads()
    for _ in range(WARM_UP):
        sockets.ask(server.port, sockets.get(contestant.path), 200)
    server.wait_for_threads(lambda threads: threads <= at_rest)
    first = before()
    with sockets.idle_connections(server.port, count):
        server.wait_for_threads(lambda threads: threads >= at_rest + count)
        return first, then()


def idle_memory(session, count):
    name = "idle-memory-%d" % count

    def measure(contestant):
        with session.start(contestant) as server:
            def kib():
                return (server.private_dirty_kib(),
                        server.ask("usage")["privateBytes"] / 1024)
            before, after = _with_idle(server, contestant, count, kib, kib)
        return [(more - less) / count for more, less in zip(after, before)]

    both = session.take_turns(name, IDLE, measure)
    goal = Goal(KOVA, "<=", MOST_EXTRA_KIB, "more", "bare")
    return [Comparison(
        name + suffix, "Memory of each of %d idle connections, %s" % (
            count, counted), "KiB",
        {who: [round_[index] for round_ in rounds]
         for who, rounds in both.items()}, "bare", [goal])
        for index, (suffix, counted) in enumerate([
            ("", "private dirty pages as Linux counts them"),
            ("-committed", "private bytes as Windows counts them")])]


def host_cost(session):
    """What a host pays for a server that nobody asks. The bare one is part of
    its program, so that loading it costs nothing."""
    def measure(contestant):
        with session.start(contestant) as server:
            cost, dirty = server.ask("cost"), server.private_dirty_kib()
            return (cost["loadMs"], cost["startMs"],
                    server.ask("stop")["stopMs"], cost["heldBytes"] / 1024,
                    dirty)

    figures = session.take_turns("host-cost", IDLE, measure,
                                 session.scale.rate_rounds)
    return [Comparison(
        "host-cost-" + name, title, unit,
        {who: [one[index] for one in rounds] for who, rounds in figures.items()
         if name != "load" or who == KOVA}, KOVA if name == "load" else "bare")
        for index, (name, title, unit) in enumerate([
            ("load", "Loading the library", "ms"),
            ("start", "A start", "ms"),
            ("stop", "A stop without connections", "ms"),
            ("committed", "Private bytes that loading and starting added, as "
             "Windows counts them", "KiB"),
            ("memory", "Private dirty pages of the process, its program's "
             "among them, as Linux counts them", "KiB")])]


def stop(session, count):
    name = "stop-%d" % count
    terminated = {}

    def end(server, threads):
        """How long it takes, and the processor time until all threads are
        gone, for one of them."""
        before = server.processor_seconds()
        answer = server.ask("stop")
        server.wait_for_threads(lambda left: left <= threads - count)
        took = server.processor_seconds() - before
        return answer, 1e6 * took / count

    def measure(contestant):
        with session.start(contestant) as server:
            _, (answer, took) = _with_idle(
                server, contestant, count, lambda: None,
                lambda: end(server, server.threads()))
        terminated[contestant.name] = (terminated.get(contestant.name, 0)
                                       + answer["terminated"])
        return answer["stopMs"], took

    both = session.take_turns(name, IDLE, measure)
    times, costs = ({who: [one[index] for one in rounds]
                     for who, rounds in both.items()} for index in range(2))
    limit = MOST_EXTRA_STOP_MS.get(count)
    if any(terminated.values()):
        session.fail(name, CannotMeasure("threads were terminated: %s"
                                         % terminated))
    return [Comparison(
        name, "A stop with %d idle connections" % count, "ms", times, "bare",
        [Goal(KOVA, "<=", limit, "more", "bare")] if limit else [],
        ["%s: %d threads terminated" % each for each in terminated.items()]),
            Comparison(name + "-cpu", "Processor time of that, for one of the "
                       "connections", "us", costs, "bare",
                       [Goal(KOVA, "<=", 1.05, "ratio", "bare")])]


def addresses_of_loopback():
    """Without an end that would be reached, none of them twice."""
    return map(str, ipaddress.ip_network("127.64.0.0/10"))


def addresses(session):
    """Whether a server that has seen many client addresses is as fast as one
    that has just begun."""
    old, new = (Contestant(name, host().program) for name in
                ("after many addresses", "just started"))
    count, others = session.scale.fresh_addresses, session.scale.addresses
    unseen = addresses_of_loopback()

    def visit(server, sources, times):
        return sockets.visit(server.port, sockets.get("/"), 400,
                             itertools.islice(sources, times))

    def measure(contestant):
        if contestant is old:
            return visit(filled, unseen, count)
        with session.start(contestant) as server:
            return visit(server, addresses_of_loopback(), count)

    with session.start(old) as filled:
        for done in range(0, others, FILL_STEP):
            session.show("addresses: %d of %d" % (done, others))
            visit(filled, unseen, min(FILL_STEP, others - done))
        figures = session.take_turns(
            "addresses", [old, new, bare("bare", "refusal")], measure)
    return [Comparison(
        "addresses",
        "Connections from %d new addresses, after %d others and at once" % (
            count, others), "connections/s", figures, new.name,
        [Goal(old.name, ">=", 1 - RATE_NOISE, "ratio", new.name)])]


def _label(count):
    return "%d extensions" % count if count > 1 else "1 extension"


def _printer_label(printer, count):
    return "printer %d of %d" % (printer, count)


def _ask(port, printer):
    """The milliseconds of a request."""
    start = time.monotonic()
    sockets.ask(port, sockets.get("/small?printer=Bench%d" % printer), 200)
    return 1000 * (time.monotonic() - start)


def _load(server, count):
    """Milliseconds and KiB for each extension but the first, which comes with
    what the process does once."""
    _ask(server.port, 1)
    if count == 1:
        return None, None
    before = server.private_dirty_kib()
    took = sum(_ask(server.port, 2 + number) for number in range(count - 1))
    kib = server.private_dirty_kib() - before
    return took / (count - 1), kib / (count - 1)


def _look_ups(session, server, count):
    """The median milliseconds by what is asked: the first printer, one in the
    middle and the last. They take turns; the bare server shows what the
    look-up alone costs."""
    asked = {_printer_label(printer, count): (server.port, printer, [])
             for printer in sorted({1, (count + 1) // 2, count})}
    plain = bare_with_look_up(printer="Bench%d" % count)
    with session.start(plain) as other:
        asked["bare with look-up of printer %d" % count] = (
            other.port, count, [])
        for _ in range(session.scale.lookups):
            for port, printer, took in asked.values():
                took.append(_ask(port, printer))
    return {who: statistics.median(took)
            for who, (_, _, took) in asked.items()}


def extensions(session):
    """A host for each number of extensions."""
    count_of = {Contestant(_label(count), host().program,
                           ("--extensions", str(count))): count
                for count in session.scale.extensions}

    def measure(contestant):
        count = count_of[contestant]
        with session.start(contestant) as server:
            return (*_load(server, count),
                    _look_ups(session, server, count))

    rounds = session.take_turns("extensions", count_of, measure)
    return _extension_comparisons(
        [c for c in count_of.values() if _label(c) in rounds], rounds)


def _extension_comparisons(counts, rounds):
    several = [count for count in counts if count > 1]
    if not several:
        return []
    least, most = _label(several[0]), _label(several[-1])
    linear = [] if least == most else [
        Goal(most, "<=", 1 + NOISE, "ratio", least)]

    def column(index):
        return {_label(count): [one[index] for one in rounds[_label(count)]]
                for count in several}

    look_ups = {who: [one[2][who] for one in rounds[_label(count)]]
                for count in counts for who in rounds[_label(count)][0][2]}
    first = _printer_label(1, counts[0])
    return [
        Comparison("extensions-load", "The first request to a printer, which "
                   "loads its extension", "ms", column(0), least, linear),
        Comparison("extensions-memory", "Private dirty pages of an extension",
                   "KiB", column(1), least, linear),
        Comparison("extensions-look-up", "A request to one of many printers",
                   "ms", look_ups, first,
                   [Goal(_printer_label(several[-1], several[-1]), "<=",
                         1 + NOISE, "ratio", first)])]
