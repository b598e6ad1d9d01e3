"""Drives a headless Chromium over its debugging pipe, for tests."""

import json
import os
import select
import subprocess
import tempfile
import time

FLAGS = [
    "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
    "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--no-proxy-server",
    "--remote-debugging-pipe", "--window-size=1000,1000",
]


class BrowserError(Exception):
    """The browser refused, or did not do in time, what was asked."""


class Browser:
    """One browser with one page and a fresh profile, for a with block."""

    def __init__(self, program="chromium"):
        self._profile = tempfile.TemporaryDirectory(
            prefix="kova-browser-", ignore_cleanup_errors=True)
        self._next_id = 0
        self._buffer = b""
        self._events = []
        self._session = None
        self._start(program)

    def __enter__(self):
        target = self.call("Target.createTarget", url="about:blank")
        self._session = self.call("Target.attachToTarget", flatten=True,
                                  targetId=target["targetId"])["sessionId"]
        for domain in ("Page", "Network", "Runtime", "Log"):
            self.call(domain + ".enable")
        return self

    def __exit__(self, *_):
        self._session = None
        try:
            self.call("Browser.close")
            self._process.wait(10)
        except (BrowserError, OSError, subprocess.TimeoutExpired):
            self._process.kill()
            self._process.wait()
        os.close(self._write)
        os.close(self._read)
        self._profile.cleanup()

    def _start(self, program):
        # The browser reads its commands on descriptor 3 and answers on 4.
        child_read, self._write = os.pipe()
        self._read, child_write = os.pipe()

        def place_pipes():
            read, write = os.dup(child_read), os.dup(child_write)
            os.dup2(read, 3)
            os.dup2(write, 4)

        self._process = subprocess.Popen(
            [program, *FLAGS, "--user-data-dir=" + self._profile.name],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, close_fds=False,
            preexec_fn=place_pipes)
        os.close(child_read)
        os.close(child_write)

    def _receive(self, deadline):
        while b"\0" not in self._buffer:
            ready, _, _ = select.select([self._read], [], [],
                                        max(0, deadline - time.monotonic()))
            if not ready:
                raise BrowserError("the browser did not answer in time")
            piece = os.read(self._read, 65536)
            if not piece:
                raise BrowserError("the browser ended")
            self._buffer += piece
        message, self._buffer = self._buffer.split(b"\0", 1)
        return json.loads(message)

    def call(self, method, **parameters):
        """One command of the debugging protocol; its result."""
        self._next_id += 1
        command = {"id": self._next_id, "method": method,
                   "params": parameters}
        if self._session:
            command["sessionId"] = self._session
        os.write(self._write, json.dumps(command).encode() + b"\0")
        deadline = time.monotonic() + 30
        while True:
            message = self._receive(deadline)
            if message.get("id") != self._next_id:
                self._events.append(message)
            elif "error" in message:
                raise BrowserError(method + ": " + message["error"]["message"])
            else:
                return message["result"]

    def evaluate(self, expression):
        """The value of an expression of JavaScript in the page."""
        result = self.call("Runtime.evaluate", expression=expression,
                           returnByValue=True)
        if "exceptionDetails" in result:
            raise BrowserError(expression + ": "
                               + result["exceptionDetails"]["text"])
        return result["result"].get("value")

    def load(self, start):
        """Calls start(), which makes the page load something; waits until it
        is loaded; returns the document's response as the network saw it."""
        self._events.clear()
        start()
        deadline = time.monotonic() + 30
        while not self._document_loaded():
            self._events.append(self._receive(deadline))
        return self._documents()[-1]

    def _documents(self):
        return [e["params"]["response"] for e in self._events
                if e.get("method") == "Network.responseReceived"
                and e["params"]["type"] == "Document"]

    def _document_loaded(self):
        """Whether a load has ended since the document's response: a load that
        ended before belongs to the page that was shown earlier."""
        methods = [e.get("method") for e in self._events
                   if e.get("method") == "Page.loadEventFired"
                   or (e.get("method") == "Network.responseReceived"
                       and e["params"]["type"] == "Document")]
        return methods[-2:] == ["Network.responseReceived",
                                "Page.loadEventFired"]

    def navigate(self, url):
        return self.load(lambda: self.call("Page.navigate", url=url))

    def click(self, selector):
        return self.load(lambda: self.evaluate(
            "document.querySelector(%s).click()" % json.dumps(selector)))

    def complaints(self):
        """What the browser has written to its log since the last load."""
        return [e["params"]["entry"]["text"] for e in self._events
                if e.get("method") == "Log.entryAdded"]
