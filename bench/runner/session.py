"""What every measurement needs: the programs, the number of rounds, and a
place for what went wrong."""

import contextlib
from dataclasses import dataclass, field

from comparison import CannotMeasure
from summary import in_turn

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
    idle: tuple = (500, 2000)
    addresses: int = 100000
    fresh_addresses: int = 1000
    upload_bytes: int = 64 << 20
    header_bytes: int = 16 << 20
    extensions: tuple = (1, 10, 50, 100)
    lookups: int = 100


QUICK = Scale(rounds=2, seconds=0.5, rate_rounds=1, idle=(200,),
              addresses=5000, fresh_addresses=500, upload_bytes=8 << 20,
              header_bytes=1 << 20, extensions=(1, 10), lookups=20)


@dataclass(frozen=True)
class Contestant:
    """A server program and how it is asked."""
    name: str
    program: str
    arguments: tuple = ()
    path: str = "/"


@dataclass
class Session:
    programs: object
    scale: Scale
    progress: object
    problems: list = field(default_factory=list)
    # Figures that are those of a second try, and why.
    repeated: list = field(default_factory=list)
    missing: set = field(default_factory=set)

    def fail(self, where, error):
        self.problems.append("%s: %s" % (where, error))
        self.progress.complain(self.problems[-1])

    def is_here(self, contestant):
        """Whether its program has been built; told once if not."""
        if self.programs.has(contestant.program):
            return True
        if contestant.program not in self.missing:
            self.missing.add(contestant.program)
            self.fail("everything with " + contestant.program,
                      "it has not been built")
        return False

    def start(self, contestant):
        return self.programs.start(contestant.program, contestant.arguments)

    @contextlib.contextmanager
    def all_started(self, contestants):
        """Their servers by name, for a with block. One that does not start is
        left out and told."""
        with contextlib.ExitStack() as stack:
            servers = {}
            for contestant in filter(self.is_here, contestants):
                try:
                    servers[contestant.name] = stack.enter_context(
                        self.start(contestant))
                except CannotMeasure as error:
                    self.fail(contestant.name, error)
            yield servers

    def take_turns(self, what, contestants, measure, more=1):
        """measure(contestant) once a round, in `more` times the usual number
        of rounds; a figure of each round by the contestant's name. Who fails
        twice at a figure is out and told."""
        left = list(contestants)
        figures = {contestant.name: [] for contestant in contestants}
        rounds = more * self.scale.rounds
        for index in range(rounds):
            for contestant in in_turn(list(left), index):
                self.progress.show("%s, round %d of %d: %s" % (
                    what, index + 1, rounds, contestant.name))
                try:
                    figure = self._measured(what, contestant, measure)
                    figures[contestant.name].append(figure)
                except (CannotMeasure, OSError) as error:
                    self.fail("%s, %s" % (what, contestant.name), error)
                    left.remove(contestant)
                    del figures[contestant.name]
        return figures

    def _measured(self, what, contestant, measure):
        try:
            return measure(contestant)
        except (CannotMeasure, OSError) as error:
            self.repeated.append("%s, %s: %s" % (what, contestant.name,
                                                 error))
            self.progress.complain("once more: " + self.repeated[-1])
            return measure(contestant)
