#!/usr/bin/env python3
"""Says which includes in src/ run along no arrow of include_rules.txt, which arrows nothing runs along, and which lines of
that file are out of order. Ends with status 1 if there is anything to say.

    check_includes.py    from the top of the tree
"""

import pathlib
import re
import sys

SOURCES = pathlib.Path("src")
RULES = pathlib.Path("scripts/lib/include_rules.txt")


def read_rules(problems):
    """The folders of the rules with those that they may include, in the order of the lines."""
    rules = {}
    for number, line in enumerate(RULES.read_text().splitlines(), 1):
        words = line.partition("#")[0].split()
        if not words:
            continue
        folder, allowed = words[0], words[1:]
        if folder in rules:
            problems.append(f"{RULES}:{number}: {folder} stands there twice")
        problems += [
            f"{RULES}:{number}: {folder} -> {above}: runs upwards" for above in allowed if above in rules
        ]
        rules[folder] = set(allowed)
    return rules


def folder_of(path, rules):
    """The folder of the rules that a file belongs to: its own, or the nearest around it."""
    folder = path.parent.relative_to(SOURCES)
    return next((each.as_posix() for each in (folder, *folder.parents) if each.as_posix() in rules), folder.as_posix())


def includes(rules):
    """Each include of a file in src/ by another there, as the file, the line's number, and the two folders."""
    for path in sorted(SOURCES.rglob("*")):
        if not path.is_file() or path.name == "CMakeLists.txt":
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
            if match is None:
                continue
            beside = path.parent / match[1]
            target = beside if beside.is_file() else SOURCES / match[1]
            yield path, number, folder_of(path, rules), folder_of(target, rules)


def main():
    problems = []
    rules = read_rules(problems)
    used = set()
    count = 0
    for path, number, folder, target in includes(rules):
        count += 1
        if folder == target:
            continue
        used.add((folder, target))
        if target not in rules.get(folder, set()):
            problems.append(f"{path}:{number}: {folder} -> {target}: no such arrow")
    problems += [
        f"{RULES}: {folder} -> {target}: nothing runs along it"
        for folder, targets in rules.items()
        for target in sorted(targets)
        if (folder, target) not in used
    ]
    if count == 0:
        problems.append(f"no includes found below {SOURCES}")
    print("\n".join(problems), end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
