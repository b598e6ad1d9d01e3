"""Clients that are programs of their own."""

import csv
import os
import re
import subprocess
import sys
import tempfile
import time

from expect import expect

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "browser"))
from browser import Browser, BrowserError  # noqa: E402


def run_program(*command, stdin=None, patience=120):
    return subprocess.run(
        command, input=stdin, capture_output=True, timeout=patience,
        env={**os.environ, "no_proxy": "*", "LC_ALL": "C"}, check=False)


def curl(*arguments, status, stdin=None, may_break=False):
    """Expects this status, within a second and a half. If it may break, the
    server may also close, having answered, while curl still sends."""
    def run(host, _):
        result = run_program(
            "curl", "-sS", "--noproxy", "*", "-m", "20", "-o", "/dev/null",
            "-w", "%{http_code} %{time_total} %{http_version}", *arguments,
            host.url, stdin=stdin)
        text = result.stderr.decode().strip()
        if may_break and result.returncode in (55, 56):
            return text
        expect(result.returncode == 0, text)
        code, seconds, version = result.stdout.decode().split()
        expect(code == str(status), "status " + code)
        expect(float(seconds) < 1.5, "%s s" % seconds)
        return "%s in %.0f ms (HTTP/%s)" % (code, 1000 * float(seconds),
                                             version)
    return run


def curl_fails(*arguments, scheme="http", codes):
    """Expects that curl gives up with one of these exit codes."""
    def run(host, scale):
        result = run_program(
            "curl", "-sSk", "--noproxy", "*", "-o", "/dev/null",
            "-m", "1" if scale.quick else "3",
            *arguments, host.url.replace("http", scheme, 1))
        text = result.stderr.decode().strip()
        expect(result.returncode in codes,
               "exit code %d %s" % (result.returncode, text))
        return text
    return run


def wget(host, _):
    result = run_program("wget", "-nv", "-t", "1", "-T", "10", "-O", "-",
                         host.url)
    expect(result.returncode == 0, result.stderr.decode())
    expect(b"</html>" in result.stdout, "not the page")
    return "%d bytes" % len(result.stdout)


def number(text, pattern, default=None):
    found = re.search(pattern, text)
    expect(found or default is not None, "no %s in: %s" % (pattern, text))
    return float(found.group(1)) if found else default


def ab(*arguments, kept):
    def run(host, scale):
        count = 500 if scale.quick else 5000
        # The page holds the client's port and a counter, so its length varies.
        result = run_program(
            "ab", "-q", "-l", "-s", "20", "-n", str(count), "-c", "20",
            *arguments, host.kept_url if kept else host.url)
        text = result.stdout.decode()
        expect(result.returncode == 0, result.stderr.decode())
        expect(number(text, r"Complete requests: +(\d+)") == count,
               "not all complete")
        expect(number(text, r"Failed requests: +(\d+)") == 0, "failures")
        expect(number(text, r"Non-2xx responses: +(\d+)", 0) == 0, "bad status")
        used_again = number(text, r"Keep-Alive requests: +(\d+)", 0)
        expect(used_again == (count if kept else 0),
               "%d kept" % used_again)
        return "%d requests, 0 failed, %.0f/s" % (
            count, number(text, r"Requests per second: +([\d.]+)"))
    return run


def wrk(kept):
    def run(host, scale):
        result = run_program(
            "wrk", "-t", "2", "-c", "50", "-d", "2" if scale.quick else "8",
            host.kept_url if kept else host.url)
        text = result.stdout.decode()
        expect(result.returncode == 0, text)
        expect("Non-2xx" not in text, "bad status")
        # It counts the connections that were closed while it reads as errors.
        bad = re.search(r"connect (\d+), read (\d+), write (\d+), "
                        r"timeout (\d+)", text)
        expect(not bad or bad.group(1) + bad.group(4) == "00", text)
        expect(not bad or not kept, text)
        return "%d requests, %.0f/s%s" % (
            number(text, r"(\d+) requests in"),
            number(text, r"Requests/sec: +([\d.]+)"),
            "" if not bad else ", %s reads cut" % bad.group(2))
    return run


def slowhttptest(*arguments):
    """Expects that the server stayed available to its probe."""
    def run(host, scale):
        with tempfile.TemporaryDirectory() as folder:
            result = run_program(
                "slowhttptest", *arguments,
                "-c", "50" if scale.quick else "400", "-r", "400", "-i", "1",
                "-l", "2" if scale.quick else "15",
                "-p", "5", "-v", "1", "-g", "-o", folder + "/seconds",
                "-u", host.url)
            with open(folder + "/seconds.csv", encoding="ascii") as table:
                rows = list(csv.DictReader(table))
        expect(result.returncode == 0, "exit code %d" % result.returncode)
        expect(rows, "it counted nothing")
        expect(all(int(row["Service Available"]) for row in rows),
               "service unavailable")
        ended = re.findall(r"Exit status:(?:\x1b\[[0-9;]*m|\s)*([^\x1b\n]*)",
                           result.stdout.decode(errors="replace"))
        return "available; at most %d connected, %d closed; %s" % (
            max(int(row["Connected"]) for row in rows),
            max(int(row["Closed"]) for row in rows),
            ended[-1].strip().lower() if ended else "no exit status")
    return run


def chromium(host, _):
    """Opens connections that it may need, and leaves them idle."""
    with Browser() as browser:
        response = browser.navigate(host.kept_url)
        expect(response["status"] == 200, "status %s" % response["status"])
        time.sleep(1)
        held = host.connections()
        again = browser.navigate(host.kept_url)
        expect(again["connectionReused"], "a connection was not used again")
    return "page shown twice; %d connections held open" % held
