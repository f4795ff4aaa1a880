#!/usr/bin/env python3
"""Prints what the documents point at and is not there: "document:line: what". The status is 1 if there is any.

Looked at are the links in all *.md of the tree that lead to a file or a heading in the tree, and the paths in code quotes
that begin with a folder of the tree, such as `tests/log/` or `tests/private_key/sign*`. Links to other sites are not.
"""

import bisect
import collections
import fnmatch
import pathlib
import posixpath
import re
import subprocess
import sys
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Documents that lie elsewhere where they are read: the packages' own, at the top of a package beside its docs/.
PLACES = {"packaging/README.md": "README.md"}

FENCE = re.compile(r"^ {0,3}(```+|~~~+).*?^ {0,3}\1[ \t]*$", re.MULTILINE | re.DOTALL)
CODE = re.compile(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)", re.DOTALL)
# Looks ahead, so that a link around an image gives both.
INLINE = re.compile(r"(?=\[(?:[^\[\]]|\[[^\[\]]*\])*\]\(\s*<?([^)\s>]+)>?(?:\s+(?:\"[^\"]*\"|'[^']*'))?\s*\))")
DEFINITION = re.compile(r"^ {0,3}\[([^\]]+)\]:\s*<?([^\s>]+)>?", re.MULTILINE)
REFERENCE = re.compile(r"\[[^\[\]]+\]\[([^\[\]]+)\]")
ATTRIBUTE = re.compile(r"<[a-z][^>]*\b(?:href|src)=[\"']([^\"']+)[\"']", re.IGNORECASE)
ANCHOR = re.compile(r"<[a-z][^>]*\b(?:id|name)=[\"']([^\"']+)[\"']", re.IGNORECASE)
HEADING = re.compile(r"^ {0,3}#{1,6}[ \t]+(.+?)[ \t]*#*[ \t]*$", re.MULTILINE)
ELSEWHERE = re.compile(r"[a-z][a-z0-9+.-]*:|//", re.IGNORECASE)
QUOTED_PATH = re.compile(r"[\w.*-]+(?:/[\w.*-]+)+/?|[\w.-]+/")


def blanked(text, pattern):
    """The text with every match replaced by blanks; positions and lines stay."""
    return pattern.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


def anchors_of(text):
    """The names of a document's headings, as the usual viewers of such documents make them, and its own anchors."""
    text = FENCE.sub("", text)
    found = set(ANCHOR.findall(text))
    seen = collections.Counter()
    for heading in HEADING.findall(text):
        plain = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading)
        name = re.sub(r"[^\w\- ]", "", plain.lower()).replace(" ", "-")
        found.add(f"{name}-{seen[name]}" if seen[name] else name)
        seen[name] += 1
    return found


class Tree:
    """The files of the tree, those that are not committed yet included, and their folders."""

    def __init__(self):
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                                check=True, capture_output=True, text=True).stdout.split("\0")
        self.files = {name for name in listed if name and (ROOT / name).is_file()}
        self.folders = {str(folder) for name in self.files for folder in pathlib.PurePosixPath(name).parents}
        self.top = {name.split("/")[0] for name in self.files if "/" in name}
        self.documents = sorted(name for name in self.files if name.endswith(".md"))
        self.texts = {name: (ROOT / name).read_text(encoding="utf-8") for name in self.documents}
        self.anchors = {name: anchors_of(text) for name, text in self.texts.items()}

    def has(self, path):
        return path in self.files or path in self.folders

    def fault_of_link(self, document, link):
        """What is wrong with a link in a document; None if nothing is."""
        if ELSEWHERE.match(link):
            return None
        path, _, anchor = urllib.parse.unquote(link).partition("#")
        target = document
        if path:
            folder = "" if path.startswith("/") else posixpath.dirname(PLACES.get(document, document))
            target = posixpath.normpath(posixpath.join(folder, path.lstrip("/")))
            if not self.has(target):
                return f"no such file: {link}"
        if anchor and target in self.anchors and anchor.lower() not in self.anchors[target]:
            return f"no such heading: {link}"
        return None

    def fault_of_quote(self, quote):
        """What is wrong with a text in code quotes; None if nothing is, or if it is no path of the tree."""
        words = quote.split()
        if not words or not QUOTED_PATH.fullmatch(words[0]) or words[0].split("/")[0] not in self.top:
            return None
        path = words[0].rstrip("/")
        if self.has(path) or ("*" in path and fnmatch.filter(self.files, path)):
            return None
        return f"no such file: {words[0]}"

    def faults(self, document):
        """Position and fault of all that is wrong in a document."""
        outside_fences = blanked(self.texts[document], FENCE)
        prose = blanked(outside_fences, CODE)
        defined = {match.group(1).lower() for match in DEFINITION.finditer(prose)}
        for match in CODE.finditer(outside_fences):
            yield match.start(), self.fault_of_quote(match.group(2))
        for pattern, group in ((INLINE, 1), (DEFINITION, 2), (ATTRIBUTE, 1)):
            for match in pattern.finditer(prose):
                yield match.start(), self.fault_of_link(document, match.group(group))
        for match in REFERENCE.finditer(prose):
            if match.group(1).lower() not in defined:
                yield match.start(), f"no such reference: {match.group(1)}"


def main():
    tree = Tree()
    if not tree.documents:
        sys.exit("no documents")
    found = 0
    for document in tree.documents:
        ends = [match.start() for match in re.finditer("\n", tree.texts[document])]
        for position, fault in sorted(item for item in tree.faults(document) if item[1]):
            print(f"{document}:{bisect.bisect_left(ends, position) + 1}: {fault}")
            found += 1
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
