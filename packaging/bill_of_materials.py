"""The bill of materials: CycloneDX 1.5, the same bytes for the same files."""
import datetime
import hashlib
import json
import os
import uuid

from linked import SPDX_IDS, output_of

PRODUCT = "KOVAServer"
MAKER = "Corvane Tessaly"
# What takes part in making the images; other versions may give other bytes.
TOOLS = ("clang-19", "lld-19", "llvm-19", "binutils-mingw-w64-x86-64", "cmake",
         "ninja-build")


def sha256(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def files_below(root):
    """Paths relative to `root`, with '/', sorted."""
    found = []
    for folder, _, names in os.walk(root):
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), root)
            found.append(path.replace(os.sep, "/"))
    return sorted(found)


def licence_entries(licences):
    if isinstance(licences, str):
        return [{"expression": licences}]
    return [{"license": {"id" if name in SPDX_IDS else "name": name}}
            for name in licences]


def library_entry(component):
    version = component.version
    purl_version = version.replace("+", "%2B").replace(":", "%3A")
    name = component.package.replace("+", "%2B")
    return {
        "type": "library",
        "bom-ref": f"package:{component.package}",
        "name": component.name,
        "version": version,
        "licenses": licence_entries(component.licences),
        "purl": f"pkg:deb/debian/{name}@{purl_version}?distro=bookworm",
        "externalReferences": [{"type": "website", "url": component.home}],
    }


def file_entry(name, path, version):
    entry = {
        "type": "file",
        "bom-ref": f"file:{name}",
        "name": name,
        "hashes": [{"alg": "SHA-256", "content": sha256(path)}],
    }
    if name.endswith((".dll", ".exe", ".msi")):
        entry["version"] = version
    return entry


def dependencies(product, files, components):
    uses = {path: [] for path in files}
    for component in components:
        for image in component.images:
            uses[image].append(f"package:{component.package}")
    rows = [{"ref": product, "dependsOn": [f"file:{path}" for path in files]}]
    rows += [{"ref": f"file:{path}", "dependsOn": sorted(uses[path])}
             for path in files if uses[path]]
    return rows


def metadata(product, version, commit, epoch):
    time = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc)
    properties = [{"name": "kova:commit", "value": commit}]
    for tool in TOOLS:
        built_with = output_of("dpkg-query", "-W", "-f", "${Version}", tool)
        properties.append(
            {"name": f"kova:built-with:{tool}", "value": built_with})
    return {
        "timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ"),
        "supplier": {"name": MAKER},
        "component": {
            "type": "library",
            "bom-ref": product,
            "name": PRODUCT,
            "version": version,
            "publisher": MAKER,
            "supplier": {"name": MAKER},
            "description": "HTTP access to printer drivers",
        },
        "properties": properties,
    }


def files_of(*roots):
    """The path of each file below `roots`, by what a bill calls it; their
    names do not overlap."""
    return {name: os.path.join(root, name)
            for root in roots for name in files_below(root)}


def make_bill(files, components, version, commit, epoch):
    """files: by name, the path of each file that is listed. Returns the bill as
    text."""
    product = f"product:{PRODUCT}@{version}"
    names = sorted(files)
    bill = {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "version": 1,
        "metadata": metadata(product, version, commit, epoch),
        "components": [library_entry(c) for c in components] + [
            file_entry(name, files[name], version) for name in names],
        "dependencies": dependencies(product, names, components),
    }
    # A number for these contents and no others.
    digest = hashlib.sha256(json.dumps(bill, sort_keys=True).encode()).digest()
    number = uuid.UUID(bytes=digest[:16], version=4)
    bill["serialNumber"] = f"urn:uuid:{number}"
    return json.dumps(bill, indent=2, ensure_ascii=False) + "\n"
