#!/usr/bin/env python3
"""Finds where an integer becomes a narrower one without a cast.

    scripts/lib/narrowing.py build/host SOURCE

Our compiler leaves out of its warnings what it can prove harmless by following the values; another compiler proves less
and would stop there. So every such place has a cast, whether its value fits or not. Only constants need none.

Reads the syntax tree that clang prints for a source in the build folder's compile_commands.json. Prints one line for each
place in the source and in our headers; the status is 0 if there is none.
"""

import json
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
OURS = ("src", "softtoken", "tools")
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


def findings(root, tree):
    """The places in our files below the root, as "FILE:LINE"."""
    ours = tuple(f"{root}{folder}/" for folder in OURS)
    lines = tree.splitlines()
    constants = {match[1] for match in map(CONSTEXPR.search, lines) if match}
    file, number, found, is_ours = "", 0, set(), False
    for at, line in enumerate(lines):
        # Only what is different from the last place is printed, so what names no file is in the same one. Most lines are in
        # headers of others.
        if not is_ours and "/" not in line:
            continue
        # A range may begin or end in a macro.
        for place in PLACE.finditer(QUOTED.sub("", line)):
            file = place["file"] or file
            number = int(place["fileline"] or place["line"])
        is_ours = file.startswith(ours)
        if not is_ours:
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


def main():
    build, source = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
    root = str(pathlib.Path(__file__).resolve().parents[2]) + "/"
    commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    entry = next((entry for entry in commands if pathlib.Path(entry["file"]) == source), None)
    if entry is None:
        sys.exit(f"error: {build} does not compile {source}")
    arguments = shlex.split(entry["command"])
    output = arguments.index("-o")
    del arguments[output : output + 2]
    arguments.remove("-c")
    arguments += ["-fsyntax-only", "-w", "-Xclang", "-ast-dump", "-fno-color-diagnostics"]
    run = subprocess.run(arguments, cwd=entry["directory"], capture_output=True, text=True, check=True)
    found = findings(root, run.stdout)
    for place in sorted(found):
        print(f"{place}: an integer becomes narrower without a cast")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
