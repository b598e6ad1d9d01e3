"""What is being done and how long the rest will take, on standard error."""

import time


def minutes(seconds):
    if seconds < 90:
        return "%d s" % max(1, round(seconds))
    return "%d min" % round(seconds / 60)


class Progress:
    """Knows beforehand about how long each of the names takes; how the first
    ones do tells how the rest will."""

    def __init__(self, expected_seconds, stream, clock=time.monotonic):
        """The expectation by name, in the order of the run."""
        self._expected = dict(expected_seconds)
        self._stream = stream
        self._clock = clock
        self._start = clock()
        self._done = 0.0
        self._current = None
        self._current_start = self._start
        self._on_console = stream.isatty()

    def begin(self, name):
        self.finish()
        self._current = name
        self._current_start = self._clock()

    def finish(self):
        if self._current is not None:
            self._done += self._expected.pop(self._current)
            self._current = None

    def seconds_left(self):
        now = self._clock()
        pace = 1.0
        if self._done:
            pace = (self._current_start - self._start) / self._done
        left = sum(self._expected.values()) * pace
        return max(left - (now - self._current_start), 0)

    def show(self, text):
        line = "%s (about %s left)" % (text, minutes(self.seconds_left()))
        if self._on_console:
            self._stream.write("\r\x1b[K" + line[:79])
        else:
            self._stream.write(line + "\n")
        self._stream.flush()

    def complain(self, text):
        self.clear()
        self._stream.write(text + "\n")
        self._stream.flush()

    def clear(self):
        if self._on_console:
            self._stream.write("\r\x1b[K")
            self._stream.flush()
