#!/usr/bin/env python3
"""Units a second that the Python module delivers, beside PyAV's packets: bench/python.py [--rounds N] FILE...

Needs PyAV (python3-av in Debian) and the library, at KIVMP4_LIBRARY or in build/. Module and PyAV alternate in one
process, once with bytes of its own for each unit and once without a copy, and the fastest of all rounds counts.
"""
import argparse
import os
import pathlib
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))
if (ROOT / "build" / "libkivmp4.so").exists():
    os.environ.setdefault("KIVMP4_LIBRARY", str(ROOT / "build" / "libkivmp4.so"))

import av  # noqa: E402
import kivmp4  # noqa: E402


def module(path, copy):
    with kivmp4.open(path) as f:
        return sum(len(unit.payload) > 0 for unit in f.units(copy))


def pyav(path, copy):
    with av.open(path) as container:
        if copy:
            return sum(len(bytes(packet)) > 0 for packet in container.demux())
        return sum(packet.size > 0 for packet in container.demux())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("files", nargs="+", metavar="FILE")
    arguments = parser.parse_args()
    print(f"{'file':<16} {'units':>8}  {'':<9} {'module/s':>9} {'PyAV/s':>9}  ratio")
    for path in arguments.files:
        for copy in (True, False):
            best, counts = {}, {}
            for _ in range(arguments.rounds):
                for play in (module, pyav):
                    start = time.perf_counter()
                    counts[play] = play(path, copy)
                    best[play] = min(best.get(play, 1e9), time.perf_counter() - start)
            ours, theirs = (counts[play] / best[play] for play in (module, pyav))
            note = "" if counts[module] == counts[pyav] else f"  PyAV delivers {counts[pyav]}"
            print(f"{pathlib.Path(path).name:<16} {counts[module]:>8}  {'bytes' if copy else 'no copy':<9} "
                  f"{ours:>9.0f} {theirs:>9.0f}  {ours / theirs:5.2f}{note}")


if __name__ == "__main__":
    main()
