"""Clients made of bare sockets."""

import contextlib
import random
import selectors
import socket
import struct
import threading
import time

from expect import expect
from probe import ask, is_page

GET = b"GET /?printer=Demo+Printer HTTP/1.1\r\nHost: x\r\n\r\n"
HALF = GET[:20]
ENDLESS = b"GET /?printer=Demo+Printer HTTP/1.1\r\nX: "


def connect(host, receive_bytes=0):
    connection = socket.socket()
    connection.settimeout(30)
    if receive_bytes:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF,
                              receive_bytes)
    connection.connect(host.address)
    return connection


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER,
                          struct.pack("ii", 1, 0))
    connection.close()


def post(size):
    """A request whose answer is its body."""
    return (b"POST /?printer=Demo+Printer HTTP/1.1\r\n"
            b"Content-Length: %d\r\n\r\n" % size) + b"x" * size


def receive_all(connection):
    pieces = []
    while piece := connection.recv(1 << 20):
        pieces.append(piece)
    return b"".join(pieces)


def status_of(answer):
    return answer.split(b"\r\n", 1)[0].decode("ascii", "replace")


def stays_open(connection, seconds=0.0):
    """Whether nothing arrives and nothing is closed meanwhile."""
    connection.settimeout(seconds)
    try:
        connection.recv(1)
        return False
    except (BlockingIOError, TimeoutError):
        return True
    except OSError:
        return False


def resets(prepare):
    """Connections that are reset after prepare(connection, host)."""
    def run(host, scale):
        count = 25 if scale.quick else 1000
        start = time.monotonic()
        for _ in range(count):
            client = connect(host, 4096)
            prepare(client, host)
            reset(client)
        sent = time.monotonic() - start
        # Connections are accepted in order: all the resets were before this.
        expect(is_page(ask(host.address, patience=60)), "not the page")
        return "%d resets in %.1f s, worked off %.1f s later" % (
            count, sent, time.monotonic() - start - sent)
    return run


def at_once(_client, _host):
    """Nothing before the reset."""


def send_half(client, host):
    """A half that the server has taken: a reset that is reported together with
    bytes to receive is passed over, see reset_with_unread_half."""
    client.sendall(HALF)
    deadline = time.monotonic() + 30
    while host.unread(client) != 0:
        expect(time.monotonic() < deadline, "half a request is not received")
        time.sleep(0.001)


def send_whole(client, _):
    client.sendall(GET)


def begin_answer(client, _):
    client.sendall(post(200000))
    client.recv(1000)


def reset_with_unread_half(host, wanted):
    """Resets connections until that many have kept their thread: those whose
    reset came between the wake-up for half a request and its receiving."""
    threads = host.threads()
    deadline = time.monotonic() + 60
    while host.threads() < threads + wanted:
        expect(time.monotonic() < deadline, "no reset was passed over")
        for _ in range(100):
            client = connect(host)
            client.sendall(HALF)
            time.sleep(random.uniform(0, 0.004))
            reset(client)
        host.wait_for_threads(threads, patience=1)
    return host.threads() - threads


def idle(host, scale):
    """Connections that say nothing, and clients that work meanwhile."""
    count = 100 if scale.quick else 500
    with contextlib.ExitStack() as stack:
        clients = [stack.enter_context(connect(host)) for _ in range(count)]
        served = work(host, 4, 1 if scale.quick else 5)
        expect(host.connections() >= count, "connections are missing")
        expect(all(stays_open(client) for client in clients),
               "an idle connection was closed")
        threads = host.threads()
    return "%d stay open (%d threads); 4 clients: %d answers" % (
        count, threads, served)


def work(host, clients, seconds):
    """How many requests that many clients get answered meanwhile."""
    served = [0] * clients
    failures = []
    deadline = time.monotonic() + seconds

    def run(index):
        while time.monotonic() < deadline:
            try:
                expect(is_page(ask(host.address)), "not the page")
                served[index] += 1
            except Exception as error:  # Of a thread: reported below.
                failures.append(error)
                return

    threads = [threading.Thread(target=run, args=(i,)) for i in range(clients)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    expect(not failures, "a working client failed: %s" % failures[:1])
    return sum(served)


def all_at_once(host, scale):
    count = 200 if scale.quick else 1000
    start = time.monotonic()
    selector = selectors.DefaultSelector()
    for _ in range(count):
        client = socket.socket()
        client.setblocking(False)
        client.connect_ex(host.address)
        selector.register(client, selectors.EVENT_WRITE, [])
    good = 0
    deadline = start + 120
    while selector.get_map() and time.monotonic() < deadline:
        for key, events in selector.select(1):
            good += advance(selector, key, events)
    expect(good == count, "%d of %d answered" % (good, count))
    return "%d of %d answered in %.1f s" % (good, count,
                                           time.monotonic() - start)


def advance(selector, key, events):
    """One step of one client; 1 if it has got its whole answer with it."""
    client, pieces = key.fileobj, key.data
    try:
        if events & selectors.EVENT_WRITE:
            client.send(GET)
            selector.modify(client, selectors.EVENT_READ, pieces)
            return 0
        piece = client.recv(65536)
    except OSError:
        piece, pieces = b"", []
    if piece:
        pieces.append(piece)
        return 0
    selector.unregister(client)
    client.close()
    return int(is_page(b"".join(pieces)))


def endless_headers(host, scale):
    """A header block of some megabytes, which ends after all."""
    size = (1 if scale.quick else 8) << 20
    before = host.resident_mib()
    with connect(host) as client:
        client.sendall(ENDLESS + b"x" * size)
        expect(stays_open(client, 1), "answered or closed")
        client.settimeout(60)
        grown = host.resident_mib() - before
        client.sendall(b"\r\n\r\n")
        answer = receive_all(client)
    expect(is_page(answer), status_of(answer))
    return "%d MiB of headers kept (host +%.0f MiB), then answered" % (
        size >> 20, grown)


def dead(host, _):
    """Peers that vanish without a word, peers that say none, and those whose
    reset was passed over: all are held until the time-out."""
    count = 20
    passed_over = reset_with_unread_half(host, count)
    start = time.monotonic()
    for _ in range(count):
        client = connect(host)
        client.sendall(HALF)
        # In repair mode a socket goes without telling its peer.
        client.setsockopt(socket.IPPROTO_TCP, 19, 1)
        client.close()
    with contextlib.ExitStack() as stack:
        silent = [stack.enter_context(connect(host)) for _ in range(count)]
        time.sleep(290 - (time.monotonic() - start))
        # A new client that gets the port of a vanished one ends that one.
        held = host.connections()
        expect(held >= count + count // 2, "only %d are left" % held)
        for client in silent:
            client.settimeout(30)
            expect(client.recv(1) == b"", "not closed in order")
        took = time.monotonic() - start
    return ("%d vanished, %d silent: %d held for 290 s, closed at %.0f s; "
            "%d passed-over resets held as long" % (
                count, count, held, took, passed_over))
