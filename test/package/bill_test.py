"""Whole: the bill of materials is a CycloneDX 1.5 document in its structure,
and true: of every packed file, its hash, and of every image, what it holds.

Usage: bill_test.py PACKAGE SYMBOLS RELEASE: the folders of the unpacked ZIP
files, and that of all files of the release.
"""
import glob
import hashlib
import json
import os
import re
import sys
import unittest

PACKAGE, SYMBOLS, RELEASE = sys.argv[1:4]
BILL = "bill-of-materials.cdx.json"
RUNTIME = {"package:g++-mingw-w64-x86-64-posix",
           "package:gcc-mingw-w64-x86-64-posix",
           "package:mingw-w64-x86-64-dev"}


def packed_files(root):
    return {os.path.relpath(os.path.join(folder, name), root)
            for folder, _, names in os.walk(root) for name in names}


class BillTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(os.path.join(PACKAGE, BILL), encoding="utf-8") as file:
            cls.bill = json.load(file)
        cls.components = cls.bill["components"]
        cls.uses = {row["ref"]: set(row["dependsOn"])
                    for row in cls.bill["dependencies"]}

    def of_type(self, kind):
        return [c for c in self.components if c["type"] == kind]

    def test_head_is_that_of_a_bill(self):
        self.assertEqual(self.bill["bomFormat"], "CycloneDX")
        self.assertEqual(self.bill["specVersion"], "1.5")
        self.assertEqual(self.bill["version"], 1)
        self.assertRegex(
            self.bill["serialNumber"],
            "^urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
            "[0-9a-f]{12}$")
        self.assertRegex(self.bill["metadata"]["timestamp"],
                         r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertLessEqual(set(self.bill), {
            "bomFormat", "specVersion", "serialNumber", "version", "metadata",
            "components", "dependencies"})

    def test_product_is_named(self):
        product = self.bill["metadata"]["component"]
        self.assertEqual(product["type"], "library")
        self.assertEqual(product["name"], "KOVAServer")
        self.assertRegex(product["version"], r"^\d+\.\d+\.\d+$")

    def test_every_component_has_what_its_type_asks_for(self):
        for component in self.components:
            self.assertIn(component["type"], {"library", "file"})
            self.assertTrue(component["name"])
        for library in self.of_type("library"):
            self.assertRegex(library["purl"], "^pkg:deb/debian/[^@ +]+@[^ +]+$")
            self.assertTrue(library["version"])

    def test_every_licence_is_an_expression_a_name_or_an_id(self):
        for library in self.of_type("library"):
            self.assertTrue(library["licenses"])
            for entry in library["licenses"]:
                told = entry.get("license", entry)
                self.assertEqual(len(told), 1, library["name"])
                self.assertLessEqual(set(told), {"expression", "name", "id"})

    def test_references_are_unique_and_lead_somewhere(self):
        refs = [c["bom-ref"] for c in self.components]
        refs.append(self.bill["metadata"]["component"]["bom-ref"])
        self.assertEqual(len(refs), len(set(refs)))
        for ref, used in self.uses.items():
            self.assertIn(ref, refs)
            self.assertLessEqual(used, set(refs))

    def test_every_packed_file_is_listed_with_its_hash(self):
        packed = {name: PACKAGE for name in packed_files(PACKAGE) - {BILL}}
        packed.update({name: SYMBOLS for name in packed_files(SYMBOLS)})
        listed = {c["name"]: c["hashes"] for c in self.of_type("file")}
        self.assertEqual(set(listed), set(packed))
        for name, hashes in listed.items():
            with open(os.path.join(packed[name], name), "rb") as file:
                digest = hashlib.sha256(file.read()).hexdigest()
            self.assertEqual(hashes, [{"alg": "SHA-256", "content": digest}])

    def test_the_bill_beside_the_packages_has_the_installers_too(self):
        (path,) = glob.glob(os.path.join(RELEASE, "*.cdx.json"))
        with open(path, encoding="utf-8") as file:
            release = json.load(file)
        names = {c["name"] for c in self.components}
        added = {c["name"]: c for c in release["components"]
                 if c["name"] not in names}
        installers = [name for name in added if name.endswith((".exe", ".msi"))]
        self.assertEqual(len(installers), 2)
        for name in installers:
            with open(os.path.join(RELEASE, name), "rb") as file:
                digest = hashlib.sha256(file.read()).hexdigest()
            self.assertEqual(added[name]["hashes"][0]["content"], digest)
        uses = {row["ref"]: row["dependsOn"] for row in release["dependencies"]}
        setup = next(name for name in installers if name.endswith(".exe"))
        self.assertEqual(uses[f"file:{setup}"], ["package:nsis-common"])

    def test_images_have_the_version_and_the_product_a_supplier(self):
        self.assertTrue(self.bill["metadata"]["supplier"]["name"])
        self.assertTrue(self.bill["metadata"]["component"]["supplier"]["name"])
        version = self.bill["metadata"]["component"]["version"]
        for file in self.of_type("file"):
            if file["name"].endswith((".dll", ".exe")):
                self.assertEqual(file["version"], version)

    def test_images_hold_what_they_are_said_to_hold(self):
        used = {name: self.uses.get(f"file:bin/{name}", set()) for name in (
            "KOVAServer.dll", "kovactl.exe",
            "sample-extension/Corvane_V3_NetMon.dll",
            "messages/Corvane_EventMessages.dll")}
        self.assertEqual(used["KOVAServer.dll"], RUNTIME)
        self.assertEqual(used["sample-extension/Corvane_V3_NetMon.dll"],
                         RUNTIME)
        self.assertEqual(used["kovactl.exe"], RUNTIME | {
            "package:libcli11-dev", "package:nlohmann-json3-dev"})
        self.assertEqual(used["messages/Corvane_EventMessages.dll"], set())

    def test_every_component_has_its_notice_and_its_text(self):
        with open(os.path.join(PACKAGE, "THIRD-PARTY-NOTICES.txt"),
                  encoding="utf-8") as file:
            notices = file.read()
        for library in self.of_type("library"):
            package = library["bom-ref"].split(":")[1]
            self.assertIn(f"{package} {library['version']}", notices)
            text = os.path.join(PACKAGE, "licences", package + ".txt")
            self.assertGreater(os.path.getsize(text), 1000)

    def test_no_path_of_the_building_machine_is_told(self):
        self.assertIsNone(re.search(r'"/(home|tmp|root|work)',
                                    json.dumps(self.bill)))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
