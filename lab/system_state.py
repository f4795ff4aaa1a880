"""What is there in an emulated system at one moment, the registry and the names of files, as system_state.c writes it down."""

import pathlib
import struct
import subprocess

LAB = pathlib.Path(__file__).resolve().parent
TRIPLES = {"arm64": "aarch64-windows-gnu", "x64": "x86_64-windows-gnu"}
TYPES = ["REG_NONE", "REG_SZ", "REG_EXPAND_SZ", "REG_BINARY", "REG_DWORD", "REG_DWORD_BIG_ENDIAN", "REG_LINK", "REG_MULTI_SZ",
         "REG_RESOURCE_LIST", "REG_FULL_RESOURCE_DESCRIPTOR", "REG_RESOURCE_REQUIREMENTS_LIST", "REG_QWORD"]
KEY, FILE_NAME = 0x10000, 0x10001
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
        else:
            values[text or "(Default)"] = value(kind, data)
    if at != len(content):
        raise AssertionError(f"{file.name} was not written to its end")
    return keys, files
