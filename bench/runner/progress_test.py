# Unit: how long the rest will take, and where that is said.
import io
import unittest

from progress import Progress, minutes


class Clock:
    def __init__(self):
        self.now = 100.0

    def __call__(self):
        return self.now


class Console(io.StringIO):
    def isatty(self):
        return True


class ProgressTest(unittest.TestCase):
    def setUp(self):
        self.clock = Clock()

    def test_the_rest_goes_on_as_it_began(self):
        progress = Progress({"a": 10, "b": 20}, io.StringIO(), self.clock)
        progress.begin("a")
        self.assertEqual(progress.seconds_left(), 30)
        self.clock.now += 5
        self.assertEqual(progress.seconds_left(), 25)
        self.clock.now += 15
        progress.begin("b")
        self.assertEqual(progress.seconds_left(), 40)
        self.clock.now += 100
        self.assertEqual(progress.seconds_left(), 0)

    def test_a_line_each_in_a_pipe_and_one_line_on_a_console(self):
        for stream, expected in [(io.StringIO(), "x (about 10 s left)\n"),
                                 (Console(), "\r\x1b[Kx (about 10 s left)")]:
            progress = Progress({"a": 10}, stream, self.clock)
            progress.begin("a")
            progress.show("x")
            self.assertEqual(stream.getvalue(), expected)

    def test_complaints_stay(self):
        stream = Console()
        Progress({}, stream, self.clock).complain("bad")
        self.assertTrue(stream.getvalue().endswith("bad\n"))

    def test_minutes(self):
        self.assertEqual([minutes(0), minutes(89), minutes(90), minutes(600)],
                         ["1 s", "89 s", "2 min", "10 min"])


if __name__ == "__main__":
    unittest.main()
