# Unit: goals beside figures, medians, quartiles and ratios within rounds.
import unittest

from comparison import Comparison, Goal, interval


def judged(goal, figures):
    return Comparison("n", "t", "ms", figures, "bare", [goal]).verdicts()[0]


def summary(figures):
    return Comparison("n", "t", "ms", {"us": figures}).summary("us")


def ratio(figures, base):
    return Comparison("n", "t", "ms", {"us": figures, "bare": base},
                      "bare").ratio("us")


class SummaryTest(unittest.TestCase):
    def test_median_and_quartiles(self):
        self.assertEqual(summary([5, 1, 3, 2, 4]), {
            "median": 3, "lower_quartile": 2, "upper_quartile": 4,
            "lowest": 1, "highest": 5})

    def test_one_round_is_its_own_spread(self):
        self.assertEqual(set(summary([7]).values()), {7})

    def test_an_even_number_of_rounds_has_a_median_between(self):
        self.assertEqual(summary([1, 2, 3, 10])["median"], 2.5)

    def test_the_ratio_is_the_median_of_the_rounds_ratios(self):
        self.assertEqual(ratio([90, 110, 100], [100, 100, 200]), {
            "median": 0.9, "lowest": 0.5, "highest": 1.1})

    def test_an_interval_leaves_out_what_chance_may_have_brought(self):
        for count, left_out in [(1, 0), (5, 0), (6, 0), (8, 0), (9, 1),
                                (10, 1), (12, 2), (20, 5), (40, 13)]:
            self.assertEqual(interval(range(count, 0, -1)),
                             (1 + left_out, count - left_out))

    def test_there_is_no_ratio_to_nothing(self):
        self.assertIsNone(ratio([1, 2, 3], [0, 0, 0]))
        self.assertIsNone(ratio([1, 2, 3], [5, 0, 5]))


class GoalTest(unittest.TestCase):
    def test_a_ratio_counts_up_to_its_limit(self):
        goal = Goal("us", ">=", 0.95, "ratio", "bare")
        at = judged(goal, {"us": [95, 95], "bare": [100, 100]})
        below = judged(goal, {"us": [94, 94], "bare": [100, 100]})
        self.assertEqual((at.word(), at.figure), ("reached", 0.95))
        self.assertEqual(below.word(), "missed")
        self.assertEqual(at.text, "us: at least 0.95 x bare")

    def test_a_ratio_whose_interval_holds_the_limit_is_undecided(self):
        for sense in ["<=", ">="]:
            verdict = judged(Goal("us", sense, 1, "ratio", "bare"),
                             {"us": [99, 101], "bare": [100, 100]})
            self.assertEqual(verdict.word(), "undecided")

    def test_a_ratio_may_be_to_another_than_the_baseline(self):
        goal = Goal("us", "<=", 0.2, "ratio", "peer")
        verdict = judged(goal, {"us": [3], "peer": [10], "bare": [1]})
        self.assertEqual((verdict.word(), verdict.figure), ("missed", 0.3))

    def test_more_than_another_by_an_amount(self):
        goal = Goal("us", "<=", 8, "more", "bare")
        self.assertEqual(judged(goal, {"us": [28], "bare": [20]}).word(),
                         "reached")
        over = judged(goal, {"us": [28.5], "bare": [20]})
        self.assertEqual((over.word(), over.figure), ("missed", 8.5))
        self.assertEqual(over.text, "us: at most bare + 8 ms")

    def test_a_value(self):
        goal = Goal("us", "<=", 130)
        self.assertEqual(judged(goal, {"us": [130]}).word(), "reached")
        self.assertEqual(judged(goal, {"us": [131]}).word(), "missed")
        self.assertEqual(judged(goal, {"us": [1]}).text,
                         "us: at most 130 ms")

    def test_who_was_not_measured_has_no_figure(self):
        for kind in ["ratio", "more"]:
            goal = Goal("us", ">=", 0.95, kind, "bare")
            for figures in [{"us": [1]}, {"bare": [1]}, {}]:
                verdict = judged(goal, figures)
                self.assertEqual(verdict.word(), "not measured")
                self.assertFalse(verdict.reached)
                self.assertIsNone(verdict.figure)

    def test_rounds_that_are_missing_make_no_ratio(self):
        goal = Goal("us", ">=", 0.95, "ratio", "bare")
        self.assertIsNone(judged(goal, {"us": [1], "bare": [1, 1]}).figure)


if __name__ == "__main__":
    unittest.main()
