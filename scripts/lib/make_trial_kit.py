#!/usr/bin/env python3
"""Puts the trial kits together from what was built with the tests.

    make_trial_kit.py [--sign ...] OUTPUT-FOLDER     after make_packages.py with the same options

Writes OrvaneMinidriver-VERSION-trial-arm64.zip, the same for x64, and SHA256SUMS-trial over both. As in the packages, nothing of
time, place or user goes in, unless somebody signs: then all programs are, since many machines run nothing else.
"""

import sys

sys.dont_write_bytecode = True  # nothing is left in the source tree
import make_packages  # noqa: E402
import signing  # noqa: E402
import trial_tokens  # noqa: E402

REPOSITORY = make_packages.REPOSITORY

# Built files by their folder in the kit. The tool is not beside the software token: an installed minidriver that it loads could
# take that for the maker's library.
PROGRAMS = ("bin/OrvaneDSCLibrary.dll", "bin/OrvaneMinidriver.dll", "bin/orvane-trial.exe", "bin/orvane_exit_hook.dll",
            "bin/orvane_tests.exe", "bin/orvane_unload_tests.exe", "tool/orvane-card.exe")

# File in the kit: file in the repository.
CONTENT = {
    "README.md": "packaging/trial/README.md",
    "collect.cmd": "packaging/trial/collect.cmd",
    "hosts.ps1": "packaging/trial/hosts.ps1",
    "questions.md": "docs/first-windows-run.md",
    "trial.cmd": "packaging/trial/trial.cmd",
}
NOTICES = ("packaging/notices.txt", "packaging/trial/notices.txt")


def kit(arch, tokens, signer):
    """The files of a kit by their names in it, its programs signed if there is somebody to do it."""
    files = {f"bin/test-tokens/{name}": data for name, data in tokens.items()}
    sources = {**CONTENT, **{name: f"build/windows-{arch}/{name.split('/')[1]}" for name in PROGRAMS}}
    for name, source in sources.items():
        path = REPOSITORY / source
        if not path.is_file():
            sys.exit(f"error: there is no {path}, which becomes {name}")
        files[name] = path.read_bytes()
        if name.endswith((".cmd", ".ps1")):
            files[name] = files[name].replace(b"\n", b"\r\n")
        elif signer and signing.is_signable(files[name]):
            files[name] = signer.signed(name, files[name])
    files["notices.txt"] = b"\n".join((REPOSITORY / source).read_bytes() for source in NOTICES)
    files["SHA256SUMS"] = make_packages.sums(files)
    return files


def main():
    given = make_packages.arguments()
    output, signer = given.output, signing.Signer(given) if given.sign else None
    output.mkdir(parents=True, exist_ok=True)
    version, date = make_packages.release()
    tokens = trial_tokens.tokens()
    kits = {}
    for arch in make_packages.FOLDERS:
        name = f"OrvaneMinidriver-{version}-trial-{arch}"
        kits[name + ".zip"] = make_packages.zipped(name, kit(arch, tokens, signer), date)
    for name, data in {**kits, "SHA256SUMS-trial": make_packages.sums(kits)}.items():
        (output / name).write_bytes(data)
        print(output / name)


if __name__ == "__main__":
    main()
