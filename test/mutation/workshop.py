"""A copy of the sources with a build of its own, where changes are tried.

Only the changed source is compiled. Its object goes first on the link line of
the room's test program: the linker then takes every symbol from there and
leaves the library's own object alone, so nothing in the build is ever altered.
"""
import json
import os
import re
import shlex
import shutil
import subprocess
import time
from pathlib import Path

NATIVE_ROOMS = ("base", "http", "registry")
# Reasons for slow links and compiles that a test run has no use for.
UNWANTED = re.compile(r"-g(codeview.*|no-codeview.*)?$|-Wl,--pdb=.*|"
                      r"-Wl,-Xlink=/pdb.*|-Wl,--out-implib.*")
NICE = ["nice", "-n", "10"]


class Broken(Exception):
    """The unchanged sources do not build, or their tests fail."""


class Workshop:
    def __init__(self, root, folder):
        self.root = Path(root)
        self.folder = Path(folder)
        self.build = self.folder / "build"
        self.native = self.build / "native"
        self.number = 0
        self.usual = {}  # seconds that each test program takes, unchanged
        self.commands = {}

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
            # Some sanitizer must be named; this one costs next to nothing.
            self._configure(self.native, "native",
                            "-DKOVA_SANITIZERS=returns-nonnull-attribute")
            self._make(self.native, [f"{room}_tests" for room in native], say)
        self._run(["script/wine", "cmd", "/c", "exit"], self.folder)

    def _copy(self, name):
        source, target = self.root / name, self.folder / name
        target.parent.mkdir(parents=True, exist_ok=True)
        # An equal file keeps its time, so that little is built again.
        if not (target.exists() and
                target.read_bytes() == source.read_bytes()):
            shutil.copy(source, target)

    def _configure(self, build, preset, *more):
        if not (build / "build.ninja").exists():
            # Without optimization: compiling is most of the work.
            self._run(["cmake", "--preset", preset,
                       "-DCMAKE_BUILD_TYPE=Debug", *more], self.folder)

    def _make(self, build, targets, say):
        say(f"Building {' '.join(targets)} in {build.name}")
        self._run([*NICE, "ninja", *targets], build)

    def _run(self, command, folder):
        done = subprocess.run(command, cwd=folder, capture_output=True,
                              text=True, errors="replace")
        if done.returncode != 0:
            raise Broken(f"{' '.join(command)}:\n{done.stdout}{done.stderr}")

    def is_native(self, path):
        """Whether a source is a part of the native build, which is quicker."""
        room, name = Path(path).parts[-2:]
        return room in NATIVE_ROOMS and self._object(self.native, room, name)

    @staticmethod
    def _object(build, room, name):
        return (build / f"src/{room}/CMakeFiles/kova_{room}.dir"
                / f"{name}{'.obj' if build.name == 'build' else '.o'}").exists()

    def compile(self, change, text):
        """Compiles the changed text and links the room's test program with it.
        Returns the program, or the compiler's first error as a string."""
        build = self.native if self.is_native(change.path) else self.build
        source = self._place(build, ".cpp")
        source.write_text(text)
        made = source.with_suffix(".o")
        command = self._compile_command(build, change.path)
        command[command.index("-o") + 1] = str(made)
        command[command.index("-c") + 1] = str(source)
        done = subprocess.run([*NICE, *command], cwd=build,
                              capture_output=True, text=True)
        source.unlink()
        if done.returncode != 0:
            error = re.search(r"error: (.*)", done.stderr)
            return error[1] if error else done.stderr[:200]
        program = self._link(build, change.room, made)
        made.unlink()
        return program

    def _link(self, build, room, first):
        command = self._link_command(build, f"{room}_tests")
        at = command.index("-o")
        program = self._place(build / "test-bin", Path(command[at + 1]).suffix)
        command[at + 1] = str(program)
        command.insert(at, str(first))
        self._run([*NICE, *command], build)
        return program

    def _place(self, folder, suffix):
        self.number += 1
        return folder / f"changed_{os.getpid()}_{self.number}{suffix}"

    def _compile_command(self, build, path):
        if build not in self.commands:
            listed = json.loads((build / "compile_commands.json").read_text())
            self.commands[build] = {
                each["file"]: each["command"] for each in listed}
        command = self.commands[build][str(self.folder / path)]
        return [w for w in shlex.split(command) if not UNWANTED.match(w)]

    def _link_command(self, build, program):
        listed = subprocess.run(
            ["ninja", "-t", "commands", program], cwd=build,
            capture_output=True, text=True, check=True).stdout
        command = listed.rstrip().splitlines()[-1]
        command = command.removeprefix(": && ").removesuffix(" && :")
        return [w for w in shlex.split(command) if not UNWANTED.match(w)]

    def measure(self, change):
        """Takes the way of a change with its source unchanged: the tests must
        pass, or what they say later means nothing."""
        program = self.compile(change, (self.folder / change.path).read_text())
        if isinstance(program, str):
            raise Broken(f"{change.path} does not compile: {program}")
        start = time.monotonic()
        verdict, detail = self.run(program, 240)
        self.usual[self._tests(change)] = time.monotonic() - start
        if verdict != "survived":
            raise Broken(f"the unchanged {change.room} tests fail: {detail}")

    def is_measured(self, change):
        return self._tests(change) in self.usual

    def _tests(self, change):
        return change.room, self.is_native(change.path)

    def limit(self, change):
        return 15 + 4 * self.usual[self._tests(change)]

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
