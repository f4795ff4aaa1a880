#!/usr/bin/env python3
"""The trial kit as somebody with a machine gets it: unpacked into a folder with blanks, run by the command interpreter.

    lab/trial_tests.py ARCH PACKAGES REPORT.xml [CASE...]     ARCH: arm64 or x64; PACKAGES: the folder that scripts/package filled

Each case has an emulated system of its own, which sees the unpacked kit and nothing of the build. Twice in a row is the whole
trial; the other cases are about what it says when something is broken, with a kit without its large test program or without both.
"""

import hashlib
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree
import zipfile

sys.dont_write_bytecode = True  # the tree stays as it is
LAB = pathlib.Path(__file__).resolve().parent
REPOSITORY = LAB.parent
sys.path.insert(0, str(REPOSITORY / "scripts/lib"))
import make_packages  # noqa: E402
import make_trial_kit  # noqa: E402
import system_state  # noqa: E402
from cases import carry_out, contains, equal, remove_folder  # noqa: E402

TRIPLES = {"arm64": "aarch64-windows-gnu", "x64": "x86_64-windows-gnu"}
# For a program of the trial that hangs; the others, some of which run many suites, need a small part of it.
LIMITS = {"arm64": 60, "x64": 30}
KIT = "a kit with blanks (1)"
CARD_TYPE = r"HKLM\SOFTWARE\Microsoft\Cryptography\Calais\SmartCards\Brightfold Orvane"
ATR = "3B8E8001504B035858585F4453435F4B45594C"
READER, SERIAL = "Brightfold Orvane 0012AB", "0012AB"
FACTS = ["cards.txt", "doctor.json", "events.txt", "files.txt", "info.json", "protection.txt", "registry.txt", "services.txt",
         "windows.txt"]
# What cannot be tried here, where no card and no smart-card service is.
NOT_TRIED = {"LogWithoutTempFolder.WritesAtTheRootOfTheDrive", "Trial.orvane-card info"}
# What Wine's own service program writes whenever something starts.
VOLATILE = re.compile(r"\\(Software\\Wine\\|Explorer\\|Volatile Environment)")


class Report:
    """One report folder: its results, by state, and its texts."""

    def __init__(self, folder):
        self.folder = folder
        self.summary = (folder / "summary.txt").read_bytes().decode()
        self.cases = {}
        if (folder / "junit.xml").exists():
            for case in ElementTree.parse(folder / "junit.xml").iter("testcase"):
                self.cases[f"{case.get('classname')}.{case.get('name')}"] = case

    def named(self, kind):
        return {name for name, case in self.cases.items() if case.find(kind) is not None}

    def message(self, name, kind="failure"):
        found = self.cases[name].find(kind)
        return found.get("message") if found is not None else ""

    def texts(self):
        """Everything in the folder, as one text."""
        return "\n".join(path.read_bytes().decode(errors="replace") for path in sorted(self.folder.rglob("*"))
                         if path.is_file())


