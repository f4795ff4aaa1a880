#!/usr/bin/env python3
"""Draws what a script printed as a picture of a terminal, for the documents.

    terminal_picture.py TITLE <OUTPUT >PICTURE.svg
"""

import html
import re
import sys

# What a line, or a part of it, looks like: (pattern, colour, bold). The first that fits counts.
LINES = [
    (r"^\$ .*", "#61afef", True),
    (r"^=== .*", "#e5c07b", True),
    (r"^> .*", "#61afef", False),
    (r"^orvane-card: .*", "#e06c75", False),
]
PARTS = [(r"Verified OK|\bok\b(?=  )", "#98c379", True)]
WIDTH, HEIGHT, SIZE = 7.8, 18, 13  # of a character and of its font


def pieces(line):
    """The parts of a line: (text, colour or None, bold)."""
    for pattern, colour, bold in LINES:
        if re.match(pattern, line):
            return [(line, colour, bold)]
    for pattern, colour, bold in PARTS:
        if found := re.search(pattern, line):
            begin, end = found.span()
            return [(line[:begin], None, False), (line[begin:end], colour, bold), (line[end:], None, False)]
    return [(line, None, False)]


def main():
    title = html.escape(sys.argv[1])
    lines = sys.stdin.read().rstrip("\n").split("\n")
    width, height = int(max(map(len, lines)) * WIDTH) + 32, len(lines) * HEIGHT + 56
    print(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}">')
    print(f"<title>{title}</title>")
    print(f'<rect width="{width}" height="{height}" rx="8" fill="#282c34"/>')
    for number, colour in enumerate(("#e06c75", "#e5c07b", "#98c379")):
        print(f'<circle cx="{20 + 18 * number}" cy="18" r="5.5" fill="{colour}"/>')
    print(f'<text x="{width / 2}" y="22" fill="#7f848e" font-family="sans-serif" font-size="12"'
          f' text-anchor="middle">{title}</text>')
    print(f'<g font-family="DejaVu Sans Mono, Consolas, Menlo, monospace" font-size="{SIZE}" fill="#dcdfe4">')
    for row, line in enumerate(lines):
        column = 0
        for text, colour, bold in pieces(line):
            style = (f' fill="{colour}"' if colour else "") + (' font-weight="bold"' if bold else "")
            if text.strip():
                # The length is stated, so that columns stay columns whatever font the viewer has.
                print(f'<text x="{16 + column * WIDTH:.1f}" y="{50 + row * HEIGHT}" textLength="{len(text) * WIDTH:.1f}"'
                      f' lengthAdjust="spacingAndGlyphs" xml:space="preserve"{style}>{html.escape(text)}</text>')
            column += len(text)
    print("</g>\n</svg>")


if __name__ == "__main__":
    main()
