#!/usr/bin/env python3
"""Checks packaging/orvane.inf as far as that goes without Windows.

    check_inf.py

What Windows' own verifier says of a setup information file is in Microsoft's driver documents: "INF validation errors and
warnings", whose numbers stand in the messages here, and "InfVerif /h", the demands on a package that Microsoft signs.
"""

import datetime
import re
import sys

sys.dont_write_bytecode = True  # the tree stays as it is
import make_packages  # noqa: E402

# The kinds of machines: what decorates a section: the end of its SourceDisksFiles section.
MACHINES = {"NTarm64": "arm64", "NTamd64": "amd64"}
# Below these keys a driver package may write in HKEY_LOCAL_MACHINE, of those that concern smart cards ("InfVerif /h").
KEYS = [r"software\microsoft\cryptography\calais\smartcards"]
# Where it may put files: the driver store, and by way of exception the system folder.
FOLDERS = {"13": "driver store", "11": "system folder"}
DIRECTIVES = {"include", "needs", "copyfiles", "addreg"}
PARTS = {"HW", "Services", "Interfaces"}


def fields(text):
    """The fields of a line, which commas separate, without blanks and quotation marks around them."""
    return [field.strip().strip('"') for field in re.findall(r'((?:"[^"]*"|[^,"])*)(?:,|$)', text)][:text.count(",") + 1]


class Inf:
    """A setup information file: sections as {name: [(key or None, fields)]}, and what is wrong with it."""

    def __init__(self, text):
        self.problems, self.sections, self.used = [], {}, {"version", "manufacturer"}
        self.names = {}
        self._parse(text)

    def wrong(self, text):
        self.problems.append(text)

    def _parse(self, text):
        rows = None
        self.text = "\n".join(re.sub(r'^((?:[^";]|"[^"]*")*);.*', r"\1", line).rstrip() for line in text.splitlines())
        for line in filter(None, self.text.splitlines()):
            if section := re.fullmatch(r"\[([^\]]+)\]", line):
                rows = self.sections.setdefault(section[1].lower(), [])
                if section[1].lower() in self.names:
                    self.wrong(f"[{section[1]}] is there twice")
                self.names[section[1].lower()] = section[1]
            elif rows is None:
                self.wrong(f"a line before the first section: {line}")
            elif line.count('"') % 2 or line.endswith(","):
                self.wrong(f"a line that is not complete: {line}")
            else:
                key, _, value = line.partition("=") if re.match(r'[^",]*=', line) else ("", "", line)
                rows.append((key.strip() or None, fields(value)))

    def section(self, name, why):
        """The rows of a section that something names, and that counts as used."""
        self.used.add(name.lower())
        if name.lower() not in self.sections:
            self.wrong(f"1203: there is no [{name}], {why}")
        return self.sections.get(name.lower(), [])

    def value(self, section, key):
        return next((",".join(found) for name, found in self.sections.get(section, []) if name and name.lower() == key), "")


def check_version(inf, version):
    for key, wanted in (("signature", "$Windows NT$"), ("class", "SmartCard"),
                        ("classguid", "{990A2BD7-E738-46c7-B26F-1CF8FB9F1391}"), ("pnplockdown", "1")):
        if inf.value("version", key) != wanted:
            inf.wrong(f"{key} is not {wanted}")
    if not re.fullmatch(r"[\w-]+\.cat", inf.value("version", "catalogfile")):
        inf.wrong("1233: no catalog is named, so the package cannot be signed")
    if inf.value("version", "provider").lower() in ("", "microsoft"):
        inf.wrong("1204: the provider has to be named, and is not Microsoft")
    stated = re.fullmatch(r"(\d\d)/(\d\d)/(\d{4}),(\d+\.\d+\.\d+\.\d+)", inf.value("version", "driverver"))
    if not stated or any(int(part) > 65535 for part in stated[4].split(".")):
        inf.wrong("1217: DriverVer is not MM/DD/YYYY,A.B.C.D")
        return
    try:
        datetime.date(int(stated[3]), int(stated[1]), int(stated[2]))
    except ValueError:
        inf.wrong("1217: the date of DriverVer is none")
    if stated[4] != version + ".0":
        inf.wrong(f"DriverVer says {stated[4]}, the project {version}.0")


def check_models(inf):
    """[Manufacturer] and what it names. Returns the machine and the name of each installation section."""
    found = []
    for name in inf.names:
        if name.split(".")[0] in ("defaultinstall", "defaultuninstall"):
            inf.wrong(f"1212: [{inf.names[name]}] cannot stand beside [Manufacturer]")
            inf.used.add(name)
    for _, row in inf.section("Manufacturer", "where everything begins"):
        if set(row[1:]) != set(MACHINES) or len(row) != len(MACHINES) + 1:
            inf.wrong(f"[Manufacturer] names {', '.join(row[1:]) or 'no machine'}, not {', '.join(MACHINES)}")
        for machine in row[1:]:
            for _, model in inf.section(f"{row[0]}.{machine}", "which [Manufacturer] names"):
                found.append((machine, model[0]))
                historical = inf_atr(inf)[8:-2]
                if len(model) != 2 or model[1].lower() != rf"scfilter\cid_{historical}":
                    inf.wrong(f"[{row[0]}.{machine}]: the hardware identifier is not made of the ATR's historical bytes")
    return found


def inf_atr(inf):
    """The ATR that is registered, as hexadecimal digits."""
    return next(("".join(row[4:]).lower() for rows in inf.sections.values() for _, row in rows if row[2:3] == ["ATR"]), "")


