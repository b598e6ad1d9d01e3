"""Clients made of bare sockets, where the load programs do not fit."""

import contextlib
import http.client
import io
import socket
import time
from concurrent.futures import ThreadPoolExecutor

from comparison import CannotMeasure

HOST = "127.0.0.1"
PATIENCE = 120
PIECE_BYTES = 16 << 10


def get(path, version="1.1"):
    return ("GET %s HTTP/%s\r\nHost: %s\r\n\r\n" % (path, version, HOST)
            ).encode("ascii")


def post(path, body_bytes):
    """A form that is all there."""
    head = ("POST %s HTTP/1.1\r\nHost: %s\r\nConnection: close\r\n"
            "Content-Length: %d\r\n\r\n" % (path, HOST, body_bytes))
    return head.encode("ascii") + b"x" * body_bytes


def endless_pieces(path, size, piece=PIECE_BYTES):
    """A request whose header block is `size` bytes, in pieces."""
    request = get(path)[:-2] + b"X: "
    request += b"x" * (size - len(request) - 4) + b"\r\n\r\n"
    return [request[at:at + piece] for at in range(0, size, piece)]


def connect(port, source=None):
    """From `source`, an address of this machine, or the usual one."""
    return socket.create_connection((HOST, port), PATIENCE,
                                    source and (source, 0))


def receive_all(connection):
    """What comes until the peer closes."""
    return b"".join(iter(lambda: connection.recv(1 << 20), b""))


def receive_one(connection):
    """One answer on a connection that stays open, as the standard library's
    client has read it; no word of closing the connection."""
    answer = http.client.HTTPResponse(connection)
    try:
        answer.begin()
        if answer.length is None or answer.will_close:
            raise CannotMeasure("a kept connection needs a Content-Length "
                                "and an answer that does not close it")
        answer.read()
    except http.client.HTTPException as error:
        raise CannotMeasure("no whole answer: %r" % error) from error
    return answer


def check_answer(answer, status):
    """That the bytes are one whole answer with that status."""
    head, end, body = answer.partition(b"\r\n\r\n")
    words = head.split(None, 2)
    if not end or words[1:2] != [b"%d" % status]:
        raise CannotMeasure("not status %d: %r" % (status, answer[:60]))
    announced = http.client.parse_headers(io.BytesIO(
        head.partition(b"\r\n")[2] + end))["Content-Length"]
    if announced is not None and int(announced) != len(body):
        raise CannotMeasure("%d bytes of a body of %s" % (len(body),
                                                          announced))


def ask(port, request, status, source=None):
    """A connection of its own; the answer until the server closes."""
    with connect(port, source) as connection:
        connection.sendall(request)
        answer = receive_all(connection)
    check_answer(answer, status)
    return answer


def check_kept(port, path):
    """wrk connects anew without a word where a server closes. So: two answers
    on one connection."""
    with connect(port) as connection:
        for _ in range(2):
            connection.sendall(get(path))
            if receive_one(connection).status != 200:
                raise CannotMeasure("not status 200 on a kept connection")


def timed_send(port, pieces):
    """Seconds from the first byte until the answer to the pieces is there."""
    with connect(port) as connection:
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        start = time.monotonic()
        for piece in pieces:
            connection.sendall(piece)
        answer = receive_all(connection)
        took = time.monotonic() - start
    check_answer(answer, 200)
    return took


@contextlib.contextmanager
def idle_connections(port, count):
    """That many which say nothing, for a with block."""
    with contextlib.ExitStack() as stack:
        yield [stack.enter_context(connect(port)) for _ in range(count)]


def visit(port, request, status, sources, workers=16):
    """A connection from each source, by that many clients at once; returns
    the connections per second."""
    start = time.monotonic()
    with ThreadPoolExecutor(workers) as pool:
        answers = pool.map(lambda source: ask(port, request, status, source),
                           sources)
        count = sum(1 for _ in answers)
    return count / (time.monotonic() - start)
