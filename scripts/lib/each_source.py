#!/usr/bin/env python3
"""Has a checker look at each source that a build compiles, several at a time.

    scripts/lib/each_source.py [--alone|--joined] [--also FILE]... BUILD-FOLDER STAMPS FOLDER... -- COMMAND...

The sources are those in the build folder's compile_commands.json that lie in one of the FOLDERs; the command, in which
BUILD-FOLDER stands as a word, gets the source as its last word, and what it prints is shown when its status is not 0. What has
passed once is not looked at again: as with objects that need not be compiled again, it is the same source with the same headers,
compiled in the same way, the same checker, and the same FILEs that it goes by. For that, a file with the hash of all this as its
name is left in the folder STAMPS, and removed when it was of no use for a month. The status is 0 if nothing was found.

Most of a checker's time goes into the headers of others, so some sources are looked at together, as one that includes them. Where
something is found, each is looked at again by itself: what is said of a source is always said of that source alone. Sources that
cannot stand in one file are taken in halves. --alone is for a checker that looks less closely at what is included, or at a
function that it has met where another calls it, or that says what a source has and does not use; --joined for one that looks
less closely at what is included, but not at a file that has the text of all.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import time

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
MONTH = 30 * 24 * 3600
TOGETHER = 6  # sources in one file; with more of them, one that cannot stand with the others costs more


class Hashes:
    """Hashes of files, each read once."""

    def __init__(self):
        self._known = {}

    def of(self, path):
        if path not in self._known:
            self._known[path] = hashlib.sha256(path.read_bytes()).hexdigest()
        return self._known[path]


def without_output(entry):
    """The words that compile a source, but for what says where the result goes."""
    words = shlex.split(entry["command"])
    output = words.index("-o")
    del words[output:output + 2]
    words.remove("-c")
    return words


def recorded(build):
    """What ninja has written down of the objects that it has made: {object: (time, files)}; nothing if it has made none."""
    told = subprocess.run(["ninja", "-C", build, "-t", "deps"], capture_output=True, text=True, check=False).stdout
    found = {}
    for block in told.split("\n\n"):
        head, *files = block.splitlines() or [""]
        match = re.fullmatch(r"(\S+): #deps \d+, deps mtime (\d+) \(VALID\)", head)
        if match:
            found[match[1]] = int(match[2]), [file.strip() for file in files]
    return found


def headers(entry, made):
    """The source and everything that it includes, the system's headers too. As the build found it, if nothing of that has
    changed since, or else as the compiler tells, which takes longer."""
    words = shlex.split(entry["command"])
    at, names = made.get(words[words.index("-o") + 1], (0, []))
    files = [pathlib.Path(entry["directory"], name).resolve() for name in names]
    if files and all(file.exists() and file.stat().st_mtime_ns < at for file in files):
        return files
    rule = subprocess.run([*without_output(entry), "-M", "-w"], cwd=entry["directory"], capture_output=True, text=True,
                          check=True).stdout
    names = shlex.split(rule.replace("\\\n", " ").split(":", 1)[1])
    return [pathlib.Path(entry["directory"], name).resolve() for name in names]


def program(word):
    """The file that is run by this word."""
    found = shutil.which(word, path=f"{REPOSITORY}:{os.environ['PATH']}")
    if found is None:
        sys.exit(f"error: there is no {word}")
    return pathlib.Path(found).resolve()


def stamp(entry, command, also, hashes, made):
    """The name that stands for everything that the result depends on, wherever the tree lies."""
    here = str(REPOSITORY)
    files = [program(command[0]), program(shlex.split(entry["command"])[0]), *also, *sorted(set(headers(entry, made)))]
    parts = [entry["command"].replace(here, ""), *(word.replace(here, "") for word in command),
             *(f"{str(file).replace(here, '')} {hashes.of(file)}" for file in files)]
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()


def switches(entry):
    """How a source is compiled: what sources have in common that can stand in one file."""
    return entry["directory"], tuple(word for word in without_output(entry) if word != entry["file"])


def together(entries, folder, is_joined):
    """Writes a source that includes these or has their texts, and a compile_commands.json for it; returns whether that
    compiles."""
    folder.mkdir(parents=True, exist_ok=True)
    source = folder / "together.cpp"
    source.write_text("".join(
        pathlib.Path(entry["file"]).read_text(encoding="utf-8") if is_joined else f'#include "{entry["file"]}"\n'
        for entry in entries), encoding="utf-8")
    directory, words = switches(entries[0])
    command = [*words, "-c", str(source), "-o", "together.o"]
    (folder / "compile_commands.json").write_text(json.dumps(
        [{"directory": directory, "command": shlex.join(command), "file": str(source)}]))
    run = subprocess.run([*words, "-w", "-fsyntax-only", source], cwd=directory, stderr=subprocess.DEVNULL, check=False)
    return run.returncode == 0


class Checker:
    """A command that looks at sources, and the marks of those that have passed."""

    def __init__(self, command, build, stamps, is_joined):
        self._command, self._build, self._stamps, self._is_joined = command, build, stamps, is_joined
        self._folder = (build / "together").resolve() / stamps.name

    def empty_folder(self):
        shutil.rmtree(self._folder, ignore_errors=True)

    def _run(self, build, source):
        words = [str(build) if word == str(self._build) else word for word in self._command]
        return subprocess.run([*words, os.path.relpath(source)], capture_output=True, text=True, check=False)

    def look_at(self, some):
        """What is found in some sources that are compiled in the same way; `some` are pairs of an entry and its stamp."""
        if len(some) == 1:
            entry, mark = some[0]
            run = self._run(self._build, entry["file"])
            if run.returncode != 0:
                return run.stdout + run.stderr or f"{entry['file']}: status {run.returncode}\n"
            (self._stamps / mark).touch()
            return ""
        folder = self._folder / some[0][1]
        if not together([entry for entry, _ in some], folder, self._is_joined):
            half = len(some) // 2
            return self.look_at(some[:half]) + self.look_at(some[half:])
        if self._run(folder, folder / "together.cpp").returncode != 0:
            return "".join(self.look_at([each]) for each in some)
        for _, mark in some:
            (self._stamps / mark).touch()
        return ""


def main():
    parser = argparse.ArgumentParser(allow_abbrev=False)
    ways = parser.add_mutually_exclusive_group()
    ways.add_argument("--alone", action="store_true")
    ways.add_argument("--joined", action="store_true")
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
    checker = Checker(command, given.build, given.stamps, given.joined)
    made = recorded(given.build)
    checker.empty_folder()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        stamped = list(zip(entries, pool.map(lambda entry: stamp(entry, command, given.also, hashes, made), entries)))
        groups = {}
        for entry, mark in stamped:
            if (given.stamps / mark).exists():
                (given.stamps / mark).touch()
            else:
                groups.setdefault(switches(entry), []).append((entry, mark))
        size = 1 if given.alone else TOGETHER
        some = [group[at:at + size] for group in groups.values() for at in range(0, len(group), size)]
        results = list(pool.map(checker.look_at, some))
    checker.empty_folder()
    # What stands in a header is found with every source that includes it.
    found = dict.fromkeys(line for result in results for line in result.splitlines())
    print(*found, sep="\n", end="\n" if found else "")
    anew = sum(map(len, some))
    print(f"{len(entries)} sources, {len(entries) - anew} of them as they were when they passed", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
