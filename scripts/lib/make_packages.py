#!/usr/bin/env python3
"""Puts the packages together from what was built.

    make_packages.py [--submission] [--sign ...] OUTPUT-FOLDER
    make_packages.py --signable       the built files that can be signed, one in each line

Writes OrvaneMinidriver-VERSION-arm64.msi, .zip and -symbols.zip, the same for x64, and SHA256SUMS over all of them; with
--submission also the cabinet for Microsoft's hardware programme. The version is CMake's; the date, which every file in a
package carries, is that of the version in CHANGELOG.md. Nothing else of time, place or user goes in, unless somebody signs:
programs before they go into a package, then what carries a signature itself. The checksums are those of the signed files.
"""

import argparse
import hashlib
import io
import pathlib
import re
import sys
import zipfile

sys.dont_write_bytecode = True  # the tree stays as it is
import bill_of_materials  # noqa: E402
import make_msi  # noqa: E402
import signing  # noqa: E402
import submission  # noqa: E402

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]

# Architecture: its folder in a package, which the setup information file and install.cmd name.
FOLDERS = {"arm64": "arm64", "x64": "amd64"}

# What is delivered and can carry a signature, all of it and only here. Smart App Control and application-control policies
# refuse programs and libraries without one, with error 4551 (ERROR_SYSTEM_INTEGRITY_POLICY_VIOLATION) or 1260
# (ERROR_ACCESS_DISABLED_BY_POLICY). Written like CONTENT.
SIGNABLE = {
    "orvane-card.exe": "build/windows-{arch}/orvane-card.exe",
    "{folder}/OrvaneMinidriver.dll": "build/windows-{arch}/OrvaneMinidriver.dll",
}

# File in the package: file in the repository. {folder} and {arch} stand for the architecture's names.
CONTENT = {
    "README.md": "packaging/README.md",
    "CHANGELOG.md": "CHANGELOG.md",
    "SECURITY.md": "SECURITY.md",
    "docs/behaviour.md": "docs/behaviour.md",
    "docs/install.md": "docs/install.md",
    "docs/log-guide.md": "docs/log-guide.md",
    "docs/orvane-card.md": "tools/orvane-card/README.md",
    "docs/troubleshooting.md": "docs/troubleshooting.md",
    "install.cmd": "packaging/install.cmd",
    "notices.txt": "packaging/notices.txt",
    "uninstall.cmd": "packaging/uninstall.cmd",
    "orvane.inf": "packaging/orvane.inf",
    **SIGNABLE,
}

# What debuggers need, in a package of its own.
SYMBOLS = {name: f"build/windows-{{arch}}/{name}" for name in ("OrvaneMinidriver.pdb", "orvane-card.pdb")}

# What is in the programs, and under which licences.
BILL = "bill-of-materials.cdx.json"

# Links to files that lie elsewhere in a package.
MOVED_LINKS = {"docs/": {"../tools/orvane-card/README.md": "orvane-card.md",
                         "../../docs/behaviour.md": "behaviour.md", "../../docs/troubleshooting.md": "troubleshooting.md"}}


def signable():
    """The built files that can be signed, below the repository."""
    return [source.format(arch=arch) for arch in FOLDERS for source in SIGNABLE.values()]


def only(pattern, file):
    """The one match of a pattern in a file of the repository."""
    found = re.findall(pattern, (REPOSITORY / file).read_text(encoding="utf-8"), re.MULTILINE)
    if not found:
        sys.exit(f"error: {file} holds nothing like {pattern}")
    return found[0]


def release():
    """Version and date, the latter as (year, month, day)."""
    version = only(r"^project\(OrvaneMinidriver VERSION (\d+\.\d+\.\d+)", "CMakeLists.txt")
    described, *date = only(r"^## (\d+\.\d+\.\d+) \((\d{4})-(\d{2})-(\d{2})\)$", "CHANGELOG.md")
    if described != version:
        sys.exit(f"error: CHANGELOG.md begins with version {described}, CMakeLists.txt says {version}")
    return version, date


