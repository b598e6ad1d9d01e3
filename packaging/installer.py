"""The installer: lists the files for makensis and runs it."""
import os
import subprocess
import tempfile

from bill_of_materials import files_below

HERE = os.path.dirname(os.path.abspath(__file__))


def folders_of(files):
    """Every folder that holds one of `files`, inner ones first."""
    folders = set()
    for name in files:
        folder = os.path.dirname(name)
        while folder:
            folders.add(folder)
            folder = os.path.dirname(folder)
    return sorted(folders, key=lambda folder: (-folder.count("/"), folder))


def windows_path(path):
    return path.replace("/", "\\")


def file_lists(root):
    """The macros that install and remove the files below `root`, each file and
    folder by its name: nothing else in the target folder is ever touched."""
    files = files_below(root)
    install = ["!macro InstallFiles"]
    remove = ["!macro RemoveFiles"]
    current = None
    for name in files:
        folder = os.path.dirname(name)
        if folder != current:
            target = windows_path(os.path.join("$INSTDIR", folder).rstrip("/"))
            install.append(f'  SetOutPath "{target}"')
            current = folder
        install.append(f'  File "{os.path.join(root, name)}"')
        remove.append(f'  Delete "$INSTDIR\\{windows_path(name)}"')
    remove += [f'  RMDir "$INSTDIR\\{windows_path(folder)}"'
               for folder in folders_of(files)]
    return "\n".join(install + ["!macroend"] + remove + ["!macroend", ""])


def size_kb(root):
    sizes = [os.path.getsize(os.path.join(root, name))
             for name in files_below(root)]
    return (sum(sizes) + 1023) // 1024


def set_times(root, epoch):
    """The installer records when its files were changed."""
    for name in files_below(root):
        os.utime(os.path.join(root, name), (epoch, epoch))


def make_installer(path, root, version, epoch, sign):
    """Makes `path` of the files below `root`. sign: the command that signs a
    file named behind it, or None; it signs the uninstaller here."""
    set_times(root, epoch)
    with tempfile.TemporaryDirectory() as folder:
        lists = os.path.join(folder, "files.nsh")
        with open(lists, "w", encoding="utf-8") as file:
            file.write(file_lists(root))
        define = {"VERSION": version, "SIZE_KB": size_kb(root),
                  "FILE_LISTS": lists, "OUTPUT": path}
        if sign:
            define["SIGN_COMMAND"] = sign
        subprocess.run(
            ["makensis", "-V2", "-WX", "-INPUTCHARSET", "UTF8"]
            + [f"-D{name}={value}" for name, value in define.items()]
            + [os.path.join(HERE, "installer.nsi")],
            check=True, env={**os.environ, "SOURCE_DATE_EPOCH": str(epoch)})
