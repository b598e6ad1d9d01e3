"""Packs the test kit: the test programs, what they need, and what runs them."""
import argparse
import os
import shutil
import tempfile

from archive import write_zip
from bill_of_materials import files_below
from linked import linked_components

# The images whose symbols tell what is linked in; test programs hold
# GoogleTest, whose sources are built with them, beside that.
LINKED = ("KOVAServer", "kovactl", "kit")
SUFFIXES = (".exe", ".dll", ".lib")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--source", required=True, help="the source tree")
    parser.add_argument("--build", required=True, help="the build folder")
    parser.add_argument("--output", required=True, help="for the kit")
    parser.add_argument("--version", required=True)
    parser.add_argument("--epoch", required=True, type=int,
                        help="seconds since 1970, the time of every file")
    parser.add_argument("--programs", nargs="*", default=None,
                        help="test programs by name, in place of all")
    parser.add_argument("--unpacked", action="store_true",
                        help="lay out the folder that would be packed")
    return parser.parse_args()


def put(source, root, path):
    target = os.path.join(root, path)
    os.makedirs(os.path.dirname(target), exist_ok=True)
    shutil.copyfile(source, target)


def put_command(source, root):
    """With the line ends that Windows' command line is used to."""
    with open(source, encoding="ascii") as file:
        text = file.read()
    path = os.path.join(root, os.path.basename(source))
    with open(path, "w", encoding="ascii", newline="\r\n") as file:
        file.write(text)


def is_wanted(name, programs):
    if not name.endswith(SUFFIXES):
        return False
    program = os.path.basename(name).removesuffix(".exe")
    return (programs is None or not program.endswith("_tests")
            or program in programs)


def put_licences(root, build):
    images = {name: os.path.join(build, "symbols", name + ".pdb")
              for name in LINKED}
    packages = [c.package for c in linked_components(images, build)]
    for package in packages + ["googletest"]:
        put(f"/usr/share/doc/{package}/copyright", root,
            f"licences/{package}.txt")
    put("/usr/share/common-licenses/GPL-3", root, "licences/GPL-3.txt")


def lay_out(root, told):
    for folder in ("bin", "test-bin", "kit"):
        for path in files_below(os.path.join(told.build, folder)):
            if is_wanted(path, told.programs):
                put(os.path.join(told.build, folder, path), root,
                    f"{folder}/{path}")
    put(os.path.join(told.source, "test/kit/README.md"), root, "README.md")
    put_command(os.path.join(told.source, "test/kit/run-tests.cmd"), root)
    put_licences(root, told.build)


def main():
    told = arguments()
    name = f"KOVAServer-{told.version}-tests"
    if told.unpacked:
        lay_out(os.path.join(told.output, name), told)
        return
    with tempfile.TemporaryDirectory(dir=told.output) as scratch:
        root = os.path.join(scratch, name)
        lay_out(root, told)
        write_zip(os.path.join(told.output, name + ".zip"), root, told.epoch)


if __name__ == "__main__":
    main()
