#!/usr/bin/env python3
"""Has a checker look at each source that a build compiles, several at a time.

    scripts/lib/each_source.py [--also FILE]... BUILD-FOLDER STAMPS FOLDER... -- COMMAND...

The sources are those in the build folder's compile_commands.json that lie in one of the FOLDERs; the command gets the source as
its last word, and what it prints is shown when its status is not 0. What has passed once is not looked at again: as with objects
that need not be compiled again, it is the same source with the same headers, compiled in the same way, the same checker, and the
same FILEs that it goes by. For that, a file with the hash of all this as its name is left in the folder STAMPS, and removed
when it was of no use for a month. The status is 0 if nothing was found.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
MONTH = 30 * 24 * 3600


class Hashes:
    """Hashes of files, each read once."""

    def __init__(self):
        self._known = {}

    def of(self, path):
        if path not in self._known:
            self._known[path] = hashlib.sha256(path.read_bytes()).hexdigest()
        return self._known[path]


def headers(entry):
    """The source and everything that it includes, the system's headers too."""
    words = shlex.split(entry["command"])
    output = words.index("-o")
    del words[output:output + 2]
    words.remove("-c")
    rule = subprocess.run([*words, "-M", "-w"], cwd=entry["directory"], capture_output=True, text=True, check=True).stdout
    names = shlex.split(rule.replace("\\\n", " ").split(":", 1)[1])
    return [pathlib.Path(entry["directory"], name).resolve() for name in names]


def program(word):
    """The file that is run by this word."""
    found = shutil.which(word, path=f"{REPOSITORY}:{os.environ['PATH']}")
    if found is None:
        sys.exit(f"error: there is no {word}")
    return pathlib.Path(found).resolve()


def stamp(entry, command, also, hashes):
    """The name that stands for everything that the result depends on, wherever the tree lies."""
    here = str(REPOSITORY)
    files = [program(command[0]), program(shlex.split(entry["command"])[0]), *also, *headers(entry)]
    parts = [entry["command"].replace(here, ""), *(word.replace(here, "") for word in command),
             *(f"{str(file).replace(here, '')} {hashes.of(file)}" for file in files)]
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()


def look_at(entry, command, also, stamps, hashes):
    """What was found in a source; None for one that is as it was when it passed."""
    mark = stamps / stamp(entry, command, also, hashes)
    if mark.exists():
        mark.touch()
        return None
    run = subprocess.run([*command, os.path.relpath(entry["file"])], capture_output=True, text=True, check=False)
    if run.returncode == 0:
        mark.touch()
        return ""
    return run.stdout + run.stderr or f"{entry['file']}: status {run.returncode}\n"


def main():
    parser = argparse.ArgumentParser(allow_abbrev=False)
    parser.add_argument("--also", type=pathlib.Path, action="append", default=[])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("stamps", type=pathlib.Path)
    parser.add_argument("folders", nargs="+")
    split = sys.argv.index("--")
    given, command = parser.parse_args(sys.argv[1:split]), sys.argv[split + 1:]
    os.chdir(REPOSITORY)
    wanted = tuple(f"{REPOSITORY}/{folder}/" for folder in given.folders)
    entries = [entry for entry in json.loads((given.build / "compile_commands.json").read_text(encoding="utf-8"))
               if entry["file"].startswith(wanted)]
    if not entries:
        sys.exit(f"error: {given.build} has no sources in {' '.join(given.folders)}")
    given.stamps.mkdir(parents=True, exist_ok=True)
    for mark in given.stamps.iterdir():
        if time.time() - mark.stat().st_mtime > MONTH:
            mark.unlink()
    hashes = Hashes()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda entry: look_at(entry, command, given.also, given.stamps, hashes), entries))
    # What stands in a header is found with every source that includes it.
    found = dict.fromkeys(line for result in results if result for line in result.splitlines())
    print(*found, sep="\n", end="\n" if found else "")
    print(f"{len(results)} sources, {results.count(None)} of them as they were when they passed", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
