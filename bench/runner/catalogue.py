"""What can be measured, by name. As a program: lists it, or says which of
the names after --check are meant."""

import sys
from dataclasses import dataclass
from typing import Callable

import addresses
import extensions
import idle
import micro
import rates
import transfers
import wine_calls


@dataclass(frozen=True)
class Entry:
    name: str
    text: str
    run: Callable  # run(session): a list of comparisons
    # About so long at full scale on two cores; only for the time left.
    seconds: int


def _for_each(measure):
    def run(session):
        return [comparison for count in session.scale.idle
                for comparison in measure(session, count)]
    return run


def entries(native_program=None, trace=None):
    """`trace` is a file that Wine's server may write."""
    return [
        Entry("refusal-16", "connections a second, answered with status 400, "
              "16 clients", lambda s: rates.refusal(s, 16), 75),
        Entry("refusal-64", "the same, 64 clients",
              lambda s: rates.refusal(s, 64), 75),
        Entry("routed-16", "connections a second, routed to an extension, "
              "16 clients", lambda s: rates.routed(s, 16), 75),
        Entry("routed-64", "the same, 64 clients",
              lambda s: rates.routed(s, 64), 75),
        Entry("kept-open", "requests a second on connections that stay open",
              rates.kept_open, 65),
        Entry("large-answers", "answers of 8 MiB", rates.large, 80),
        Entry("upload", "a body of 64 MiB in one go", transfers.upload, 40),
        Entry("endless-header", "a header block of 16 MiB",
              transfers.endless_header, 30),
        Entry("idle-memory", "memory of 500 and 2000 idle connections",
              _for_each(idle.memory), 80),
        Entry("stop", "a stop with 500 and 2000 idle connections",
              _for_each(idle.stop), 80),
        Entry("addresses", "connections a second after 100000 addresses",
              addresses.run, 110),
        Entry("extensions", "1 to 100 extensions: load, memory, look-up",
              extensions.run, 100),
        Entry("wine-calls", "what a request asks of Wine's server: a count",
              lambda s: wine_calls.run(s, trace), 40),
        Entry("micro", "small pieces of the server in a loop",
              lambda s: micro.run(s, native_program), 60),
    ]


def choose(all_entries, names):
    """Those of these names, all without names; ValueError for another."""
    known = {entry.name: entry for entry in all_entries}
    for name in names:
        if name not in known:
            raise ValueError("nothing is called " + name)
    return [entry for entry in all_entries
            if not names or entry.name in names]


def main(arguments):
    if arguments[:1] == ["--check"]:
        try:
            chosen = choose(entries(), arguments[1:])
        except ValueError as error:
            print("error: %s; see script/bench --list" % error,
                  file=sys.stderr)
            return 2
        print(" ".join(entry.name for entry in chosen))
        return 0
    for entry in entries():
        print("%-16s %s" % (entry.name, entry.text))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
