#!/usr/bin/env python3
"""Looks at the DLLs and the tool as they were built, without running them.

    tests/binary/check_binaries.py [--report FILE] [PRESET...]

PRESET is windows-arm64 or windows-x64 (both if none is named), msvc-arm64 or msvc-x64, and must be built. Prints one
line for each check, PASS or FAIL and its name, with the reason of a failure below it; --report also writes them as a
JUnit-style file. The status is 0 only if nothing failed.
"""

import argparse
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

sys.dont_write_bytecode = True  # nothing is left in the source tree
import pdb_file  # noqa: E402
import pe_image  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
# For each preset the machine's number in the header and its name in the version resource.
MACHINES = {
    "windows-arm64": (0xAA64, "ARM64"),
    "windows-x64": (0x8664, "AMD64"),
    "msvc-arm64": (0xAA64, "ARM64"),
    "msvc-x64": (0x8664, "AMD64"),
}
DEFAULT_PRESETS = ("windows-arm64", "windows-x64")

# What the minidriver may lean on: the system, the C runtime that is part of it, and the maker's library with the
# runtime that the maker's library needs anyway. Anything new here must be there on every machine, and be signed.
IMPORTED_DLLS = {
    "ADVAPI32.dll",
    "KERNEL32.dll",
    "OrvaneDSCLibrary.dll",
    "VCRUNTIME140.dll",
    "WinSCard.dll",
    "api-ms-win-crt-heap-l1-1-0.dll",
    "api-ms-win-crt-private-l1-1-0.dll",
    "api-ms-win-crt-runtime-l1-1-0.dll",
    "api-ms-win-crt-stdio-l1-1-0.dll",
    "api-ms-win-crt-string-l1-1-0.dll",
    "ntdll.dll",
}
# Never a connection, a transaction or a registry write of the minidriver's own.
IMPORTED_NAMES = {
    "ADVAPI32.dll": {"RegGetValueA", "RevertToSelf"},
    "VCRUNTIME140.dll": {"_CxxThrowException", "__CxxFrameHandler3", "__std_terminate"},
    "WinSCard.dll": {"SCardStatusA", "SCardTransmit"},
    # Only the kernel's own call opens a log file without following links on the way to it; and only the loader knows that
    # the process is ending before it has told everybody.
    "ntdll.dll": {"NtCreateFile", "RtlDllShutdownInProgress"},
}
# With the vendor's compiler: its runtime and its C++ library are linked in, so neither VCRUNTIME140.dll nor
# MSVCP140.dll is here (cmake/VendorCompiler.cmake says why). Which parts of the system's C runtime it takes is its own
# affair.
VENDOR_IMPORTED_DLLS = {"ADVAPI32.dll", "KERNEL32.dll", "OrvaneDSCLibrary.dll", "WinSCard.dll", "ntdll.dll"}
VENDOR_RUNTIME = "api-ms-win-crt-"


def is_vendor(preset):
    return preset.startswith("msvc-")


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def definition_names(path):
    """The names below EXPORTS in a module-definition file, in order."""
    lines = [line.split(";")[0].strip() for line in read(path).splitlines()]
    return [line for line in lines[lines.index("EXPORTS") + 1 :] if line]


def slots():
    """The entry points of the function table, in order."""
    table = read("src/minidriver/frame/function_table.h")
    return re.findall(r"^  X\((\w+)\)", table, re.MULTILINE)


def record_slots():
    """The entry points for which the interface's record has a member, in order; the caller's own callbacks left out."""
    record = read("src/platform/card_module.h").split("struct _CARD_DATA {")[1].split("};")[0]
    return [name for name in re.findall(r"\bpfn(\w+);", record) if not name.startswith("Csp")]


def project_version():
    found = re.search(r"project\(\w+ VERSION (\d+)\.(\d+)\.(\d+)", read("CMakeLists.txt"))
    return tuple(int(number) for number in found.groups())


def same(actual, expected):
    """Raises AssertionError with the difference."""
    if actual == expected:
        return
    if not isinstance(expected, (list, set)):
        raise AssertionError(f"found {actual!r}, wanted {expected!r}")
    missing = [item for item in expected if item not in actual]
    surplus = [item for item in actual if item not in expected]
    raise AssertionError(f"missing {missing}, too many {surplus}" if missing or surplus else "other order or repeated")


