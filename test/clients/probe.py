"""An ordinary client in the background: is it served while others do harm?"""

import multiprocessing
import os
import socket
import time

INTERVAL = 0.2
PATIENCE = 10
REQUEST = b"GET /?printer=Demo+Printer HTTP/1.1\r\nHost: probe\r\n\r\n"


def ask(address, request=REQUEST, patience=PATIENCE):
    """One connection, one request; what came until the server closed."""
    with socket.create_connection(address, patience) as connection:
        connection.sendall(request)
        pieces = []
        while piece := connection.recv(65536):
            pieces.append(piece)
    return b"".join(pieces)


def is_page(answer):
    return (answer.startswith(b"HTTP/1.1 200 OK\r\n")
            and answer.rstrip().endswith(b"</html>"))


def _run(address, pipe, parent):
    tries, failures, slowest = 0, [], 0.0
    # A parent that was killed does not say so.
    while (not tries or not pipe.poll(INTERVAL)) and os.getppid() == parent:
        start = time.monotonic()
        try:
            answer = ask(address)
            if not is_page(answer):
                failures.append("another answer: %r" % answer[:40])
        except OSError as error:
            failures.append(str(error))
        tries += 1
        slowest = max(slowest, time.monotonic() - start)
    pipe.send((tries, failures, slowest))


class Probe:
    """For a with block; a process of its own, so that the clients' work does
    not slow it down. The results stand afterwards."""

    def __init__(self, address):
        self._address = address
        self.tries = 0
        self.failures = []
        self.slowest = 0.0

    def __enter__(self):
        self._pipe, child = multiprocessing.Pipe()
        self._process = multiprocessing.Process(
            target=_run, args=(self._address, child, os.getpid()), daemon=True)
        self._process.start()
        return self

    def __exit__(self, *_):
        self._pipe.send("end")
        if self._pipe.poll(PATIENCE + 5):
            self.tries, self.failures, self.slowest = self._pipe.recv()
        else:
            self.failures = ["the probe hangs"]
            self._process.kill()
        self._process.join()
