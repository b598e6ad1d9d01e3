"""Large requests: a body in one go, and headers that do not end."""

import sockets
from comparison import Comparison, Goal
from rates import beast
from session import KOVA, PRINTER, Contestant

PIECE_BYTES = 16 << 10


def _timed(session, name, contestants, pieces_for):
    """Seconds until the answer to what pieces_for(contestant) gives."""
    with session.all_started(contestants) as servers:
        def measure(contestant):
            return sockets.timed_send(servers[contestant.name].port,
                                      pieces_for(contestant))
        return session.take_turns(
            name, [c for c in contestants if c.name in servers], measure)


def _bare(name, length, receive):
    return Contestant(name, "bench_bare", (
        "--answer", "small", "--body", str(length), "--receive", receive))


def upload(session):
    size = session.scale.upload_bytes
    path = "/upload?printer=" + PRINTER
    request = sockets.post(path, size)
    contestants = [
        Contestant(KOVA, "bench_host", path=path),
        _bare("bare, reserved block", len(request), "reserved"),
        *beast("small")]
    figures = _timed(session, "upload", contestants, lambda _: [request])
    figures = {who: [1000 * seconds for seconds in rounds]
               for who, rounds in figures.items()}
    return [Comparison(
        "upload", "A body of %d MiB sent in one go" % (size >> 20), "ms",
        figures, "bare, reserved block",
        [Goal(KOVA, "<=", 1.5, "ratio", "bare, reserved block"),
         *[Goal(KOVA, "<=", 0.2, "ratio", peer.name)
           for peer in beast("small")]])]


def endless_pieces(path, size, piece=PIECE_BYTES):
    """A request whose header block is `size` bytes, in pieces."""
    request = ("GET %s HTTP/1.1\r\nHost: %s\r\nX: " % (path, sockets.HOST)
               ).encode("ascii")
    request += b"x" * (size - len(request) - 4) + b"\r\n\r\n"
    return [request[at:at + piece] for at in range(0, size, piece)]


def endless_header(session):
    size = session.scale.header_bytes
    path = "/small?printer=" + PRINTER
    pieces = endless_pieces(path, size)
    contestants = [
        Contestant(KOVA, "bench_host", path=path),
        _bare("bare, reserved block", size, "reserved"),
        _bare("bare, exact block", size, "exact")]
    figures = _timed(session, "endless-header", contestants, lambda _: pieces)
    notes = ["%s: %.1f MiB/s" % (who, (size >> 20) / sorted(rounds)[
        len(rounds) // 2]) for who, rounds in figures.items()]
    return [Comparison(
        "endless-header",
        "A header block of %d MiB in pieces of %d KiB" % (
            size >> 20, PIECE_BYTES >> 10),
        "ms", {who: [1000 * seconds for seconds in rounds]
               for who, rounds in figures.items()},
        "bare, reserved block", notes=notes)]
