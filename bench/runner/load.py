"""The load programs ab and wrk: how they are run, and what they report. Both
go on after failures; here a failure is the end of the measurement."""

import os
import re
import subprocess
from dataclasses import dataclass

from comparison import CannotMeasure

SECONDS = {"us": 1e-6, "ms": 1e-3, "s": 1, "m": 60, "h": 3600}


@dataclass(frozen=True)
class Load:
    """A load that was served without a fault."""
    requests: int
    seconds: float


def _find(text, pattern, default=None):
    found = re.search(pattern, text, re.M)
    if not found and default is None:
        raise CannotMeasure("no %s in: %s" % (pattern, text[-300:]))
    return found.group(1) if found else default


def read_ab(text, count, status, answer_bytes):
    """Every request must have got the whole answer with that status."""
    load = Load(int(_find(text, r"^Complete requests: +(\d+)")), float(
        _find(text, r"^Time taken for tests: +([\d.]+) seconds")))
    others = 0 if 200 <= status < 300 else count
    for what, pattern, right in [
            ("complete", r"^Complete requests: +(\d+)", count),
            ("failed", r"^Failed requests: +(\d+)", 0),
            ("write errors", r"^Write errors: +(\d+)", 0),
            ("kept connections", r"^Keep-Alive requests: +(\d+)", 0),
            ("another status", r"^Non-2xx responses: +(\d+)", others),
            ("bytes", r"^Total transferred: +(\d+) bytes",
             count * answer_bytes)]:
        found = int(_find(text, pattern, "0"))
        if found != right:
            raise CannotMeasure("ab: %s: %d, not %d" % (what, found, right))
    if not load.seconds:
        raise CannotMeasure("ab: no time was taken")
    return load


def read_wrk(text):
    took = _find(text, r"requests in ([\d.]+(?:us|ms|[smh])),")
    amount, unit = re.fullmatch(r"([\d.]+)(\D+)", took).groups()
    load = Load(int(_find(text, r"(\d+) requests in")),
                float(amount) * SECONDS[unit])
    errors = re.findall(r"(?:Socket errors|Non-2xx).*", text)
    if errors or not load.requests:
        raise CannotMeasure("wrk: " + ("; ".join(errors) or "no answers"))
    return load


def _run(*command):
    try:
        result = subprocess.run(
            command, capture_output=True, text=True, timeout=180,
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
    return read_ab(_run("ab", "-q", "-s", "60", "-c", str(clients),
                        "-n", str(count), url), count, status, answer_bytes)


def wrk(url, clients, seconds):
    """Connections that are kept open."""
    return read_wrk(_run("wrk", "-t", "1", "-c", str(clients),
                         "-d", "%ds" % seconds, "--timeout", "30s", url))
