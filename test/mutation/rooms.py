"""Which files of the rooms are changed, and whose tests must notice."""
import functools
import re

ROOMS = ("base", "text", "log", "registry", "spooler", "http", "crash",
         "dispatch", "net", "server")


def _sources(root, room):
    """The room's own sources, in the order of its CMakeLists.txt."""
    text = (root / "src" / room / "CMakeLists.txt").read_text()
    product = re.split(r"\n(?:kova_tests|add_executable|add_library)\(", text)[0]
    names = re.findall(r"\w+\.cpp", product)
    return [f"src/{room}/{n}" for n in names if not n.endswith("_test.cpp")]


@functools.cache
def _included(root, path):
    """The rooms' headers that a file names."""
    text = (root / path).read_text()
    named = re.findall(r'(?m)^#include "((\w+)/\w+\.h)"', text)
    return [f"src/{name}" for name, room in named if room in ROOMS]


@functools.cache
def _headers(root):
    """Those that a source of the product includes: not what serves tests."""
    found = []
    left = [s for room in ROOMS for s in _sources(root, room)]
    while left:
        for header in _included(root, left.pop()):
            if header not in found:
                found.append(header)
                left.append(header)
    return sorted(found)


def files(root, room):
    """What is changed in a room."""
    return _sources(root, room) + [
        h for h in _headers(root) if h.startswith(f"src/{room}/")]


def testers(root, path):
    """The rooms whose tests must notice a change: a source's own; a header's
    own, if anything there includes it, and every other that includes it."""
    own = path.split("/")[1]
    if path.endswith(".cpp"):
        return [own]
    users = [room for room in ROOMS
             if any(path in _included(root, f.relative_to(root))
                    for f in sorted((root / "src" / room).glob("*.*"))
                    if f.suffix in (".cpp", ".h"))]
    return sorted(users, key=lambda room: room != own)