def check_installation(inf, machine, name):
    """An installation section and its parts. Returns the (directive, section) pairs it names."""
    named = []
    parts = [part for part in sorted(PARTS) if f"{name}.{machine}.{part}".lower() in inf.sections or part == "Services"]
    for part in ["", *parts]:
        section = f"{name}.{machine}" + (f".{part}" if part else "")
        rows = inf.section(section, "which a device needs (1296 for Services)")
        keys = {key.lower() for key, _ in rows if key}
        if "needs" in keys and "include" not in keys:
            inf.wrong(f"1313: [{section}] has Needs without Include")
        for key, row in rows:
            if not key or key.lower() not in DIRECTIVES:
                inf.wrong(f"1300: [{section}] has {key or row[0]}, which is not for a driver package of this kind")
            elif key.lower() == "needs" and any((each.split(".") + [""])[1] != part for each in row):
                inf.wrong(f"1310: [{section}] needs {', '.join(row)}, which is another kind of section")
            elif key.lower() in ("copyfiles", "addreg"):
                named += [(key.lower(), each) for each in row]
    return named


def check_files(inf, machine, section, files):
    """A section of files to copy: where they come from, and where they go."""
    disks = inf.section("SourceDisksNames", "which lists the disks")
    source = f"SourceDisksFiles.{MACHINES[machine]}"
    sources = {key: row for key, row in inf.section(source, "which lists the files") if key}
    copied = {row[0] for _, row in inf.section(section, "which CopyFiles names")}
    for file in sorted(copied | set(sources)):
        disk, folder = (sources.get(file, []) + ["", ""])[:2]
        if file not in sources:
            inf.wrong(f"1230: {file} is not in [{source}]")
        elif file not in copied:
            inf.wrong(f"[{source}] has {file}, which nobody copies")
        elif disk not in {key for key, _ in disks}:
            inf.wrong(f"[{source}]: there is no disk {disk}")
        elif f"{folder}/{file}".lstrip("/") not in files:
            inf.wrong(f"the packages have no {folder}/{file}".replace(" /", " "))
    targets = {key.lower(): row for key, row in inf.section("DestinationDirs", "which says where files go") if key}
    if (target := targets.get(section.lower(), ["none"]))[0] not in FOLDERS or len(target) > 1:
        inf.wrong(f"1322: [{section}] goes to {','.join(target)}; allowed: {', '.join(FOLDERS)}")


def check_registry(inf, section):
    strings = {key.lower(): row[0] for key, row in inf.sections.get("strings", []) if key}
    for _, row in inf.section(section, "which AddReg names"):
        place = "\\".join(row[:3])
        key = re.sub("%([^%]+)%", lambda match: strings.get(match[1].lower(), ""), (row + [""])[1]).lower()
        if row[0] not in ("HKLM", "HKR"):
            inf.wrong(f"1320: {place}: the root is neither HKR nor HKLM")
        elif row[0] == "HKLM" and not any(key.startswith(each + "\\") for each in KEYS):
            inf.wrong(f"1320: {place}: not below a key where a driver package may write")
        if len(row) < 5 or not re.fullmatch("0x[0-9a-fA-F]{8}", row[3]):
            inf.wrong(f"{place}: not root, key, name, type and value")


def check_rest(inf):
    """What is only seen when all else has been gone through: texts, and what nobody uses."""
    defined = [key.lower() for key, _ in inf.section("Strings", "which has the texts") if key]
    used = {name.lower() for name in re.findall("%([^%\n]+)%", inf.text)}
    for name in sorted(used.symmetric_difference(defined)):
        inf.wrong(f"1235: no text %{name}%" if name in used else f"the text {name} is not used")
    for name in {name for name in defined if defined.count(name) > 1}:
        inf.wrong(f"the text {name} is there twice")
    for name in sorted(inf.sections.keys() - inf.used):
        inf.wrong(f"2083: nobody uses [{inf.names[name]}]")
    for key, _ in inf.sections.get("destinationdirs", []):
        if not key or key.lower() not in inf.used:
            inf.wrong(f"[DestinationDirs] has {key}, which nobody copies")


def check(text, version, files):
    """What is wrong with a setup information file, as lines. files: the names in the packages, all together."""
    inf = Inf(text)
    if not text.isascii():
        inf.wrong("not everything is ASCII")
    check_version(inf, version)
    for machine, name in check_models(inf):
        if machine not in MACHINES:
            continue
        named = check_installation(inf, machine, name)
        for directive, section in sorted(set(named)):
            if directive == "copyfiles":
                check_files(inf, machine, section, files)
            else:
                check_registry(inf, section)
        if {directive for directive, _ in named} != {"copyfiles", "addreg"}:
            inf.wrong(f"[{name}.{machine}] does not both copy files and write to the registry")
    check_rest(inf)
    return list(dict.fromkeys(inf.problems))


def filled_in():
    """The arguments for check(): the file as it goes into a package, the version, and the names in the packages."""
    version, date = make_packages.release()
    source = make_packages.REPOSITORY / make_packages.CONTENT["orvane.inf"]
    names = {name.format(folder=folder) for name in make_packages.CONTENT for folder in make_packages.FOLDERS.values()}
    return make_packages.content("orvane.inf", source, version, date).decode(), version, names


def main():
    problems = check(*filled_in())
    print("".join(f"packaging/orvane.inf: {problem}\n" for problem in problems), end="")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
