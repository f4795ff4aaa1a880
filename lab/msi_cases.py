"""Cases of lab/package_tests.py: the package of Windows Installer, with Wine's msiexec.

Wine keeps the same books as Windows, but in some things only a real Windows shows how it goes: who is an administrator, what
is asked of whom, what a rollback brings back, what Windows does with a DLL in use (Wine puts the new one into its place at the
next start, Windows may rename the old one), and that no program is closed and no machine restarted.
"""

import pathlib
import shutil
import struct
import subprocess
import sys

import msi_tables
from cases import contains, equal

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts/lib"))
import make_msi  # noqa: E402
import make_packages  # noqa: E402
import pe_image  # noqa: E402

SOFTWARE = r"HKEY_LOCAL_MACHINE\Software"
MAKER_KEY = SOFTWARE + r"\Brightfold"
LOG_KEY = MAKER_KEY + r"\Orvane"
PACKAGE_KEY = LOG_KEY + r"\Package"
UNINSTALL_KEY = SOFTWARE + r"\Microsoft\Windows\CurrentVersion\Uninstall\{"
# What Windows Installer keeps for itself. Wine leaves the folders of it when the last product goes, empty.
ITS_OWN = (SOFTWARE + r"\Classes\Installer", SOFTWARE + r"\Microsoft\Windows\CurrentVersion\Installer", UNINSTALL_KEY)
FOLDER = "C:\\Program Files\\Brightfold\\Orvane\\"
NAME = "OrvaneMinidriver.dll"
INSTALL, UNINSTALL = r"Z:\build\package\install.cmd", r"Z:\build\package\uninstall.cmd"
STAND_IN, DLL = r"Z:\build\tools\stand_in.exe", rf"C:\windows\system32\{NAME}"
# What Windows does at its next start with files that were in use; Wine does it when it is told to start.
NEXT_START = "wineboot"
# What "/fomus" means on Windows ("Standard Installer Command-Line Options"); Wine's msiexec finds no product with that.
REPAIR = ("REINSTALL=ALL", "REINSTALLMODE=omus")
OLDER = "0.9.0"
FAILED, WRONG_PLATFORM, RESTART = 1603, 1633, 3010


def msiexec(what, name, *properties):
    return " ".join(["msiexec", what, "/qn /norestart", rf"/l*v Z:\out\{name}.log", *properties])


def at_version(program, version):
    """A program whose version resource says another version."""
    at = program.index(struct.pack("<II", 0xFEEF04BD, 0x00010000)) + 8
    first, second, third = map(int, version.split("."))
    return program[:at] + struct.pack("<II", first << 16 | second, third << 16) + program[at + 8:]


