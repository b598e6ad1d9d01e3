"""Many printers, each with an extension library of its own."""

import statistics
import time

import sockets
from comparison import Comparison, Goal
from rates import bare
from session import Contestant

# What varies by less grows with the number, or stays as it is.
NOISE = 0.25


def label(count):
    return "%d extensions" % count if count > 1 else "1 extension"


def printers(count):
    """The first, one in the middle and the last."""
    return sorted({1, (count + 1) // 2, count})


def printer_label(printer, count):
    return "printer %d of %d" % (printer, count)


def bare_label(count):
    return "bare with look-up of printer %d" % count


def _ask(port, printer):
    """The milliseconds of a request."""
    request = sockets.get("/small?printer=Bench%d" % printer)
    start = time.monotonic()
    answer = sockets.ask(port, request)
    took = time.monotonic() - start
    sockets.check_answer(answer, 200)
    return 1000 * took


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
    """The median milliseconds by what is asked; they take turns. The bare
    server shows what the look-up alone costs."""
    asked = {printer_label(printer, count): (server.port, printer, [])
             for printer in printers(count)}
    last = "Bench%d" % count
    with session.start(bare("bare", "small", "--lookup", last)) as other:
        asked[bare_label(count)] = (other.port, count, [])
        for _ in range(session.scale.lookups):
            for port, printer, took in asked.values():
                took.append(_ask(port, printer))
    return {who: statistics.median(took)
            for who, (_, _, took) in asked.items()}


def run(session):
    """A host for each number of extensions, started for each round."""
    counts = session.scale.extensions
    contestants = [Contestant(label(count), "bench_host",
                              ("--extensions", str(count)))
                   for count in counts]
    count_of = dict(zip(contestants, counts))

    def measure(contestant):
        count = count_of[contestant]
        with session.start(contestant) as server:
            return (*_load(server, count),
                    _look_ups(session, server, count))

    rounds = session.take_turns(
        "extensions", [c for c in contestants if session.is_here(c)], measure)
    return _comparisons([c for c in counts if label(c) in rounds], rounds)


def _comparisons(counts, rounds):
    several = [count for count in counts if count > 1]
    if not several:
        return []
    least, most = label(several[0]), label(several[-1])
    linear = [] if least == most else [
        Goal(most, "<=", 1 + NOISE, "ratio", least)]

    def column(index):
        return {label(count): [one[index] for one in rounds[label(count)]]
                for count in several}

    look_ups = {who: [one[2][who] for one in rounds[label(count)]]
                for count in counts for who in rounds[label(count)][0][2]}
    first = printer_label(1, counts[0])
    return [
        Comparison("extensions-load", "The first request to a printer, which "
                   "loads its extension", "ms", column(0), least, linear),
        Comparison("extensions-memory", "Private dirty pages of an extension",
                   "KiB", column(1), least, linear),
        Comparison("extensions-look-up", "A request to one of many printers",
                   "ms", look_ups, first,
                   [Goal(printer_label(most_, most_), "<=", 1 + NOISE,
                         "ratio", first) for most_ in several[-1:]])]
