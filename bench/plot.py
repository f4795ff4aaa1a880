#!/usr/bin/python3
"""Draws the growth figures: plot.py BENCH_FOLDER PICTURE.svg"""

import json
import pathlib
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "orvane"
import matplotlib.pyplot as plt  # noqa: E402

TIERS = {"host": "native Linux", "windows-x64": "x64, Wine", "windows-arm64": "ARM64, Wine in emulation"}


def main():
    source, picture = pathlib.Path(sys.argv[1]), sys.argv[2]
    present = [tier for tier in TIERS if (source / tier / "growth.json").exists()]
    figure, axes = plt.subplots(1, len(present), figsize=(4.2 * len(present), 3.6), squeeze=False)
    for axis, tier in zip(axes[0], present):
        growth = json.loads((source / tier / "growth.json").read_text(encoding="utf-8"))
        counts = [row["containers"] for row in growth["containers"]]
        for name in ("cmapfile", "CardEnumFiles", "CardGetContainerProperty"):
            axis.plot(counts, [row[name]["ns"] / 1000 for row in growth["containers"]], marker="o", label=name)
        axis.set(title=TIERS[tier], xlabel="containers on the token", ylabel="µs of one call, log off")
        axis.set_ylim(bottom=0)
        axis.legend(fontsize=7)
    figure.tight_layout()
    figure.savefig(picture, metadata={"Date": None})


main()
