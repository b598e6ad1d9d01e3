"""Completes the installed files to a package and packs it; see script/package.
"""
import argparse
import os
import shlex
import subprocess

from archive import write_zip
from bill_of_materials import make_bill
from installer import make_installer
from linked import linked_components, package_version
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


def installer_of(zip_path):
    return zip_path[:-len(".zip")] + "-setup.exe"


def main():
    told = arguments()
    images = {image: os.path.join(told.symbols, "symbols", name)
              for image, name in IMAGES.items()}
    components = linked_components(images, told.build)
    sign = signer(told.sign)
    sign(*(os.path.join(told.root, image)
           for image in (*IMAGES, MESSAGE_LIBRARY)))
    write_notices(told.root, components, package_version("nsis-common"))
    write_pages(told.root)
    bill = make_bill([told.root, told.symbols], components, told.version,
                     told.commit, told.epoch)
    with open(os.path.join(told.root, "bill-of-materials.cdx.json"), "w",
              encoding="utf-8", newline="\n") as file:
        file.write(bill)
    for root in (told.root, told.symbols):
        path = os.path.join(told.output, os.path.basename(root) + ".zip")
        write_zip(path, root, told.epoch)
        if root == told.root:
            make_installer(installer_of(path), root, told.version, told.epoch,
                           sign)


if __name__ == "__main__":
    main()
