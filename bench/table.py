#!/usr/bin/env python3
"""Puts the figures of bench/compare as tables into a document, each between its two markers.

usage: table.py FIGURES DOCUMENT NOTE
  FIGURES  lines "program file figure value", one for each run; programs are kivmp4, annexb and raw, and on the
           slow device slow_kivmp4 and slow_avformat
  NOTE     what stands above each table: machine, versions, runs
"""
import statistics
import sys

BEGIN, END = "<!-- made by bench/compare, %s: begin -->", "<!-- made by bench/compare, %s: end -->"
# name in the document, our program, theirs, and of each figure: its name, title, factor
TABLES = [
    ("in memory", "kivmp4", ("annexb", "raw"), [
        ("open_ms", "open, ms", 1),
        ("deliver_s", "all units, s", 1),
        ("seek_us", "seek, µs", 1),
        ("sweep_us", "key frame, µs", 1),
        ("memory_kib", "peak memory, MiB", 1 / 1024),
    ]),
    ("slow device", "slow_kivmp4", ("slow_avformat",), [
        ("open_ms", "open, ms", 1),
        ("play_mbps", "play, MB/s", 1),
        ("busy_mbps", "play with a busy decoder, MB/s", 1),
        ("busy_stall_ms", "its longest wait, ms", 1),
        ("seek_ms", "seek, ms", 1),
        ("seek_kib", "read for it, KiB", 1),
    ]),
]


def number(value):
    return "%.0f" % value if value >= 1000 else "%.3g" % value


def table(runs, files, ours, theirs, figures):
    def median(program, file, figure):
        return statistics.median(runs[program, file, figure]) if (program, file, figure) in runs else None

    rows = ["| file | " + " | ".join(title for _, title, _ in figures) + " |", "|---" * (1 + len(figures)) + "|"]
    for file in files:
        if (ours, file, figures[0][0]) not in runs:
            continue
        counts = {median(program, file, "units") for program in (ours, *theirs)}
        if len(counts) != 1:
            sys.exit("%s: not everybody delivered as many units: %s" % (file, counts))
        cells = []
        for figure, _, scale in figures:
            value = median(ours, file, figure)
            others = [median(program, file, figure) for program in theirs]
            if value is None or None in others:
                cells.append("-")
                continue
            best = min(others)
            cells.append("%s / %s = **%s**" % (number(value * scale), number(best * scale), number(value / best)))
        rows.append("| %s | %s |" % (file, " | ".join(cells)))
    return "\n".join(rows)


def main():
    figures, document, note = sys.argv[1:]
    runs, files = {}, []
    with open(figures) as lines:
        for line in lines:
            program, file, figure, value = line.split()
            runs.setdefault((program, file, figure), []).append(float(value))
            if file not in files:
                files.append(file)

    with open(document) as file:
        text = file.read()
    for name, ours, theirs, columns in TABLES:
        rows = table(runs, files, ours, theirs, columns)
        print(rows)
        begin, end = text.index(BEGIN % name) + len(BEGIN % name), text.index(END % name)
        text = "%s\n\n%s\n\n%s\n\n%s" % (text[:begin], note, rows, text[end:])
    with open(document, "w") as file:
        file.write(text)


main()
