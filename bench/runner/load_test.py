# Unit: what ab and wrk print, and which of their reports are refused.
import unittest

from comparison import CannotMeasure
from load import Load, read_ab, read_wrk

AB = """Concurrency Level:      16
Time taken for tests:   2.500 seconds
Complete requests:      1000
Failed requests:        0
Total transferred:      142000 bytes
HTML transferred:       0 bytes
Requests per second:    400.00 [#/sec] (mean)
"""
AB_REFUSED = AB.replace("Total", "Non-2xx responses:      1000\nTotal")

WRK = """Running 3s test @ http://127.0.0.1:1/keep
  1 threads and 16 connections
  Thread Stats   Avg      Stdev     Max   +/- Stdev
    Latency     1.00ms  100.00us   2.00ms   90.00%
  4500 requests in 3.00s, 5.00MB read
Requests/sec:   1500.00
Transfer/sec:      1.67MB
"""


class AbTest(unittest.TestCase):
    def test_reads_the_report(self):
        self.assertEqual(read_ab(AB, 1000, 200, 142), Load(1000, 2.5))
        self.assertEqual(read_ab(AB_REFUSED, 1000, 400, 142), Load(1000, 2.5))

    def test_a_report_that_is_none_is_refused(self):
        with self.assertRaises(CannotMeasure):
            read_ab("apr_socket_recv: Connection refused (111)", 1, 200, 1)

    def test_refuses_every_kind_of_error(self):
        for old, new in [
                ("requests:      1000", "requests:      999"),
                ("Failed requests:        0", "Failed requests:        1\n"
                 "   (Connect: 0, Receive: 1, Length: 0, Exceptions: 0)"),
                ("HTML", "Write errors:           2\nHTML"),
                ("HTML", "Non-2xx responses:      1\nHTML"),
                ("HTML", "Keep-Alive requests:    1000\nHTML"),
                ("142000", "141999"), ("2.500", "0.000")]:
            with self.subTest(new), self.assertRaises(CannotMeasure):
                read_ab(AB.replace(old, new), 1000, 200, 142)

    def test_refuses_success_where_none_is_due(self):
        with self.assertRaises(CannotMeasure):
            read_ab(AB, 1000, 400, 142)


class WrkTest(unittest.TestCase):
    def test_reads_the_report(self):
        self.assertEqual(read_wrk(WRK), Load(4500, 3))

    def test_reads_other_units_of_time(self):
        self.assertEqual(read_wrk(WRK.replace("3.00s,", "1.50m,")).seconds,
                         90)
        self.assertEqual(read_wrk(WRK.replace("3.00s,", "500.00ms,")).seconds,
                         0.5)

    def test_refuses_every_kind_of_error(self):
        for old, new in [
                ("4500 requests", "0 requests"),
                ("Requests/sec", "  Non-2xx or 3xx responses: 1\nRequests"),
                ("Requests/sec", "  Socket errors: connect 0, read 9, write 0"
                 ", timeout 1\nRequests")]:
            with self.subTest(new), self.assertRaises(CannotMeasure):
                read_wrk(WRK.replace(old, new))


if __name__ == "__main__":
    unittest.main()
