#!/usr/bin/env python3
"""Finds where an integer becomes a narrower one without a cast.

    scripts/lib/narrowing.py build/host [FOLDER...]

Our compiler leaves out of its warnings what it can prove harmless by following the values; another compiler proves less
and would stop there. So every such place has a cast, whether its value fits or not. Only constants need none.

Reads the syntax tree that clang prints for each source in the build folder's compile_commands.json that lies in one of
the folders. Prints one line for each place; the status is 0 if there is none.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

WIDTHS = {"char": 1, "short": 2, "char16_t": 2, "wchar_t": 2, "int": 4, "char32_t": 4, "long": 8, "long long": 8}
NODE = re.compile(r"[|` -]*(?=[A-Z<])")
QUOTED = re.compile(r"'[^']*'")
PLACE = re.compile(r"(?P<file>/[^:<>]+|<[a-z -]+>):(?P<fileline>\d+):\d+|\bline:(?P<line>\d+):\d+")
TYPE = re.compile(r"> (?:[a-z_]+ )*'(?P<written>[^']*)'(?::'(?P<meant>[^']*)')?")
COMPUTED = re.compile(r"ComputeResultTy='(?P<written>[^']*)'(?::'(?P<meant>[^']*)')?")
CONSTEXPR = re.compile(r"VarDecl (0x[0-9a-f]+) .*'.* constexpr\b")
REFERENCE = re.compile(r"DeclRefExpr .* Var (0x[0-9a-f]+) ")
# What a constant is made of, beside references to constants.
CONSTANT = {
    "BinaryOperator",
    "CharacterLiteral",
    "ConstantExpr",
    "CStyleCastExpr",
    "CXXFunctionalCastExpr",
    "CXXStaticCastExpr",
    "ImplicitCastExpr",
    "IntegerLiteral",
    "ParenExpr",
    "SubstNonTypeTemplateParmExpr",
    "UnaryExprOrTypeTraitExpr",
    "UnaryOperator",
    "value:",
}


def width(match):
    """The width in bytes of an integer type that the tree names; 0 for what is none."""
    name = (match["meant"] or match["written"]) if match else ""
    words = [word for word in name.split() if word not in ("const", "volatile", "signed")]
    if words[:1] == ["unsigned"]:
        words = words[1:] or ["int"]
    return WIDTHS.get(" ".join(words), 0)


def subtree(lines, at):
    """The nodes below the one at this line; what stands in a sizeof is left out."""
    depth, inside = NODE.match(lines[at]).end(), None
    for below in range(at + 1, len(lines)):
        start = NODE.match(lines[below])
        if not start or start.end() <= depth:
            return
        node = lines[below][start.end() :]
        if inside is not None and start.end() > inside:
            continue
        inside = start.end() if node.startswith("UnaryExprOrTypeTraitExpr ") else None
        yield node


def is_constant(nodes, constants):
    for node in nodes:
        kind = node.split(" ", 1)[0]
        variable = REFERENCE.match(node)
        if variable and variable[1] in constants or kind == "DeclRefExpr" and " EnumConstant " in node:
            continue
        if kind not in CONSTANT:
            return False
    return True


def findings(root, folders, tree):
    """The places in files below these folders of the root, as "FILE:LINE"."""
    ours = tuple(f"{root}{folder}/" for folder in folders)
    lines = tree.splitlines()
    constants = {match[1] for match in map(CONSTEXPR.search, lines) if match}
    file, number, found = "", 0, set()
    for at, line in enumerate(lines):
        # Only what is different from the last place is printed. A range may begin or end in a macro.
        for place in PLACE.finditer(QUOTED.sub("", line)):
            file = place["file"] or file
            number = int(place["fileline"] or place["line"])
        if not file.startswith(ours):
            continue
        if "<IntegralCast>" in line and "part_of_explicit_cast" not in line:
            narrow, nodes = width(TYPE.search(line)), list(subtree(lines, at))
            wide = width(TYPE.search(nodes[0]))
        elif "CompoundAssignOperator" in line and "<<=" not in line and ">>=" not in line:
            narrow, nodes = width(TYPE.search(line)), list(subtree(lines, at))
            wide = width(COMPUTED.search(line))
        else:
            continue
        if 0 < narrow < wide and not is_constant(nodes, constants):
            found.add(f"{file[len(root):]}:{number}")
    return found


def look_at(root, folders, entry):
    arguments = shlex.split(entry["command"])
    output = arguments.index("-o")
    del arguments[output : output + 2]
    arguments.remove("-c")
    arguments += ["-fsyntax-only", "-w", "-Xclang", "-ast-dump", "-fno-color-diagnostics"]
    run = subprocess.run(arguments, cwd=entry["directory"], capture_output=True, text=True, check=True)
    return findings(root, folders, run.stdout)


def main():
    build, folders = pathlib.Path(sys.argv[1]), sys.argv[2:]
    root = str(pathlib.Path(__file__).resolve().parents[2]) + "/"
    commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    entries = [e for e in commands if e["file"].startswith(tuple(f"{root}{folder}/" for folder in folders))]
    if not entries:
        sys.exit(f"{build} has no sources in {' '.join(folders)}")
    found = set()
    with concurrent.futures.ProcessPoolExecutor(os.cpu_count()) as pool:
        for places in pool.map(look_at, [root] * len(entries), [folders] * len(entries), entries):
            found |= places
    for place in sorted(found):
        print(f"{place}: an integer becomes narrower without a cast")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
