#!/usr/bin/env python3
"""Links a program file with the cross compiler so that a PDB file comes out beside it.

    link_with_symbols.py NAME COMPILER ARGUMENT...     the rest is the link command; CMake puts this in front of it

The compiler's front end can link without symbols, or with symbols and then with other copies of its runtime libraries and
without leaving out what nobody uses; it hands no option through to its linker. So it links without, says how it called the
linker, and the linker is called once more in the same way and asked for a PDB file, too. The code is the same, byte for
byte, which is looked at here at every link.

The PDB names every file that went in. So that it names the same ones on every machine, files of the compiler are handed over
from the folder "compiler" in the build folder, and everything else by its path below the build folder.
"""

import os
import pathlib
import shutil
import struct
import subprocess
import sys

sys.dont_write_bytecode = True  # the tree stays as it is
import archive  # noqa: E402

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
UNSAME = {".rdata", ".buildid"}  # sections that hold the debug record and the hash of the file


def staged(path, folder):
    """Puts a file of the compiler into the folder; returns its path there."""
    data = path.read_bytes()
    if data.startswith(archive.MAGIC):
        data = archive.short_names(data)
    target = folder / path.name
    if not target.exists() or target.read_bytes() != data:
        part = target.with_name(f"{target.name}.{os.getpid()}")
        part.write_bytes(data)
        part.replace(target)
    return str(target)


def linker_arguments(line, toolchain, folder):
    """The arguments in a line that the front end wrote. It puts blanks between them and quotes none, so the folders that can
    have a blank in their names are replaced first."""
    line = line.replace(f"{toolchain}/", "//compiler/").replace(f"{REPOSITORY}/", f"{os.path.relpath(REPOSITORY)}/")
    taken = {}
    arguments = []
    for argument in line.split()[1:]:
        if argument.startswith("//compiler/"):
            path = toolchain / argument[len("//compiler/") :]
            if taken.setdefault(path.name, path) != path:
                sys.exit(f"error: two files of the compiler are called {path.name}")
            argument = staged(path, folder)
        arguments.append(argument)
    return arguments


def sections(path):
    """The contents of a program file's sections by name, without those that may differ."""
    data = path.read_bytes()
    header = struct.unpack_from("<I", data, 0x3C)[0]
    count, optional_size = struct.unpack_from("<H12xH", data, header + 6)
    result = {}
    for entry in range(header + 24 + optional_size, header + 24 + optional_size + 40 * count, 40):
        name = data[entry : entry + 8].rstrip(b"\0").decode("ascii")
        size, begin = struct.unpack_from("<II", data, entry + 16)
        if name not in UNSAME:
            result[name] = data[begin : begin + size]
    return result


def main():
    name, compiler, *rest = sys.argv[1:]
    toolchain = pathlib.Path(compiler).parent.parent
    linked = subprocess.run([compiler, *rest], env={**os.environ, "ZIG_VERBOSE_LINK": "1"}, stderr=subprocess.PIPE,
                            text=True, check=False)
    commands = [line for line in linked.stderr.splitlines() if line.startswith("lld-link ")]
    if linked.returncode != 0 or len(commands) != 1:
        print(linked.stderr, file=sys.stderr)
        sys.exit(linked.returncode or "error: the compiler does not say how it links")
    output = pathlib.Path(rest[rest.index("-o") + 1])
    # Kept for who wants to compare.
    kept = pathlib.Path("without-symbols", output.name)
    kept.parent.mkdir(exist_ok=True)
    shutil.copyfile(output, kept)
    folder = pathlib.Path("compiler")
    folder.mkdir(exist_ok=True)
    subprocess.run(
        [toolchain / "bin/zig", "lld-link", *linker_arguments(commands[0], toolchain, folder), "-DEBUG", "-OPT:REF", "-OPT:ICF",
         f"-PDB:{name}.pdb", f"-PDBALTPATH:{name}.pdb", f"-PDBSOURCEPATH:/orvane/{pathlib.Path.cwd().relative_to(REPOSITORY)}",
         f"-MAP:{name}.map"],
        check=True)
    if sections(output) != sections(kept):
        output.unlink()
        sys.exit(f"error: {output} has other code with symbols than without")


if __name__ == "__main__":
    main()
