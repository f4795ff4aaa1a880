#!/usr/bin/env python3
"""Draws terminal output, with its colours, as a picture for the documents.

    terminal_picture.py TITLE <OUTPUT >PICTURE.svg
"""

import html
import re
import sys

COLOURS = {
    "30": "#3b4252", "31": "#e06c75", "32": "#98c379", "33": "#e5c07b", "34": "#61afef", "35": "#c678dd", "36": "#56b6c2",
    "37": "#dcdfe4", "90": "#7f848e", "91": "#e06c75", "92": "#98c379", "93": "#e5c07b", "94": "#61afef", "96": "#56b6c2",
}
WIDTH, HEIGHT, SIZE = 7.8, 18, 13  # of a character and of its font


def pieces(line):
    """The parts of a line with their style: (text, colour or None, bold)."""
    colour, bold = None, False
    for text, codes in re.findall(r"([^\x1b]*)(?:\x1b\[([\d;]*)m)?", line):
        if text:
            yield text, colour, bold
        for code in (codes or "").split(";") if codes is not None else []:
            if code in ("", "0"):
                colour, bold = (None, False) if "\x1b" in line else (colour, bold)
            elif code == "1":
                bold = True
            elif code in COLOURS:
                colour = COLOURS[code]


def main():
    lines = sys.stdin.read().rstrip("\n").split("\n")
    columns = max(len(re.sub(r"\x1b\[[\d;]*m", "", line)) for line in lines)
    width, height = int(columns * WIDTH) + 32, len(lines) * HEIGHT + 56
    print(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}">')
    print(f"<title>{html.escape(sys.argv[1])}</title>")
    print(f'<rect width="{width}" height="{height}" rx="8" fill="#282c34"/>')
    for number, colour in enumerate(("#e06c75", "#e5c07b", "#98c379")):
        print(f'<circle cx="{20 + 18 * number}" cy="18" r="5.5" fill="{colour}"/>')
    print(f'<text x="{width / 2}" y="22" fill="#7f848e" font-family="sans-serif" font-size="12" text-anchor="middle">'
          f"{html.escape(sys.argv[1])}</text>")
    print(f'<g font-family="DejaVu Sans Mono, Consolas, Menlo, monospace" font-size="{SIZE}" fill="#dcdfe4" xml:space="preserve">')
    for row, line in enumerate(lines):
        column = 0
        spans = []
        for text, colour, bold in pieces(line):
            style = (f' fill="{colour}"' if colour else "") + (' font-weight="bold"' if bold else "")
            # The length is stated, so that columns stay columns whatever font the viewer has.
            spans.append(f'<tspan x="{16 + column * WIDTH:.1f}" textLength="{len(text) * WIDTH:.1f}"'
                         f' lengthAdjust="spacingAndGlyphs"{style}>{html.escape(text)}</tspan>')
            column += len(text)
        if spans:
            print(f'<text y="{56 + row * HEIGHT - 6}">{"".join(spans)}</text>')
    print("</g>\n</svg>")


if __name__ == "__main__":
    main()
