"""What a row of figures comes to: median, quartiles, ratios, the order of
rounds."""

import statistics
from dataclasses import dataclass


@dataclass(frozen=True)
class Summary:
    """Of the figures that one contestant reached, a figure a round."""
    median: float
    lower_quartile: float
    upper_quartile: float
    lowest: float
    highest: float


@dataclass(frozen=True)
class Ratio:
    """Of one contestant to another: that of the medians, and the smallest and
    largest within a round."""
    of_medians: float
    lowest: float
    highest: float


def summarize(figures):
    if len(figures) == 1:
        return Summary(*figures * 5)
    lower, middle, upper = statistics.quantiles(figures, method="inclusive")
    return Summary(middle, lower, upper, min(figures), max(figures))


def ratio(figures, base):
    """Both have a figure of each round, in the same order. None where the
    base is zero."""
    base_median = statistics.median(base)
    if not base_median or not all(base):
        return None
    rounds = [figure / other for figure, other in zip(figures, base)]
    return Ratio(statistics.median(figures) / base_median,
                 min(rounds), max(rounds))


def in_turn(contestants, round_index):
    """A B C, then C B A, and so on: what drifts harms all alike."""
    return list(contestants) if round_index % 2 == 0 else (
        list(reversed(contestants)))
