"""What scripts/mutate changes: each place of a source at which something can be something else, and which of these changes are
known to change nothing."""

import re

# (pattern, replacement): each match outside of texts and comments is one mutant.
CHANGES = [
    (r" == ", " != "),
    (r" != ", " == "),
    (r" <= ", " < "),
    (r" >= ", " > "),
    (r"(?<![<\w]) < (?!<)", " <= "),
    (r" > (?!>)", " >= "),
    (r" && ", " || "),
    (r" \|\| ", " && "),
    (r" \+ ", " - "),
    (r" - ", " + "),
    (r"\+\+(?=\w)", "--"),
    (r" \| ", " & "),
    (r" & (?=\w)", " | "),
    (r"\btrue\b", "false"),
    (r"\bfalse\b", "true"),
    (r"\bif \((?!const)(.*)\) (?=return|\{|break|continue)", r"if (!(\1)) "),
    (r"(?<![\w.])(\d+)(?![\w.])", lambda m: str(int(m.group(1)) + 1)),
    # A statement that stands alone.
    (r"^( +)(?!return|const|auto|using|static|throw|break|continue|namespace|template|DWORD|if|for|ORVANE_)[\w.>:\-\[\]]+\(.*\);$", r"\1;"),
    (r"^( +)[\w.>\-\[\]]+ \|?= .*;$", r"\1;"),
]


def code_of(line):
    """The line with texts and comments blanked out, positions kept."""
    line = re.sub(r'"(?:[^"\\]|\\.)*"', lambda m: '"' + "\0" * (len(m.group()) - 2) + '"', line)
    return re.sub(r"//.*", lambda m: "\0" * len(m.group()), line)


def mutants_of(name, text):
    """The mutants of a source: (name, number of the line, the line, what it becomes)."""
    found = []
    for number, line in enumerate(text.splitlines(), 1):
        code = code_of(line)
        if re.match(r"\s*(#|//|static_assert|template|constexpr)", line):
            continue
        for pattern, replacement in CHANGES:
            for match in re.finditer(pattern, code):
                original = line[match.start():match.end()]
                changed = re.sub(pattern, replacement, original) if "\0" in match.group() else match.expand(
                    replacement) if isinstance(replacement, str) else replacement(match)
                result = line[:match.start()] + changed + line[match.end():]
                if result != line and "\0" not in result:
                    found.append((name, number, line, result))
    return found


def equivalent_ones(text):
    """The changes that are known to change nothing: {(name of the file, the line, what it becomes): (for how many of such lines it
    holds, how many there are)}, the lines without the blanks around them. The text has a paragraph for each: FILE, "- LINE",
    "+ LINE", and why; "FILE: N lines" where the same holds for all N, "FILE: K of N lines" where it holds for K of them."""
    known = {}
    for paragraph in re.split(r"\n{2,}", text):
        lines = [line for line in paragraph.splitlines() if not line.startswith("#")]
        if not lines:
            continue
        if len(lines) < 4 or not lines[1].startswith("- ") or not lines[2].startswith("+ "):
            raise ValueError(f"this is no equivalent mutant: {paragraph}")
        name, _, number = lines[0].partition(": ")
        some, _, total = (number.removesuffix(" lines") or "1").rpartition(" of ")
        known[name.strip(), lines[1][2:].strip(), lines[2][2:].strip()] = int(some or total), int(total)
    return known


def check_equivalent(known, text_of):
    """Raises ValueError unless each of the known changes is one of so many lines; text_of gives a file's text by its name."""
    for (name, before, after), (_, number) in known.items():
        lines = {mutant[1] for mutant in mutants_of(name, text_of(name)) if (mutant[2].strip(), mutant[3].strip()) == (before, after)}
        if len(lines) != number:
            raise ValueError(f"{len(lines)} lines of {name}, not {number}, become so:\n- {before}\n+ {after}")
