#!/usr/bin/env python3
"""Makes the changes of a .reg file in the registry of an emulated system in which nothing runs yet.

    lab/wine_registry.py FILE.reg FOLDER     FOLDER: where Wine has its files, system.reg and the others

Wine's own files have nearly the same form, and of a key that stands in them twice the later values hold. So it costs nothing;
Wine's program for this starts half a desktop, which takes seconds under emulation. Keys and values can be set, not removed.
"""

import pathlib
import re
import sys

FILES = {"HKEY_LOCAL_MACHINE": "system.reg", "HKEY_CURRENT_USER": "user.reg"}
HEADER = "Windows Registry Editor Version 5.00"


def own_form(text):
    """The lines of a .reg file as Wine's own files have them: {file: text}."""
    lines = text.splitlines()
    if not lines or lines[0] != HEADER:
        sys.exit(f"wine_registry: the file does not begin with '{HEADER}'")
    made, file = {}, None
    for line in lines[1:]:
        if key := re.fullmatch(r"\[(\w+)\\(.+)\]", line):
            file = FILES[key.group(1)]
            line = "\n[" + key.group(2).replace("\\", r"\\") + "]"
        elif line and (file is None or line.startswith("[") or line.endswith("=-")):
            sys.exit(f"wine_registry: cannot do '{line}'")
        if line:
            made[file] = made.get(file, "") + re.sub(r"[^\n -~]", lambda odd: f"\\x{ord(odd.group()):04x}", line) + "\n"
    return made


def main():
    data = pathlib.Path(sys.argv[1]).read_bytes()
    text = data.decode("utf-16" if data[:2] in (b"\xff\xfe", b"\xfe\xff") else "utf-8")
    for file, added in own_form(text).items():
        with (pathlib.Path(sys.argv[2]) / file).open("a", encoding="ascii") as target:
            target.write(added)


if __name__ == "__main__":
    main()
