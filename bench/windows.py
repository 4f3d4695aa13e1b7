#!/usr/bin/env python3
"""The Windows build against the one of this system: Bessel-Thomson's Apply, in turns.
  bench/windows.py NATIVE "WINDOWS COMMAND" [--rounds N] [--markdown FILE]
Each is a command that runs tarnwick_applytimes. The results are compared first; the ratios are of the least times over
all rounds.
"""
import argparse
import shlex
import subprocess
import sys

import figures


def times(command):
    """{(period, samples per UI, repetitions): (seconds, last sample)}"""
    done = subprocess.run(shlex.split(command), capture_output=True, text=True, check=True)
    rows = [line.split() for line in done.stdout.splitlines()]
    return {tuple(map(int, row[:3])): (float(row[3]), float(row[4])) for row in rows}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("native")
    parser.add_argument("windows")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--markdown", help="append the table to this file")
    options = parser.parse_args()

    least = {}
    for _ in range(options.rounds):
        native, windows = times(options.native), times(options.windows)
        if not native or native.keys() != windows.keys():
            sys.exit("windows.py: the two programs measured different lengths")
        for length, (seconds, last) in native.items():
            # Samples of about 1: the builds may differ in rounding alone.
            if abs(last - windows[length][1]) > 1e-13:
                sys.exit(f"windows.py: {length}: the results differ, {last} and {windows[length][1]}")
            here, there = least.get(length, (float("inf"), float("inf")))
            least[length] = min(here, seconds), min(there, windows[length][0])

    lines = ["| period | repetitions | here, µs | Windows build / here |", "|---|---|---|---|"]
    for (period, samples_per_ui, repetitions), (here, there) in least.items():
        lines.append(f"| {period}·{samples_per_ui} | {repetitions} | {here * 1e6:.0f} | {there / here:.2f} |")
    print("\n".join(lines))
    if options.markdown:
        figures.keep(options.markdown, "The Windows build under Wine, Bessel-Thomson, `Apply`:\n\n" + "\n".join(lines) + "\n",
                     behind=True)


if __name__ == "__main__":
    main()
