"""The cases of card_tests.py about "orvane-card log" in awkward situations: files that change under it, several programs,
outputs that nobody reads any more, things that are no log."""

import json
import subprocess
import time

from cases import contains, equal

LINE = "15/11::10:03:25:123-> ->ERROR ::=>{}\n"


def program_folder(run, program="chrome"):
    folder = run.temp / "Brightfold" / program
    folder.mkdir(parents=True)
    return folder


def lines(*messages):
    return "".join(LINE.format(message) for message in messages)


def append(path, *messages):
    with open(path, "a", encoding="ascii") as file:
        file.write(lines(*messages))


class Following:
    """orvane-card log --follow in the emulated system; ends with the case."""

    def __init__(self, run, *arguments):
        self.process = run.start(None, None, [], "--json", "log", "--follow", *arguments)

    def __enter__(self):
        return self

    def expect(self, *messages):
        for message in messages:
            equal(json.loads(self.process.stdout.readline())["line"]["message"], message, "line")

    def wait_until_it_follows(self, path):
        while True:
            line = self.process.stderr.readline()
            contains(line, "Following ", "standard error")
            if path in line:
                return

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.communicate(timeout=60)
        except subprocess.TimeoutExpired:
            self.process.kill()


def two_programs(run):
    """Two programs write in turns: every line shows once."""
    first, second = (program_folder(run, name) / "2026-11-15.LOG" for name in ("chrome", "outlook"))
    second.write_text(lines("long ago"))
    time.sleep(1.1)  # the newer file is told by its time
    first.write_text(lines("one"))
    with Following(run) as following:
        following.expect("one")
        for number in range(3):
            time.sleep(0.1)
            append(second, f"outlook {number}")
            following.expect(f"outlook {number}")
            time.sleep(0.1)
            append(first, f"chrome {number}")
            following.expect(f"chrome {number}")


def replaced_file(run):
    """A file that is cut, deleted or moved away while it is followed is read from its new beginning."""
    path = program_folder(run) / "2026-11-15.LOG"
    path.write_text(lines("one") + "no end")
    with Following(run, "--process", "chrome") as following:
        following.expect("one")
        path.write_text(lines("two"))
        # What had no end is a line of its own, not the beginning of the new one.
        following.expect("no end", "two")
        path.rename(path.with_name("moved.txt"))
        path.write_text(lines("three, and longer than the one before"))
        following.expect("three, and longer than the one before")


def closed_output(run):
    """Nobody reads any more: the tool ends by itself and says so."""
    path = program_folder(run) / "2026-11-15.LOG"
    path.write_text(lines("one"))
    for arguments in (["log", "--follow"], ["--json", "log", "--follow"]):
        process = run.start(None, None, [], *arguments)
        contains(process.stdout.readline(), "one", "line")
        process.stdout.close()
        process.stdout = None
        for number in range(300):
            if process.poll() is not None:
                break
            append(path, f"line {number}")
            time.sleep(0.2)
        equal(process.poll(), 10, "exit status")
        contains(process.stderr.read(), "standard output could not be written", "standard error")


def long_log(run):
    """A log of many megabytes, one without line ends, and one of the bytes that no log has."""
    folder = program_folder(run)
    (folder / "2026-11-13.LOG").write_bytes(bytes(range(256)) * 4096)
    (folder / "2026-11-14.LOG").write_text("x" * (12 << 20))
    (folder / "2026-11-15.LOG").write_text(lines("a token was looked at " * 4) * 200_000 + "rest")
    for date, count in (("13", 4096), ("14", 1), ("15", 3)):
        arguments = ["--lines", "3"] if date == "15" else []
        status, documents = run.tool(None, None, [], "log", "--date", f"2026-11-{date}", *arguments)
        equal((status, len(documents[0]["result"]["lines"])), (0, count + (date == "13")), f"of {date}")
    equal([line["message"] for line in documents[0]["result"]["lines"]][2], "rest", "last line")
    process = run.start(None, None, [], "log", "--date", "2026-11-15")
    output, errors = process.communicate()
    # The last line gets the end that it lacks.
    equal((process.returncode, len(output)), (0, (folder / "2026-11-15.LOG").stat().st_size + 1), f"whole log, {errors}")


