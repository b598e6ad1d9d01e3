"""Clients made of bare sockets, where the load programs do not fit."""

import contextlib
import socket
import threading
import time

from comparison import CannotMeasure

HOST = "127.0.0.1"
PATIENCE = 120
# Linux: the port is chosen at connect, for this pair of addresses alone.
IP_BIND_ADDRESS_NO_PORT = 24


def connect(port, source=None):
    """From `source`, an address of this machine, or the usual one."""
    connection = socket.socket()
    try:
        connection.settimeout(PATIENCE)
        if source:
            connection.setsockopt(socket.IPPROTO_IP,
                                  IP_BIND_ADDRESS_NO_PORT, 1)
            connection.bind((source, 0))
        connection.connect((HOST, port))
    except OSError:
        connection.close()
        raise
    return connection


def receive_all(connection):
    """What comes until the peer closes."""
    pieces = []
    while piece := connection.recv(1 << 20):
        pieces.append(piece)
    return b"".join(pieces)


def header_length(answer):
    """With the empty line; CannotMeasure if it has not come."""
    end = answer.find(b"\r\n\r\n")
    if end < 0:
        raise CannotMeasure("an answer without headers: %r" % answer[:60])
    return end + 4


def header(answer, name):
    """The header's value, or None. The name is written in small letters."""
    for line in answer[:header_length(answer)].split(b"\r\n")[1:]:
        key, _, value = line.partition(b":")
        if key.strip().lower() == name:
            return value.strip()
    return None


def status_of(answer):
    words = answer[:header_length(answer)].split(None, 2)
    if len(words) < 2 or not words[1].isdigit():
        raise CannotMeasure("no status line: %r" % answer[:60])
    return int(words[1])


def check_answer(answer, status):
    """The status is that, and the body as long as announced."""
    if status_of(answer) != status:
        raise CannotMeasure("status %d, not %d" % (status_of(answer), status))
    announced = header(answer, b"content-length")
    body = len(answer) - header_length(answer)
    if announced is not None and int(announced) != body:
        raise CannotMeasure("%d bytes of a body of %s" % (
            body, announced.decode("ascii", "replace")))


def receive_one(connection):
    """One answer on a connection that stays open."""
    data = b""
    while b"\r\n\r\n" not in data:
        piece = connection.recv(65536)
        if not piece:
            raise CannotMeasure("closed instead of an answer")
        data += piece
    length = header(data, b"content-length")
    if length is None:
        raise CannotMeasure("a kept connection needs a Content-Length")
    total = header_length(data) + int(length)
    while len(data) < total:
        piece = connection.recv(65536)
        if not piece:
            raise CannotMeasure("closed within an answer")
        data += piece
    return data


def get(path, version="1.1"):
    return ("GET %s HTTP/%s\r\nHost: %s\r\n\r\n" % (path, version, HOST)
            ).encode("ascii")


def ask(port, request, source=None):
    """A connection of its own; the answer until the server closes."""
    with connect(port, source) as connection:
        connection.sendall(request)
        return receive_all(connection)


def check_kept(port, path):
    """wrk connects anew without a word where a server closes. So: two answers
    on one connection, and no word of closing it."""
    with connect(port) as connection:
        for _ in range(2):
            connection.sendall(get(path))
            answer = receive_one(connection)
            check_answer(answer, 200)
            if (header(answer, b"connection") or b"").lower() == b"close":
                raise CannotMeasure("the server announces that it closes")


def post(path, body_bytes):
    """A form that is all there."""
    head = ("POST %s HTTP/1.1\r\nHost: %s\r\nConnection: close\r\n"
            "Content-Length: %d\r\n\r\n" % (path, HOST, body_bytes))
    return head.encode("ascii") + b"x" * body_bytes


def timed_send(port, pieces, status=200):
    """Seconds from the first byte until the answer to the pieces is there."""
    with connect(port) as connection:
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        start = time.monotonic()
        for piece in pieces:
            connection.sendall(piece)
        answer = receive_all(connection)
        took = time.monotonic() - start
    check_answer(answer, status)
    return took


@contextlib.contextmanager
def idle_connections(port, count):
    """That many which say nothing, for a with block."""
    with contextlib.ExitStack() as stack:
        yield [stack.enter_context(connect(port)) for _ in range(count)]


def source_address(number):
    """The number-th loopback address, all distinct: 127.1.0.1 is the first,
    and the last of a network is not used as one."""
    high, low = divmod(number, 254)
    second, third = divmod(high, 256)
    if second > 253:
        raise ValueError("no more loopback addresses")
    return "127.%d.%d.%d" % (second + 1, third, low + 1)


def visit(port, request, status, sources, workers=16):
    """A connection from each source, by that many clients at once; returns
    the connections per second."""
    rest = iter(sources)
    take = threading.Lock()
    failures = []

    def work():
        while not failures:
            with take:
                source = next(rest, None)
            if source is None:
                return
            try:
                check_answer(ask(port, request, source), status)
            except (OSError, CannotMeasure) as error:
                failures.append("%s: %s" % (source, error))

    start = time.monotonic()
    threads = [threading.Thread(target=work) for _ in range(workers)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if failures:
        raise CannotMeasure(failures[0])
    return len(sources) / (time.monotonic() - start)
