# Unit: what the micro-benchmarks print.
import json
import unittest

from comparison import CannotMeasure
from micro import parse_google, parse_log_table, parses

LOG = """
A disabled log channel
                                                median   ratio   middle half
tick count, two loads and compares            5.03 ns    1.00   4.90 to 5.20 ns
LogLine with three values, disabled           6.11 ns    1.21   6.00 to 6.35 ns
"""


def run(name, cpu, **more):
    return {"name": name, "run_name": name, "run_type": "iteration",
            "cpu_time": cpu, "time_unit": "ns", **more}


class MicroTest(unittest.TestCase):
    def test_reads_the_table_of_the_log(self):
        self.assertEqual(parse_log_table(LOG.replace("\n", "\r\n")), {
            "tick count, two loads and compares": [4.9, 5.03, 5.2],
            "LogLine with three values, disabled": [6, 6.11, 6.35]})
        with self.assertRaises(CannotMeasure):
            parse_log_table("error")

    def test_reads_repetitions_and_leaves_out_aggregates(self):
        text = json.dumps({"benchmarks": [
            run("b", 1, time_unit="us"), run("a", 3), run("a", 5),
            run("a", 4, run_type="aggregate")]})
        self.assertEqual(parse_google(text), {"a": [3, 5], "b": [1000]})
        self.assertEqual(list(parse_google(text)), ["a", "b"])

    def test_judges_each_parse_beside_the_peers(self):
        figures = {"%s/all_fields/%d" % (who, i): [took * (i + 1)]
                   for who, took in (("Request", 26), ("Peer", 10))
                   for i in range(3)}
        found = parses(figures)
        self.assertEqual([each.name for each in found],
                         ["micro-parse-0", "micro-parse-1", "micro-parse-2"])
        self.assertEqual([verdict.word() for each in found
                          for verdict in each.verdicts()], ["missed"] * 3)
        figures["Request/all_fields/1"] = [50]
        self.assertEqual(parses(figures)[1].verdicts()[0].word(), "reached")

    def test_an_error_is_no_figure(self):
        for runs in ([], [run("a", 0, error_occurred=True)]):
            with self.assertRaises(CannotMeasure):
                parse_google(json.dumps({"benchmarks": runs}))


if __name__ == "__main__":
    unittest.main()
