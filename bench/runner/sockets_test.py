# Unit: answers that are believed, addresses, and pieces of a request.
import unittest

import sockets
from comparison import CannotMeasure
from transfers import endless_pieces

ANSWER = b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc"


class AnswerTest(unittest.TestCase):
    def test_takes_a_whole_answer(self):
        sockets.check_answer(ANSWER, 200)
        self.assertEqual(sockets.status_of(ANSWER), 200)
        self.assertEqual(sockets.header(ANSWER, b"content-length"), b"3")
        self.assertIsNone(sockets.header(ANSWER, b"connection"))

    def test_refuses_what_is_short_or_long_or_another(self):
        for answer in [ANSWER[:-1], ANSWER + b"d", ANSWER[:20], b"",
                       ANSWER.replace(b"200", b"400"), b"nonsense\r\n\r\n"]:
            with self.subTest(answer), self.assertRaises(CannotMeasure):
                sockets.check_answer(answer, 200)

    def test_an_answer_without_a_length_ends_with_the_connection(self):
        sockets.check_answer(b"HTTP/1.1 400 Bad Request\r\n\r\nbody", 400)


class AddressTest(unittest.TestCase):
    def test_addresses_are_distinct_and_usable(self):
        count = 254 * 300
        found = {sockets.source_address(number) for number in range(count)}
        self.assertEqual(len(found), count)
        self.assertEqual(sockets.source_address(0), "127.1.0.1")
        self.assertEqual(sockets.source_address(254), "127.1.1.1")
        self.assertEqual(sockets.source_address(254 * 256), "127.2.0.1")
        ends = {address.rsplit(".", 1)[1] for address in found}
        self.assertFalse(ends & {"0", "255"})

    def test_they_end(self):
        with self.assertRaises(ValueError):
            sockets.source_address(254 * 256 * 254)


class RequestTest(unittest.TestCase):
    def test_a_post_announces_its_body(self):
        request = sockets.post("/upload", 1000)
        head, body = request.split(b"\r\n\r\n", 1)
        self.assertIn(b"Content-Length: 1000", head)
        self.assertEqual(len(body), 1000)

    def test_endless_headers_have_their_size_and_end_after_all(self):
        for size in (65535, 65536, 65537):
            pieces = endless_pieces("/small", size)
            whole = b"".join(pieces)
            self.assertEqual(len(whole), size)
            self.assertEqual(whole.count(b"\r\n\r\n"), 1)
            self.assertTrue(whole.endswith(b"\r\n\r\n"))
            self.assertTrue(all(len(piece) == 16384
                                for piece in pieces[:-1]))


if __name__ == "__main__":
    unittest.main()