class Checks:
    """Runs checks and keeps their results: (name, failure or None)."""

    def __init__(self):
        self.results = []

    def run(self, name, check):
        failure = None
        try:
            check()
        except Exception as error:  # whatever goes wrong in a check is its failure
            failure = f"{type(error).__name__}: {error}"
        self.results.append((name, failure))
        print(f"{'FAIL' if failure else 'PASS'} {name}")
        if failure:
            print(f"      {failure}")

    def write_report(self, path):
        suite = ElementTree.Element(
            "testsuite", name="binary", tests=str(len(self.results)), failures=str(sum(1 for _, f in self.results if f))
        )
        for name, failure in self.results:
            case = ElementTree.SubElement(suite, "testcase", classname="binary", name=name)
            if failure:
                ElementTree.SubElement(case, "failure", message=failure)
        ElementTree.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def check_sources(checks):
    names = definition_names("exports/minidriver.def")
    checks.run("the export list has 45 names", lambda: same((len(names), len(set(names))), (45, 45)))
    checks.run(
        "the export list is CardAcquireContext and the function table",
        lambda: same(names, ["CardAcquireContext"] + slots()),
    )
    checks.run("the function table has the record's slots in order", lambda: same(slots(), record_slots()))
    checks.run(
        "the maker's library is listed with thirteen decorated names",
        lambda: same([name[:8] for name in definition_names("src/tokenlib/OrvaneDSCLibrary.def")], ["?orvane_"] * 13),
    )


def check_image(checks, label, image, preset):
    """What holds for every program file of ours."""
    machine, _ = MACHINES[preset]

    def memory_protection():
        # Random base with high entropy, no execution of data; control-flow guard where the compiler has it.
        wanted = 0x4160 if is_vendor(preset) else 0x160
        same(image.dll_characteristics & wanted, wanted)
        same([s[0] for s in image.sections if s[3] & pe_image.SCN_EXECUTE and s[3] & pe_image.SCN_WRITE], [])
        same([s[0] for s in image.sections if s[3] & pe_image.SCN_SHARED], [])

    def no_paths():
        home = str(pathlib.Path.home()).encode()
        found = [p for p in (str(ROOT).encode(), home + b"/") if len(p) > 5 and p in image.data]
        same(found, [])
        same([name for name in image.symbol_files() if re.search(r"[/\\]", name)], [])

    checks.run(f"{label} is made for the right machine", lambda: same(hex(image.machine), hex(machine)))
    checks.run(
        f"{label} has the right checksum in its header",
        lambda: same(hex(image.checksum), hex(image.computed_checksum())),
    )
    checks.run(f"{label} has its memory protected", memory_protection)
    checks.run(f"{label} imports everything at load time", lambda: same(image.has_delayed_imports(), False))
    checks.run(f"{label} names no folder of the building machine", no_paths)


def check_symbols(checks, label, image, preset, stem):
    """Of what debuggers need, a delivered file holds the record that leads to its PDB file, and no more."""
    name = f"{stem}.pdb"
    checks.run(f"{label} has no symbol table", lambda: same(image.symbol_table, 0))
    checks.run(f"{label} names its PDB file, without a folder", lambda: same(image.symbol_files(), [name]))
    checks.run(
        f"{label} belongs to its PDB file",
        lambda: same(image.symbol_records(), [(*pdb_file.identity(ROOT / "build" / preset / name), name)]),
    )


def check_is_dll(checks, label, image, expected):
    checks.run(
        f"{label} is {'a DLL' if expected else 'no DLL'}",
        lambda: same(bool(image.characteristics & pe_image.IMAGE_FILE_DLL), expected),
    )


def check_version(checks, label, image, preset, expected):
    """The version resource: the project's version, the expected texts, and the machine in the description."""
    major, minor, patch = project_version()
    text = f"{major}.{minor}.{patch}"

    def version():
        file_version, product_version, texts = image.version()
        same(file_version, (major, minor, patch, 0))
        same(product_version, (major, minor, patch, 0))
        same(
            texts,
            {
                **expected,
                "CompanyName": "Brightfold",
                "FileDescription": f"{expected['FileDescription']} ({MACHINES[preset][1]})",
                "FileVersion": text,
                "ProductName": "Orvane",
                "ProductVersion": text,
            },
        )

    checks.run(f"{label} carries the project's version and names its machine", version)


