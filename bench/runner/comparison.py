"""A comparison of contestants, and the goals that it is judged by."""

from dataclasses import dataclass, field

from summary import ratio, summarize


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
        limit = "%g" % self.limit
        if self.kind == "ratio":
            return "%s: %s %s x %s" % (self.who, words, limit, self.to)
        if self.kind == "more":
            return "%s: %s %s + %s %s" % (self.who, words, self.to, limit,
                                          unit)
        return "%s: %s %s %s" % (self.who, words, limit, unit)


@dataclass(frozen=True)
class Verdict:
    """A goal beside what was measured; the figure is None if it was not."""
    text: str
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
        return summarize(self.figures[who])

    def ratio(self, who, to=None):
        """None without a baseline, or with one that was not measured."""
        base = self.figures.get(to or self.baseline)
        mine = self.figures.get(who)
        if not base or not mine or len(base) != len(mine):
            return None
        return ratio(mine, base)

    def verdicts(self):
        return [self._judge(goal) for goal in self.goals]

    def _judge(self, goal):
        figure = self._figure(goal)
        reached = figure is not None and (
            figure >= goal.limit if goal.sense == ">=" else
            figure <= goal.limit)
        return Verdict(goal.text(self.unit), figure, reached)

    def _figure(self, goal):
        if goal.who not in self.figures:
            return None
        if goal.kind == "value":
            return self.summary(goal.who).median
        if goal.to not in self.figures:
            return None
        if goal.kind == "more":
            return (self.summary(goal.who).median
                    - self.summary(goal.to).median)
        found = self.ratio(goal.who, goal.to)
        return found and found.of_medians
