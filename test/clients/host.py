"""The server's host: its address, and what it holds."""

import subprocess
import time


def _in_table(port):
    """This machine's own address and a port, as the kernel's table has it."""
    return "0100007F:%04X" % port


class Host:
    """A running "kovactl run --demo"."""

    def __init__(self, port, process_id, counts_command):
        self.port = port
        self.address = ("127.0.0.1", port)
        self.origin = "http://127.0.0.1:%d" % port
        self.url = self.origin + "/?printer=Demo+Printer"
        self.kept_url = self.url + "&keep=1"
        self._process_id = process_id
        self._counts_command = counts_command

    def threads(self):
        """The host's threads at this moment, as the kernel counts them."""
        return int(self._status("Threads:"))

    def resident_mib(self):
        return int(self._status("VmRSS:")) / 1024

    def is_alive(self):
        try:
            return self.threads() > 0
        except (OSError, StopIteration):
            return False

    def handles(self):
        """The handles of the host that are open at this moment."""
        out = subprocess.run(self._counts_command, capture_output=True,
                             text=True, timeout=60, check=True).stdout
        return int(out.split()[1])

    def wait_for_threads(self, most, patience=15):
        """Waits until no more than that are left; how many there are then."""
        deadline = time.monotonic() + patience
        while self.threads() > most and time.monotonic() < deadline:
            time.sleep(0.02)
        return self.threads()

    def connections(self):
        """How many connections to the port are established."""
        return len(self._established())

    def unread(self, client):
        """The bytes of a client's that the host has not received yet, as the
        kernel counts them; None before the connection is there."""
        peer = _in_table(client.getsockname()[1])
        for row in self._established():
            if row[2] == peer:
                return int(row[4].split(":")[1], 16)
        return None

    def _established(self):
        local = _in_table(self.port)
        with open("/proc/net/tcp", encoding="ascii") as table:
            rows = [line.split() for line in table.readlines()[1:]]
        return [row for row in rows if row[1] == local and row[3] == "01"]

    def _status(self, name):
        with open("/proc/%d/status" % self._process_id,
                  encoding="ascii") as status:
            return next(line for line in status
                        if line.startswith(name)).split()[1]
