"""Symbols: from an address in a delivered program to a function, a file and a line."""

import pathlib
import re
import subprocess
import zipfile

import make_packages
import pdb_file
import pe_image
from cases import equal

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BASE = 0x180000000  # where the linker lays a DLL
PROGRAMS = {"OrvaneMinidriver.dll": "OrvaneMinidriver.pdb", "orvane-card.exe": "orvane-card.pdb"}
# What may differ between a file that was linked with symbols and the same without: the debug record, its place in the
# headers, and the hash of the whole that stands for a time.
MOST_GROWTH = 1024


class SymbolCases:
    def __init__(self, packages, folder):
        self._version, _ = make_packages.release()
        self._programs, self._symbols = {}, {}
        for arch in make_packages.FOLDERS:
            name = f"OrvaneMinidriver-{self._version}-{arch}"
            self._programs[arch] = self._unpacked(packages / f"{name}.zip", folder / arch)
            self._symbols[arch] = self._unpacked(packages / f"{name}-symbols.zip", folder / f"{arch}-symbols")

    @staticmethod
    def _unpacked(package, folder):
        """Unpacks a package; returns its files by their names without folders."""
        with zipfile.ZipFile(package) as opened:
            opened.extractall(folder)
        return {path.name: path for path in folder.rglob("*") if path.is_file()}

    def _line(self, arch, address):
        """Function, file and line of an address in the minidriver, as a debugger would find them."""
        folder = self._symbols[arch]["OrvaneMinidriver.pdb"].parent
        dll = folder / "OrvaneMinidriver.dll"  # the name in its record has no folder, so both must lie in one
        if not dll.exists():
            dll.write_bytes(self._programs[arch]["OrvaneMinidriver.dll"].read_bytes())
        done = subprocess.run(["llvm-symbolizer", f"--obj={dll}", "--no-inlines", hex(BASE + address)], capture_output=True,
                              text=True, check=True)
        function, place, *_ = done.stdout.splitlines()
        file, line, _ = place.rsplit(":", 2)
        return function, file, int(line)

    def _check_line(self, arch, address, function, file, first, last):
        """The address is in this function of this file, between the lines of these texts."""
        lines = (REPOSITORY / file).read_text(encoding="utf-8").splitlines()
        begin = next(number for number, line in enumerate(lines, 1) if first in line)
        end = next(number for number, line in enumerate(lines, 1) if number > begin and line == last)
        found = self._line(arch, address)
        equal((found[0].split("(")[0], found[1]), (function, f"/orvane/{file}"), f"{arch}: what lies at {address:#x}")
        equal(begin <= found[2] <= end, True, f"{arch}: line {found[2]} of {file} is one of {begin} to {end}")

    def entry_point(self):
        for arch, programs in self._programs.items():
            exports = {name: address for name, address, _ in pe_image.PeImage(programs["OrvaneMinidriver.dll"]).exports()[1]}
            for offset in (0, 16):
                self._check_line(arch, exports["CardSignData"] + offset, "CardSignData",
                                 "src/minidriver/private_key/sign.cpp", "CardSignData(", "}")

    def monitor(self):
        """The thread's own function; it is no export, so its address comes from the symbols, too."""
        for arch, symbols in self._symbols.items():
            publics = subprocess.run(["llvm-pdbutil", "dump", "-publics", symbols["OrvaneMinidriver.pdb"]], capture_output=True,
                                     text=True, check=True).stdout
            at = re.search(r"`(?:\S*\bpollDevices\S*|\S*DeviceMonitor\d+pollDevices\S*)`\n.*addr = (\d+):(\d+)", publics)
            image = pe_image.PeImage(self._programs[arch]["OrvaneMinidriver.dll"])
            section, offset = int(at[1]), int(at[2])
            self._check_line(arch, image.sections[section - 1][1] + offset + 16, "orvane::DeviceMonitor::pollDevices",
                             "src/cache/device_monitor.cpp", "DeviceMonitor::pollDevices(", "}")

    def record(self):
        """A program and its symbols name the same identifier, which no other program has; nothing else for debuggers is
        delivered."""
        identifiers = set()
        for arch, symbols in self._symbols.items():
            equal(set(symbols), set(PROGRAMS.values()), f"{arch}: files with symbols")
            for program, name in PROGRAMS.items():
                image = pe_image.PeImage(self._programs[arch][program])
                identity = pdb_file.identity(symbols[name])
                equal(image.symbol_records(), [(*identity, name)], f"{arch}: record in {program}")
                equal(image.symbol_table, 0, f"{arch}: symbol table of {program}")
                identifiers.add(identity[0])
        equal(len(identifiers), 4, "identifiers")

    def no_places(self):
        """Symbols name sources by their place in the tree, and nothing of the machine that built them."""
        for arch, symbols in self._symbols.items():
            for name, path in symbols.items():
                data = path.read_bytes()
                for place in (str(REPOSITORY), str(pathlib.Path.home()) + "/", "/tmp/", "node_modules"):
                    for coded in (place.encode(), place.encode("utf-16-le")):
                        equal(len(place) > 4 and coded in data, False, f"{arch}: {name} holds {place}")

    def growth(self):
        """The record takes next to nothing: it fits into what the section has to spare."""
        for arch, programs in self._programs.items():
            for program in PROGRAMS:
                without = pathlib.Path(REPOSITORY, f"build/windows-{arch}/without-symbols", program)
                grown = programs[program].stat().st_size - without.stat().st_size
                equal(0 <= grown < MOST_GROWTH, True, f"{arch}: {program} grows by {grown} bytes")

    def cases(self):
        return {"SymbolsOfAnEntryPoint": self.entry_point, "SymbolsOfTheMonitor": self.monitor, "SymbolRecords": self.record,
                "SymbolsWithoutPlaces": self.no_places, "SymbolsCostNothing": self.growth}
