"""Tries changes one at a time and lists those that no test notices.

Called by script/mutate, whose --help says how.
"""
import argparse
import json
import re
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from changes import choose, find_changes, in_turns
from workshop import Broken, Workshop

ROOT = Path(__file__).resolve().parents[2]
ROOMS = ("base", "log", "registry", "http", "crash", "dispatch", "net",
         "server")
VERDICTS = ("killed", "timed out", "did not compile", "survived")


def say(text):
    print(text, file=sys.stderr, flush=True)


def sources(root, room):
    """The room's own sources, in the order of its CMakeLists.txt."""
    text = (root / "src" / room / "CMakeLists.txt").read_text()
    product = re.split(r"\n(?:kova_tests|add_executable|add_library)\(", text)[0]
    names = re.findall(r"\w+\.cpp", product)
    return [f"src/{room}/{n}" for n in names if not n.endswith("_test.cpp")]


def all_changes(root, room, place):
    """The room's changes, or those in `place`: a source, and a line of it."""
    path, _, line = (place or "").partition(":")
    return [c for s in sources(root, room) if not path or s == path
            for c in find_changes(room, s, (root / s).read_text())
            if not line or c.line == int(line)]


def choice(root, wanted, count):
    """The list to try, the rooms in turns, `count` shared out evenly."""
    lists = []
    left = count
    for done, (room, place) in enumerate(wanted):
        share = -(-left // (len(wanted) - done))
        lists.append(choose(all_changes(root, room, place), share))
        left -= len(lists[-1])
    return in_turns(lists)


def changed(root, change):
    text = (root / change.path).read_text()
    return text[:change.start] + change.new + text[change.end:]


def try_all(shop, chosen, minutes, done):
    """Builds the next change while the tests of the last one run."""
    end = time.monotonic() + minutes * 60
    start = time.monotonic()
    with ThreadPoolExecutor(max_workers=1) as builder:
        build = lambda c: shop.compile(c, changed(shop.folder, c))
        ahead = builder.submit(build, chosen[0])
        for i, change in enumerate(chosen):
            program = ahead.result()
            last = i + 1 == len(chosen) or time.monotonic() > end
            if not last:
                ahead = builder.submit(build, chosen[i + 1])
            if isinstance(program, str):
                verdict, detail = "did not compile", program
            else:
                verdict, detail = shop.run(program, shop.limit(change))
            done(change, verdict, detail)
            each = (time.monotonic() - start) / (i + 1)
            say(f"[{i + 1}/{len(chosen)}] {verdict}: {change.path}:"
                f"{change.line}; about {each * (len(chosen) - i - 1) / 60:.0f}"
                f" min left")
            if last:
                return


def row(change, verdict="", detail=""):
    by = {"killed": f"killed by {change.room}_tests: {detail}",
          "timed out": f"timed out {detail}",
          "did not compile": f"did not compile: {detail}"}
    return (f"{change.path}:{change.line}  {change.text()}"
            + (f"  {by.get(verdict, verdict)}" if verdict else ""))


def show(results, chosen):
    order = {v: i for i, v in enumerate(VERDICTS)}
    for each in sorted(results, key=lambda r: (order[r[1]], r[0].path,
                                               r[0].line)):
        print(row(*each))
    print(f"\n{'room':<10}{'listed':>8}{'tried':>8}"
          + "".join(f"{v:>17}" for v in VERDICTS))
    for room in [*ROOMS, "all"]:
        mine = [r for r in results if room in (r[0].room, "all")]
        listed = sum(room in (c.room, "all") for c in chosen)
        if listed:
            print(f"{room:<10}{listed:>8}{len(mine):>8}" + "".join(
                f"{sum(r[1] == v for r in mine):>17}" for v in VERDICTS))


def as_json(results, chosen):
    return json.dumps({"listed": len(chosen), "tried": len(results), "changes": [
        {"room": c.room, "file": c.path, "line": c.line, "kind": c.kind,
         "from": c.old, "to": c.new, "verdict": verdict, "detail": detail}
        for c, verdict, detail in results]}, indent=2)


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="script/mutate", formatter_class=argparse.RawTextHelpFormatter,
        description="""\
Breaks one thing at a time in a copy of the sources (build/mutate), runs the
tests of that room and lists every change that no test noticed. Headers are not
changed. The list is always the same for the same sources.""",
        epilog="""\
A change that the compiler refuses (warnings are errors) is listed apart, and
one that makes the tests hang counts as noticed. Example:
  script/mutate net --count 30
  script/mutate src/net/client_run.cpp:101
Exit codes: 0 everything was noticed, 1 something survived, 2 could not start.""")
    parser.add_argument(
        "room", nargs="*", metavar="ROOM",
        help=f"one of {', '.join(ROOMS)},\nor a source of it, FILE[:LINE]; "
        "default: all rooms")
    parser.add_argument("--count", type=int, default=160,
                        help="how many changes in all (default 160)")
    parser.add_argument("--begin", type=int, default=1, metavar="N",
                        help="leave out those before the N-th, which an\n"
                        "earlier run has tried")
    parser.add_argument("--minutes", type=float, default=600,
                        help="begin no new change after so many minutes")
    parser.add_argument("--list", action="store_true",
                        help="show the changes, try none")
    parser.add_argument("--json", action="store_true",
                        help="the results as JSON on standard output")
    options = parser.parse_args(arguments)
    options.wanted = [wanted(parser, room) for room in options.room or ROOMS]
    if options.count < 1:
        parser.error("--count must be at least 1")
    if options.begin < 1:
        parser.error("--begin must be at least 1")
    return options


def wanted(parser, name):
    if name in ROOMS:
        return name, None
    found = re.fullmatch(r"(src/(\w+)/\w+\.cpp)(:\d+)?", name)
    if found and found[2] in ROOMS and found[1] in sources(ROOT, found[2]):
        return found[2], name
    parser.error(f"{name} is neither a room nor a source of one; rooms are: "
                 + ", ".join(ROOMS))


def chosen_of(root, options):
    everything = choice(root, options.wanted, options.count)
    return everything[options.begin - 1:]


def run(options):
    shop = Workshop(ROOT, ROOT / "build" / "mutate")
    rooms = sorted({room for room, _ in options.wanted}, key=ROOMS.index)
    shop.prepare(rooms, say)
    chosen = chosen_of(shop.folder, options)
    if not chosen:
        raise Broken("there is nothing to change in that place")
    say("Running the unchanged tests")
    for change in chosen:
        if not shop.is_measured(change):
            shop.measure(change)
    results = []

    def done(*result):
        results.append(result)
        (shop.folder / "results.json").write_text(as_json(results, chosen))

    try_all(shop, chosen, options.minutes, done)
    if options.json:
        print(as_json(results, chosen))
    else:
        show(results, chosen)
    return 1 if any(r[1] == "survived" for r in results) else 0


def main():
    options = parse(sys.argv[1:])
    if options.list:
        for change in chosen_of(ROOT, options):
            print(row(change))
        return 0
    try:
        return run(options)
    except Broken as problem:
        say(f"script/mutate: error: {problem}")
        return 2


if __name__ == "__main__":
    sys.exit(main())
