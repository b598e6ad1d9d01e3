"""The load programs ab and wrk: how they are run, and what they report. Both
go on after failures; here a failure is the end of the measurement."""

import os
import re
import subprocess
from dataclasses import dataclass

from comparison import CannotMeasure


@dataclass(frozen=True)
class AbReport:
    complete: int
    failed: int
    write_errors: int
    other_status: int  # neither 2xx
    kept_alive: int
    transferred_bytes: int
    seconds: float

    @property
    def requests(self):
        return self.complete

    def rate(self):
        return self.complete / self.seconds


@dataclass(frozen=True)
class WrkReport:
    requests: int
    seconds: float
    other_status: int
    socket_errors: str  # empty: none

    def rate(self):
        return self.requests / self.seconds


def _number(text, pattern, default=None):
    found = re.search(pattern, text, re.M)
    if found:
        return found.group(1)
    if default is None:
        raise CannotMeasure("no %s in: %s" % (pattern, text[-300:]))
    return default


def parse_ab(text):
    return AbReport(
        complete=int(_number(text, r"^Complete requests: +(\d+)")),
        failed=int(_number(text, r"^Failed requests: +(\d+)")),
        write_errors=int(_number(text, r"^Write errors: +(\d+)", 0)),
        other_status=int(_number(text, r"^Non-2xx responses: +(\d+)", 0)),
        kept_alive=int(_number(text, r"^Keep-Alive requests: +(\d+)", 0)),
        transferred_bytes=int(
            _number(text, r"^Total transferred: +(\d+) bytes")),
        seconds=float(
            _number(text, r"^Time taken for tests: +([\d.]+) seconds")))


SECONDS = {"us": 1e-6, "ms": 1e-3, "s": 1, "m": 60, "h": 3600}


def parse_wrk(text):
    took = _number(text, r"requests in ([\d.]+(?:us|ms|[smh])),")
    amount, unit = re.fullmatch(r"([\d.]+)(\D+)", took).groups()
    return WrkReport(
        requests=int(_number(text, r"(\d+) requests in")),
        seconds=float(amount) * SECONDS[unit],
        other_status=int(
            _number(text, r"Non-2xx or 3xx responses: (\d+)", 0)),
        socket_errors=_number(text, r"Socket errors: (.*)", ""))


def check_ab(report, count, status, answer_bytes):
    """Every request must have got the whole answer with that status."""
    others = 0 if 200 <= status < 300 else count
    for right, what in [
            (report.complete == count, "not all requests are complete"),
            (report.failed == 0, "%d requests failed" % report.failed),
            (report.write_errors == 0, "write errors"),
            (report.kept_alive == 0, "connections were kept"),
            (report.other_status == others, "another status"),
            (report.transferred_bytes == count * answer_bytes,
             "%d bytes came, not %d times %d" % (
                 report.transferred_bytes, count, answer_bytes)),
            (report.seconds > 0, "no time was taken")]:
        if not right:
            raise CannotMeasure("ab: " + what)


def check_wrk(report):
    for right, what in [
            (report.requests > 0, "no answers"),
            (report.other_status == 0, "another status"),
            (not report.socket_errors,
             "socket errors: " + report.socket_errors)]:
        if not right:
            raise CannotMeasure("wrk: " + what)


def _run(*command, patience=180):
    try:
        result = subprocess.run(
            command, capture_output=True, text=True, timeout=patience,
            stdin=subprocess.DEVNULL, check=False,
            env={**os.environ, "no_proxy": "*", "LC_ALL": "C"})
    except subprocess.TimeoutExpired as error:
        raise CannotMeasure("%s hangs" % command[0]) from error
    if result.returncode:
        raise CannotMeasure("%s: %s" % (command[0],
                                        result.stderr.strip()[-300:]))
    return result.stdout


def ab(url, clients, count, status, answer_bytes):
    """A connection for each request."""
    report = parse_ab(_run("ab", "-q", "-s", "60", "-c", str(clients),
                           "-n", str(count), url))
    check_ab(report, count, status, answer_bytes)
    return report


def wrk(url, clients, seconds):
    """Connections that are kept open."""
    report = parse_wrk(_run("wrk", "-t", "1", "-c", str(clients),
                            "-d", "%ds" % seconds, "--timeout", "30s", url))
    check_wrk(report)
    return report
