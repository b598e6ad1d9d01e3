# Unit: names of measurements, options, and how much load fills the time.
import contextlib
import io
import unittest

import bench
from catalogue import choose, entries
from rates import requests_for
from session import QUICK, Scale

ALWAYS = ["--programs", "p", "--out", "o"]


class CatalogueTest(unittest.TestCase):
    def test_no_names_are_all_names(self):
        known = entries()
        self.assertEqual(choose(known, []), known)
        self.assertEqual(choose(known, [entry.name for entry in known][::-1]),
                         known)

    def test_names_choose(self):
        chosen = choose(entries(), ["stop", "refusal-16"])
        self.assertEqual([entry.name for entry in chosen],
                         ["refusal-16", "stop"])

    def test_another_name_is_refused(self):
        with self.assertRaisesRegex(ValueError, "refusal-15"):
            choose(entries(), ["refusal-15"])

    def test_names_are_distinct(self):
        names = [entry.name for entry in entries()]
        self.assertEqual(len(names), len(set(names)))


class OptionsTest(unittest.TestCase):
    def test_scales(self):
        def scale(*options):
            return bench.scale_of(bench.parse([*ALWAYS, *options]))
        self.assertEqual(scale(), Scale())
        self.assertEqual(scale("--quick"), QUICK)
        self.assertEqual(scale("--quick", "--rounds", "7").rounds, 7)

    def test_wrong_usage_is_refused(self):
        for wrong in (["--rounds", "0"], ["--rounds", "x"], ["--nonsense"]):
            with self.subTest(wrong), self.assertRaises(SystemExit) as end, \
                    contextlib.redirect_stderr(io.StringIO()):
                bench.parse([*ALWAYS, *wrong])
            self.assertEqual(end.exception.code, bench.USAGE)

    def test_requests_fill_the_time_for_all_clients(self):
        self.assertEqual(requests_for(3, 1000, 64), 2944)
        self.assertEqual(requests_for(3, 0.1, 8), 8)
        self.assertEqual(requests_for(3, 1e9, 16), 50000)


if __name__ == "__main__":
    unittest.main()
