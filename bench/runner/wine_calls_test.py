# Unit: the trace of Wine's server.
import os
import tempfile
import unittest

from wine_calls import difference, parse_calls, wait_until_quiet

TRACE = b"""0024: *queued* pid=0020
0024: select( flags=2, cookie=0021fb24, data={} )
0024: select() = PENDING { call={} }
0138: close_handle( handle=0040 )
0138: close_handle() = 0
0138: get_new()
1a2b3: select( flags=2, prev=0028: close_handle() )
"""


class WineCallsTest(unittest.TestCase):
    def test_counts_calls_and_not_their_answers(self):
        self.assertEqual(parse_calls(TRACE), {
            "select": 2, "close_handle": 1, "get_new": 1})

    def test_differences_are_told_for_one_request(self):
        mine = parse_calls(TRACE * 10)
        base = parse_calls(TRACE.replace(b"close_handle", b"open_key") * 10)
        self.assertEqual(difference(mine, base, 10),
                         "close_handle +1.0, open_key -1.0")
        self.assertEqual(difference(mine, mine, 10), "")

    def test_a_file_that_rests_is_quiet(self):
        with tempfile.NamedTemporaryFile() as file:
            file.write(b"12345")
            file.flush()
            self.assertEqual(wait_until_quiet(file.name), 5)
            self.assertEqual(os.path.getsize(file.name), 5)


if __name__ == "__main__":
    unittest.main()
