"""The bill of materials: CycloneDX 1.5, the same bytes for the same files."""
import datetime
import hashlib
import json
import os
import uuid

from linked import SPDX_IDS, output_of

PRODUCT = "KOVAServer"
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


def file_entry(root, path, ref):
    return {
        "type": "file",
        "bom-ref": ref,
        "name": path,
        "hashes": [{"alg": "SHA-256", "content": sha256(
            os.path.join(root, path))}],
    }


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
        "component": {
            "type": "library",
            "bom-ref": product,
            "name": PRODUCT,
            "version": version,
            "publisher": "Corvane Tessaly",
            "description": "HTTP access to printer drivers",
        },
        "properties": properties,
    }


def make_bill(roots, components, version, commit, epoch):
    """roots: the folders whose files are listed, the package's and the
    symbols'; their paths do not overlap. Returns the bill as text."""
    product = f"product:{PRODUCT}@{version}"
    files = {path: root for root in roots for path in files_below(root)}
    paths = sorted(files)
    bill = {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "version": 1,
        "metadata": metadata(product, version, commit, epoch),
        "components": [library_entry(c) for c in components] + [
            file_entry(files[path], path, f"file:{path}") for path in paths],
        "dependencies": dependencies(product, paths, components),
    }
    # A number for these contents and no others.
    digest = hashlib.sha256(json.dumps(bill, sort_keys=True).encode()).digest()
    number = uuid.UUID(bytes=digest[:16], version=4)
    bill["serialNumber"] = f"urn:uuid:{number}"
    return json.dumps(bill, indent=2, ensure_ascii=False) + "\n"
