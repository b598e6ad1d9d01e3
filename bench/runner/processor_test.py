# Unit: the processor time of processes.
import os
import tempfile
import time
import unittest

import processor

STAT = "7 (a) b (c) S 1 7 7 0 -1 4194560 1 2 3 4 250 50 9 9 20 0 1 0 5 6"


class ProcessorTest(unittest.TestCase):
    def test_reads_the_kernels_line(self):
        self.assertAlmostEqual(processor.parse_stat(STAT),
                               300 * processor.TICK_SECONDS)

    def test_this_process_takes_some(self):
        before = processor.process_seconds(os.getpid())
        end = time.process_time() + 3 * processor.TICK_SECONDS
        while time.process_time() < end:
            pass
        self.assertGreater(processor.process_seconds(os.getpid()), before)

    def test_a_prefix_without_a_server_has_none(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertIsNone(processor.find_wine_server(folder))
        self.assertIsNone(processor.find_wine_server(folder))
        self.assertIsNone(processor.find_wine_server(None))


if __name__ == "__main__":
    unittest.main()
