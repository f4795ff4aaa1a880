#!/usr/bin/env python3
"""Prints what a coverage file (lcov, on standard input) says was not reached: uncovered.py ROOT

One line for each line that never ran, and for each branch that never went one way, with the line's text. A branch that
was never evaluated at all is left out: its line is in the list.
"""

import pathlib
import sys


def main():
    root = pathlib.Path(sys.argv[1])
    path, found, branches = None, [], {}
    for line in sys.stdin:
        kind, _, rest = line.strip().partition(":")
        if kind == "SF":
            path, branches = pathlib.Path(rest), {}
        elif kind == "DA":
            number, count = rest.split(",")[:2]
            if count == "0":
                found.append((path, int(number), "line never runs"))
        elif kind == "BRDA":
            number, block, branch, count = rest.split(",")
            branches.setdefault((int(number), block, int(branch) // 2), []).append(count)
        elif line.strip() == "end_of_record":
            for (number, _, _), counts in branches.items():
                if "0" in counts and counts != ["0"] * len(counts):
                    way = "true" if counts[0] == "0" else "false"
                    found.append((path, number, f"condition is never {way}"))
    for path, number, what in sorted(set(found)):
        text = path.read_text(encoding="utf-8").splitlines()[number - 1].strip()
        print(f"{path.relative_to(root)}:{number}: {what}: {text}")


main()
