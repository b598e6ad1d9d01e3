"""The setup program and the uninstaller: what they hold, and how NSIS makes them."""
import os
import subprocess
import tempfile

from bill_of_materials import files_below
from msi import UPGRADE_CODE, is_development

HERE = os.path.dirname(os.path.abspath(__file__))


def windows_path(path):
    return path.replace("/", "\\")


def staging(macro, files):
    """The macro that unpacks `files`, by their path in the installation the
    path of each here."""
    lines = [f"!macro {macro}"]
    current = ""
    for name in sorted(files):
        folder = windows_path(os.path.dirname(name))
        if folder != current:
            lines.append(f'  CreateDirectory "${{COMING}}\\{folder}"')
            current = folder
        lines.append(f'  !insertmacro StageFile "{windows_path(name)}" '
                     f'"{files[name]}"')
    return "\n".join(lines + ["!macroend", ""])


def size_kb(paths):
    return (sum(os.path.getsize(path) for path in paths) + 1023) // 1024


def make_program(source, epoch, **define):
    """Makes define["OUTPUT"] of `source`."""
    subprocess.run(
        ["makensis", "-V2", "-WX", "-INPUTCHARSET", "UTF8"]
        + [f"-D{name}={value}" for name, value in define.items()]
        + [os.path.join(HERE, source)],
        check=True, env={**os.environ, "SOURCE_DATE_EPOCH": str(epoch)})


def make_installer(path, root, version, epoch, sign):
    """Makes `path` of the files below `root`. sign: signs the files that it is
    given; it is called for the uninstaller, which setup holds."""
    files = {name: os.path.join(os.path.abspath(root), name)
             for name in files_below(root)}
    with tempfile.TemporaryDirectory() as folder:
        uninstaller = os.path.join(folder, "uninstall.exe")
        make_program("uninstaller.nsi", epoch, VERSION=version,
                     OUTPUT=uninstaller)
        sign(uninstaller)
        files["uninstall.exe"] = uninstaller
        # Setup records when its files were changed.
        for file in files.values():
            os.utime(file, (epoch, epoch))
        lists = os.path.join(folder, "files.nsh")
        with open(lists, "w", encoding="utf-8") as file:
            for macro, wanted in (("StageFiles", False),
                                  ("StageDevelopment", True)):
                file.write(staging(macro, {
                    name: path for name, path in files.items()
                    if is_development(name) == wanted}))
        make_program("installer.nsi", epoch, VERSION=version, OUTPUT=path,
                     STAGING=lists, SIZE_KB=size_kb(files.values()),
                     UPGRADE_CODE=UPGRADE_CODE)
    sign(path)
