"""Whether a server that has seen many client addresses is as fast as one that
has just begun."""

import sockets
from comparison import Comparison, Goal
from rates import bare, host
from session import Contestant

OLD = "after many addresses"
NEW = "just started"
# Two rates that differ by less are the same on a machine of two cores.
NOISE = 0.1
FILL_STEP = 5000


class Addresses:
    """Loopback addresses, none of them given twice."""

    def __init__(self):
        self._next = 0

    def take(self, count):
        first = self._next
        self._next += count
        return [sockets.source_address(number)
                for number in range(first, self._next)]


def _fill(session, server, addresses, request):
    wanted = session.scale.addresses
    for done in range(0, wanted, FILL_STEP):
        session.progress.show("addresses: %d of %d" % (done, wanted))
        sockets.visit(server.port, request, 400, addresses.take(
            min(FILL_STEP, wanted - done)))


def run(session):
    many = Contestant(OLD, host("").program)
    new = Contestant(NEW, host("").program)
    plain = bare("bare", "refusal")
    contestants = [c for c in (many, new, plain) if session.is_here(c)]
    request = sockets.get("/")
    addresses = Addresses()
    count = session.scale.fresh_addresses

    def measure(contestant):
        if contestant is many:
            return sockets.visit(filled.port, request, 400,
                                 addresses.take(count))
        with session.start(contestant) as server:
            return sockets.visit(server.port, request, 400,
                                 Addresses().take(count))

    with session.start(many) as filled:
        _fill(session, filled, addresses, request)
        figures = session.take_turns("addresses", contestants, measure)
    return [Comparison(
        "addresses",
        "Connections from %d new addresses, after %d others and at once" % (
            count, session.scale.addresses), "connections/s", figures, NEW,
        [Goal(OLD, ">=", 1 - NOISE, "ratio", NEW)])]
