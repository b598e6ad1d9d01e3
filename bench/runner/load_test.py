# Unit: what ab and wrk print, and which of their reports are refused.
import dataclasses
import unittest

from comparison import CannotMeasure
from load import check_ab, check_wrk, parse_ab, parse_wrk

AB = """Concurrency Level:      16
Time taken for tests:   2.500 seconds
Complete requests:      1000
Failed requests:        0
Total transferred:      142000 bytes
HTML transferred:       0 bytes
Requests per second:    400.00 [#/sec] (mean)
"""
AB_REFUSED = AB.replace("Total", "Non-2xx responses:      1000\nTotal")
AB_FAILED = AB.replace("Failed requests:        0", """\
Failed requests:        7
   (Connect: 0, Receive: 3, Length: 4, Exceptions: 0)
Write errors:           2""")

WRK = """Running 3s test @ http://127.0.0.1:1/keep
  1 threads and 16 connections
  Thread Stats   Avg      Stdev     Max   +/- Stdev
    Latency     1.00ms  100.00us   2.00ms   90.00%
  4500 requests in 3.00s, 5.00MB read
Requests/sec:   1500.00
Transfer/sec:      1.67MB
"""
WRK_ERRORS = WRK.replace(
    "Requests/sec", "  Socket errors: connect 0, read 9, write 0, timeout 1\n"
    "  Non-2xx or 3xx responses: 12\nRequests/sec")


class AbTest(unittest.TestCase):
    def test_reads_the_report(self):
        report = parse_ab(AB)
        self.assertEqual((report.complete, report.failed), (1000, 0))
        self.assertEqual(report.transferred_bytes, 142000)
        self.assertEqual((report.other_status, report.kept_alive), (0, 0))
        self.assertEqual(report.rate(), 400)

    def test_reads_failures(self):
        report = parse_ab(AB_FAILED)
        self.assertEqual((report.failed, report.write_errors), (7, 2))
        self.assertEqual(parse_ab(AB_REFUSED).other_status, 1000)

    def test_a_report_that_is_none_is_refused(self):
        with self.assertRaises(CannotMeasure):
            parse_ab("apr_socket_recv: Connection refused (111)")

    def test_takes_a_clean_report(self):
        check_ab(parse_ab(AB), 1000, 200, 142)
        check_ab(parse_ab(AB_REFUSED), 1000, 400, 142)

    def test_refuses_every_kind_of_error(self):
        good = parse_ab(AB)
        for change in [{"complete": 999}, {"failed": 1}, {"write_errors": 1},
                       {"other_status": 1}, {"kept_alive": 1000},
                       {"transferred_bytes": 141999}, {"seconds": 0.0}]:
            with self.subTest(change), self.assertRaises(CannotMeasure):
                check_ab(dataclasses.replace(good, **change), 1000, 200, 142)

    def test_refuses_success_where_none_is_due(self):
        with self.assertRaises(CannotMeasure):
            check_ab(parse_ab(AB), 1000, 400, 142)


class WrkTest(unittest.TestCase):
    def test_reads_the_report(self):
        report = parse_wrk(WRK)
        self.assertEqual((report.requests, report.seconds), (4500, 3))
        self.assertEqual(report.rate(), 1500)
        self.assertEqual((report.other_status, report.socket_errors), (0, ""))
        check_wrk(report)

    def test_reads_other_units_of_time(self):
        self.assertEqual(parse_wrk(WRK.replace("3.00s,", "1.50m,")).seconds,
                         90)
        self.assertEqual(parse_wrk(WRK.replace("3.00s,", "500.00ms,")).rate(),
                         9000)

    def test_refuses_every_kind_of_error(self):
        report = parse_wrk(WRK_ERRORS)
        self.assertEqual(report.other_status, 12)
        self.assertIn("read 9", report.socket_errors)
        good = parse_wrk(WRK)
        for change in [{"requests": 0}, {"other_status": 1},
                       {"socket_errors": report.socket_errors}]:
            with self.subTest(change), self.assertRaises(CannotMeasure):
                check_wrk(dataclasses.replace(good, **change))


if __name__ == "__main__":
    unittest.main()
