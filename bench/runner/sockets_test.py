# Unit: answers that are believed, and pieces of a request.
import unittest

import sockets
from comparison import CannotMeasure

ANSWER = b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc"


class AnswerTest(unittest.TestCase):
    def test_takes_a_whole_answer(self):
        sockets.check_answer(ANSWER, 200)

    def test_refuses_what_is_short_or_long_or_another(self):
        for answer in [ANSWER[:-1], ANSWER + b"d", ANSWER[:20], b"",
                       ANSWER.replace(b"200", b"400"), b"nonsense\r\n\r\n"]:
            with self.subTest(answer), self.assertRaises(CannotMeasure):
                sockets.check_answer(answer, 200)

    def test_an_answer_without_a_length_ends_with_the_connection(self):
        sockets.check_answer(b"HTTP/1.1 400 Bad Request\r\n\r\nbody", 400)


class RequestTest(unittest.TestCase):
    def test_a_post_announces_its_body(self):
        request = sockets.post("/upload", 1000)
        head, body = request.split(b"\r\n\r\n", 1)
        self.assertIn(b"Content-Length: 1000", head)
        self.assertEqual(len(body), 1000)

    def test_endless_headers_have_their_size_and_end_after_all(self):
        for size in (65535, 65536, 65537):
            pieces = sockets.endless_pieces("/small", size)
            whole = b"".join(pieces)
            self.assertEqual(len(whole), size)
            self.assertEqual(whole.count(b"\r\n\r\n"), 1)
            self.assertTrue(whole.endswith(b"\r\n\r\n"))
            self.assertTrue(all(len(piece) == 16384
                                for piece in pieces[:-1]))


if __name__ == "__main__":
    unittest.main()
