"""Reads from a PDB file what says which program file it belongs to."""

import struct

MAGIC = b"Microsoft C/C++ MSF 7.00\r\n\x1aDS\0\0\0"


def identity(path):
    """Identifier and age, which the record in the program file repeats. Raises ValueError when it is no PDB file."""
    with open(path, "rb") as file:
        data = file.read()
    if not data.startswith(MAGIC):
        raise ValueError(f"{path}: no PDB file")
    # The file is made of blocks. One holds the list of the blocks in which the directory of the streams lies.
    size, _, _, directory_size, _, map_block = struct.unpack_from("<IIIIII", data, len(MAGIC))

    def blocks(numbers):
        return b"".join(data[number * size : (number + 1) * size] for number in numbers)

    def counted(length):
        return (length + size - 1) // size

    directory = blocks(struct.unpack_from(f"<{counted(directory_size)}I", data, map_block * size))[:directory_size]
    count = struct.unpack_from("<I", directory)[0]
    sizes = [length if length != 0xFFFFFFFF else 0 for length in struct.unpack_from(f"<{count}I", directory, 4)]

    def stream(index):
        at = 4 + 4 * count + 4 * sum(counted(length) for length in sizes[:index])
        return blocks(struct.unpack_from(f"<{counted(sizes[index])}I", directory, at))[: sizes[index]]

    # The second stream has the identifier; the age that debuggers compare stands in the fourth.
    return stream(1)[12:28], struct.unpack_from("<I", stream(3), 8)[0]
