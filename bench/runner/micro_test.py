# Unit: what the micro-benchmarks print.
import json
import unittest

from comparison import CannotMeasure
from micro import comparisons, parse_google

def run(name, cpu, **more):
    return {"name": name, "run_name": name, "run_type": "iteration",
            "cpu_time": cpu, "time_unit": "ns", **more}


class MicroTest(unittest.TestCase):
    def test_reads_repetitions_and_leaves_out_aggregates(self):
        text = json.dumps({"benchmarks": [
            run("b", 1, time_unit="us"), run("a", 3), run("a", 5),
            run("a", 4, run_type="aggregate")]})
        self.assertEqual(parse_google(text), {"a": [3, 5], "b": [1000]})
        self.assertEqual(list(parse_google(text)), ["a", "b"])

    def test_judges_each_parse_beside_the_peers_and_the_log_beside_the_least(
            self):
        figures = {"%s/all_fields/%d" % (who, i): [took * (i + 1)]
                   for who, took in (("Request", 26), ("Peer", 10))
                   for i in range(3)}
        figures |= {"Log/clock_and_load": [2], "Log/disabled_line": [6]}

        def words():
            return {each.name: [verdict.word() for verdict in each.verdicts()]
                    for each in comparisons(figures)}

        self.assertEqual(words(), {
            "micro-parse-0": ["missed"], "micro-parse-1": ["missed"],
            "micro-parse-2": ["missed"], "micro-log": ["reached"],
            "micro-native": []})
        figures["Request/all_fields/1"] = [50]
        figures["Log/disabled_line"] = [6.1]
        self.assertEqual(words()["micro-parse-1"], ["reached"])
        self.assertEqual(words()["micro-log"], ["missed"])

    def test_an_error_is_no_figure(self):
        for runs in ([], [run("a", 0, error_occurred=True)]):
            with self.assertRaises(CannotMeasure):
                parse_google(json.dumps({"benchmarks": runs}))


if __name__ == "__main__":
    unittest.main()
