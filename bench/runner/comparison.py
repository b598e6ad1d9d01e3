"""A comparison of contestants, and the goals that it is judged by."""

import statistics
from dataclasses import dataclass, field


class CannotMeasure(Exception):
    """There is no figure, or none that may be believed."""


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
    """A goal beside what was measured; the figure is None if it was not."""
    text: str
    unit: str  # of the figure
    figure: float | None
    reached: bool

    def word(self):
        if self.figure is None:
            return "not measured"
        return "reached" if self.reached else "missed"


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
        """Of the medians, and the smallest and largest within a round. None
        without a baseline, or with one that was not measured or has a zero."""
        mine = self.figures.get(who, [])
        base = self.figures.get(to or self.baseline, [])
        if not base or len(mine) != len(base) or not all(base):
            return None
        rounds = [figure / other for figure, other in zip(mine, base)]
        return {"of_medians": statistics.median(mine)
                / statistics.median(base),
                "lowest": min(rounds), "highest": max(rounds)}

    def verdicts(self):
        return [self._judge(goal) for goal in self.goals]

    def _judge(self, goal):
        figure = self._figure(goal)
        reached = figure is not None and (
            figure >= goal.limit if goal.sense == ">=" else
            figure <= goal.limit)
        return Verdict(goal.text(self.unit),
                       "" if goal.kind == "ratio" else " " + self.unit,
                       figure, reached)

    def _figure(self, goal):
        needed = [goal.who] + [goal.to] * (goal.kind != "value")
        if not all(who in self.figures for who in needed):
            return None
        if goal.kind == "ratio":
            found = self.ratio(goal.who, goal.to)
            return found and found["of_medians"]
        medians = [self.summary(who)["median"] for who in needed]
        return medians[0] - sum(medians[1:])
