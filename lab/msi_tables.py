"""The tables of a package of Windows Installer, as a file and as its rules want them: msiinfo reads them, and problems() finds
what contradicts itself. Windows' own check of a package (ICE) needs a Windows; these are the rules of it that matter here."""

import hashlib
import re
import struct
import subprocess

from cases import equal

# What must never change, as the packages that are out there have it.
IDENTIFIERS = {
    "arm64": {"UpgradeCode": "{266175E2-991F-4287-AD22-2CB4561D9B8D}", "Minidriver": "{07D5A84D-C6E2-4287-98A9-BEC7B0D78350}",
              "Tool": "{51C9B044-EA43-4E98-B4DA-AD1DF5A6A56F}"},
    "x64": {"UpgradeCode": "{6F55D7B3-A23A-4B34-B74E-6AE6396C8623}", "Minidriver": "{B59D2CC9-5434-40C8-8855-44E4EB755710}",
            "Tool": "{2951CC43-DE8B-4D8C-81D0-7F3835FD3BF6}"},
}
SHARED = {"CardType": "{DAF6DB37-CBE8-43B5-84F2-C857F0B503CE}", "Notices": "{24CD4766-091C-4493-A98B-8D8CB688E7D4}",
          "Bill": "{C9DDBA00-8642-541D-A624-88EFFA17385C}",
          "Package": "{B73ED019-8C43-4927-8C9E-060DFF1EAF22}", "LogLevel": "{45327C14-7B3B-4637-9AB3-D0C91E79C823}",
          "Path": "{C14FD76E-1421-4BC6-A1E2-49D88C72D354}"}

GUID = re.compile(r"\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}")
SEQUENCES = ("InstallExecuteSequence", "InstallUISequence", "AdminExecuteSequence", "AdminUISequence", "AdvtExecuteSequence")
# What Windows Installer itself sets, and one that is never set.
STANDARD_PROPERTIES = {"Installed", "Privileged", "UILevel", "System64Folder", "ProgramFiles64Folder", "TARGETDIR", "Nothing"}
# Which column names a row of which table; what is null names none.
REFERENCES = [
    ("AppSearch", "Signature_", "RegLocator"), ("Component", "Directory_", "Directory"),
    ("Directory", "Directory_Parent", "Directory"), ("Environment", "Component_", "Component"),
    ("FeatureComponents", "Feature_", "Feature"), ("FeatureComponents", "Component_", "Component"),
    ("File", "Component_", "Component"), ("MsiFileHash", "File_", "File"), ("Registry", "Component_", "Component"),
]
# What has to come before what, as far as it is there ("Suggested InstallExecuteSequence" and the pages of the actions).
ORDER = ["FindRelatedProducts", "AppSearch", "LaunchConditions", "ValidateProductID", "CostInitialize", "FileCost",
         "CostFinalize", "InstallValidate", "InstallInitialize", "ProcessComponents", "UnpublishFeatures",
         "RemoveRegistryValues", "RemoveEnvironmentStrings", "RemoveFiles", "InstallAdminPackage", "InstallFiles",
         "WriteRegistryValues", "WriteEnvironmentStrings", "RegisterUser", "RegisterProduct", "PublishFeatures",
         "PublishProduct", "InstallExecute", "RemoveExistingProducts", "InstallFinalize", "ExecuteAction"]


def output(*command):
    return subprocess.run(command, capture_output=True, check=True).stdout


def read(path):
    """The tables of a package: {table: [{column: text}]}."""
    found = {}
    for name in output("msiinfo", "tables", path).decode().split():
        if name.startswith("_"):
            continue
        columns, _, _, *lines = output("msiinfo", "export", path, name).decode().replace("\r", "").split("\n")
        found[name] = [dict(zip(columns.split("\t"), line.split("\t"))) for line in lines if line]
    return found


