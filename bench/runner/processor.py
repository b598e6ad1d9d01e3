"""The processor time that processes have taken. It hardly depends on what else
the machine does, while a rate does."""

import os

TICK_SECONDS = 1 / os.sysconf("SC_CLK_TCK")


def parse_stat(text):
    """Seconds in user and kernel mode, from the kernel's line about a process.
    Its name, in parentheses, may hold anything."""
    fields = text.rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) * TICK_SECONDS


def process_seconds(process_id):
    with open("/proc/%d/stat" % process_id, encoding="utf-8",
              errors="replace") as line:
        return parse_stat(line.read())


def wine_server_folder(prefix):
    """The name of the folder that Wine's server of that prefix works in. What
    it is in depends on the distribution."""
    found = os.stat(prefix)
    return "server-%x-%x" % (found.st_dev, found.st_ino)


def find_wine_server(prefix):
    """The process that serves all programs of the prefix; None without one."""
    if not prefix or not os.path.isdir(prefix):
        return None
    folder = wine_server_folder(prefix)
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            working = os.readlink("/proc/%s/cwd" % name)
            with open("/proc/%s/comm" % name, encoding="utf-8",
                      errors="replace") as comm:
                if (os.path.basename(working) == folder
                        and comm.read().startswith("wineserver")):
                    return int(name)
        except OSError:
            continue
    return None
