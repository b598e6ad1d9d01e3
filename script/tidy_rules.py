#!/usr/bin/env python3
"""Writes rules by which ninja has clang-tidy look at each source, again only
when it, a header of its or the options have changed.

Usage: tidy_rules.py OUTPUT BUILD..., folders with compile_commands.json. A
source that several builds have is looked at as the first of them has it."""
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
OUTPUT = pathlib.Path(sys.argv[1])
# The static analyzer follows GoogleTest's macros for minutes and finds nothing.
NOT_SHIPPED = re.compile(r"_test\.cpp$|^test/|^bench/")
RULE = """rule tidy
  command = clang-tidy-19 -p $build --quiet $checks $in 2>/dev/null $
      && $depends && touch $out
  depfile = $out.d
  deps = gcc
  description = $source

"""


def rules(build):
    for entry in json.loads((build / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["file"])
        if file.suffix == ".cpp" and file.is_relative_to(ROOT) \
                and not file.is_relative_to(ROOT / "build"):
            yield str(file.relative_to(ROOT)), entry


def rule(build, source, entry):
    stamp = OUTPUT.parent / "stamps" / source
    compile_command = re.sub(r" -o \S+ -c \S+$", "", entry["command"])
    checks = "-clang-analyzer-*" if NOT_SHIPPED.search(source) else ""
    return (f"build {stamp}: tidy {entry['file']} | {ROOT}/.clang-tidy\n"
            f"  source = {source}\n"
            f"  build = {build}\n"
            f"  checks = --checks='{checks}'\n"
            f"  depends = cd {entry['directory']} && {compile_command} "
            f"-w -M -MF {stamp}.d -MT {stamp} {entry['file']}\n"
            f"build {source}: phony {stamp}\n")


found = {}
for build in map(pathlib.Path, sys.argv[2:]):
    for source, entry in rules(build):
        found.setdefault(source, rule(build, source, entry))
OUTPUT.write_text(RULE + "".join(found[source] for source in sorted(found)))
