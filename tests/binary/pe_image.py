"""Reads what the checks need from a 64-bit Windows program file: headers, sections, exports, imports, the version, and
what is left for debuggers."""

import struct

IMAGE_FILE_DLL = 0x2000
SCN_EXECUTE = 0x20000000
SCN_WRITE = 0x80000000
SCN_SHARED = 0x10000000
RT_VERSION = 16
DEBUG_TYPE_CODEVIEW = 2


class PeImage:
    """A PE32+ file. Raises ValueError or struct.error when it is none."""

    def __init__(self, path):
        with open(path, "rb") as file:
            self.data = file.read()
        if self.data[:2] != b"MZ":
            raise ValueError(f"{path}: no MZ signature")
        header = self._unpack("<I", 0x3C)[0]
        if self.data[header : header + 4] != b"PE\0\0":
            raise ValueError(f"{path}: no PE signature")
        self.machine, sections, _, self.symbol_table, _, optional_size, self.characteristics = self._unpack(
            "<HHIIIHH", header + 4)
        optional = header + 24
        if self._unpack("<H", optional)[0] != 0x20B:
            raise ValueError(f"{path}: not a 64-bit image")
        self.checksum_position = optional + 64
        self.checksum = self._unpack("<I", self.checksum_position)[0]
        self.dll_characteristics = self._unpack("<H", optional + 70)[0]
        directories = self._unpack("<I", optional + 108)[0]
        self.directories = [self._unpack("<II", optional + 112 + 8 * i) for i in range(directories)]
        # (name, address, size in memory, flags, position in the file, size in the file)
        self.sections = []
        for i in range(sections):
            at = optional + optional_size + 40 * i
            name = self.data[at : at + 8].rstrip(b"\0").decode("ascii")
            size, address, raw_size, raw = self._unpack("<IIII", at + 8)
            self.sections.append((name, address, size, self._unpack("<I", at + 36)[0], raw, raw_size))

    def _unpack(self, layout, position):
        return struct.unpack_from(layout, self.data, position)

    def position(self, address):
        """The position in the file of an address relative to the image."""
        for _, begin, size, _, raw, raw_size in self.sections:
            if begin <= address < begin + max(size, raw_size):
                return raw + address - begin
        raise ValueError(f"address {address:#x} is in no section")

    def section_flags(self, address):
        for _, begin, size, flags, _, _ in self.sections:
            if begin <= address < begin + size:
                return flags
        return 0

    def text(self, address):
        begin = self.position(address)
        return self.data[begin : self.data.index(b"\0", begin)].decode("ascii")

    def exports(self):
        """The DLL's own name, and (name, address, whether it is forwarded) for every export, nameless ones as None."""
        address, size = self.directories[0]
        if not size:
            return "", []
        at = self.position(address)
        name, _, functions, names, function_table, name_table, ordinal_table = self._unpack("<IIIIIII", at + 12)
        named = {}
        for i in range(names):
            ordinal = self._unpack("<H", self.position(ordinal_table) + 2 * i)[0]
            named.setdefault(ordinal, []).append(self.text(self._unpack("<I", self.position(name_table) + 4 * i)[0]))
        result = []
        for ordinal in range(functions):
            target = self._unpack("<I", self.position(function_table) + 4 * ordinal)[0]
            if target:
                forwarded = address <= target < address + size
                result += [(export, target, forwarded) for export in named.get(ordinal, [None])]
        return self.text(name), result

    def imports(self):
        """A dictionary from the DLL's name, as it stands in the file, to the list of imported names; ordinals as #N."""
        address, size = self.directories[1]
        result = {}
        at = self.position(address) if size else None
        while at is not None:
            lookup, _, _, name, thunks = self._unpack("<IIIII", at)
            if not name:
                break
            symbols = result.setdefault(self.text(name), [])
            entry = self.position(lookup or thunks)
            while value := self._unpack("<Q", entry)[0]:
                symbols.append(f"#{value & 0xFFFF}" if value >> 63 else self.text((value & 0x7FFFFFFF) + 2))
                entry += 8
            at += 20
        return result

    def computed_checksum(self):
        """What the checksum in the header should be: 16-bit words added with the carry brought around, and the size."""
        total = 0
        for at in range(0, len(self.data), 2):
            if not self.checksum_position <= at < self.checksum_position + 4:
                total += int.from_bytes(self.data[at : at + 2], "little")
                total = (total & 0xFFFF) + (total >> 16)
        return total + len(self.data)

    def symbol_files(self):
        """The names of the files with debugging symbols, as the debug directory has them."""
        return [name for _, _, name in self.symbol_records()]

    def symbol_records(self):
        """What leads to the files with debugging symbols: for each one identifier, age and name."""
        address, size = self.directories[6] if len(self.directories) > 6 else (0, 0)
        result = []
        for entry in range(size // 28):
            kind, length, _, position = self._unpack("<IIII", self.position(address) + 28 * entry + 12)
            if kind == DEBUG_TYPE_CODEVIEW:
                record = self.data[position : position + length]
                # "RSDS", an identifier of 16 bytes and an age come before the name.
                if record[:4] != b"RSDS":
                    raise ValueError(f"unknown record {record[:4]!r} in the debug directory")
                age = struct.unpack_from("<I", record, 20)[0]
                result.append((record[4:20], age, record[24:].split(b"\0")[0].decode("utf-8")))
        return result

    def has_delayed_imports(self):
        return len(self.directories) > 13 and self.directories[13][1] != 0

    def resource(self, kind):
        """The bytes of the only resource of this kind."""
        root = self.position(self.directories[2][0])

        def entries(offset):
            names, ids = self._unpack("<HH", root + offset + 12)
            return [self._unpack("<II", root + offset + 16 + 8 * i) for i in range(names + ids)]

        found = [offset for number, offset in entries(0) if number == kind]
        for _ in range(2):
            if len(found) != 1:
                raise ValueError(f"{len(found)} resources of kind {kind}")
            found = [offset for _, offset in entries(found[0] & 0x7FFFFFFF)]
        address, size = self._unpack("<II", root + found[0])
        return self.data[self.position(address) : self.position(address) + size]

    def version(self):
        """The four numbers of the file version and of the product version, and the dictionary of texts."""
        data = self.resource(RT_VERSION)
        texts = {}
        fixed = None

        def key_at(at):
            end = at
            while data[end : end + 2] != b"\0\0":
                end += 2
            return data[at:end].decode("utf-16-le"), (end + 2 + 3) & ~3

        def walk(at, end, depth):
            nonlocal fixed
            while at + 6 <= end:
                length, value_length, kind = struct.unpack_from("<HHH", data, at)
                if not length:
                    break
                key, value = key_at(at + 6)
                if depth == 0:
                    fixed = struct.unpack_from("<IIIIII", data, value)
                    value += value_length
                elif depth == 3:
                    text = data[value : value + 2 * value_length].decode("utf-16-le")
                    texts[key] = text.split("\0")[0]
                elif key == "VarFileInfo" or kind == 0 and value_length:
                    value = at + length
                if depth < 3:
                    walk((value + 3) & ~3, at + length, depth + 1)
                at = (at + length + 3) & ~3

        walk(0, len(data), 0)
        if fixed is None or fixed[0] != 0xFEEF04BD:
            raise ValueError("no fixed version record")
        halves = [(number >> 16, number & 0xFFFF) for number in fixed[2:6]]
        return halves[0] + halves[1], halves[2] + halves[3], texts