def check_minidriver(checks, label, image, preset):
    name, exports = image.exports()
    imports = image.imports()
    wanted = definition_names("exports/minidriver.def")
    maker = definition_names("src/tokenlib/OrvaneDSCLibrary.def")

    def known_dlls():
        if is_vendor(preset):
            same({dll for dll in imports if not dll.startswith(VENDOR_RUNTIME)}, VENDOR_IMPORTED_DLLS)
        else:
            same(set(imports), IMPORTED_DLLS)

    check_is_dll(checks, label, image, True)
    check_symbols(checks, label, image, preset, "OrvaneMinidriver")
    checks.run(
        f"{label} exports exactly the export list",
        lambda: same(sorted(str(export[0]) for export in exports), sorted(wanted)),
    )
    checks.run(f"{label} exports under its own name", lambda: same(name, "OrvaneMinidriver.dll"))
    checks.run(
        f"{label} exports only code of its own",
        lambda: same([e[0] for e in exports if e[2] or not image.section_flags(e[1]) & pe_image.SCN_EXECUTE], []),
    )
    checks.run(f"{label} exports every entry point once", lambda: same(len({e[1] for e in exports}), 45))
    checks.run(f"{label} imports from the known DLLs only", known_dlls)
    checks.run(
        f"{label} imports the maker's thirteen functions",
        lambda: same(sorted(imports["OrvaneDSCLibrary.dll"]), sorted(maker)),
    )
    if not is_vendor(preset):
        # A thread that outlives the DLL would call back into it, for each slot that it gave a value and that has an end.
        checks.run(
            f"{label} asks for no slot in the threads of the process",
            lambda: same([name for name in imports["KERNEL32.dll"] if name in ("FlsAlloc", "TlsAlloc")], []),
        )
    for dll, names in IMPORTED_NAMES.items():
        if is_vendor(preset) and dll not in VENDOR_IMPORTED_DLLS:
            continue
        checks.run(f"{label} imports from {dll} only what it is known for", lambda: same(set(imports[dll]), names))
    check_version(
        checks,
        label,
        image,
        preset,
        {
            "FileDescription": "Orvane smart-card minidriver",
            "InternalName": "OrvaneMinidriver",
            "OriginalFilename": "OrvaneMinidriver.dll",
        },
    )


def check_tool(checks, label, image, preset):
    check_is_dll(checks, label, image, False)
    check_symbols(checks, label, image, preset, "orvane-card")
    check_version(
        checks,
        label,
        image,
        preset,
        {
            "FileDescription": "Smart-card token inspection tool",
            "InternalName": "orvane-card",
            "OriginalFilename": "orvane-card.exe",
        },
    )


def check_softtoken(checks, label, image, preset):
    name, exports = image.exports()
    headers = "".join(read(path) for path in sorted((ROOT / "softtoken").glob("softtoken_*.h")))
    control = set(re.findall(r"^SOFTTOKEN_API [^(]*?(softtoken_\w+)\(", headers, re.MULTILINE))
    maker = set(definition_names("src/tokenlib/OrvaneDSCLibrary.def"))
    check_is_dll(checks, label, image, True)
    checks.run(f"{label} exports under the maker's name", lambda: same(name, "OrvaneDSCLibrary.dll"))
    checks.run(
        f"{label} exports the maker's functions and its control interface",
        lambda: same({str(export[0]) for export in exports}, maker | control),
    )


def check_file(checks, preset, file, check):
    label = f"{preset} {file}"
    try:
        image = pe_image.PeImage(ROOT / "build" / preset / file)
        image.exports()
        image.imports()
    except Exception as error:  # missing, broken, or not what it should be
        reason = f"{type(error).__name__}: {error}"
        checks.run(f"{label} can be read", lambda: same(reason, "a readable program file"))
        return
    check_image(checks, label, image, preset)
    check(checks, label, image, preset)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--report")
    parser.add_argument("presets", nargs="*", metavar="PRESET", help=" or ".join(MACHINES))
    arguments = parser.parse_args()
    checks = Checks()
    check_sources(checks)
    files = {
        "OrvaneMinidriver.dll": check_minidriver,
        "OrvaneDSCLibrary.dll": check_softtoken,
        "orvane-card.exe": check_tool,
    }
    for preset in arguments.presets or DEFAULT_PRESETS:
        for file, check in files.items():
            check_file(checks, preset, file, check)
    if arguments.report:
        checks.write_report(arguments.report)
    return 1 if any(failure for _, failure in checks.results) else 0


if __name__ == "__main__":
    sys.exit(main())
