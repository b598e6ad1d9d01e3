# Unit: tables, JSON, and documents that hold tables.
import json
import unittest

import report
from comparison import Comparison, Goal

FACTS = {"date": "a day", "processor": "some"}
RESULT = Comparison(
    "refusal-16", "Connections <each>", "connections/s",
    {"KOVAServer": [950, 990, 900], "bare": [1000, 1100, 1000]}, "bare",
    [Goal("KOVAServer", ">=", 0.95, "ratio", "bare"),
     Goal("KOVAServer", "<=", 0.2, "ratio", "Beast")], ["a note"])


class TableTest(unittest.TestCase):
    def test_rows_have_medians_spread_and_ratio(self):
        lines = report.table(RESULT)
        self.assertIn("| KOVAServer | 950 | 925 to 970 | 900, 990 | "
                      "0.90 (0.90 to 0.95) |", lines)
        self.assertIn("- KOVAServer: at least 0.95 x bare: undecided, "
                      "0.90 (0.90 to 0.95)",
                      lines)
        self.assertIn("- KOVAServer: at most 0.2 x Beast: not measured",
                      lines)
        self.assertIn("- a note", lines)

    def test_numbers_keep_three_digits(self):
        self.assertEqual(
            [report.number(value) for value in
             (12345.6, 999.5, 99.94, 9.994, 0.004, -20.25, None)],
            ["12,346", "1000", "99.9", "9.99", "0.00", "-20.2", ""])

    def test_a_whole_result_begins_with_the_goals(self):
        text = report.markdown(FACTS, [RESULT], ["upload: hangs"], ["x: y"])
        self.assertTrue(text.startswith("Measured a day: processor: some."))
        self.assertIn("| refusal-16 | KOVAServer: at least 0.95 x bare | "
                      "0.90 (0.90 to 0.95) | undecided |", text)
        self.assertIn("- upload: hangs", text)
        self.assertIn("- x: y", text)


class JsonTest(unittest.TestCase):
    def test_holds_every_round(self):
        data = json.loads(report.as_json(FACTS, [RESULT], ["p"], []))
        rows = data["comparisons"][0]["contestants"]
        self.assertEqual(rows[0]["rounds"], [950, 990, 900])
        self.assertEqual(rows[0]["ratio"]["median"], 0.9)
        goals = data["comparisons"][0]["goals"]
        self.assertEqual([goal["figure"] for goal in goals], [0.9, None])
        self.assertEqual(data["problems"], ["p"])


class DocumentTest(unittest.TestCase):
    def test_what_stood_between_the_marks_goes(self):
        document = "a\n%s\nold\n%s\nb\n" % (report.BEGIN, report.END)
        once = report.put_between(document, "new\n")
        self.assertEqual(once, "a\n%s\n\nnew\n\n%s\nb\n" % (
            report.BEGIN, report.END))
        self.assertEqual(report.put_between(once, "new"), once)

    def test_a_document_without_marks_is_refused(self):
        for document in ["", report.BEGIN, report.END,
                         report.END + report.BEGIN]:
            with self.assertRaises(ValueError):
                report.put_between(document, "new")


if __name__ == "__main__":
    unittest.main()
