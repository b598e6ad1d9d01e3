"""ZIP files that are the same bytes for the same contents."""
import os
import time
import zipfile

from bill_of_materials import files_below

EARLIEST = (1980, 1, 1, 0, 0, 0)


def entry(name, epoch):
    info = zipfile.ZipInfo(name, max(EARLIEST, time.gmtime(epoch)[:6]))
    info.compress_type = zipfile.ZIP_DEFLATED
    info.create_system = 3  # the only one whose entries have modes
    is_program = name.endswith((".exe", ".dll"))
    info.external_attr = (0o100755 if is_program else 0o100644) << 16
    return info


def write_zip(path, root, epoch):
    """Packs the files below `root` under the folder's own name. Their order is
    that of their names, their time `epoch`, in seconds since 1970 UTC."""
    top = os.path.basename(root)
    with zipfile.ZipFile(path, "w", compresslevel=9) as archive:
        for name in files_below(root):
            with open(os.path.join(root, name), "rb") as file:
                archive.writestr(entry(f"{top}/{name}", epoch), file.read(),
                                 compresslevel=9)
