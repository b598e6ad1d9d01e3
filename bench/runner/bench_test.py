# Unit: names of measurements, options, and how much load fills the time.
import contextlib
import io
import itertools
import unittest

import bench
from load import Load
from many import addresses_of_loopback
from rates import requests_for
from session import QUICK, Scale


class OptionsTest(unittest.TestCase):
    def test_no_names_are_all_names_in_their_order(self):
        known = list(bench.CATALOGUE)
        self.assertEqual(bench.parse([]).names, known)
        self.assertEqual(bench.parse(known[::-1]).names, known)
        self.assertEqual(bench.parse(["stop", "refusal-16"]).names,
                         ["refusal-16", "stop"])

    def test_scales(self):
        def scale(*options):
            return bench.scale_of(bench.parse(options))
        self.assertEqual(scale(), Scale())
        self.assertEqual(scale("--quick"), QUICK)
        self.assertEqual(scale("--quick", "--rounds", "7").rounds, 7)

    def test_wrong_usage_is_refused(self):
        for wrong in (["--rounds", "0"], ["--rounds", "x"], ["--nonsense"],
                      ["refusal-15"]):
            errors = io.StringIO()
            with self.subTest(wrong), self.assertRaises(SystemExit) as end, \
                    contextlib.redirect_stderr(errors):
                bench.parse(wrong)
            self.assertEqual(end.exception.code, bench.USAGE)
            self.assertIn(wrong[-1].strip("-"), errors.getvalue())


class LoadTest(unittest.TestCase):
    def test_requests_fill_the_time_for_all_clients(self):
        self.assertEqual(requests_for(3, Load(1000, 1), 64), 2944)
        self.assertEqual(requests_for(3, Load(1, 10), 8), 8)
        self.assertEqual(requests_for(3, Load(10 ** 9, 1), 16), 50000)

    def test_addresses_are_distinct_and_many(self):
        taken = list(itertools.islice(addresses_of_loopback(), 110000))
        self.assertEqual(len(set(taken)), 110000)
        self.assertTrue(all(each.startswith("127.") for each in taken))


if __name__ == "__main__":
    unittest.main()
