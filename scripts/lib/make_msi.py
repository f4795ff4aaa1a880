"""Makes a package of Windows Installer (.msi) from packaging/orvane-msi.txt, with msibuild and gcab.

The same source, version, date and files give the same bytes: no time goes in but that date, into the cabinet; and the
identifiers that a package must not share are hashes: the product's of the version, the package's of all that is in it.
"""

import calendar
import hashlib
import os
import pathlib
import re
import struct
import subprocess
import tempfile
import uuid

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "packaging/orvane-msi.txt"
ARCHITECTURES = ("arm64", "x64")

# The columns of each table, as Windows Installer has them: name and type (s text, l translatable text, i number, by bytes;
# a capital letter may be null), and how many of the first ones are the key.
SEQUENCE = ("Action s72, Condition S255, Sequence I2", 1)
TABLES = {
    "AdminExecuteSequence": SEQUENCE,
    "AdminUISequence": SEQUENCE,
    "AdvtExecuteSequence": SEQUENCE,
    "AppSearch": ("Property s72, Signature_ s72", 2),
    "Component": ("Component s72, ComponentId S38, Directory_ s72, Attributes i2, Condition S255, KeyPath S72", 1),
    "CustomAction": ("Action s72, Type i2, Source S72, Target S255", 1),
    "Directory": ("Directory s72, Directory_Parent S72, DefaultDir l255", 1),
    "Environment": ("Environment s72, Name l255, Value L255, Component_ s72", 1),
    "Feature": ("Feature s38, Feature_Parent S38, Title L64, Description L255, Display I2, Level i2, Directory_ S72, "
                "Attributes i2", 1),
    "FeatureComponents": ("Feature_ s38, Component_ s72", 2),
    "File": ("File s72, Component_ s72, FileName l255, FileSize i4, Version S72, Language S20, Attributes I2, Sequence i4", 1),
    "InstallExecuteSequence": SEQUENCE,
    "InstallUISequence": SEQUENCE,
    "LaunchCondition": ("Condition s255, Description l255", 1),
    "Media": ("DiskId i2, LastSequence i4, DiskPrompt L64, Cabinet S255, VolumeLabel S32, Source S72", 1),
    "MsiFileHash": ("File_ s72, Options i2, HashPart1 i4, HashPart2 i4, HashPart3 i4, HashPart4 i4", 1),
    "Property": ("Property s72, Value l0", 1),
    "RegLocator": ("Signature_ s72, Root i2, Key s255, Name S255, Type I2", 1),
    "Registry": ("Registry s72, Root i2, Key l255, Name L255, Value L0, Component_ s72", 1),
    "Signature": ("Signature s72, FileName s255, MinVersion S20, MaxVersion S20, MinSize I4, MaxSize I4, MinDate I4, MaxDate I4, "
                  "Languages S255", 1),
    "Upgrade": ("UpgradeCode s38, VersionMin S20, VersionMax S20, Language S255, Attributes i4, Remove S255, "
                "ActionProperty s72", 5),
}

NO_IDENTIFIER = "{" + str(uuid.UUID(int=0)) + "}"
# What the summary says: schema 500, which a package for ARM64 needs ("64-bit Windows Installer Packages"); long names, a
# compressed source and an administrator's rights. Kinds and meanings: "Summary Property Set".
SUMMARY = {14: 500, 15: 2}
SUMMARY_FORMAT = uuid.UUID("F29F85E0-4FF9-1068-AB91-08002B27B3D9").bytes_le
VITAL = 512  # an installation that cannot copy the file fails
UNITED_STATES = 1033  # the language of the programs' version


def identifier(architecture, text):
    """An identifier that is always the same for a text."""
    return "{" + str(uuid.uuid5(uuid.UUID(rows("By architecture", architecture)["UPGRADE"]), text)).upper() + "}"


def sections():
    """The source: {section: [[column]]}."""
    found = {}
    for line in SOURCE.read_text(encoding="ascii").splitlines():
        if line.startswith("["):
            name = line.strip("[]")
            found[name] = []
        elif line.strip() and not line.startswith(";"):
            found[name].append([column.strip() for column in re.split(r" \|(?= |$)", line)])
    return found


def rows(section, architecture):
    """What a section has for each architecture: {name: text}."""
    return {name: row[ARCHITECTURES.index(architecture)] for name, *row in sections()[section]}


def file_version(program):
    """The version of a Windows program as a text, None for other files. It stands behind a mark of its own, at the beginning
    of the fixed part (VS_FIXEDFILEINFO)."""
    mark = struct.pack("<II", 0xFEEF04BD, 0x00010000)
    if program[:2] != b"MZ":
        return None
    if program.count(mark) != 1:
        raise ValueError("a program without a version, or with two")
    high, low = struct.unpack_from("<II", program, program.index(mark) + 8)
    return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}"


