"""The notices of the projects whose code is linked in, for people."""
import os
import shutil

HEAD = """\
Third-party notices

The programs and libraries of this package hold code of the projects below,
linked in statically. The folder "licences" has the full texts: what the Debian
package says of the sources that it was built from, of which only some parts
are linked in. The licences named here are those of the linked parts.

libstdc++ and libgcc are under the GNU General Public License, version 3 or
later, with the GCC Runtime Library Exception, version 3.1. The exception
permits to convey a program that holds them under terms of the program's
author; it is part of the texts of their packages.

"""

TAIL = """\
The message library Corvane_EventMessages.dll holds no code at all.

What the programs call of Windows is not part of the package.
"""

def describe(component):
    return "".join([
        f"{component.name}\n",
        f"  package   {component.package} {component.version} (Debian)\n",
        f"  home      {component.home}\n",
        f"  licences  {component.licence_text()}\n",
        f"  text      licences/{component.package}.txt\n",
        "  in        ", "\n            ".join(component.images), "\n\n"])


def write_notices(root, components):
    """Writes the notices and the folder of licences below the folder `root`."""
    folder = os.path.join(root, "licences")
    os.makedirs(folder, exist_ok=True)
    for package in (component.package for component in components):
        shutil.copyfile(f"/usr/share/doc/{package}/copyright",
                        os.path.join(folder, f"{package}.txt"))
    shutil.copyfile("/usr/share/common-licenses/GPL-3",
                    os.path.join(folder, "GPL-3.txt"))
    text = HEAD + "".join(describe(c) for c in components) + TAIL
    with open(os.path.join(root, "THIRD-PARTY-NOTICES.txt"), "w",
              encoding="utf-8", newline="\n") as file:
        file.write(text)
