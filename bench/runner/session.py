"""What every measurement needs: the server programs, the number of rounds, and
a place for what went wrong."""

import contextlib
import os
import sys
from dataclasses import dataclass, field

from comparison import CannotMeasure
from servers import Server

KOVA = "KOVAServer"
PRINTER = "Bench1"


@dataclass(frozen=True)
class Scale:
    """How much of everything."""
    rounds: int = 5
    # Of load in one measurement of a rate. Many short ones meet the same
    # weather, where others work on the machine.
    seconds: float = 1.5
    rate_rounds: int = 2  # for each of the rounds
    waits: int = 200
    idle: tuple = (500, 2000)
    addresses: int = 100000
    fresh_addresses: int = 1000
    upload_bytes: int = 64 << 20
    header_bytes: int = 16 << 20
    extensions: tuple = (1, 10, 50, 100)
    lookups: int = 100


QUICK = Scale(rounds=2, seconds=0.5, rate_rounds=1, waits=30,
              idle=(200,), addresses=5000, fresh_addresses=500, upload_bytes=8 << 20,
              header_bytes=1 << 20, extensions=(1, 10), lookups=20)


@dataclass(frozen=True)
class Contestant:
    """A server program and how it is asked."""
    name: str
    program: str
    arguments: tuple = ()
    path: str = "/"


def host(path="", *arguments):
    return Contestant(KOVA, "bench_host", arguments,
                      "%s?printer=%s" % (path, PRINTER) if path else "/")


def bare(name, answer, *more):
    return Contestant(name, "bench_bare", ("--answer", answer, *more))


def bare_with_look_up(*more, printer=PRINTER):
    return bare("bare with look-up", "small", *more, "--lookup", printer)


def beast(answer):
    return [Contestant("Beast, a thread each", "bench_beast",
                       ("--mode", "thread", "--answer", answer)),
            Contestant("Beast, asynchronous", "bench_beast",
                       ("--mode", "async", "--answer", answer))]


@dataclass
class Session:
    folder: str  # the programs'
    log: str  # a file for what they complain of
    scale: Scale
    launcher: str = "wine"
    problems: list = field(default_factory=list)
    # Figures that are those of a second try, and why.
    repeated: list = field(default_factory=list)
    quiet: bool = False

    def show(self, text, stays=False):
        """What is being done: on a console one line, renewed."""
        if self.quiet:
            return
        if sys.stderr.isatty():
            sys.stderr.write("\r\x1b[K" + (text + "\n" if stays
                                           else text[:79]))
        else:
            sys.stderr.write(text + "\n")
        sys.stderr.flush()

    def fail(self, where, error):
        self.problems.append("%s: %s" % (where, error))
        self.show(self.problems[-1], stays=True)

    def start(self, contestant):
        program = os.path.join(self.folder, contestant.program + ".exe")
        return Server([self.launcher, program, *contestant.arguments], self.log)

    @contextlib.contextmanager
    def all_started(self, contestants):
        """Their servers by name, for a with block. One that does not start is
        left out and told."""
        with contextlib.ExitStack() as stack:
            servers = {}
            for contestant in contestants:
                try:
                    servers[contestant.name] = stack.enter_context(
                        self.start(contestant))
                except CannotMeasure as error:
                    self.fail(contestant.name, error)
            yield servers

    def take_turns(self, what, contestants, measure, more=1):
        """measure(contestant) once a round, in `more` times the usual number
        of rounds, A B C, then C B A, and so on: what drifts harms all alike.
        A figure of each round by the contestant's name. Who fails twice at a
        figure is out and told."""
        left = list(contestants)
        figures = {contestant.name: [] for contestant in contestants}
        rounds = more * self.scale.rounds
        for index in range(rounds):
            for contestant in left[::-1 if index % 2 else 1]:
                self.show("%s, round %d of %d: %s" % (
                    what, index + 1, rounds, contestant.name))
                try:
                    figure = self._measured(what, contestant, measure)
                    figures[contestant.name].append(figure)
                except (CannotMeasure, OSError) as error:
                    self.fail("%s, %s" % (what, contestant.name), error)
                    left.remove(contestant)
                    del figures[contestant.name]
        return figures

    def all_in_turns(self, what, contestants, measure, more=1):
        """The same with all servers started before and kept:
        measure(contestant, server)."""
        with self.all_started(contestants) as servers:
            return self.take_turns(
                what, [c for c in contestants if c.name in servers],
                lambda c: measure(c, servers[c.name]), more)

    def _measured(self, what, contestant, measure):
        try:
            return measure(contestant)
        except (CannotMeasure, OSError) as error:
            self.repeated.append("%s, %s: %s" % (what, contestant.name,
                                                 error))
            self.show("once more: " + self.repeated[-1], stays=True)
            return measure(contestant)
