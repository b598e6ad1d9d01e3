"""The servers that are measured: programs that are told what to do on standard
input and answer in lines of JSON on standard output."""

import json
import os
import select
import subprocess
import time

from comparison import CannotMeasure

PATIENCE_SECONDS = 120
TICK_SECONDS = 1 / os.sysconf("SC_CLK_TCK")


def _read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def parse_stat(text):
    """Seconds in user and kernel mode, from the kernel's line about a process.
    Its name, in parentheses, may hold anything."""
    fields = text.rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) * TICK_SECONDS


def processor_seconds(process_id):
    """What a process has taken of the processors. It hardly depends on what
    else the machine does, while a rate does."""
    return parse_stat(_read("/proc/%d/stat" % process_id))


def find_wine_server(prefix):
    """The process that serves all programs of the prefix; None without one. It
    works in a folder that is named after the prefix; what that is in depends
    on the distribution."""
    if not prefix or not os.path.isdir(prefix):
        return None
    found = os.stat(prefix)
    folder = "server-%x-%x" % (found.st_dev, found.st_ino)
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            working = os.readlink("/proc/%s/cwd" % name)
            if (os.path.basename(working) == folder
                    and _read("/proc/%s/comm" % name).startswith(
                        "wineserver")):
                return int(name)
        except OSError:
            continue
    return None


class Server:
    """A running one; a context manager which ends it."""

    def __init__(self, command, log):
        """The command runs the program; what it complains of goes to the
        file `log`, which is appended to."""
        self._rest = b""
        try:
            with open(log, "ab") as complaints:
                self._process = subprocess.Popen(
                    command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                    stderr=complaints)
        except OSError as error:
            raise CannotMeasure("cannot start %s" % error) from error
        try:
            self.port = self._answer()["port"]
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
        return self._answer()

    def close(self):
        """Lets the program end by itself; ends it if it does not."""
        try:
            self._process.stdin.close()
            self._process.wait(20)
        except (OSError, subprocess.TimeoutExpired):
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()

    def threads(self):
        """Under Wine, too, each is one of the kernel's."""
        return self._kernel_figure("status", "Threads:")

    def private_dirty_kib(self):
        """What the kernel keeps in memory for this process alone."""
        return self._kernel_figure("smaps_rollup", "Private_Dirty:")

    def processor_seconds(self):
        """Taken by the program, and by Wine's server, which does much of what
        a kernel does; only one program at a time may have work for it."""
        wine_server = find_wine_server(os.environ.get("WINEPREFIX"))
        try:
            return processor_seconds(self._process.pid) + (
                processor_seconds(wine_server) if wine_server else 0)
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
            text = _read("/proc/%d/%s" % (self._process.pid, file))
            return next(int(line.split()[1]) for line in text.splitlines()
                        if line.startswith(name))
        except (OSError, StopIteration) as error:
            raise CannotMeasure("the kernel does not tell %s of a server"
                                % name) from error

    def _answer(self):
        deadline = time.monotonic() + PATIENCE_SECONDS
        pipe = self._process.stdout.fileno()
        while b"\n" not in self._rest:
            left = max(0, deadline - time.monotonic())
            if not select.select([pipe], [], [], left)[0]:
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
