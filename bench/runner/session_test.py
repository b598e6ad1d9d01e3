# Unit: rounds in which contestants take turns, and those who fail.
import unittest

from comparison import CannotMeasure
from session import Contestant, Scale, Session


def session(rounds=5):
    return Session("/nonexistent", "/dev/null", Scale(rounds=rounds),
                   "/nonexistent/wine", quiet=True)


A, B = Contestant("A", "a"), Contestant("B", "b")


class StartTest(unittest.TestCase):
    def test_a_program_that_does_not_start_is_left_out_and_told(self):
        run = session()
        with run.all_started([A, B]) as servers:
            self.assertEqual(servers, {})
        self.assertEqual(len(run.problems), 2)


class TurnsTest(unittest.TestCase):
    def test_figures_are_those_of_the_rounds(self):
        order = []

        def measure(contestant):
            order.append(contestant.name)
            return len(order)

        figures = session(3).take_turns("x", [A, B], measure)
        self.assertEqual(order, ["A", "B", "B", "A", "A", "B"])
        self.assertEqual(figures, {"A": [1, 4, 5], "B": [2, 3, 6]})

    def test_one_failure_is_tried_again_and_told(self):
        tries = []

        def measure(contestant):
            tries.append(contestant)
            if len(tries) == 1:
                raise CannotMeasure("a hiccup")
            return 1

        run = session(2)
        self.assertEqual(run.take_turns("x", [A], measure), {"A": [1, 1]})
        self.assertEqual(run.problems, [])
        self.assertEqual(run.repeated, ["x, A: a hiccup"])

    def test_who_keeps_failing_is_out(self):
        def measure(contestant):
            if contestant is A:
                raise OSError("gone")
            return 1

        run = session(3)
        self.assertEqual(run.take_turns("x", [A, B], measure),
                         {"B": [1, 1, 1]})
        self.assertEqual(run.problems, ["x, A: gone"])


if __name__ == "__main__":
    unittest.main()
