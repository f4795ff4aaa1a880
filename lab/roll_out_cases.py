"""The case of lab/package_tests.py about what docs/install.md tells those who distribute the package to many machines: the
command lines, the exit codes and the detection rule, all of them as they stand there."""

import json
import re

import pe_image
from cases import equal

SECTION = "Many machines, by software distribution"
FOLDER = "roll out (1)"  # both commands are to work in a folder with blanks and parentheses
DLL = r"C:\windows\system32\OrvaneMinidriver.dll"


class Rules:
    """The section of the document."""

    def __init__(self, package):
        text = (package / "docs/install.md").read_text(encoding="utf-8")
        section = text.split(f"\n## {SECTION}\n")[1].split("\n## ")[0]

        def row(name):
            cells = re.search(rf"^\| {name} \| (.+) \|$", section, re.MULTILINE).group(1).split(" | ")
            return [re.findall(r"`([^`]+)`", cell) for cell in cells]

        folder = rf"Z:\build\{FOLDER}"
        self.install = row("install command")[0][0].replace("FOLDER", folder)
        self.uninstall = row("uninstall command")[0][0].replace("FOLDER", folder)
        [self.file], [self.version] = row("file version")
        [self.key, self.name], [self.type, self.data] = row("registry value")
        self.codes = dict(re.findall(r"^\| (\d+) \| (Yes|No|The code does not say)\b", section, re.MULTILINE))

    def hold(self, run, moment, version):
        """Whether what was there at a moment counts as installed: (by the file, by the registry)."""
        state = run.state(moment)
        values = next((values for key, values in state.keys.items() if key.lower() == self.key.lower()), {})
        by_registry = values.get(self.name) == (self.type, self.data)
        if state.dll is None:
            return False, by_registry
        numbers, _, texts = pe_image.PeImage(run.out / f"{moment}.dll").version()
        wanted = numbered(self.version.replace("VERSION", version))
        # Some tools read the numbers, others the text.
        return min(list(numbers), numbered(texts["FileVersion"])) >= wanted, by_registry


def numbered(version):
    return [int(part) for part in version.split(".")]


def roll_out(tests):
    """Installed, refused, half removed and removed as a management tool would do and see it."""
    rules = Rules(tests.package)
    equal(rules.file.lower(), DLL.lower(), "the file of the rule")
    run = tests.installation("roll-out")
    tool = rf'"Z:\build\{FOLDER}\orvane-card.exe" --json'

    def doctor(name):
        """With the card that is there, and asked for a reader that is not there."""
        return [rf"{tool} doctor >Z:\out\{name}.json", rf"{tool} --reader Other doctor >Z:\out\{name}-no-reader.json"]

    codes = run.run(tests.package, [
        *doctor("before"), rules.install, "STATE installed", *doctor("installed"), f"{rules.install} <{DLL}", "STATE refused",
        f"{rules.uninstall} <{DLL}", "STATE half", rules.uninstall, "STATE removed", *doctor("removed")], FOLDER)
    equal(codes, [4, 3, 0, 0, 3, 1, 2, 0, 4, 3], f"exit codes, {run.output}")
    equal([rules.hold(run, moment, tests.version) for moment in ("before", "installed", "refused", "half", "removed")],
          [(False, False), (True, True), (True, True), (True, False), (False, False)], "the detection rule, by file and registry")
    equal(rules.hold(run, "installed", "99.0.0"), (False, True), "the detection rule of a later version")
    equal(rules.codes, {"0": "Yes", "12": "Yes", "11": "Yes", "4": "No", "3": "The code does not say"}, "codes of doctor")
    for moment in ("before", "installed", "removed"):
        result = json.loads((run.out / f"{moment}-no-reader.json").read_text())["result"]
        states = {step["step"]: step["state"] for step in result["steps"]}
        equal({states[step] for step in ("registration", "driver", "library")} == {"ok"}, moment == "installed",
              f"what doctor says about the installation without a card, {moment}: {states}")