class Tests:
    def __init__(self, arch, packages, folder):
        self.arch, self.folder = arch, folder
        self.version, _ = make_packages.release()
        self.package = packages / f"OrvaneMinidriver-{self.version}-trial-{arch}.zip"
        self.sums = packages / "SHA256SUMS-trial"

    def unpack(self, name, whole=False):
        """Unpacks the kit for a case; returns the folder that the system sees as Z:\\out."""
        out = self.folder / name
        out.mkdir()
        with zipfile.ZipFile(self.package) as package:
            package.extractall(out)
        (out / self.package.stem).rename(out / KIT)
        if not whole:
            (out / KIT / "bin/orvane_tests.exe").unlink()
        return out

    def run(self, out, steps, *options, limit=900):
        """Carries out steps, lines for the command interpreter; returns the exit codes of those that call something, and the
        output."""
        build = out / "steps"
        build.mkdir()
        lines = ["@echo off", "cd /d C:\\"]
        for step in steps:
            lines += [step, "echo code %errorlevel%"] if step.startswith(("cmd ", "Z:", '"')) else [step]
        (build / "steps.cmd").write_text("\r\n".join(lines) + "\r\n", newline="")
        command = [LAB / "run-windows", "--timeout", str(limit), "--directory", build, "--out", out, *options, self.arch,
                   "steps.cmd"]
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        output = done.stdout + done.stderr
        return [int(code) for code in re.findall(r"^code (-?\d+)", output, re.MULTILINE)], output

    def trial(self, arguments="", folder=rf"Z:\out\{KIT}"):
        return rf'cmd /d /c ""{folder}\trial.cmd"{" " + arguments if arguments else ""}"'

    def content(self):
        """Every file is there, nothing else; the checksums are theirs; nothing tells where it was built; what Windows' own
        programs read has Windows' line ends."""
        equal(hashlib.sha256(self.package.read_bytes()).hexdigest() in self.sums.read_text(), True, "checksum of the kit")
        kit = self.unpack("content", whole=True) / KIT
        names = {str(path.relative_to(kit)) for path in kit.rglob("*") if path.is_file()}
        wanted = {"SHA256SUMS", "notices.txt", *make_trial_kit.CONTENT, *make_trial_kit.PROGRAMS}
        equal({name for name in names if "test-tokens" not in name}, wanted, "files")
        equal(len(names) - len(wanted), 12, "files of the tokens")
        listed = dict(reversed(line.split("  ")) for line in (kit / "SHA256SUMS").read_text().splitlines())
        equal(listed, {name: hashlib.sha256((kit / name).read_bytes()).hexdigest() for name in names - {"SHA256SUMS"}},
              "checksums")
        for name in names:
            data = (kit / name).read_bytes()
            for place in (str(REPOSITORY), str(pathlib.Path.home()) + "/"):
                equal(len(place) > 5 and place.encode() in data, False, f"{name} holds the folder {place}")
            if name.endswith((".cmd", ".ps1")):
                equal(data.count(b"\n"), data.count(b"\r\n"), f"lines of {name} that end as Windows wants")
                data.decode("ascii")
            if name.endswith(".md"):
                for link in re.findall(r"\]\((?!https?:)([^)#]+)[^)]*\)", data.decode()):
                    equal((kit / link).is_file(), True, f"{name}: {link} is there")
        licence = " ".join(re.sub(r"^ \.?", "", line) for line in pathlib.Path(
            "/usr/share/doc/googletest/copyright").read_text().split("License: BSD-C3\n")[1].split("\nFiles:")[0].splitlines())
        contains(" ".join((kit / "notices.txt").read_text(encoding="utf-8").split()), " ".join(licence.split()), "licence")

    def check_facts(self, report, text):
        equal(sorted(path.name for path in (report.folder / "facts").iterdir()), FACTS, "facts")
        contains((report.folder / "facts/windows.txt").read_text(), "PROCESSOR_ARCHITECTURE", "facts about Windows")
        contains((report.folder / "facts/files.txt").read_text(), r"bin\OrvaneMinidriver.dll", "facts about files")
        contains(report.summary, text, "summary")
        contains(report.summary, "Please send the whole folder to the people who gave you this kit", "summary")
        equal(re.findall(r"\broot\b", report.texts()), [], "this user's name in the report")

    def twice(self):
        """The whole trial, two times: nothing fails, everything is tried but what a machine without a card cannot show, and
        registry, temporary folder and processes are as before."""
        out = self.unpack("twice", whole=True)
        system_state.make_program(self.arch, out)
        state = [r"C:\system_state.exe Z:\out\NAME.state HKLM HKCU %TEMP%\* C:\Brightfold\*",
                 r"tasklist >Z:\out\NAME.processes"]
        steps = [r"copy Z:\out\system_state.exe C:\ >nul", *(line.replace("NAME", "before") for line in state)]
        steps += [self.trial(), self.trial()]
        steps += [line.replace("NAME", "after") for line in state]
        codes, output = self.run(out, steps, limit=3600)
        equal(codes, [0, 0], f"exit codes, {output}")
        first, second = (Report(out / KIT / f"report-{number}") for number in (1, 2))
        for report in (first, second):
            equal(report.named("failure"), set(), "what failed")
            equal(report.named("skipped"), NOT_TRIED, "what was not tried")
            self.check_facts(report, "NOTHING FAILED: ")
        equal(first.cases.keys(), second.cases.keys(), "what was tried")
        equal(len(first.cases) > 400, True, f"there are more than 400 results, not {len(first.cases)}")
        for name in ("Starts orvane_tests.exe", "Starts orvane_unload_tests.exe", "Loads OrvaneMinidriver.dll"):
            equal(f"Trial.{name}" in first.cases, True, name)
        (keys, files), (keys_after, files_after) = (system_state.read(out / f"{name}.state") for name in ("before", "after"))
        equal({key for key in keys.keys() | keys_after.keys()
               if keys.get(key) != keys_after.get(key) and not VOLATILE.search(key + "\\")}, set(), "keys that the trial changed")
        equal(files ^ files_after, set(), "files that the trial left")
        processes = [{line.split()[0].strip('"') for line in (out / f"{name}.processes").read_text(errors="replace").splitlines()
                      if line.strip()} for name in ("before", "after")]
        equal(processes[1] ^ processes[0], set(), "processes that the trial left")
        equal(len(keys) > 1000, True, "the registry was written down")

    def broken(self, fault):
        """Compiles a minidriver with a fault."""
        toolchain = subprocess.run([REPOSITORY / "scripts/toolchain"], capture_output=True, text=True,
                                   check=True).stdout.strip()
        target = self.folder / f"fault-{fault}.dll"
        subprocess.run([f"{toolchain}/bin/{TRIPLES[self.arch]}-cc", "-shared", "-O1", "-s", f"-DFAULT={fault}",
                        LAB / "broken_driver.c", "-o", target], check=True)
        return target.read_bytes()

    def crashing(self):
        """A minidriver that crashes: each part says so, the others go on, and a program that is not there is a failure, too."""
        out = self.unpack("crashing")
        (out / KIT / "bin/OrvaneMinidriver.dll").write_bytes(self.broken(0))
        codes, output = self.run(out, [self.trial()])
        equal(codes, [1], f"exit code, {output}")
        report = Report(out / KIT / "report-1")
        self.check_facts(report, "SOMETHING FAILED: ")
        contains(report.message("Trial.Starts orvane_tests.exe"), "error 2: the file is not there", "missing program")
        equal("Trial.Loads OrvaneMinidriver.dll" in report.named("failure"), False, "the broken DLL loads")
        contains(report.message("Unload.WaitsForTheMonitorsLibraryCall"), "0xC0000005: access violation", "crash")
        contains(report.message("Unload.TwoCopiesInOneProcess", "skipped"), "had ended before", "the test after it")
        contains(report.summary, "Unload.WaitsForTheMonitorsLibraryCall", "summary")
        equal("Trial.Starts orvane-card.exe" in report.named("failure"), False, "the tool starts")

    def hanging(self):
        """A minidriver that never comes back costs its time limit and no more, and is not left running; what comes after it is
        tried."""
        out = self.unpack("hanging")
        (out / KIT / "bin/OrvaneMinidriver.dll").write_bytes(self.broken(1))
        codes, output = self.run(out, [rf'"Z:\out\{KIT}\bin\orvane-trial.exe" --limit {LIMITS[self.arch]} --report "Z:\out\hung"',
                                       r"tasklist >Z:\out\processes"])
        equal(codes, [1], f"exit code, {output}")
        report = Report(out / "hung")
        contains(report.message("Unload.WaitsForTheMonitorsLibraryCall"), "did not end in time", "hang")
        contains(report.message("Unload/Loads.LeaveNothingBehind/ContextLeftWhileTheMonitorPolls"),
                 "CardAcquireContext returned 1", "the suite after it")
        equal("orvane" in (out / "processes").read_text().lower(), False, "something of the trial is left running")

    def truncated(self):
        """A file that is no DLL is named with Windows' error and its meaning."""
        out = self.unpack("truncated")
        file = out / KIT / "bin/OrvaneMinidriver.dll"
        file.write_bytes(file.read_bytes()[:3000])
        codes, output = self.run(out, [self.trial()])
        equal(codes, [1], f"exit code, {output}")
        report = Report(out / KIT / "report-1")
        contains(report.message("Trial.Loads OrvaneMinidriver.dll"), "error 193", "loading")

    def blocked(self):
        """Where the kit's program does not start, the plain commands still tell what they can."""
        out = self.unpack("blocked")
        (out / KIT / "bin/orvane-trial.exe").write_bytes(b"no program")
        codes, output = self.run(out, [self.trial()])
        equal(codes, [2], f"exit code, {output}")
        report = Report(out / KIT / "report-1")
        contains(report.summary, "THE TRIAL DID NOT RUN", "summary")
        contains((report.folder / "facts/windows.txt").read_text(), "PROCESSOR_ARCHITECTURE", "facts")

    def not_unpacked(self):
        out = self.unpack("not-unpacked")
        codes, output = self.run(out, [rf'copy "Z:\out\{KIT}\trial.cmd" C:\ >nul', r"cmd /d /c C:\trial.cmd"])
        equal(codes, [2], f"exit code, {output}")
        contains(output, "Unpack the whole kit first", "message")

    def card(self):
        """With a card in a reader: nothing in the report names reader or serial, unless it was asked for; and a folder that
        cannot be written to is no obstacle."""
        out = self.unpack("card")
        (out / KIT / "bin/orvane_unload_tests.exe").unlink()
        kit = self.folder / "protected"
        (out / KIT).rename(kit)
        temp = self.folder / "temp"
        temp.mkdir()
        codes, output = self.run(out, [self.trial(folder=r"Z:\kit"), self.trial("details", folder=r"Z:\kit")], "--bind",
                                 f"{kit}:/kit", "--temp", temp, "--reader", READER, "--serial", SERIAL)
        equal(codes, [1, 1], f"exit codes, {output}")
        reports = [Report(folder) for folder in sorted(temp.glob("Orvane trial report *"))]
        equal(len(reports), 2, f"reports, {output}")
        told = [SERIAL in report.texts() for report in reports]
        equal(sorted(told), [False, True], "reports that tell the serial")
        for report in reports:
            contains(report.message("Trial.orvane-card info", "skipped"), "no minidriver serves it", "info")

    def installed(self):
        """Where the product is installed and serves a card, the tool looks at it, with the libraries of the machine."""
        out = self.unpack("installed")
        (out / "tokens").mkdir()
        (out / KIT / "bin/test-tokens/REAL1").rename(out / "tokens" / SERIAL)
        for name in ("OrvaneMinidriver.dll", "OrvaneDSCLibrary.dll"):
            (out / name).write_bytes((out / KIT / "bin" / name).read_bytes())
        add = rf'reg add "{CARD_TYPE}" /f /v'
        steps = [*(rf"copy Z:\out\{name} C:\windows\system32 >nul" for name in ("OrvaneMinidriver.dll", "OrvaneDSCLibrary.dll")),
                 f"{add} ATR /t REG_BINARY /d {ATR}", f"{add} ATRMask /t REG_BINARY /d {'FF' * 19}",
                 f"{add} 80000001 /t REG_SZ /d OrvaneMinidriver.dll", self.trial()]
        codes, output = self.run(out, steps, "--env", r"ORVANE_SOFTTOKEN_DIR=Z:\out\tokens", "--reader", READER, "--serial",
                                 SERIAL)
        equal(codes, [1], f"exit code, {output}")
        report = Report(out / KIT / "report-1")
        equal(report.named("failure"), {"Trial.Starts orvane_tests.exe"}, "what failed")
        equal(report.named("skipped"), set(), "what was not tried")
        equal(json.loads((report.folder / "facts/info.json").read_text()),
              {"exitCode": 0, "readers": 2, "fileVersion": f"{self.version}.0", "interfaceVersion": 7}, "what the tool found")
        equal(SERIAL in report.texts(), False, "the report tells the serial")

    def cases(self):
        return {"Content": self.content, "TwiceInARow": self.twice, "Crashing": self.crashing, "Hanging": self.hanging,
                "Truncated": self.truncated, "Blocked": self.blocked, "NotUnpacked": self.not_unpacked, "Card": self.card,
                "Installed": self.installed}


def main():
    arch, packages, report = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    folder = pathlib.Path(tempfile.mkdtemp(prefix="orvane-trial-tests."))
    try:
        cases = Tests(arch, packages, folder).cases()
        unknown = [name for name in sys.argv[4:] if name not in cases]
        if unknown:
            sys.exit(f"no such case: {' '.join(unknown)}")
        failed = carry_out("TrialTests", {name: cases[name] for name in sys.argv[4:] or cases}, report)
    finally:
        remove_folder(folder)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