def content(name, source, version, date):
    """What a package holds under a name: texts for Windows' own programs with its line ends, documents as they are."""
    data = source.read_bytes()
    if name.endswith(".inf"):
        data = data.replace(b"@DATE@", "{1}/{2}/{0}".format(*date).encode()).replace(b"@VERSION@", version.encode())
    if name.endswith((".inf", ".cmd")):
        data = data.replace(b"\n", b"\r\n")
    for prefix, links in MOVED_LINKS.items():
        if name.startswith(prefix):
            for old, new in links.items():
                data = data.replace(f"({old}".encode(), f"({new}".encode())
    return data


def sums(files):
    """The lines of a checksum file, as sha256sum reads and writes them."""
    return "".join(f"{hashlib.sha256(files[name]).hexdigest()}  {name}\n" for name in sorted(files)).encode()


def zipped(folder, files, date):
    """The bytes of a ZIP with these files in a folder."""
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w") as package:
        for name in sorted(files):
            entry = zipfile.ZipInfo(f"{folder}/{name}", (*map(int, date), 0, 0, 0))
            entry.create_system = 0  # Windows: no rights, no owner
            package.writestr(entry, files[name], zipfile.ZIP_DEFLATED, 9)
    return data.getvalue()


def read(names, arch, version, date):
    """The files of a package by their names in it."""
    files = {}
    for name, source in names.items():
        name, source = name.format(folder=FOLDERS[arch]), REPOSITORY / source.format(arch=arch)
        if not source.is_file():
            sys.exit(f"error: there is no {source}, which becomes {name}")
        files[name] = content(name, source, version, date)
    return files


def programs_signed(signer, files, arch):
    """The files with the programs among them signed."""
    names = {name.format(folder=FOLDERS[arch]) for name in SIGNABLE}
    return {name: signer.signed(name, data) if name in names else data for name, data in files.items()}


def arguments():
    parser = argparse.ArgumentParser(allow_abbrev=False)
    parser.add_argument("--signable", action="store_true", help="only name the built files that can be signed")
    parser.add_argument("--submission", action="store_true", help="also make the cabinet for Microsoft's hardware programme")
    parser.add_argument("--check", action="store_true", help="only look whether the options make sense")
    parser.add_argument("output", nargs="?", type=pathlib.Path)
    signing.add_options(parser)
    given = parser.parse_args()
    if given.signable == bool(given.output):
        parser.error("either --signable or an output folder")
    return given


def main():
    given = arguments()
    if given.signable:
        print("\n".join(signable()))
        return
    signer = signing.Signer(given) if given.sign else None
    if given.check:
        return
    given.output.mkdir(parents=True, exist_ok=True)
    # Packages of an earlier run must not pass for this one's, whatever becomes of it.
    for old in [*given.output.glob("OrvaneMinidriver-*"), *given.output.glob("SHA256SUMS*")]:
        old.unlink(missing_ok=True)
    version, date = release()
    packages, contents, symbols = {}, {}, {}
    for arch in FOLDERS:
        files = read(CONTENT, arch, version, date)
        if signer:
            files = programs_signed(signer, files, arch)
        programs = {name.rsplit("/")[-1]: data for name, data in files.items() if name.endswith((".dll", ".exe"))}
        files[BILL] = bill_of_materials.bill(arch, version, date, programs)
        files["SHA256SUMS"] = sums(files)
        name = f"OrvaneMinidriver-{version}-{arch}"
        packages[name + ".msi"] = make_msi.package(arch, version, date, files)
        packages[name + ".zip"] = zipped(name, files, date)
        symbols[arch] = read(SYMBOLS, arch, version, date)
        packages[name + "-symbols.zip"] = zipped(name + "-symbols", symbols[arch], date)
        contents[arch] = files
    if given.submission:
        packages[f"OrvaneMinidriver-{version}-submission.cab"] = submission.cabinet(contents, symbols, FOLDERS, date)
    if signer:
        # Here, so that nothing that can be signed is forgotten: neither a package of another kind nor a program in one.
        packages = {name: signer.signed(name, data) if signing.is_signable(data) else data for name, data in packages.items()}
        if left := [each for name, data in packages.items() for each in signing.unsigned(name, data)]:
            sys.exit(f"error: not signed: {', '.join(left)}")
    for name, data in {**packages, "SHA256SUMS": sums(packages)}.items():
        (given.output / name).write_bytes(data)
        print(given.output / name)


if __name__ == "__main__":
    main()