def no_log(run):
    """What cannot be shown: a missing file, a folder, a device, a date that is none, an empty file."""
    folder = program_folder(run)
    (folder / "2026-11-15.LOG").write_text("")
    for name in ("Z:\\absent.LOG", "Z:\\build", "CON", "\\\\.\\pipe\\absent"):
        for how in ([], ["--lines", "1"]):
            status, documents = run.tool(None, None, [], "log", name, *how)
            equal((status, documents[0]["exitCode"]), (10, 10), f"{name}, {documents}")
    for arguments in (["--date", "15.11.2026"], ["--lines", "-1"], ["--level", "loud"], ["--for", "1"], ["--lost"],
                      ["--list", "--follow"], ["--process", "chrome", "Z:\\file.LOG"]):
        status, documents = run.tool(None, None, [], "log", *arguments)
        equal((status, documents[0]["exitCode"]), (2, 2), f"{arguments}, {documents}")
    process = run.start(None, None, [], "log")
    output, errors = process.communicate()
    equal((process.returncode, output), (0, ""), "status and output")
    contains(errors, "2026-11-15.LOG is empty.", "standard error")


def named_file_that_is_none(run):
    """A file that somebody names can be anything; nothing of it shows when it is no log."""
    for name, content, advice in (
            ("letter.txt", b"Dear support,\nit does not work.\n", "A log is named like 2026-11-15.LOG"),
            ("saved.txt", lines("one").encode("utf-16"), "It is saved as UTF-16"), ("picture", bytes(range(256)) * 4096, "A log")):
        (run.out / name).write_bytes(content)
        for how in ([], ["--lines", "1"], ["--follow", "--for", "1"]):
            status, documents = run.tool(None, None, [], "log", f"Z:\\out\\{name}", *how)
            equal((status, documents[0].get("error", {}).get("message")),
                  (2, "the file is no log of the minidriver: no line of it begins like one"), f"{name} {how}, {documents}")
            contains(documents[0]["error"]["advice"], advice, name)
    (run.out / "cut.LOG").write_text("the end of a message\n" + lines("one"))
    status, documents = run.tool(None, None, [], "log", "Z:\\out\\cut.LOG")
    equal((status, len(documents[0]["result"]["lines"])), (0, 2), f"a log that begins within a message, {documents}")


def waits_and_says_so(run):
    """Nothing to follow yet: that is said, and the log is followed once it is there."""
    process = run.start(None, None, [], "--json", "log", "--follow", "--process", "chrome")
    try:
        said = process.stderr.readline()
        contains(said, 'Waiting for a log of "chrome" below "', "standard error")
        contains(said, "there is none yet", "standard error")
        (program_folder(run) / "2026-11-15.LOG").write_text(lines("one"))
        equal(json.loads(process.stdout.readline())["line"]["message"], "one", "line")
    finally:
        process.terminate()
        process.communicate(timeout=60)
    process = run.start(None, None, [], "log", "Z:\\out\\absent.LOG", "--follow", "--for", "1")
    contains(process.communicate()[1], "Waiting for this file", "standard error")
    status, documents = run.tool(None, None, [], "log", "--process", "chrom")
    equal(status, 10, f"{documents}")
    contains(documents[0]["error"]["advice"], "There are logs of: chrome. ", "advice")


CASES = {
    "LogOfTwoPrograms": two_programs,
    "LogReplaced": replaced_file,
    "LogClosedOutput": closed_output,
    "LogLong": long_log,
    "LogNone": no_log,
    "LogNamedFileThatIsNone": named_file_that_is_none,
    "LogWaits": waits_and_says_so,
}
