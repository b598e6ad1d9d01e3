"""The Windows Installer package, for those who roll software out to many
machines: what wixl makes of a description, and what it has no words for."""
import hashlib
import os
import subprocess
import tempfile
import time
import uuid
import xml.etree.ElementTree as xml

from bill_of_materials import MAKER, files_below, sha256

NAMESPACE = "http://schemas.microsoft.com/wix/2006/wi"
# What all versions of this product have in common for Windows Installer.
UPGRADE_CODE = "{6F0F7A52-0C0C-4B1E-9F0E-2F4D6D8F3B11}"
MESSAGES = "Corvane_EventMessages.dll"
TOOL = "bin/kovactl.exe"
SETUP_KEY = r"Software\Microsoft\Windows\CurrentVersion\Uninstall\KOVAServer"
SOURCES_KEY = r"SYSTEM\CurrentControlSet\Services\Eventlog\Application"
SOURCES = ("Corvane KOVA Server", "DispatcherUtil")
SOURCE_VALUES = (
    ("EventMessageFile", "string", f"[System64Folder]{MESSAGES}"),
    ("TypesSupported", "integer", "7"),
    ("CategoryMessageFile", "string", f"[System64Folder]{MESSAGES}"),
    ("CategoryCount", "integer", "2"))

# Bits of the table Component, column Attributes.
REGISTRY_KEY_PATH = 4
NEVER_OVERWRITE = 128
WIN64 = 256


def is_development(name):
    """Whether a file is of use for those alone who build against the server."""
    return name.startswith(("include/", "lib/", "samples/"))


def guid(*words):
    """The same number for the same words, in every build."""
    return "{" + str(uuid.uuid5(uuid.UUID(UPGRADE_CODE), "\n".join(words))).upper() + "}"


def ident(kind, name):
    return kind + hashlib.sha256(name.encode()).hexdigest()[:16]


def add(parent, tag, **attributes):
    return xml.SubElement(parent, tag, {
        key: str(value) for key, value in attributes.items()})


class Description:
    """The package in wixl's words."""

    def __init__(self, version):
        self.root = xml.Element("Wix", xmlns=NAMESPACE)
        self.product = add(
            self.root, "Product", Id=guid("product", version),
            Name="KOVA Server", Version=version, Language="1033",
            Manufacturer=MAKER, UpgradeCode=UPGRADE_CODE)
        add(self.product, "Package", InstallerVersion="500", Compressed="yes",
            InstallScope="perMachine", Comments="HTTP access to printer drivers")
        add(self.product, "MajorUpgrade", DowngradeErrorMessage="A newer "
            "version of KOVA Server is installed. Uninstall that first.")
        add(self.product, "Media", Id="1", Cabinet="files.cab", EmbedCab="yes")
        self.refuse_beside_setup()
        self.folders = {}
        top = add(self.product, "Directory", Id="TARGETDIR", Name="SourceDir")
        self.system = add(top, "Directory", Id="System64Folder", Name="System")
        programs = add(top, "Directory", Id="ProgramFiles64Folder", Name="PFiles")
        maker = add(programs, "Directory", Id="MAKERDIR", Name=MAKER)
        self.folders[""] = add(maker, "Directory", Id="INSTALLDIR",
                               Name="KOVA Server")
        self.feature = add(self.product, "Feature", Id="Server", Level="1",
                           Title="Server, message library and tool",
                           Absent="disallow", ConfigurableDirectory="INSTALLDIR")
        self.path = add(self.feature, "Feature", Id="Path", Level="1",
                        Title="kovactl on the PATH")

    def refuse_beside_setup(self):
        """Two installers that own the same files would each remove them."""
        search = add(self.product, "Property", Id="SETUPFOLDER")
        add(search, "RegistrySearch", Id="SetupFolder", Root="HKLM",
            Key=SETUP_KEY, Name="InstallLocation", Type="raw", Win64="yes")
        condition = add(
            self.product, "Condition", Message="KOVA Server was installed by "
            "its setup program. Uninstall that first.")
        condition.text = "Installed OR NOT SETUPFOLDER"

    def folder(self, name):
        if name not in self.folders:
            parent = self.folder(os.path.dirname(name))
            self.folders[name] = add(parent, "Directory",
                                     Id=ident("d", name),
                                     Name=os.path.basename(name))
        return self.folders[name]

    def component(self, parent, feature, name):
        add(feature, "ComponentRef", Id=ident("c", name))
        return add(parent, "Component", Id=ident("c", name),
                   Guid=guid("component", name), Win64="yes")

    def add_file(self, name):
        component = self.component(self.folder(os.path.dirname(name)),
                                   self.feature, name)
        add(component, "File", Id=ident("f", name), Source=name, KeyPath="yes",
            Name=os.path.basename(name))

    def add_message_library(self):
        component = self.component(self.system, self.feature, "system")
        add(component, "File", Id="MessageLibrary", Name=MESSAGES, KeyPath="yes",
            Source=f"bin/messages/{MESSAGES}")

    def add_event_source(self, name):
        component = self.component(self.folders[""], self.feature, name)
        key = add(component, "RegistryKey", Root="HKLM",
                  Key=f"{SOURCES_KEY}\\{name}")
        for value, kind, text in SOURCE_VALUES:
            add(key, "RegistryValue", Name=value, Type=kind, Value=text,
                **({"KeyPath": "yes"} if value == "TypesSupported" else {}))

    def add_path(self):
        """A component of its own, so that it can be left out."""
        component = self.component(self.folders[""], self.path, "path")
        key = add(component, "RegistryKey", Root="HKLM",
                  Key=rf"SOFTWARE\{MAKER}\KOVA Server")
        add(key, "RegistryValue", Name="ToolFolder", Type="string",
            Value="[INSTALLDIR]bin", KeyPath="yes")

    def remove_demo(self):
        """The demonstration's printer would lead to a library that is gone."""
        add(self.product, "CustomAction", Id="RemoveDemo",
            FileKey=ident("f", TOOL), ExeCommand="run --remove-demo",
            Execute="deferred", Impersonate="no", Return="ignore")
        sequence = add(self.product, "InstallExecuteSequence")
        when = add(sequence, "Custom", Action="RemoveDemo",
                   Before="RemoveFiles")
        when.text = 'REMOVE="ALL" AND NOT UPGRADINGPRODUCTCODE'


