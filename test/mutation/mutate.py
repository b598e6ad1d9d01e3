"""Tries changes one at a time and lists those that no test notices.

Called by script/mutate, whose --help says how.
"""
import argparse
import re
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from changes import choose, find_changes, in_turns
from rooms import ROOMS, files, testers
from workshop import Broken, Workshop

ROOT = Path(__file__).resolve().parents[2]
VERDICTS = ("killed", "timed out", "did not compile", "survived")


def say(text):
    print(text, file=sys.stderr, flush=True)


def all_changes(root, room, place, rooms):
    """The room's changes, or those in `place`: a file, and a line of it. A
    header that no tests of `rooms` include is left out."""
    path, _, line = (place or "").partition(":")
    return [c for f in files(root, room) if not path or f == path
            if set(testers(root, f)) & set(rooms)
            for c in find_changes(room, f, (root / f).read_text())
            if not line or c.line == int(line)]


def choice(root, wanted, count):
    """The list to try, the rooms in turns, `count` shared out evenly."""
    lists = []
    left = count
    rooms = rooms_of(root, wanted)
    for done, (room, place) in enumerate(wanted):
        share = -(-left // (len(wanted) - done))
        lists.append(choose(all_changes(root, room, place, rooms), share))
        left -= len(lists[-1])
    return in_turns(lists)


def changed(root, change):
    text = (root / change.path).read_text()
    return text[:change.start] + change.new + text[change.end:]


def attempt(shop, change, places, program):
    """The verdict of the first tests that notice. `program` is that of the
    first place, built already; of the others each is built when it is needed.
    """
    verdict = "survived", ""
    for place in places:
        if program is None:
            program = shop.compile(place, change.path,
                                   changed(shop.folder, change))
        if isinstance(program, str):
            return "did not compile", program
        verdict, detail = shop.run(program, shop.limit(place, change.path))
        if verdict != "survived":
            return verdict, f"{place.name}: {detail}"
        program = None
    return verdict, ""


def try_all(shop, chosen, rooms, minutes, done):
    """Builds the next change while the tests of the last one run."""
    end = time.monotonic() + minutes * 60
    start = time.monotonic()

    def build(change):
        places = shop.places(change.path, [
            r for r in testers(shop.folder, change.path) if r in rooms])
        if not places:
            raise Broken(f"nothing tests {change.path}")
        return places, shop.compile(places[0], change.path,
                                    changed(shop.folder, change))

    with ThreadPoolExecutor(max_workers=1) as builder:
        ahead = builder.submit(build, chosen[0])
        for i, change in enumerate(chosen):
            places, program = ahead.result()
            last = i + 1 == len(chosen) or time.monotonic() > end
            if not last:
                ahead = builder.submit(build, chosen[i + 1])
            verdict, detail = attempt(shop, change, places, program)
            done(change, verdict, detail)
            each = (time.monotonic() - start) / (i + 1)
            say(f"[{i + 1}/{len(chosen)}] {verdict}: {change.path}:"
                f"{change.line}; about {each * (len(chosen) - i - 1) / 60:.0f}"
                f" min left")
            if last:
                return


def row(change, verdict="", detail=""):
    by = {"killed": f"killed by {detail}", "timed out": f"timed out {detail}",
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


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="script/mutate", formatter_class=argparse.RawTextHelpFormatter,
        description="""\
Breaks one thing at a time in a copy of the sources (build/mutate), runs the
tests of that room and lists every change that no test noticed. A changed header
has to pass the tests of every room that includes it, of those that are named.
The list is always the same for the same sources.""",
        epilog="""\
A change that the compiler refuses (warnings are errors) is listed apart, and
one that makes the tests hang counts as noticed. Example:
  script/mutate net --count 30
  script/mutate src/net/connection_loop.cpp:101
Exit codes: 0 everything was noticed, 1 something survived, 2 could not start.""")
    parser.add_argument(
        "room", nargs="*", metavar="ROOM",
        help=f"one of {', '.join(ROOMS)},\nor a file of it, FILE[:LINE]; "
        "default: all rooms")
    parser.add_argument("--count", type=int, default=160,
                        help="how many changes in all (default 160)")
    parser.add_argument("--minutes", type=float, default=600,
                        help="begin no new change after so many minutes")
    parser.add_argument("--list", action="store_true",
                        help="show the changes, try none")
    options = parser.parse_args(arguments)
    options.wanted = [wanted(parser, room) for room in options.room or ROOMS]
    if options.count < 1:
        parser.error("--count must be at least 1")
    return options


def wanted(parser, name):
    if name in ROOMS:
        return name, None
    found = re.fullmatch(r"(src/(\w+)/\w+\.(?:cpp|h))(:\d+)?", name)
    if found and found[2] in ROOMS and found[1] in files(ROOT, found[2]):
        return found[2], name
    parser.error(f"{name} is neither a room nor a file of one; rooms are: "
                 + ", ".join(ROOMS))


def rooms_of(root, wanted):
    """Those whose tests are used: the ones that are named, and all that test a
    header that is named."""
    rooms = {tester for room, place in wanted
             for tester in ([room] if place is None else
                            testers(root, place.partition(":")[0]))}
    return sorted(rooms, key=ROOMS.index)


def run(options):
    shop = Workshop(ROOT, ROOT / "build" / "mutate")
    rooms = rooms_of(ROOT, options.wanted)
    shop.prepare(rooms, say)
    chosen = choice(shop.folder, options.wanted, options.count)
    if not chosen:
        raise Broken("there is nothing to change in that place")
    results = []
    try_all(shop, chosen, rooms, options.minutes,
            lambda *result: results.append(result))
    show(results, chosen)
    return 1 if any(r[1] == "survived" for r in results) else 0


def main():
    options = parse(sys.argv[1:])
    if options.list:
        for change in choice(ROOT, options.wanted, options.count):
            print(row(change))
        return 0
    try:
        return run(options)
    except Broken as problem:
        say(f"script/mutate: error: {problem}")
        return 2


if __name__ == "__main__":
    sys.exit(main())
