"""What of other projects is linked into an image, by the image's symbols.

The symbols name every object file and every header that gave code, so nothing
can be forgotten here: a package without a row in LICENCES stops the packaging.
"""
import os
import re
import subprocess

RUNTIME = (
    "mingw-w64 runtime, gdtoa and winpthreads",
    ["ZPL-2.1", "MIT", "BSD-3-Clause", "Lucent licence of gdtoa",
     "David M. Gay licence", "Keith Marshall licence", "public domain"],
    "https://www.mingw-w64.org/")
COMPILER = ("GPL-3.0-or-later WITH GCC-exception-3.1", "https://gcc.gnu.org/")

# By Debian package: what it is, its licences as far as its linked parts go (an
# SPDX id, an SPDX expression, or a name where SPDX has none), and where it
# comes from. The runtime is msvcrt's or the universal one's.
LICENCES = {
    "g++-mingw-w64-x86-64-posix": ("libstdc++", *COMPILER),
    "g++-mingw-w64-ucrt64": ("libstdc++", *COMPILER),
    "gcc-mingw-w64-x86-64-posix": ("libgcc", *COMPILER),
    "gcc-mingw-w64-ucrt64": ("libgcc", *COMPILER),
    "mingw-w64-x86-64-dev": RUNTIME,
    "mingw-w64-ucrt64-dev": RUNTIME,
    "libcli11-dev": (
        "CLI11", ["BSD-3-Clause"], "https://github.com/CLIUtils/CLI11"),
    "nlohmann-json3-dev": (
        "JSON for Modern C++", ["MIT"], "https://github.com/nlohmann/json"),
    "nsis-common": (
        "Nullsoft Scriptable Install System: start-up code and the plug-ins "
        "nsExec, System and UserInfo", ["Zlib"],
        "https://nsis.sourceforge.io/"),
}

SPDX_IDS = {"ZPL-2.1", "MIT", "BSD-3-Clause", "Zlib"}


class Component:
    """One Debian package that some of the images hold a part of."""

    def __init__(self, package, images):
        self.package = package
        self.images = sorted(images)
        self.version = package_version(package)
        self.name, self.licences, self.home = LICENCES[package]

    def licence_text(self):
        if isinstance(self.licences, str):
            return self.licences
        return ", ".join(self.licences)


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE,
                          encoding="utf-8").stdout


def package_version(package):
    return output_of("dpkg-query", "-W", "-f", "${Version}", package)


def package_of(path):
    """The Debian package that `path`, links followed, belongs to."""
    path = os.path.realpath(path)
    return output_of("dpkg", "-S", path).split(":")[0]


def foreign_files(symbols, build):
    """The object files and libraries of other projects, and one header folder
    for each header-only library, that `symbols` name."""
    text = output_of("llvm-pdbutil-19", "dump", "-modules", "-files", symbols)
    objects = re.findall(r"`(/[^`]*\.(?:a|o|lib|obj))`", text)
    headers = re.findall(r"system-include[\\/]([^\\/ \n]+)", text)
    return set(objects) | {
        os.path.join(build, "system-include", name) for name in headers}


def example_file(path):
    """`path`, or some file below it: folders can belong to many packages."""
    path = os.path.realpath(path)
    for folder, _, names in os.walk(path):
        if names:
            return os.path.join(folder, sorted(names)[0])
    return path


def linked_components(images, build):
    """images: by the image's path in the package, the path of its symbols.
    Returns the components, sorted by package."""
    users = {}
    packages = {}
    for image, symbols in images.items():
        for path in foreign_files(symbols, build):
            if path not in packages:
                packages[path] = package_of(example_file(path))
            users.setdefault(packages[path], set()).add(image)
    for package in users:
        if package not in LICENCES:
            raise SystemExit(
                f"error: {package} is linked in, but its licence is not told; "
                "add it to LICENCES in packaging/linked.py")
    return [Component(package, users[package]) for package in sorted(users)]
