"""Reads libraries of the kind that the cross compiler links: archives with a table of long names."""

import re

MAGIC = b"!<arch>\n"
HEADER = 60  # bytes before each member; its name stands first, its size at 48


def _entries(data):
    """Name field, begin and end of each member, the tables among them."""
    at = len(MAGIC)
    while at + HEADER <= len(data):
        begin = at + HEADER
        end = begin + int(data[at + 48 : at + 58])
        yield data[at : at + 16].rstrip(b" "), begin, end
        at = end + end % 2


def short_names(data):
    """A library whose members are named without folders. Names are shortened in their places, so nothing else moves."""
    for name, begin, end in _entries(data):
        if name == b"//":
            names = re.sub(rb"[^\0\n]*/([^/\0\n]+(?:/\n|\0))",
                           lambda found: found[1] + found[1][-1:] * (len(found[0]) - len(found[1])), data[begin:end])
            return data[:begin] + names + data[end:]
    return data


def members(data):
    """The members' names, without folders, and contents."""
    result, names = [], b""
    for name, begin, end in _entries(data):
        if name == b"//":
            names = data[begin:end]
        elif name not in (b"/", b"/SYM64/", b"/<ECSYMBOLS>/"):
            if re.fullmatch(rb"/\d+", name):
                name = re.split(rb"/?[\n\0]", names[int(name[1:]) :], maxsplit=1)[0]
            result.append((name.rstrip(b"/").rsplit(b"/", 1)[-1].decode("utf-8"), data[begin:end]))
    return result