def summary(path):
    """The summary of a package: {title: text}."""
    return dict(line.split(": ", 1) for line in output("msiinfo", "suminfo", path).decode().splitlines() if ": " in line)


def first(row):
    return next(iter(row.values()))


def conditions(tables):
    """All conditions, with where they stand."""
    for row in tables["LaunchCondition"]:
        yield "LaunchCondition", row["Condition"]
    for row in tables["Component"]:
        yield row["Component"], row["Condition"]
    for name in SEQUENCES:
        for row in tables[name]:
            yield f"{name}, {row['Action']}", row["Condition"]


def component_problems(tables):
    found = []
    files = {row["File"]: row["Component_"] for row in tables["File"]}
    values = {row["Registry"]: row["Component_"] for row in tables["Registry"] if row["Name"] != "-"}
    in_features = [row["Component_"] for row in tables["FeatureComponents"]]
    for row in tables["Component"]:
        name, attributes = row["Component"], int(row["Attributes"])
        if attributes & ~4 != 256:
            found.append(f"{name} is not an ordinary 64-bit component: {attributes}")
        if (values if attributes & 4 else files).get(row["KeyPath"]) != name:
            found.append(f"{name} has no key path of its own: {row['KeyPath']}")
        if not GUID.fullmatch(row["ComponentId"]):
            found.append(f"{name} has no identifier: {row['ComponentId']}")
        if in_features.count(name) != 1:
            found.append(f"{name} is in {in_features.count(name)} features")
    identifiers = [row["ComponentId"] for row in tables["Component"]]
    if len(set(identifiers)) != len(identifiers):
        found.append("two components have one identifier")
    return found


def file_problems(tables):
    found = []
    sequences = [int(row["Sequence"]) for row in tables["File"]]
    if sorted(sequences) != list(range(1, len(sequences) + 1)):
        found.append(f"files are numbered {sequences}")
    if [int(row["LastSequence"]) for row in tables["Media"]] != [len(sequences)]:
        found.append("the last file of the medium is another one")
    short = [row["FileName"].split("|")[0].lower() for row in tables["File"]]
    if len(set(short)) != len(short) or not all(re.fullmatch(r"[\w~]{1,8}(\.\w{1,3})?", name) for name in short):
        found.append(f"short file names {short}")
    hashed = {row["File_"] for row in tables["MsiFileHash"]}
    if hashed != {row["File"] for row in tables["File"] if not row["Version"]}:
        found.append(f"files with a hash {hashed}")
    return found


def sequence_problems(tables):
    # The search reads it, also when it names no file ("AppSearch Action").
    found = [] if "Signature" in tables else ["there is no table Signature"]
    own = {row["Action"] for row in tables["CustomAction"]}
    for name in SEQUENCES:
        numbers = {row["Action"]: int(row["Sequence"]) for row in tables[name]}
        if len(set(numbers.values())) != len(numbers):
            found.append(f"{name}: two actions at one place")
        found += [f"{name}: unknown action {action}" for action in numbers if action not in ORDER and action not in own]
        standard = sorted((action for action in numbers if action in ORDER), key=numbers.get)
        if standard != [action for action in ORDER if action in numbers]:
            found.append(f"{name}: order {standard}")
        used = [action for action in numbers if action in own]
        between = [action for action in used if not numbers["LaunchConditions"] < numbers[action] < numbers["CostInitialize"]]
        found += [f"{name}: {action} is not between the launch conditions and the costs" for action in between]
    return found


