"""What is there in an emulated system at one moment, the registry and the names of files, as system_state.c writes it down."""

import functools
import pathlib
import re
import struct
import subprocess

LAB = pathlib.Path(__file__).resolve().parent
TRIPLES = {"arm64": "aarch64-windows-gnu", "x64": "x86_64-windows-gnu"}
TYPES = ["REG_NONE", "REG_SZ", "REG_EXPAND_SZ", "REG_BINARY", "REG_DWORD", "REG_DWORD_BIG_ENDIAN", "REG_LINK", "REG_MULTI_SZ",
         "REG_RESOURCE_LIST", "REG_FULL_RESOURCE_DESCRIPTOR", "REG_RESOURCE_REQUIREMENTS_LIST", "REG_QWORD"]
KEY, FILE_NAME, SAVED = 0x10000, 0x10001, 0x10002
ROOTS = {"HKLM": "HKEY_LOCAL_MACHINE", "HKCU": "HKEY_CURRENT_USER"}


def compiled(source, arch, target, *options):
    """Compiles a program of this folder for a system; returns its file."""
    toolchain = subprocess.run([LAB.parent / "scripts/toolchain"], capture_output=True, text=True, check=True).stdout.strip()
    subprocess.run([f"{toolchain}/bin/{TRIPLES[arch]}-cc", "-std=c11", "-O1", "-s", "-Wall", "-Wextra", "-Werror", *options,
                    LAB / source, "-o", target], check=True)
    return target


def make_program(arch, folder):
    """Compiles the program that writes the state down; returns its file."""
    return compiled("system_state.c", arch, folder / "system_state.exe", "-municode")


def value(kind, data):
    """A value as (type, data), the data as Windows' own program for the registry prints it."""
    name = TYPES[kind] if kind < len(TYPES) else f"REG_{kind}"
    if name in ("REG_SZ", "REG_EXPAND_SZ") and len(data) % 2 == 0:
        return name, data.decode("utf-16-le", errors="surrogatepass").removesuffix("\0")
    if name == "REG_DWORD" and len(data) == 4:
        return name, hex(int.from_bytes(data, "little"))
    return name, data.hex().upper()


# In the registry's own form: what stands behind a backslash, and one line of a value, with a name and data in quotes or without.
ESCAPE = re.compile(r"\\(?:x([0-9a-f]{1,4})|([0-7]{1,3})|(.))", re.DOTALL)
CHARACTERS = {"a": "\a", "b": "\b", "t": "\t", "n": "\n", "v": "\v", "f": "\f", "r": "\r", "e": "\x1b"}
QUOTED = r'"((?:[^"\\]|\\.)*)"'
VALUE = re.compile(rf'(?:@|{QUOTED})=(?:(?:str\((\w+)\):)?{QUOTED}|dword:(\w+)|hex(?:\((\w+)\))?:([0-9a-f,]*))')


def unescaped(text):
    """A text of the registry's own form without what stands for other characters."""
    def character(match):
        code, octal, letter = match.groups()
        return CHARACTERS.get(letter, letter) if letter else chr(int(code, 16) if code else int(octal, 8))
    return ESCAPE.sub(character, text) if "\\" in text else text


@functools.cache  # most keys are in all states, with the same values
def saved_values(text):
    """The values of one key in the registry's own form."""
    values = {}
    for line in text.replace("\\\n  ", "").splitlines():
        if line.startswith("#") or not line:
            continue
        match = VALUE.fullmatch(line)
        if match is None:
            raise AssertionError(f"what is '{line}'?")
        name, kind, string, number, binary, data = match.groups()
        if string is not None:
            found = value(int(kind or "1", 16), (unescaped(string) + "\0").encode("utf-16-le", errors="surrogatepass"))
        elif number is not None:
            found = value(TYPES.index("REG_DWORD"), int(number, 16).to_bytes(4, "little"))
        else:
            found = value(int(binary or "3", 16), bytes.fromhex(data.replace(",", "")))
        values[unescaped(name) if name else "(Default)"] = found
    return values


def saved_branch(text, branch):
    """What is in a branch that the server of the registry saved: {key: {name: (type, data)}}. It leaves out keys without values
    that have keys below them."""
    keys = {branch: {}}
    head, *blocks = text.split("\n[")
    if not head.startswith("WINE REGISTRY Version 2\n"):
        raise AssertionError(f"what begins with '{head[:80]}'?")
    for block in blocks:
        name, _, rest = re.sub(r"\n#time=\w+", "", block, count=1).partition("\n")
        key = branch + "\\" + unescaped(name[:name.rindex("]")])
        keys[key] = saved_values(rest)
        while (key := key.rpartition("\\")[0]) not in keys:
            keys[key] = {}
    return keys


def read(file):
    """What the program wrote: ({key: {name: (type, data)}}, {path of a file or folder})."""
    content, at = file.read_bytes(), 0
    keys, files, values = {}, set(), None
    while at < len(content):
        kind, text_length, length = struct.unpack_from("<III", content, at)
        at += 12
        text = content[at:at + text_length].decode("utf-16-le", errors="surrogatepass")
        data = content[at + text_length:at + text_length + length]
        at += text_length + length
        if kind == KEY:
            root, mark, rest = text.partition("\\")
            values = keys.setdefault(ROOTS[root] + mark + rest, {})
        elif kind == FILE_NAME:
            files.add(text)
        elif kind == SAVED:
            branch = file.with_name(f"{file.name}.{int.from_bytes(data, 'little')}")
            keys.update(saved_branch(branch.read_text("ascii"), ROOTS[text[:4]] + text[4:]))
        else:
            values[text or "(Default)"] = value(kind, data)
    if at != len(content):
        raise AssertionError(f"{file.name} was not written to its end")
    return keys, files