def tables(architecture, version, files):
    """The tables as lists of rows, and the names in the cabinet with the files' contents, in their order."""
    texts = {**rows("By architecture", architecture), "VERSION": version}
    texts["PRODUCT"] = identifier(architecture, version)
    source = sections()
    texts["FILES"] = str(len(source["File"]))

    def filled(column):
        return re.sub(r"@([A-Z]+)@", lambda match: texts[match.group(1)], column)

    made = {name: [[filled(column) for column in row] for row in found]
            for name, found in source.items() if name != "By architecture"}
    packed, listed, hashes = {}, [], []
    for number, (key, component, name, place) in enumerate(made["File"], 1):
        data = packed[key] = files[place]
        its_version = file_version(data)
        listed.append([key, component, name, str(len(data)), its_version or "", str(UNITED_STATES) if its_version else "",
                       str(VITAL), str(number)])
        # By its hash a file without a version is known to be the same ("MsiFileHash Table").
        if not its_version:
            hashes.append([key, "0", *map(str, struct.unpack("<4i", hashlib.md5(data).digest()))])
    return {**made, "File": listed, "MsiFileHash": hashes}, packed


def exported(name, found):
    """A table in the text format that msibuild reads ("Text Archive Files")."""
    described, keys = TABLES[name]
    columns = [column.split() for column in described.split(", ")]
    for row in found:
        if len(row) != len(columns):
            raise ValueError(f"{name} has {len(columns)} columns, not {row}")
        for (column, kind), value in zip(columns, row):
            limit = int(kind[1:]) if kind[0] in "sSlL" else 0
            if limit and len(value) > limit or not value and kind[0].islower():
                raise ValueError(f"{name}.{column} cannot be '{value}'")
    head = [[column for column, _ in columns], [kind for _, kind in columns],
            [name, *(column for column, _ in columns[:keys])]]
    return "".join("\t".join(row) + "\r\n" for row in head + found)


def complete_summary(data):
    """Sets the numbers of the summary, which msibuild gives other values or none that fit. The summary is one piece in the
    file: a header of 28 bytes, which ends before the mark of its format, and one section, both counted from their begin."""
    if data.count(SUMMARY_FORMAT) != 1:
        raise ValueError("not one summary")
    begin = data.index(SUMMARY_FORMAT) - 28
    section = begin + struct.unpack_from("<I", data, begin + 44)[0]
    _, count = struct.unpack_from("<II", data, section)
    places = dict(struct.unpack_from("<II", data, section + 8 + 8 * number) for number in range(count))
    changed = bytearray(data)
    for kind, value in SUMMARY.items():
        place = section + places[kind]
        if struct.unpack_from("<I", data, place)[0] != 3:  # VT_I4
            raise ValueError(f"summary property {kind} is no number")
        struct.pack_into("<I", changed, place + 4, value)
    return bytes(changed)


def package(architecture, version, date, files):
    """The bytes of a package. date: (year, month, day); files: {name in the ZIP: bytes}."""
    made, packed = tables(architecture, version, files)
    seconds = calendar.timegm((*map(int, date), 0, 0, 0))
    # gcab writes local time, and the programs' messages are not translated.
    environment = {**os.environ, "TZ": "UTC", "LC_ALL": "C.UTF-8"}
    with tempfile.TemporaryDirectory(prefix="orvane-msi.") as folder:
        folder = pathlib.Path(folder)

        def run(*command):
            subprocess.run(command, cwd=folder, env=environment, check=True, stdout=subprocess.DEVNULL)

        for name, data in packed.items():
            (folder / name).write_bytes(data)
            os.utime(folder / name, (seconds, seconds))
        run("gcab", "--create", "--zip", "--nopath", "files.cab", *packed)
        imports = []
        for name, found in made.items():
            (folder / f"{name}.idt").write_text(exported(name, found), encoding="ascii", newline="")
            imports += ["-i", f"{name}.idt"]
        run("msibuild", "package.msi", *imports, "-a", "files.cab", "files.cab", "-s", "Orvane minidriver", "Brightfold",
            rows("By architecture", architecture)["TEMPLATE"] + f";{UNITED_STATES}", NO_IDENTIFIER)
        data = complete_summary((folder / "package.msi").read_bytes())
    if data.count(NO_IDENTIFIER.encode()) != 1:
        raise ValueError("not one place for the package's identifier")
    return data.replace(NO_IDENTIFIER.encode(), identifier(architecture, hashlib.sha256(data).hexdigest()).encode())
