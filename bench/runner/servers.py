"""The servers that are measured: programs that are told what to do on standard
input and answer in lines of JSON on standard output."""

import json
import os
import select
import subprocess
import time

from comparison import CannotMeasure
from processor import find_wine_server, process_seconds

START_SECONDS = 120
ANSWER_SECONDS = 120


class Server:
    """A running one; a context manager which ends it."""

    def __init__(self, command, log):
        """The command runs the program; what it complains of goes to the
        file `log`, which is appended to."""
        self._rest = b""
        self._log = open(log, "ab")
        try:
            self._process = subprocess.Popen(
                command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                stderr=self._log)
        except OSError as error:
            self._log.close()
            raise CannotMeasure("cannot start %s" % error) from error
        try:
            self.port = self._answer(START_SECONDS)["port"]
        except CannotMeasure as error:
            self.close()
            raise CannotMeasure("%s; see %s" % (error, log)) from error

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def ask(self, command):
        """The answer to a command, a dictionary."""
        try:
            self._process.stdin.write(command.encode("ascii") + b"\n")
            self._process.stdin.flush()
        except OSError as error:
            raise CannotMeasure("a server has ended: %s" % error) from error
        return self._answer(ANSWER_SECONDS)

    def close(self):
        """Lets the program end by itself; ends it if it does not."""
        try:
            self._process.stdin.close()
            self._process.wait(20)
        except (OSError, subprocess.TimeoutExpired):
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()
        self._log.close()

    def threads(self):
        """Under Wine, too, each is one of the kernel's."""
        return self._kernel_figure("status", "Threads:")

    def private_dirty_kib(self):
        """What the kernel keeps in memory for this process alone."""
        return self._kernel_figure("smaps_rollup", "Private_Dirty:")

    def processor_seconds(self):
        """Taken by the program, and by Wine's server, which does much of what
        a kernel does; only one program at a time may have work for it."""
        try:
            wine_server = find_wine_server(os.environ.get("WINEPREFIX"))
            return process_seconds(self._process.pid) + (
                process_seconds(wine_server) if wine_server else 0)
        except OSError as error:
            raise CannotMeasure("a server has ended: %s" % error) from error

    def wait_for_threads(self, good, patience=60):
        """Until good(threads) holds."""
        deadline = time.monotonic() + patience
        while not good(self.threads()):
            if time.monotonic() > deadline:
                raise CannotMeasure("%d threads are there, which is not what "
                                    "was waited for" % self.threads())
            time.sleep(0.01)

    def _kernel_figure(self, file, name):
        try:
            with open("/proc/%d/%s" % (self._process.pid, file),
                      encoding="ascii", errors="replace") as lines:
                return next(int(line.split()[1]) for line in lines
                            if line.startswith(name))
        except (OSError, StopIteration) as error:
            raise CannotMeasure("the kernel does not tell %s of a server"
                                % name) from error

    def _answer(self, patience):
        deadline = time.monotonic() + patience
        pipe = self._process.stdout.fileno()
        while b"\n" not in self._rest:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([pipe], [], [], left)[0]:
                raise CannotMeasure("a server does not answer")
            piece = os.read(pipe, 65536)
            if not piece:
                raise CannotMeasure("a server has ended (exit code %s)"
                                    % self._process.wait())
            self._rest += piece
        line, self._rest = self._rest.split(b"\n", 1)
        try:
            return json.loads(line)
        except ValueError as error:
            raise CannotMeasure("no JSON: %r" % line[:80]) from error


class Programs:
    """Where the programs are and how they are run."""

    def __init__(self, folder, launcher, log):
        self._folder = folder
        self._launcher = launcher
        self._log = log

    def path(self, name):
        return os.path.join(self._folder, name + ".exe")

    def has(self, name):
        return os.path.exists(self.path(name))

    def start(self, name, arguments=()):
        return Server([*self._launcher, self.path(name), *arguments],
                      self._log)

    def run(self, name, arguments=(), patience=300):
        """To its end; what it printed."""
        command = [*self._launcher, self.path(name), *arguments]
        try:
            result = subprocess.run(
                command, capture_output=True, text=True, timeout=patience,
                stdin=subprocess.DEVNULL, check=False)
        except (OSError, subprocess.TimeoutExpired) as error:
            raise CannotMeasure(str(error)) from error
        if result.returncode:
            raise CannotMeasure("%s: %s" % (name, result.stderr.strip()))
        return result.stdout
