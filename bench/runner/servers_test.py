# Unit: a server program and its clients, with a stand-in for the program.
import os
import sys
import tempfile
import unittest

import sockets
from comparison import CannotMeasure
from servers import Server

STAND_IN = [sys.executable, "-B",
            os.path.join(os.path.dirname(os.path.abspath(__file__)),
                         "stand_in.py")]


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

    def test_processor_time_only_grows(self):
        before = self.server.processor_seconds()
        sockets.visit(self.server.port, sockets.get("/"), 200,
                      [sockets.source_address(n) for n in range(100)])
        self.assertGreaterEqual(self.server.processor_seconds(), before)

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
        sources = [sockets.source_address(number) for number in range(50)]
        rate = sockets.visit(self.server.port, sockets.get("/"), 200, sources)
        self.assertGreater(rate, 0)
        with self.assertRaises(CannotMeasure):
            sockets.visit(self.server.port, b"PUT\r\n\r\n", 200, sources)

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
