#!/usr/bin/env python3
"""Prints the tables of a benchmark: report.py FOLDER..., each folder with the results of one tier.

Plain text that is also a Markdown table, so that docs/performance.md can show it as it is.
"""

import json
import pathlib
import sys


def load(folder, name):
    path = folder / f"{name}.json"
    return json.loads(path.read_text(encoding="utf-8")) if path.exists() else None


def table(headers, rows):
    if not rows:
        return
    cells = [headers] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in cells) for i in range(len(headers))]
    for number, row in enumerate(cells):
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")
        if number == 0:
            print("|" + "|".join("-" * (width + 2) for width in widths) + "|")
    print()


def spread(value):
    """Median and the distance of the quartiles, in microseconds."""
    return f"{value['ns'] / 1000:.2f} ± {value['quartiles'] / 2000:.2f}"


def entries(rows, instructions):
    print("Entry points. Times in µs: median ± half the distance of the quartiles.\n")
    counted = any("counts" in row for row in rows)
    headers = ["entry point", "log", "lines", "call", "floor", "call / floor"]
    if counted:
        headers += ["registry reads", "heap allocations", "bytes", "locks"]
    if instructions:
        headers += ["instructions"]
    result = []
    for row in rows:
        line = [row["name"], row["log"], row["lines"], spread(row["call"]), spread(row["floor"]), f"{row['ratio']:.2f}"]
        if counted:
            counts = row["counts"]
            line += [counts["registryReads"], counts["heapAllocations"], counts["heapBytes"], counts["locks"]]
        if instructions:
            line += [instructions.get(row["name"], "") if row["log"] == "off" else ""]
        result.append(line)
    table(headers, result)
    for log in ("off", "on"):
        ratios = sorted((row["ratio"], row["name"]) for row in rows if row["log"] == log)
        middle = ratios[len(ratios) // 2][0]
        print(f"log {log}: call / floor {ratios[0][0]:.2f} to {ratios[-1][0]:.2f} ({ratios[-1][1]}), median {middle:.2f}")
    print()


def growth(result, instructions):
    print("Growth. Times in µs of one call.\n")
    columns = ["cmapfile", "CardEnumFiles", "CardGetContainerProperty"]
    names = ["CardReadFile cmapfile", 'CardEnumFiles "mscp"', "CardGetContainerProperty Container Info"]
    rows = []
    for row in result["containers"]:
        line = [row["containers"]] + [spread(row[column]) for column in columns]
        if instructions:
            line += [instructions.get(f"{name}/{row['containers']}", "") for name in names]
        rows.append(line)
    headers = ["containers"] + columns + ([f"{column}: instructions" for column in columns] if instructions else [])
    table(headers, rows)
    table(
        ["tokens", "cardcf", "cmapfile"],
        [[row["tokens"], spread(row["cardcf"]), spread(row["cmapfile"])] for row in result["tokens"]],
    )
    table(
        ["threads, all times per call of the process", "cardcf", "floor", "cardcf / floor", "Read Only Mode"],
        [
            [
                row["threads"],
                spread(row["cardcf"]),
                spread(row["floor"]),
                f"{row['cardcf']['ns'] / row['floor']['ns']:.2f}",
                spread(row["property"]),
            ]
            for row in result["threads"]
        ],
    )
    slow = result["slowSignature"]
    table(
        ["beside a signature that takes for ever", "alone", "beside", "beside / alone"],
        [
            [name, spread(row["alone"]), spread(row["beside"]), f"{row['beside']['ns'] / row['alone']['ns']:.2f}"]
            for name, row in slow.items()
        ],
    )


def resources(folder, result):
    rows = []
    if result["memory"]:
        memory = result["memory"]
        rows.append(["memory of a context, two keys", f"{memory['bytesPerContext']:.0f} bytes"])
        rows.append(["left after its end", f"{memory['bytesLeftPerContext']:.0f} bytes"])
    if result["monitor"]:
        poll, token = result["monitor"]["poll"], result["monitor"]["token"]
        rows.append(["a poll of the monitor", f"{spread(poll)} µs, of which the token library {spread(token)} µs"])
        rows.append(["in an idle hour (3600 polls)", f"{poll['ns'] * 3600 / 1e6:.2f} ms"])
    if result["loading"]:
        loading = result["loading"]
        rows.append(["loading the DLL", f"{spread(loading['load'])} µs"])
        rows.append(["freeing it", f"{spread(loading['free'])} µs"])
        rows.append(["threads that loading starts", loading["threadsStarted"]])
    signature = result["signature"]
    rows.append(
        [
            "our share of a 2048-bit signature",
            f"{signature['ours'] / 1000:.2f} of {signature['whole']['ns'] / 1000:.2f} µs = "
            f"{100 * signature['ours'] / signature['whole']['ns']:.2f} %",
        ]
    )
    dll = folder / "OrvaneMinidriver.dll"
    if dll.exists():
        rows.append(["size of the DLL", f"{dll.stat().st_size} bytes"])
    table(["what", "how much"], rows)


def main():
    for name in sys.argv[1:]:
        folder = pathlib.Path(name)
        print(f"## {folder.name}\n")
        instructions = load(folder, "instructions")
        if (rows := load(folder, "entries")) is not None:
            entries(rows, instructions)
        if (result := load(folder, "growth")) is not None:
            growth(result, instructions)
        if (result := load(folder, "resources")) is not None:
            resources(folder, result)


main()
