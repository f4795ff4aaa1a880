#!/usr/bin/env python3
"""Instructions of each call, from callgrind's files: instructions.py FILE... prints {"name": instructions}."""

import json
import pathlib
import re
import sys


def main():
    counts = {}
    for path in sorted(sys.argv[1:], key=lambda name: int(name.rsplit(".", 1)[1]) if name[-1].isdigit() else 0):
        text = pathlib.Path(path).read_text(encoding="utf-8", errors="replace")
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.MULTILINE)
        total = re.search(r"^(?:totals|summary): (\d+)$", text, re.MULTILINE)
        if name and total:
            counts[name.group(1)] = int(total.group(1))
    if not counts:
        sys.exit("no counts in these files")
    json.dump(counts, sys.stdout, indent=1)


main()
