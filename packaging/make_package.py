"""Completes the installed files to a package and packs it; see script/package.
"""
import argparse
import os
import shlex
import subprocess

from archive import write_zip
from bill_of_materials import files_of, make_bill
from installer import make_installer
from linked import Component, linked_components
from msi import make_msi
from notices import write_notices
from pages import write_pages

# By the image's path in the package, the name of its symbols.
IMAGES = {
    "bin/KOVAServer.dll": "KOVAServer.pdb",
    "bin/kovactl.exe": "kovactl.pdb",
    "bin/sample-extension/Corvane_V3_NetMon.dll": "sample_extension.pdb",
}
MESSAGE_LIBRARY = "bin/messages/Corvane_EventMessages.dll"


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", required=True, help="the installed files")
    parser.add_argument("--symbols", required=True,
                        help="the installed symbols, in a folder of that name")
    parser.add_argument("--build", required=True, help="the build folder")
    parser.add_argument("--output", required=True, help="for the packages")
    parser.add_argument("--version", required=True)
    parser.add_argument("--commit", required=True)
    parser.add_argument("--epoch", required=True, type=int,
                        help="seconds since 1970, the time of every file")
    parser.add_argument("--sign", help="command that signs a file, named "
                        "behind it")
    return parser.parse_args()


def signer(command):
    """What signs the files that it is given, by `command`, or does nothing."""
    def sign(*paths):
        for path in paths if command else ():
            subprocess.run(shlex.split(command) + [path], check=True)
    return sign


def write_text(path, text):
    with open(path, "w", encoding="utf-8", newline="\n") as file:
        file.write(text)


def main():
    told = arguments()
    images = {image: os.path.join(told.symbols, "symbols", name)
              for image, name in IMAGES.items()}
    components = linked_components(images, told.build)
    sign = signer(told.sign)
    sign(*(os.path.join(told.root, image)
           for image in (*IMAGES, MESSAGE_LIBRARY)))
    name = os.path.basename(told.root)
    setup = os.path.join(told.output, f"{name}-setup.exe")
    setup_code = Component("nsis-common", [os.path.basename(setup)])
    write_notices(told.root, components + [setup_code])
    write_pages(told.root)
    release = (told.version, told.commit, told.epoch)
    files = files_of(told.root, told.symbols)
    write_text(os.path.join(told.root, "bill-of-materials.cdx.json"),
               make_bill(files, components, *release))
    for root in (told.root, told.symbols):
        write_zip(os.path.join(told.output, os.path.basename(root) + ".zip"),
                  root, told.epoch)
    make_installer(setup, told.root, told.version, told.epoch, sign)
    msi = os.path.join(told.output, f"{name}.msi")
    make_msi(msi, told.root, told.version, told.epoch)
    sign(msi)
    # What holds a bill cannot be in it: this one lies beside the packages.
    files.update((os.path.basename(path), path) for path in (setup, msi))
    write_text(os.path.join(told.output, f"{name}.cdx.json"),
               make_bill(files, components + [setup_code], *release))


if __name__ == "__main__":
    main()