# "=-*": set at the installation, removed with it, for the machine; the folder
# goes behind what is there.
ENVIRONMENT = [["Environment", "Name", "Value", "Component_"],
               ["s72", "l255", "L255", "s72"],
               ["Environment", "Environment"],
               ["ToolPath", "=-*PATH", r"[~];[INSTALLDIR]bin",
                ident("c", "path")]]
HEAD_ROWS = 3


class Tables:
    """The tables of a package as wixl made them, to be finished and packed."""

    def __init__(self, msi, folder):
        self.folder = folder
        os.mkdir(folder)
        subprocess.run(["msidump", "-t", "-s", "-d", folder, msi], check=True,
                       stdout=subprocess.DEVNULL)
        self.tables = {
            name[:-len(".idt")]: self.read(os.path.join(folder, name))
            for name in os.listdir(folder) if name.endswith(".idt")}
        # The characters that it was written in, which msibuild knows itself.
        del self.tables["_ForceCodepage"]

    @staticmethod
    def read(path):
        with open(path, encoding="cp1252", newline="") as file:
            lines = file.read().replace("\r\n", "\n").rstrip("\n").split("\n")
        return [line.split("\t") for line in lines]

    def set(self, table, key, column, value):
        rows = self.tables[table]
        row = next(row for row in rows[HEAD_ROWS:] if row[0] == key)
        row[rows[0].index(column)] = str(value)

    def pack(self, path):
        """Row by row in an order of its own: wixl's is one of addresses."""
        command = ["msibuild", path]
        for name, rows in sorted(self.tables.items()):
            file = os.path.join(self.folder, name + ".idt")
            rows = rows[:HEAD_ROWS] + sorted(rows[HEAD_ROWS:])
            with open(file, "w", encoding="cp1252", newline="\r\n") as text:
                text.writelines("\t".join(row) + "\n" for row in rows)
            command += ["-i", file]
        streams = os.path.join(self.folder, "_Streams")
        subprocess.run(command + ["-a", "files.cab",
                                  os.path.join(streams, "files.cab")],
                       check=True, env={**os.environ, "TZ": "UTC"})


def finish(tables):
    """What is there already stays; and the old version is removed inside the
    transaction of the new one, whose failure brings it back. The numbers are
    those that Windows Installer's documentation suggests."""
    tables.set("Component", ident("c", "system"), "Attributes",
               WIN64 | NEVER_OVERWRITE)
    for name in SOURCES:
        tables.set("Component", ident("c", name), "Attributes",
                   WIN64 | NEVER_OVERWRITE | REGISTRY_KEY_PATH)
    sequence = "InstallExecuteSequence"
    tables.set(sequence, "RemoveExistingProducts", "Sequence", 1501)
    tables.set(sequence, "RemoveDemo", "Sequence", 3299)
    tables.tables[sequence] += [["RemoveEnvironmentStrings", "", "3300"],
                                ["WriteEnvironmentStrings", "", "5200"]]
    tables.tables["Environment"] = ENVIRONMENT


def describe_release(tables, code, epoch):
    """By number, the properties of the summary that differ from build to
    build: the package's own number, and when it was made and written."""
    when = time.strftime("%Y/%m/%d %H:%M:%S", time.gmtime(epoch))
    for number, value in (("9", code), ("12", when), ("13", when)):
        tables.set("_SummaryInformation", number, "Value", value)


def make_msi(path, root, version, epoch):
    """Makes `path` of the files below `root` that are not for developers."""
    names = [name for name in files_below(root) if not is_development(name)]
    description = Description(version)
    for name in names:
        description.add_file(name)
    description.add_message_library()
    for source in SOURCES:
        description.add_event_source(source)
    description.add_path()
    description.remove_demo()
    with tempfile.TemporaryDirectory() as folder:
        source = os.path.join(folder, "package.wxs")
        first = os.path.join(folder, "first.msi")
        xml.ElementTree(description.root).write(source, encoding="utf-8",
                                                xml_declaration=True)
        # wixl looks for files below the current folder alone.
        subprocess.run(["wixl", "--arch", "x64", "--output", first, source],
                       check=True, cwd=root)
        tables = Tables(first, os.path.join(folder, "tables"))
        finish(tables)
        describe_release(tables, guid("package", version, *(
            name + sha256(os.path.join(root, name)) for name in names)), epoch)
        tables.pack(path)
