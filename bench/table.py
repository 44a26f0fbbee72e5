#!/usr/bin/env python3
"""Puts the figures of bench/compare as a table into a document, between its two markers.

usage: table.py FIGURES DOCUMENT NOTE
  FIGURES  lines "program file figure value", one for each run; programs are kivmp4, annexb and raw
  NOTE     what stands above the table: machine, versions, runs
"""
import statistics
import sys

BEGIN, END = "<!-- made by bench/compare: begin -->", "<!-- made by bench/compare: end -->"
FIGURES = [
    ("open_ms", "open, ms", 1),
    ("deliver_s", "all units, s", 1),
    ("seek_us", "seek, µs", 1),
    ("sweep_us", "key frame, µs", 1),
    ("memory_kib", "peak memory, MiB", 1 / 1024),
]


def number(value):
    return "%.0f" % value if value >= 1000 else "%.3g" % value


def main():
    figures, document, note = sys.argv[1:]
    runs, files = {}, []
    with open(figures) as lines:
        for line in lines:
            program, file, figure, value = line.split()
            runs.setdefault((program, file, figure), []).append(float(value))
            if file not in files:
                files.append(file)

    def median(program, file, figure):
        return statistics.median(runs[program, file, figure]) if (program, file, figure) in runs else None

    rows = ["| file | " + " | ".join(title for _, title, _ in FIGURES) + " |", "|---" * (1 + len(FIGURES)) + "|"]
    for file in files:
        counts = {median(program, file, "units") for program in ("kivmp4", "annexb", "raw")}
        if len(counts) != 1:
            sys.exit("%s: not everybody delivered as many units: %s" % (file, counts))
        cells = []
        for figure, _, scale in FIGURES:
            ours = median("kivmp4", file, figure)
            theirs = [median(program, file, figure) for program in ("annexb", "raw")]
            if ours is None or None in theirs:
                cells.append("-")
                continue
            best = min(theirs)
            cells.append("%s / %s = **%s**" % (number(ours * scale), number(best * scale), number(ours / best)))
        rows.append("| %s | %s |" % (file, " | ".join(cells)))
    print("\n".join(rows))

    with open(document) as file:
        text = file.read()
    begin, end = text.index(BEGIN) + len(BEGIN), text.index(END)
    with open(document, "w") as file:
        file.write("%s\n\n%s\n\n%s\n\n%s" % (text[:begin], note, "\n".join(rows), text[end:]))


main()
