# Unit: a server program and its clients, with a stand-in for the program.
import os
import sys
import tempfile
import unittest

import servers
import sockets
from comparison import CannotMeasure
from servers import Server

STAND_IN = [sys.executable, "-B",
            os.path.join(os.path.dirname(os.path.abspath(__file__)),
                         "stand_in.py")]
STAT = "7 (a) b (c) S 1 7 7 0 -1 4194560 1 2 3 4 250 50 9 9 20 0 1 0 5 6"
SOURCES = ["127.1.0.%d" % number for number in range(100)]


class ProcessorTest(unittest.TestCase):
    def test_reads_the_kernels_line(self):
        self.assertAlmostEqual(servers.parse_stat(STAT),
                               300 * servers.TICK_SECONDS)

    def test_a_prefix_without_a_server_has_none(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertIsNone(servers.find_wine_server(folder))
        self.assertIsNone(servers.find_wine_server(folder))
        self.assertIsNone(servers.find_wine_server(None))


class ServerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.log = tempfile.NamedTemporaryFile()
        cls.server = Server(STAND_IN, cls.log.name)

    @classmethod
    def tearDownClass(cls):
        cls.server.close()
        cls.log.close()

    def test_answers_commands(self):
        self.assertEqual(self.server.ask("stop")["stopMs"], 1.5)
        self.assertGreater(self.server.ask("usage")["threads"], 0)
        with self.assertRaises(CannotMeasure):
            self.server.ask("sing")

    def test_the_kernel_tells_what_it_holds(self):
        self.assertGreater(self.server.private_dirty_kib(), 100)
        at_rest = self.server.threads()
        with sockets.idle_connections(self.server.port, 5):
            self.server.wait_for_threads(lambda threads: threads > at_rest)
        # A thread of an earlier test may have been at rest still.
        self.server.wait_for_threads(lambda threads: threads <= at_rest)

    def test_processor_time_grows_with_work(self):
        before = self.server.processor_seconds()
        for _ in range(200):
            sockets.visit(self.server.port, sockets.get("/"), 200, SOURCES)
            if self.server.processor_seconds() > before:
                return
        self.fail("20,000 requests took no processor time")

    def test_waiting_for_threads_ends(self):
        with self.assertRaises(CannotMeasure):
            self.server.wait_for_threads(lambda _: False, patience=0.05)

    def test_a_program_that_fails_is_no_server(self):
        with self.assertRaises(CannotMeasure) as failure:
            Server([*STAND_IN, "--fail"], self.log.name)
        self.assertIn(self.log.name, str(failure.exception))
        with self.assertRaises(CannotMeasure):
            Server(["/nonexistent"], self.log.name)

    def test_clients_of_their_own_addresses(self):
        rate = sockets.visit(self.server.port, sockets.get("/"), 200, SOURCES)
        self.assertGreater(rate, 0)
        with self.assertRaises(CannotMeasure):
            sockets.visit(self.server.port, b"PUT\r\n\r\n", 200, SOURCES)

    def test_kept_connections_are_told_from_closed_ones(self):
        sockets.check_kept(self.server.port, "/keep")
        with self.assertRaises(CannotMeasure):
            sockets.check_kept(self.server.port, "/")

    def test_a_request_in_pieces_takes_its_time(self):
        pieces = [b"GET / HTTP/1.1\r\n", b"X: y\r\n", b"\r\n"]
        self.assertGreater(
            sockets.timed_send(self.server.port, pieces), 0)


if __name__ == "__main__":
    unittest.main()