def property_problems(tables):
    found = []
    known = STANDARD_PROPERTIES | {row["Property"] for row in tables["Property"]}
    known |= {row["Property"] for row in tables["AppSearch"]} | {row["ActionProperty"] for row in tables["Upgrade"]}
    known |= {row["Directory"] for row in tables["Directory"]}
    listed = {row["Property"]: row["Value"] for row in tables["Property"]}
    secure = set(listed.get("SecureCustomProperties", "").split(";"))
    known |= secure
    for where, condition in conditions(tables):
        names = set(re.findall(r"[A-Za-z]\w*", re.sub(r'"[^"]*"', "", condition))) - {"AND", "OR", "NOT"}
        found += [f"{where}: unknown property {name}" for name in names - known]
    for table in ("Registry", "Environment", "CustomAction"):
        for row in tables[table]:
            names = set(re.findall(r"\[(\w+)\]", row.get("Value", row.get("Target", ""))))
            found += [f"{table}, {first(row)}: unknown property {name}" for name in names - known]
    # What is found in the one part of an installation is needed in the other ("AppSearch Action", "SecureCustomProperties").
    searched = [row["ActionProperty"] for row in tables["Upgrade"]] + [row["Property"] for row in tables["AppSearch"]]
    found += [f"{name} is not secure" for name in searched if name not in secure]
    found += [f"{name} is not public" for name in secure if name != name.upper()]
    return found


def problems(tables):
    """What contradicts itself in the tables, as sentences."""
    found = []
    for table, rows in tables.items():
        keys = {"AppSearch": 2, "FeatureComponents": 2, "Upgrade": 5}.get(table, 1)
        named = [tuple(row.values())[:keys] for row in rows]
        if len(set(named)) != len(named):
            found.append(f"{table}: two rows have one key")
    for table, column, target in REFERENCES:
        there = {first(row) for row in tables[target]}
        found += [f"{table}.{column}: there is no {row[column]}" for row in tables[table] if row[column] and row[column] not in there]
    return (found + component_problems(tables) + file_problems(tables) + sequence_problems(tables) + property_problems(tables))


def broken_copies(tables):
    """problems() finds something in each of these, and nothing in what is right."""
    def changed(table, row, column, value):
        rows = [dict(each) for each in tables[table]]
        rows[row][column] = value
        return {**tables, table: rows}

    equal(problems(tables), [], "problems")
    for table, row, column, value in (
            ("Component", 0, "KeyPath", "notices.txt"), ("Component", 0, "Attributes", "0"), ("Component", 1, "ComponentId", ""),
            ("Component", 0, "ComponentId", tables["Component"][1]["ComponentId"]), ("Component", 0, "Directory_", "Nowhere"),
            ("Component", 0, "Condition", "LOGLEVELS"), ("FeatureComponents", 0, "Component_", "Tool"),
            ("File", 0, "Sequence", "7"), ("File", 0, "Version", ""), ("File", 0, "FileName", "OrvaneMinidriver.dll"),
            ("Media", 0, "LastSequence", "2"), ("Registry", 0, "Component_", "Nothing"), ("Environment", 0, "Value", "[Nowhere]"),
            ("Upgrade", 0, "ActionProperty", "OTHER"), ("Directory", 1, "Directory_Parent", "Nowhere"),
            ("AppSearch", 0, "Signature_", "Nothing"), ("AppSearch", 0, "Property", "OTHER"), ("InstallExecuteSequence", 0, "Sequence", "6600")):
        if not problems(changed(table, row, column, value)):
            raise AssertionError(f"'{value}' in {table}.{column} passes")
    if not problems({table: rows for table, rows in tables.items() if table != "Signature"}):
        raise AssertionError("a package without a table that Windows Installer reads passes")


def hash_of(data):
    """The hash of a file as the table has it."""
    return [str(part) for part in struct.unpack("<4i", hashlib.md5(data).digest())]


def cabinet(path, folder):
    """The files in a package's cabinet, in their order: {name: bytes}."""
    folder.mkdir()
    (folder / "files.cab").write_bytes(output("msiinfo", "extract", path, "files.cab"))
    names = output("gcab", "--list", folder / "files.cab").decode().split()
    subprocess.run(["gcab", "--extract", "--nopath", "-C", folder, folder / "files.cab"], check=True,
                   stdout=subprocess.DEVNULL)
    return {name: (folder / name).read_bytes() for name in names}
