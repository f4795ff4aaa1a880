"""The cases of card_tests.py about "orvane-card report": what is in the folder, and what is not."""

import hashlib
import json
import re

from cases import contains, equal

READER = "Brightfold Orvane OrvaneDSC"
SERIAL, OTHER_SERIAL = "0012AB", "77CC01"
PIN, WRONG_PIN = "24681357", "11111111"
FILES = ["contents.txt", "doctor.json", "files.json", "registry.json"]


def report(run, *arguments, reader=READER, serial=SERIAL):
    """Makes a report in the folder "report"; returns what is printed."""
    process = run.start(reader, serial, [], "report", "-o", "Z:/out/report", *arguments)
    output, errors = process.communicate()
    equal(process.returncode, 0, f"exit status, {output}{errors}")
    return output


def contents(run):
    """The report's files by name."""
    return {path.name: path.read_text(errors="replace") for path in sorted((run.out / "report").iterdir())}


def written_log(run):
    """Has the minidriver write the log of a wrong and a right PIN, under another program's name."""
    (run.temp / "Brightfold/orvane-card").mkdir(parents=True)
    process = run.start(READER, SERIAL, [], "session", "-c", "-pin verify", "-c", "pin verify", "-c", "list")
    output, errors = process.communicate(f"{WRONG_PIN}\n{PIN}\n")
    equal(process.returncode, 0, f"exit status, {output}{errors}")
    log = next((run.temp / "Brightfold/orvane-card").iterdir())
    other = run.temp / "Brightfold/chrome" / log.name
    other.parent.mkdir()
    other.write_text(log.read_text() + f"21/11::10:03:25:123-> ->DEBUG ::=>resolved serial number :: {OTHER_SERIAL}\n"
                     f"21/11::10:03:25:124-> ->DEBUG ::=>Reader name for hScard: Brightfold Orvane {OTHER_SERIAL} 00 00\n"
                     "21/11::10:03:25:125-> ->ERROR ::=>cannot open C:\\Users\\Nora Example\\file\n")
    return other


def redacted(run):
    """A token, a user and a machine that are known: nothing in any file says which they are; no PIN is there either."""
    log = written_log(run)
    output = report(run, "--process", "chrome")
    files = contents(run)
    equal(list(files), sorted([*FILES, "log.txt"]), "files")
    for name in files:
        contains(output, name, "what was said before")
    contains(output, f"the log of chrome of {log.name.removesuffix('.LOG')}", "what was said before")
    if output.index("log.txt") > output.index("Written."):
        raise AssertionError(f"written before it was said:\n{output}")
    for name, text in files.items():
        for secret in (SERIAL, OTHER_SERIAL, SERIAL.encode().hex(), "Orvane test user", "Nora", PIN, WRONG_PIN,
                       "\\root", "/root"):
            if secret.lower() in text.lower():
                raise AssertionError(f"'{secret}' is in {name}:\n{text}")
        if re.search(r"\broot\b", text):
            raise AssertionError(f"the user's name is in {name}:\n{text}")
    contains(files["log.txt"], "CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV", "log")
    contains(files["log.txt"], "resolved serial number :: [serial 1]", "log")
    contains(files["log.txt"], "resolved serial number :: [serial 2]", "log")
    doctor = json.loads(files["doctor.json"])
    equal((doctor["command"], len(doctor["result"]["steps"])), ("doctor", 14), "doctor.json")
    contains(files["doctor.json"], "[name ", "doctor.json")


def complete(run):
    """Versions, hashes and registry values are those of the machine; with --with-names nothing is replaced."""
    written_log(run)
    output = report(run, "--with-names", "--process", "chrome")
    contains(output, "as --with-names asks for", "what was said before")
    files = contents(run)
    contains(files["log.txt"], f"resolved serial number :: {OTHER_SERIAL}", "log")
    contains(files["doctor.json"], "Orvane test user", "doctor.json")
    by_name = {each["path"].replace("\\", "/").split("/")[-1].lower(): each for each in json.loads(files["files.json"])}
    for name in ("OrvaneMinidriver.dll", "OrvaneDSCLibrary.dll", "orvane-card.exe"):
        content = (run.directory / name).read_bytes()
        equal((by_name[name.lower()]["sha256"], by_name[name.lower()]["size"]),
              (hashlib.sha256(content).hexdigest().upper(), len(content)), name)
    registry = json.loads(files["registry.json"])
    equal([(each["name"], each["80000001"]) for each in registry["cardTypes"]],
          [("Brightfold Orvane", "Z:\\build\\OrvaneMinidriver.dll")], "card types")
    equal(registry["values"]["HKLM\\SOFTWARE\\Brightfold\\Orvane\\logLevel"], {"type": "REG_DWORD", "value": 3}, "logLevel")


def without_card(run):
    """Nothing is plugged in, and nothing has been logged: there is a report all the same."""
    output = report(run, reader=None, serial=None)
    contains(output, "No log has been written", "what was said before")
    equal(list(contents(run)), FILES, "files")


def refusals(run):
    """What says only what would be in it writes nothing; a folder with something in it is left alone."""
    output = report(run, "--dry-run")
    contains(output, "doctor.json", "what would be in it")
    equal((run.out / "report").exists(), False, "folder")
    (run.out / "report").mkdir()
    (run.out / "report/mine").write_text("mine")
    for arguments, expected in ((["-o", "Z:/out/report"], 10), (["--process", "chrome"], 10), (["--date", "1.1.2026"], 2)):
        status, documents = run.tool(None, None, [], "report", *arguments)
        equal((status, documents[0]["exitCode"]), (expected, expected), f"{arguments}, {documents}")
    equal([path.name for path in (run.out / "report").iterdir()], ["mine"], "folder")


CASES = {
    "ReportRedacted": redacted,
    "ReportComplete": complete,
    "ReportWithoutCard": without_card,
    "ReportRefusals": refusals,
}
