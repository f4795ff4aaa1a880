#!/usr/bin/env python3
"""Writes the checksum into the header of Windows program files, which the cross compiler's linker leaves at zero.

    scripts/lib/set_pe_checksum.py FILE...

The value depends on the file's other bytes alone, so the same file always gets the same one. How it is computed is what
CheckSumMappedFile of imagehlp.dll does.
"""

import struct
import sys

E_LFANEW = 0x3C  # where the position of the PE signature stands
CHECKSUM = 4 + 20 + 64  # from there: after the signature and the file header, at this place of the optional header


def checksum(data, position):
    """The sum of all 16-bit words, carries added back in, without the checksum itself, plus the length."""
    data = data[:position] + bytes(4) + data[position + 4 :]
    total = sum(struct.unpack(f"<{(len(data) + 1) // 2}H", data + bytes(len(data) % 2)))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total + len(data)


def main():
    for path in sys.argv[1:]:
        with open(path, "r+b") as file:
            data = file.read()
            header = struct.unpack_from("<I", data, E_LFANEW)[0]
            if data[:2] != b"MZ" or data[header : header + 4] != b"PE\0\0":
                sys.exit(f"{path} is no program file")
            file.seek(header + CHECKSUM)
            file.write(struct.pack("<I", checksum(data, header + CHECKSUM)))


if __name__ == "__main__":
    main()
