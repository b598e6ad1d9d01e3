"""A comparison of contestants, and the goals that it is judged by."""

import math
import statistics
from dataclasses import dataclass, field


class CannotMeasure(Exception):
    """There is no figure, or none that may be believed."""


CERTAINTY = 0.95


def interval(values):
    """Two of the values, between which the median of all that could have been
    measured lies with that certainty, however these are distributed: so many
    coins seldom show heads as rarely as that. Fewer than six tell no more than
    that it hardly lies beyond the lowest and the highest."""
    ordered = sorted(values)
    count = len(ordered)
    skipped, outside = -1, 0.0
    while outside <= 1 - CERTAINTY:
        skipped += 1
        outside += 2 * math.comb(count, skipped) / 2 ** count
    return ordered[max(0, skipped - 1)], ordered[-max(1, skipped)]


@dataclass(frozen=True)
class Goal:
    """What the median of `who` shall be. `kind` says what is limited:
    "value": the median itself; "ratio": its ratio to that of `to`; "more": by
    how much it is above that of `to`."""
    who: str
    sense: str  # ">=" or "<="
    limit: float
    kind: str = "value"
    to: str = ""

    def text(self, unit):
        words = "at least" if self.sense == ">=" else "at most"
        limit = {"value": "%g %s" % (self.limit, unit),
                 "ratio": "%g x %s" % (self.limit, self.to),
                 "more": "%s + %g %s" % (self.to, self.limit, unit)}
        return "%s: %s %s" % (self.who, words, limit[self.kind])


@dataclass(frozen=True)
class Verdict:
    """A goal beside what was measured; the figure is None if it was not. The
    goal of a ratio is reached or missed where the whole interval says so."""
    text: str
    unit: str  # of the figure
    figure: float | None = None
    lowest: float | None = None
    highest: float | None = None
    reached: bool | None = None

    def word(self):
        if self.figure is None:
            return "not measured"
        return {True: "reached", False: "missed",
                None: "undecided"}[self.reached]


@dataclass
class Comparison:
    """Figures of the same thing, done by several contestants."""
    name: str
    title: str
    unit: str
    figures: dict  # the contestant's name: a figure of each round
    baseline: str = ""
    goals: list = field(default_factory=list)
    notes: list = field(default_factory=list)

    def summary(self, who):
        """What the figures of its rounds come to."""
        rounds = self.figures[who]
        lower, median, upper = rounds * 3 if len(rounds) == 1 else (
            statistics.quantiles(rounds, method="inclusive"))
        return {"median": median, "lower_quartile": lower,
                "upper_quartile": upper, "lowest": min(rounds),
                "highest": max(rounds)}

    def ratio(self, who, to=None):
        """The median of the ratios within a round, with its interval. None
        without a baseline, or with one that was not measured or has a zero."""
        mine = self.figures.get(who, [])
        base = self.figures.get(to or self.baseline, [])
        if not base or len(mine) != len(base) or not all(base):
            return None
        rounds = [figure / other for figure, other in zip(mine, base)]
        lowest, highest = interval(rounds)
        return {"median": statistics.median(rounds),
                "lowest": lowest, "highest": highest}

    def verdicts(self):
        return [self._judge(goal) for goal in self.goals]

    def _judge(self, goal):
        text = goal.text(self.unit)
        unit = "" if goal.kind == "ratio" else " " + self.unit
        found = self._found(goal)
        if found is None:
            return Verdict(text, unit)
        ends = {end >= goal.limit if goal.sense == ">=" else end <= goal.limit
                for end in found[1:]}
        return Verdict(text, unit, *found,
                       ends.pop() if len(ends) == 1 else None)

    def _found(self, goal):
        """The figure, and the lowest and highest that it may be."""
        needed = [goal.who] + [goal.to] * (goal.kind != "value")
        if not all(who in self.figures for who in needed):
            return None
        if goal.kind == "ratio":
            found = self.ratio(goal.who, goal.to)
            return found and tuple(found.values())
        medians = [self.summary(who)["median"] for who in needed]
        return (medians[0] - sum(medians[1:]),) * 3
