# Unit: medians, quartiles, ratios within rounds, and whose turn it is.
import unittest

from summary import in_turn, ratio, summarize


class SummaryTest(unittest.TestCase):
    def test_median_and_quartiles(self):
        found = summarize([5, 1, 3, 2, 4])
        self.assertEqual(found.median, 3)
        self.assertEqual(found.lower_quartile, 2)
        self.assertEqual(found.upper_quartile, 4)
        self.assertEqual((found.lowest, found.highest), (1, 5))

    def test_one_round_is_its_own_spread(self):
        found = summarize([7])
        self.assertEqual((found.lower_quartile, found.median, found.highest),
                         (7, 7, 7))

    def test_an_even_number_of_rounds_has_a_median_between(self):
        self.assertEqual(summarize([1, 2, 3, 10]).median, 2.5)

    def test_the_ratio_is_of_medians_with_the_spread_of_rounds(self):
        found = ratio([90, 110, 100], [100, 100, 200])
        self.assertEqual(found.of_medians, 1)
        self.assertEqual(found.lowest, 0.5)
        self.assertEqual(found.highest, 1.1)

    def test_there_is_no_ratio_to_nothing(self):
        self.assertIsNone(ratio([1, 2, 3], [0, 0, 0]))
        self.assertIsNone(ratio([1, 2, 3], [5, 0, 5]))

    def test_rounds_go_forth_and_back(self):
        turns = [in_turn("ABC", index) for index in range(4)]
        self.assertEqual(turns, [["A", "B", "C"], ["C", "B", "A"],
                                 ["A", "B", "C"], ["C", "B", "A"]])


if __name__ == "__main__":
    unittest.main()