class MsiCases:
    """The cases. tests: what package_tests.py has made; keys: those of the other installations, by log level."""

    def __init__(self, tests, keys):
        self.tests, self.arch, self.version = tests, tests.arch, tests.version
        (self.card_type, self.card_values), = keys(None).items()
        self.path = tests.installers[self.arch]
        self.code = make_msi.identifier(self.arch, self.version)

    def files(self):
        """What the package is made of, by the names in the ZIP."""
        wanted = [place.replace("@FOLDER@", make_packages.FOLDERS[self.arch]) for *_, place in make_msi.sections()["File"]]
        return {name: (self.tests.package / name).read_bytes() for name in wanted}

    def older(self):
        """The package of an earlier version, and its DLL."""
        files = {name: at_version(data, OLDER) if data[:2] == b"MZ" else b"earlier" for name, data in self.files().items()}
        return (make_msi.package(self.arch, OLDER, ("2020", "02", "02"), files),
                files[f"{make_packages.FOLDERS[self.arch]}/{NAME}"])

    def run(self, name, steps, codes, **extra):
        """Carries out the steps in a system of their own and compares their exit codes."""
        run = self.tests.installation(name)
        run.extra = {"current.msi": self.path.read_bytes(), **{f"{key}.msi": data for key, data in extra.items()}}
        equal(run.run(self.tests.package, steps), codes, f"exit codes, {run.output}")
        return run, run.state("before")

    def differences(self, run, before, name):
        """What is not as it was: (our keys, files in the system folder, what Windows Installer keeps)."""
        keys, files = run.state(name).difference(before)
        its_own = {key: values for key, values in keys.items() if key.startswith(ITS_OWN)}
        return {key: values for key, values in keys.items() if key not in its_own}, files, its_own

    def check_installed(self, run, before, name, *, level=None, asked=None, path=False, version=None, more=None):
        """The state is the one before plus the installation. more: keys that are there besides."""
        version = version or self.version
        keys, files, its_own = self.differences(run, before, name)
        package = {"ProductCode": ("REG_SZ", make_msi.identifier(self.arch, version)),
                   **({"LOGLEVEL": ("REG_SZ", asked)} if asked else {}), **({"ADDTOPATH": ("REG_SZ", "1")} if path else {})}
        log = {"logLevel": ("REG_DWORD", level)} if level else {}
        equal(keys, {MAKER_KEY: {}, LOG_KEY: log, PACKAGE_KEY: package, self.card_type: self.card_values, **(more or {})},
              f"keys, '{name}'")
        equal(files, {NAME} - before.files, f"files in the system folder, '{name}'")
        state = run.state(name)
        equal(state.tool, {r"\Orvane", rf"\Orvane\{make_packages.BILL}", r"\Orvane\notices.txt", r"\Orvane\orvane-card.exe"},
              f"the tool's folder, '{name}'")
        equal(state.path, before.path + [FOLDER] * path, f"PATH, '{name}'")
        shown = [values for key, values in its_own.items() if key.startswith(UNINSTALL_KEY)]
        equal([{value: each.get(value, (None, None))[1] for value in ("DisplayName", "DisplayVersion", "Publisher", "NoModify")}
               for each in shown],
              [{"DisplayName": "Orvane minidriver", "DisplayVersion": version, "Publisher": "Brightfold", "NoModify": "0x1"}],
              f"list of installed apps, '{name}'")

    def check_removed(self, run, before, name, keys=None):
        """Nothing is left but the keys that are named, and nothing that Windows Installer knows of a product."""
        left, files, its_own = self.differences(run, before, name)
        state = run.state(name)
        equal((left, files, state.tool, state.path), (keys or {}, set(), set(), before.path), f"what is left, '{name}'")
        equal({key: values for key, values in its_own.items() if values}, {}, f"what Windows Installer keeps, '{name}'")

    def tables(self):
        """The package is what its rules want, the same as the other ways of installing put there, and never changes its
        identifiers."""
        tables = msi_tables.read(self.path)
        msi_tables.broken_copies(tables)
        fixed = msi_tables.IDENTIFIERS[self.arch]
        properties = {row["Property"]: row["Value"] for row in tables["Property"]}
        wanted = {"ProductVersion": self.version, "ProductCode": self.code, "UpgradeCode": fixed["UpgradeCode"],
                  "ProductName": "Orvane minidriver", "Manufacturer": "Brightfold", "ALLUSERS": "1", "ARPNOMODIFY": "1",
                  "MSIRESTARTMANAGERCONTROL": "DisableShutdown", "REBOOT": "ReallySuppress"}
        equal({name: properties.get(name) for name in wanted}, wanted, "properties")
        equal({row["Component"]: row["ComponentId"] for row in tables["Component"]},
              {**msi_tables.SHARED, "Minidriver": fixed["Minidriver"], "Tool": fixed["Tool"]}, "components")
        card = {row["Name"]: ("REG_BINARY", row["Value"][2:]) if row["Value"].startswith("#x") else ("REG_SZ", row["Value"])
                for row in tables["Registry"] if row["Component_"] == "CardType" and row["Name"] != "-"}
        equal(card, self.card_values, "card type")
        equal([(row["VersionMin"], row["VersionMax"], row["Attributes"], row["ActionProperty"])
               for row in sorted(tables["Upgrade"], key=lambda row: row["ActionProperty"])],
              [(self.version, "", "2", "NEWERPRODUCT"), ("0.0.0", self.version, "256", "OLDERPRODUCT")], "upgrades")
        other = next(path for arch, path in self.tests.installers.items() if arch != self.arch)
        stated, others = msi_tables.summary(self.path), msi_tables.summary(other)
        equal((stated["Template"], stated["Version"], stated["Source"]),
              ({"arm64": "Arm64", "x64": "x64"}[self.arch] + ";1033", "500 (1f4)", "2 (2)"), "summary")
        codes = [stated["Revision number (UUID)"], others["Revision number (UUID)"], self.code]
        equal(len(set(codes)), 3, f"different identifiers of the packages and the product, {codes}")
        equal(all(msi_tables.GUID.fullmatch(code) for code in codes), True, f"form of {codes}")

    def packed(self):
        """The cabinet holds the ZIP's own files, and the tables say of them what the files say themselves."""
        held = msi_tables.cabinet(self.path, self.tests.folder / "cabinet")
        rows = sorted(msi_tables.read(self.path)["File"], key=lambda row: int(row["Sequence"]))
        hashes = {row["File_"]: list(row.values())[2:] for row in msi_tables.read(self.path)["MsiFileHash"]}
        equal(list(held), [row["File"] for row in rows], "order")
        for row, (name, data) in zip(rows, self.files().items()):
            equal(held[row["File"]] == data, True, f"{name} is the ZIP's")
            equal((row["FileName"].split("|")[-1], int(row["FileSize"])), (pathlib.Path(name).name, len(data)), "name and size")
            if data[:2] != b"MZ":
                equal((row["Version"], hashes[row["File"]]), ("", msi_tables.hash_of(data)), f"hash of {name}")
                continue
            equal(tuple(map(int, row["Version"].split("."))), pe_image.PeImage(self.tests.package / name).version()[0],
                  f"version of {name}")
            equal(row["Language"], "1033", f"language of {name}")

    def other_versions(self):
        """Another version is another product of the same family; another content another package of the same product."""
        folder = self.tests.folder / "versions"
        folder.mkdir()
        (folder / "older.msi").write_bytes(self.older()[0])
        date = ("2020", "02", "02")
        changed = {name: data + b"." if name == "notices.txt" else data for name, data in self.files().items()}
        (folder / "changed.msi").write_bytes(make_msi.package(self.arch, self.version, date, changed))
        shown = {}
        for path in (self.path, folder / "older.msi", folder / "changed.msi"):
            properties = {row["Property"]: row["Value"] for row in msi_tables.read(path)["Property"]}
            shown[path.stem] = (properties["UpgradeCode"], properties["ProductCode"],
                                msi_tables.summary(path)["Revision number (UUID)"])
        current, older, changed = shown[self.path.stem], shown["older"], shown["changed"]
        equal((older[0], changed[0], changed[1]), (current[0], current[0], current[1]), "what stays")
        equal(len({current[1], older[1], current[2], older[2], changed[2]}), 5, f"what differs, {shown}")

    def installed(self):
        """Installing, the card found through it, repairing, removing: as the other ways leave a machine, and nothing is left. An
        older version is refused. (Here, not after an update: Wine then forgets what family the newer one is of.)"""
        look = [step.replace(r"Z:\build\package\orvane-card.exe", f'"{FOLDER}orvane-card.exe"') for step in self.tests.LOOK]
        run, before = self.run("msi", [
            msiexec(r"/i Z:\build\current.msi", "install"), "STATE installed", *look,
            msiexec(r"/i Z:\build\older.msi", "downgrade"), "STATE refused",
            rf'reg delete "{self.card_type}" /f /v ATR', rf'reg add "{self.card_type}" /f /v 80000001 /d other.dll', rf"del {DLL}",
            msiexec(f"/i {self.code}", "repair", *REPAIR), "STATE repaired",
            msiexec(f"/x {self.code}", "remove"), "STATE removed"],
            [0, 0, 0, 0, FAILED, 0, 0, 0, 0, 0], older=self.older()[0])
        for name in ("installed", "refused", "repaired"):
            self.check_installed(run, before, name)
            equal(run.state(name).dll == run.dll, True, f"the DLL is the package's, '{name}'")
        self.tests.check_serves(run)
        self.check_removed(run, before, "removed")

    def refused(self):
        """The other architecture's package, also where Windows Installer takes it for one that fits, as it does with an x64 one
        on ARM64; and properties that mean nothing. Nothing changes."""
        other = next(path for arch, path in self.tests.installers.items() if arch != self.arch)
        taken = self.tests.folder / "taken.msi"
        shutil.copy(other, taken)
        subprocess.run(["msibuild", taken, "-s", "Orvane minidriver", "Brightfold", msi_tables.summary(self.path)["Template"],
                        self.code], check=True, stdout=subprocess.DEVNULL)
        run = self.tests.installation("msi-refused")
        run.extra = {"current.msi": self.path.read_bytes(), "other.msi": other.read_bytes(), "taken.msi": taken.read_bytes()}
        codes = run.run(self.tests.package, [
            msiexec(r"/i Z:\build\other.msi", "other"), msiexec(r"/i Z:\build\taken.msi", "taken"),
            msiexec(r"/i Z:\build\current.msi", "level", "LOGLEVEL=4"), msiexec(r"/i Z:\build\current.msi", "path", "ADDTOPATH=yes"),
            "STATE refused"])
        equal(codes[1:], [FAILED] * 3, f"exit codes, {run.output}")
        equal(codes[0] in (FAILED, WRONG_PLATFORM), True, f"exit code of the other architecture's package, {codes[0]}")
        self.check_removed(run, run.state("before"), "refused")

    def upgraded(self):
        """A newer version takes the older one's place, with what that was asked for, and with the log level that somebody has
        set since; removing leaves what others have put there."""
        older, dll = self.older()
        others = {MAKER_KEY: {"name": ("REG_SZ", "value")}}
        run, before = self.run("msi-upgrade", [
            msiexec(r"/i Z:\build\older.msi", "older", "LOGLEVEL=3", "ADDTOPATH=1"), "STATE older",
            rf'reg add "{LOG_KEY}" /f /v logLevel /t REG_DWORD /d 2', rf'reg add "{MAKER_KEY}" /f /v name /d value',
            msiexec(r"/i Z:\build\current.msi", "upgrade"), "STATE upgraded",
            msiexec(r"/x Z:\build\current.msi", "remove"), "STATE removed"], [0] * 5, older=older)
        self.check_installed(run, before, "older", level="0x3", asked="3", path=True, version=OLDER)
        equal(run.state("older").dll == dll, True, "the DLL is the older package's")
        self.check_installed(run, before, "upgraded", level="0x2", asked="2", path=True, more=others)
        equal(run.state("upgraded").dll == run.dll, True, "the DLL is the newer package's")
        self.check_removed(run, before, "removed", others)

    def in_use(self):
        """While a program has the DLL loaded, both updating and removing succeed; an update says that a restart completes it, and
        after that it is so. After a removal nothing finds the DLL any more. (That it goes at the next start, and that the
        exit code says so, is Windows' doing alone: Wine leaves it.)"""
        older, dll = self.older()
        run, _ = self.run("msi-in-use", [
            NEXT_START, "STATE started", msiexec(r"/i Z:\build\older.msi", "older"),
            (STAND_IN, DLL, [msiexec(r"/i Z:\build\current.msi", "upgrade"), "STATE held"]), NEXT_START, "STATE upgraded",
            (STAND_IN, DLL, [msiexec(rf"/x {self.code}", "remove")]), "STATE removed", rf"del {DLL}", "STATE clean"],
            [0, 0, RESTART, 0, 0, 0, 0, 0], older=older)
        before = run.state("started")  # a start writes keys of its own
        equal(run.state("held").dll in (dll, run.dll), True, "the DLL is one or the other's while it is in use")
        self.check_installed(run, before, "upgraded")
        equal(run.state("upgraded").dll == run.dll, True, "the DLL is the package's after the restart")
        equal(self.differences(run, before, "removed")[:2], ({}, {NAME}), "what a removal in use leaves")
        self.check_removed(run, before, "clean")

    def after_script(self):
        """What install.cmd has put there becomes Windows Installer's; from then on the scripts leave it alone. A log level that
        install.cmd has set is not the package's, and stays until uninstall.cmd removes the rest."""
        run, before = self.run("msi-scripts", [
            INSTALL, msiexec(r"/i Z:\build\current.msi", "install"), "STATE installed", INSTALL, UNINSTALL, "STATE refused",
            msiexec(r"/x Z:\build\current.msi", "remove"), "STATE removed", UNINSTALL, "STATE clean"], [0, 0, 1, 1, 0, 0])
        for name in ("installed", "refused"):
            self.check_installed(run, before, name, level="0x2")
        contains(run.output, "Not installed: the minidriver on this machine was installed by a package", "message")
        contains(run.output, "Not removed: the minidriver on this machine was installed by a package", "message")
        level = {"logLevel": ("REG_DWORD", "0x2")}
        self.check_removed(run, before, "removed", {MAKER_KEY: {}, LOG_KEY: level})
        self.check_removed(run, before, "clean")

    def cases(self):
        return {"MsiTables": self.tables, "MsiPacked": self.packed, "MsiOtherVersions": self.other_versions,
                "MsiInstalled": self.installed, "MsiRefused": self.refused, "MsiUpgraded": self.upgraded,
                "MsiInUse": self.in_use, "MsiAfterScript": self.after_script}
