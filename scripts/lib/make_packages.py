#!/usr/bin/env python3
"""Puts the packages together from what was built.

    make_packages.py OUTPUT-FOLDER
    make_packages.py --signable       the built files that can be signed, one in each line

Writes OrvaneMinidriver-VERSION-arm64.msi and .zip, the same for x64, and SHA256SUMS over all four. The version is CMake's;
the date, which every file in a package carries, is that of the version in CHANGELOG.md. Nothing else of time, place or user
goes in.
Whoever signs does it between building and this, so that the checksums are those of the signed files.
"""

import hashlib
import io
import pathlib
import re
import sys
import zipfile

sys.dont_write_bytecode = True  # the tree stays as it is
import make_msi  # noqa: E402

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

# Links to files that lie elsewhere in a package.
MOVED_LINKS = {"docs/": {"../tools/orvane-card/README.md": "orvane-card.md",
                         "../../docs/troubleshooting.md": "troubleshooting.md"}}


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


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_packages.py OUTPUT-FOLDER | --signable")
    if sys.argv[1] == "--signable":
        print("\n".join(signable()))
        return
    output = pathlib.Path(sys.argv[1])
    output.mkdir(parents=True, exist_ok=True)
    # Packages of an earlier run must not pass for this one's, whatever becomes of it.
    for old in [*output.glob("OrvaneMinidriver-*.msi"), *output.glob("OrvaneMinidriver-*.zip"), output / "SHA256SUMS"]:
        old.unlink(missing_ok=True)
    version, date = release()
    packages = {}
    for arch, folder in FOLDERS.items():
        files = {}
        for name, source in CONTENT.items():
            name, source = name.format(folder=folder), REPOSITORY / source.format(arch=arch)
            if not source.is_file():
                sys.exit(f"error: there is no {source}, which becomes {name}")
            files[name] = content(name, source, version, date)
        files["SHA256SUMS"] = sums(files)
        name = f"OrvaneMinidriver-{version}-{arch}"
        packages[name + ".msi"] = make_msi.package(arch, version, date, files)
        packages[name + ".zip"] = zipped(name, files, date)
    for name, data in {**packages, "SHA256SUMS": sums(packages)}.items():
        (output / name).write_bytes(data)
        print(output / name)


if __name__ == "__main__":
    main()
