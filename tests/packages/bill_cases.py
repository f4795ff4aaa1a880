"""The bill of materials: of CycloneDX's form, and true."""

import copy
import hashlib
import json
import os
import pathlib
import re
import subprocess
import tarfile
import zipfile

import bill_of_materials
import jsonschema
import make_packages
from cases import contains, equal

# The schema as its publishers give it out within a library of theirs.
SCHEMA_PACKAGE = "@cyclonedx/cyclonedx-library@10.3.0"
SCHEMA_FILE = "cyclonedx-cyclonedx-library-10.3.0.tgz"
SCHEMA_SHA256 = "9833bd949052eb18218dd64b13ad62d9246f7395eef01c66dad08fcbacf74f01"


def cache():
    """The folder that the scripts keep what they fetched in (scripts/lib/common.sh)."""
    home = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
    return pathlib.Path(os.environ.get("ORVANE_CACHE") or pathlib.Path(home, "orvane"))


def validator():
    """What judges a bill."""
    package = cache() / SCHEMA_FILE
    if not package.is_file():
        package.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["npm", "pack", "--silent", SCHEMA_PACKAGE, "--pack-destination", package.parent], check=True,
                       stdout=subprocess.DEVNULL)
    equal(hashlib.sha256(package.read_bytes()).hexdigest(), SCHEMA_SHA256, f"checksum of {package}")
    with tarfile.open(package) as opened:
        schemas = [json.load(opened.extractfile(f"package/res/schema/{name}.SNAPSHOT.schema.json"))
                   for name in ("bom-1.5", "spdx", "jsf-0.82")]
    store = {schema["$id"].replace(".schema.json", f"{infix}.schema.json"): schema
             for schema in schemas for infix in ("", ".SNAPSHOT")}
    resolver = jsonschema.RefResolver(schemas[0]["$id"], schemas[0], store)
    return jsonschema.Draft7Validator(schemas[0], resolver=resolver, format_checker=jsonschema.FormatChecker())


class BillCases:
    def __init__(self, packages, folder):
        self._version, _ = make_packages.release()
        self._folder, self._files = folder, {}
        for arch in make_packages.FOLDERS:
            name = f"OrvaneMinidriver-{self._version}-{arch}"
            with zipfile.ZipFile(packages / f"{name}.zip") as package:
                self._files[arch] = {entry.split("/", 1)[1]: package.read(entry) for entry in package.namelist()}

    def _bill(self, arch):
        return json.loads(self._files[arch][make_packages.BILL])

    def form(self):
        """The published schema takes it, and does not take broken copies."""
        judge = validator()
        for arch in self._files:
            bill = self._bill(arch)
            equal([error.message for error in judge.iter_errors(bill)], [], f"{arch}: what the schema says")
            rows = {
                "no form": lambda bill: bill.pop("bomFormat"),
                "unknown field": lambda bill: bill.update(author="somebody"),
                "unknown licence": lambda bill: bill["components"][2].update(licenses=[{"license": {"id": "Ours"}}]),
                "short hash": lambda bill: bill["components"][0]["hashes"][0].update(content="12"),
                "no name": lambda bill: bill["components"][1].pop("name"),
            }
            for what, break_it in rows.items():
                broken = copy.deepcopy(bill)
                break_it(broken)
                equal(list(judge.iter_errors(broken)) != [], True, f"{arch}: the schema refuses '{what}'")

    def truth(self):
        """The programs' hashes are those of what is delivered; every part that a program needs is described, with a licence and
        a hash of itself or of what it consists of."""
        for arch, folder in make_packages.FOLDERS.items():
            parts = {part["bom-ref"]: part for part in self._bill(arch)["components"]}
            for program in bill_of_materials.PROGRAMS:
                name = program if program.endswith(".exe") else f"{folder}/{program}"
                equal(parts[program]["hashes"], [{"alg": "SHA-256", "content": hashlib.sha256(self._files[arch][name]).hexdigest()}],
                      f"{arch}: hash of {program}")
                equal(parts[program]["version"], self._version, f"{arch}: version of {program}")
            needs = {each["ref"]: each.get("dependsOn", []) for each in self._bill(arch)["dependencies"]}
            runtime = ["clang-headers", "libc++", "libc++abi", "libunwind", "mingw-w64", "zig-runtime"]
            equal(needs["OrvaneMinidriver.dll"], runtime, f"{arch}: parts of the minidriver")
            equal(needs["orvane-card.exe"], sorted([*runtime, "CLI11", "nlohmann-json"]), f"{arch}: parts of the tool")
            equal(set(needs), {*parts, "package"}, f"{arch}: what is described")
            for name in set(parts) - set(bill_of_materials.PROGRAMS):
                equal(bool(parts[name]["licenses"]) and bool(parts[name].get("hashes") or parts[name].get("components")), True,
                      f"{arch}: licence and hashes of {name}")
            for name, file in (("libc++abi", "cxa_exception.obj"), ("CLI11", "CLI/App.hpp"), ("nlohmann-json", "nlohmann/json.hpp")):
                contains([each["name"] for each in parts[name]["components"]], file, f"{arch}: files of {name}")
            header = pathlib.Path("/usr/include/CLI/App.hpp").read_bytes()
            found = next(each for each in parts["CLI11"]["components"] if each["name"] == "CLI/App.hpp")
            equal(found["hashes"][0]["content"], hashlib.sha256(header).hexdigest(), f"{arch}: hash of a header")

    def words(self):
        """Parts have the versions that the notices state, and no address of a server is in the bill."""
        for arch in self._files:
            notices = self._files[arch]["notices.txt"].decode()
            versions = {part["name"]: part["version"] for part in self._bill(arch)["components"]}
            for text in (f"CLI11 {versions['CLI11']}\n", f"(nlohmann-json) {versions['nlohmann-json']}\n",
                         f"libunwind {versions['libunwind'].split('.')[0]} ", f"runtime of Zig {versions['zig-runtime']}\n"):
                contains(notices, text, f"{arch}: notices")
            addresses = re.findall(r"\w+://[^\"]*", self._files[arch][make_packages.BILL].decode())
            equal(addresses, ["http://cyclonedx.org/schema/bom-1.5.schema.json"], f"{arch}: addresses")

    def strangers(self):
        """An object of a library that nobody described, in the linker's map, stops the making of packages."""
        build = self._folder / "build"
        build.mkdir()
        line = " 0001:00000000       function                   0000000180001000     {}\n"
        for origin, known in (("function.cpp.obj", True), ("unity_folder_cxx.cxx.obj", True), ("kernel32:KERNEL32.dll", True),
                              ("new:object.obj", False), ("object.obj", False), ("object.cxx.obj", False)):
            (build / "orvane-card.map").write_text(line.format(origin))
            try:
                equal((bill_of_materials.linked(build, "orvane-card.exe"), known), ({}, True), f"'{origin}'")
            except SystemExit as refusal:
                equal((str(refusal), known),
                      (f"error: the bill of materials does not know what {origin} in orvane-card.exe is", False), f"'{origin}'")

    def cases(self):
        return {"BillOfMaterialsForm": self.form, "BillOfMaterialsTruth": self.truth, "BillOfMaterialsWords": self.words,
                "BillOfMaterialsStrangers": self.strangers}
