"""A copy of the sources with a build of its own, where changes are tried.

Only what the changed file is a part of is compiled, linked with the rest of the
room's test program as it was built. The compiler is shown the changed text in
the place of the file, so nothing in the build is ever altered.
"""
import itertools
import json
import os
import re
import shlex
import shutil
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

NATIVE_ROOMS = ("base", "text", "http", "registry")
# Reasons for slow links and compiles that a test run has no use for.
UNWANTED = re.compile(r"-g(codeview.*|no-codeview.*)?$|-Wl,--pdb=.*|"
                      r"-Wl,-Xlink=/pdb.*|-Wl,--out-implib.*")
NICE = ["nice", "-n", "10"]


class Broken(Exception):
    """The unchanged sources do not build, or their tests fail."""


@dataclass(frozen=True)
class Place:
    """The test program of a room in one of the builds."""
    build: Path
    room: str

    @property
    def name(self):
        return f"{self.room}_tests" + (
            " (native)" if self.build.name == "native" else "")


class Workshop:
    def __init__(self, root, folder):
        self.root = Path(root)
        self.folder = Path(folder)
        self.build = self.folder / "build"
        self.native = self.build / "native"
        self.numbers = itertools.count(1)
        self.usual = {}  # seconds that each test program takes, unchanged
        self.commands = {}
        self.parts = {}

    def prepare(self, rooms, say):
        """Copies what git knows or would take, builds the rooms' tests."""
        say("Copying the sources")
        listed = subprocess.run(
            ["git", "ls-files", "-z", "-co", "--exclude-standard"],
            cwd=self.root, capture_output=True, check=True).stdout
        for name in listed.decode().split("\0"):
            if name and (self.root / name).is_file():
                self._copy(name)
        self._configure(self.build, "windows")
        self._make(self.build, [f"{room}_tests" for room in rooms], say)
        native = [room for room in rooms if room in NATIVE_ROOMS]
        if native:
            # With the sanitizers, as the tests are run otherwise: leaks and
            # what is freed in a wrong way are noticed by nothing else.
            self._configure(self.native, "native")
            self._make(self.native, [f"{room}_tests" for room in native], say)
        self._run(["script/wine", "cmd", "/c", "exit"], self.folder)

    def _copy(self, name):
        source, target = self.root / name, self.folder / name
        target.parent.mkdir(parents=True, exist_ok=True)
        # An equal file keeps its time, so that little is built again.
        if not (target.exists() and
                target.read_bytes() == source.read_bytes()):
            shutil.copy(source, target)

    def _configure(self, build, preset):
        if not (build / "build.ninja").exists():
            # Without optimization: compiling is most of the work.
            self._run(["cmake", "--preset", preset,
                       "-DCMAKE_BUILD_TYPE=Debug"], self.folder)

    def _make(self, build, targets, say):
        say(f"Building {' '.join(targets)} in {build.name}")
        self._run([*NICE, "ninja", *targets], build)

    def _run(self, command, folder):
        done = subprocess.run(command, cwd=folder, capture_output=True,
                              text=True, errors="replace")
        if done.returncode != 0:
            raise Broken(f"{' '.join(command)}:\n{done.stdout}{done.stderr}")

    def places(self, path, rooms):
        """Where a file's change is tried, the quick tests first. A room's tests
        in the native build are not all that it has."""
        return [place for room in rooms
                for place in (Place(self.native, room), Place(self.build, room))
                if (place.build == self.build or room in NATIVE_ROOMS)
                and self._affected(place, path)]

    def compile(self, place, path, text):
        """Compiles all of a room's test program that the changed text is a part
        of, and links it. Returns the program, or the compiler's first error as
        a string."""
        changed = self._place(place.build, ".changed")
        changed.write_text(text)
        view = self._place(place.build, ".yaml")
        view.write_text(json.dumps({
            "version": 0, "use-external-names": False, "roots": [{
                "type": "file", "name": str(self.folder / path),
                "external-contents": str(changed)}]}))
        with ThreadPoolExecutor(os.cpu_count()) as compilers:
            made = list(compilers.map(
                lambda command: self._compile(place.build, command, view),
                self._affected(place, path)))
        changed.unlink()
        view.unlink()
        errors = [each for each in made if isinstance(each, str)]
        program = errors[0] if errors else self._link(place, dict(made))
        for each in made:
            if not isinstance(each, str):
                Path(each[1]).unlink()
        return program

    def _compile(self, build, command, view):
        """The object's name and that of the changed one, or an error."""
        words = shlex.split(command)
        at = words.index("-o") + 1
        usual, made = words[at], str(self._place(build, ".o"))
        words[at] = made
        words.remove("-MD")
        for option in ("-MT", "-MF"):
            del words[words.index(option):words.index(option) + 2]
        done = subprocess.run(
            [*NICE, *(w for w in words if not UNWANTED.match(w)),
             "-ivfsoverlay", str(view)], cwd=build, capture_output=True,
            text=True, env={**os.environ, "CCACHE_DISABLE": "1"})
        if done.returncode == 0:
            return usual, made
        error = re.search(r"error: (.*)", done.stderr)
        return error[1] if error else done.stderr[:200]

    def _affected(self, place, path):
        """The commands that compile what a file is a part of, for the tests of
        a room."""
        if (place, path) not in self.commands:
            compiles, archives, link = self._commands(place)
            linked = {w for c in [link, *archives.values()] for w in c.split()}
            name = str(self.folder / path)
            self.commands[place, path] = [
                command for made, command in compiles.items()
                if made in linked and name in self._parts(place.build, made)]
        return self.commands[place, path]

    def _commands(self, place):
        """Of a test program: the commands that compile, by their objects, those
        that make its libraries, by these, and the one that links it."""
        if place not in self.commands:
            lines = subprocess.run(
                ["ninja", "-t", "commands", f"{place.room}_tests"],
                cwd=place.build, capture_output=True, text=True,
                check=True).stdout.rstrip().splitlines()
            link = lines[-1].removeprefix(": && ").removesuffix(" && :")
            archives = {m[1]: line for line in lines
                        if (m := re.search(r" qc (\S+) ", line))}
            self.commands[place] = (
                {m[1]: line for line in lines
                 if (m := re.search(r" -o (\S+) -c ", line))},
                {a: c for a, c in archives.items() if a in link.split()}, link)
        return self.commands[place]

    def _parts(self, build, made):
        """The files that an object was made of, the last time it was built."""
        if build not in self.parts:
            listed = subprocess.run(
                ["ninja", "-t", "deps"], cwd=build, capture_output=True,
                text=True, check=True).stdout
            self.parts[build] = {}
            for block in listed.split("\n\n"):
                first, *rest = block.splitlines() or [""]
                self.parts[build][first.partition(":")[0]] = {
                    os.path.normpath(build / line.strip()) for line in rest}
        return self.parts[build].get(made, ())

    def _link(self, place, made):
        """Links the program anew, and its libraries, with `made`: the changed
        objects by the names of those whose place they take."""
        _, archives, link = self._commands(place)
        archives_made = {}
        for usual, command in archives.items():
            if made.keys() & set(command.split()):
                archives_made[usual] = str(self._place(place.build, ".a"))
                self._shell(command, made | archives_made, place.build)
        at = link.split().index("-o") + 1
        usual = link.split()[at]
        program = self._place(place.build / "test-bin", Path(usual).suffix)
        self._shell(link, made | archives_made | {usual: str(program)},
                    place.build)
        for each in archives_made.values():
            Path(each).unlink()
        return program

    def _shell(self, command, other, folder):
        """Runs a command with other files in the place of some."""
        words = [other.get(w, w) for w in command.split()
                 if not UNWANTED.match(w)]
        self._run([*NICE, "sh", "-c", " ".join(words)], folder)

    def _place(self, folder, suffix):
        number = next(self.numbers)
        return folder / f"changed_{os.getpid()}_{number}{suffix}"

    def measure(self, place, path):
        """Takes the way of a change with its file unchanged: the tests must
        pass, or what they say later means nothing."""
        program = self.compile(place, path, (self.folder / path).read_text())
        if isinstance(program, str):
            raise Broken(f"{path} does not compile: {program}")
        start = time.monotonic()
        verdict, detail = self.run(program, 240)
        self.usual[place] = time.monotonic() - start
        if verdict != "survived":
            raise Broken(f"the unchanged {place.name} fail: {detail}")

    def limit(self, place, path):
        """The seconds that the tests of a place may take."""
        if place not in self.usual:
            self.measure(place, path)
        return 15 + 4 * self.usual[place]

    def run(self, program, limit):
        """Runs and removes a test program. Returns a verdict and a detail."""
        windows = program.suffix == ".exe"
        command = [str(self.folder / "script/wine")] if windows else []
        environment = {**os.environ, "GTEST_FAIL_FAST": "1",
                       "WINEPREFIX": str(self.build / "wine")}
        log = program.with_suffix(".log")
        with open(log, "w") as output:
            child = subprocess.Popen(
                [*command, str(program)], cwd=program.parent, stdout=output,
                stderr=output, stdin=subprocess.DEVNULL, env=environment)
            try:
                code = child.wait(limit)
            except subprocess.TimeoutExpired:
                code = None
                if windows:
                    subprocess.run(["wineserver", "-k"], env=environment)
                child.kill()
                child.wait()
        text = log.read_text(errors="replace")
        log.unlink()
        self._remove(program)
        failed = re.search(r"\[  FAILED  \] (\S+)", text)
        if code is None:
            return "timed out", f"after {limit:.0f} s"
        if code == 0 and "[  PASSED  ]" in text and not failed:
            return "survived", ""
        started = re.findall(r"\[ RUN      \] (\S+)", text)
        last = started[-1] if started else "nothing ran"
        return "killed", failed[1].rstrip(",") if failed else f"ended in {last}"

    @staticmethod
    def _remove(program):
        for _ in range(50):
            try:
                return program.unlink()
            except PermissionError:
                time.sleep(0.1)
