"""Whole: the running server under ordinary and hostile clients, one after
another. Prints a row of a table for each. See script/test-clients."""

import argparse
import collections
import sys
import time
from subprocess import SubprocessError

import programs
import raw_clients as raw
from expect import Unexpected
from host import Host
from probe import Probe
from programs import BrowserError

# What Windows and Wine keep for the next thread or socket.
HANDLE_SLACK = 8
MOST_PROBE_SECONDS = 10

Client = collections.namedtuple("Client", "name run when once",
                                defaults=["always", False])

CLIENTS = [
    Client("curl, HTTP/1.0", programs.curl("-0", status=200)),
    Client("curl, HTTP/1.1", programs.curl(status=200)),
    Client("curl, HEAD", programs.curl("-I", status=200)),
    Client("curl, form", programs.curl("-d", "text=hello", status=200)),
    Client("curl, Expect: 100-continue",
           programs.curl("-H", "Expect: 100-continue", "-d", "text=hello",
                         status=408)),
    Client("curl, chunked upload",
           programs.curl("-H", "Transfer-Encoding: chunked", "-H", "Expect:",
                         "--data-binary", "@-", status=200,
                         stdin=b"x" * 100000, may_break=True)),
    Client("curl, HTTP/2 without asking",
           programs.curl_fails("--http2-prior-knowledge",
                               codes=(1, 16, 52, 55, 56))),
    Client("curl, TLS", programs.curl_fails(scheme="https", codes=(28,))),
    Client("wget", programs.wget),
    Client("reset after connect", raw.resets(raw.at_once), once=True),
    Client("reset after half a request", raw.resets(raw.send_half),
           once=True),
    Client("reset after the request", raw.resets(raw.send_whole),
           once=True),
    Client("reset within the answer", raw.resets(raw.begin_answer),
           once=True),
    Client("headers without an end", raw.endless_headers),
    Client("idle connections", raw.idle),
    Client("all at once", raw.all_at_once),
    Client("slowhttptest -H", programs.slowhttptest("-H")),
    Client("slowhttptest -B", programs.slowhttptest("-B")),
    Client("slowhttptest -X", programs.slowhttptest("-X")),
    Client("slowhttptest -R", programs.slowhttptest("-R")),
    Client("ab", programs.ab(kept=False)),
    Client("ab -k", programs.ab("-k", kept=True)),
    Client("wrk", programs.wrk(kept=False)),
    Client("wrk, kept connections", programs.wrk(kept=True)),
    Client("Chromium", programs.chromium, "full"),
    Client("vanished and silent peers", raw.dead, "long"),
]


class Run:
    """All clients against one host."""

    def __init__(self, host):
        self._host = host
        self.failed = 0

    def begin(self):
        """Lets the extension be loaded before anything is counted."""
        raw.work(self._host, 4, 0.5)
        time.sleep(0.5)
        self._threads = self._host.threads()
        self._handles = self._host.handles()
        print("| client | sees | ordinary client meanwhile "
              "| left: threads, handles | s |\n|---|---|---|---|---|",
              flush=True)

    def visit(self, client, scale, count_handles=True):
        """Counting takes a program of its own, a third of a second."""
        start = time.monotonic()
        problems = []
        with Probe(self._host.address) as probe:
            try:
                sees = client.run(self._host, scale)
                # Long enough to meet the ordinary client's requests.
                while not (client.once or scale.quick
                           or time.monotonic() > start + 1):
                    sees = client.run(self._host, scale)
            except (Unexpected, OSError, ValueError,
                    SubprocessError, BrowserError) as error:
                sees = "FAILED: " + str(error)
                problems.append(sees)
        problems += self._judge(probe)
        threads = self._host.wait_for_threads(self._threads) - self._threads
        left = "%+d" % threads
        if count_handles:
            handles = self._host.handles() - self._handles
            left += ", %+d" % handles
            if handles > HANDLE_SLACK:
                problems.append("handles are left")
        if threads > 0:
            problems.append("threads are left")
        print("| %s | %s | %d, %d failed, slowest %d ms | %s | %d |%s"
              % (client.name, sees.replace("|", "/"), probe.tries,
                 len(probe.failures), 1000 * probe.slowest, left,
                 time.monotonic() - start,
                 " <-- " + "; ".join(problems) if problems else ""),
              flush=True)
        self.failed += bool(problems)

    @staticmethod
    def _judge(probe):
        problems = ["ordinary client: " + text for text in probe.failures[:1]]
        if probe.slowest > MOST_PROBE_SECONDS:
            problems.append("ordinary client was slow")
        return problems


def wanted(client, options):
    if options.only:
        return any(client.name.startswith(name) for name in options.only)
    return (client.when == "always"
            or (client.when == "full" and not options.quick)
            or (client.when == "long" and options.long))


def parse():
    parser = argparse.ArgumentParser(allow_abbrev=False)
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--process", type=int, required=True)
    parser.add_argument("--counts", nargs="+", required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--long", action="store_true")
    parser.add_argument("--only", action="append")
    return parser.parse_args()


def main():
    options = parse()
    clients = [client for client in CLIENTS if wanted(client, options)]
    if not clients:
        sys.exit("no client has a name that begins so")
    host = Host(options.port, options.process, options.counts)
    run = Run(host)
    run.begin()
    for client in clients:
        run.visit(client, options,
                  not options.quick or client is clients[-1])
        if not host.is_alive():
            sys.exit("the host has ended during: " + client.name)
    sys.exit(1 if run.failed else 0)


if __name__ == "__main__":
    main()
