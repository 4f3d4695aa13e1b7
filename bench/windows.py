#!/usr/bin/env python3
"""The Windows build against the one of this system: Bessel-Thomson's Apply, in turns.
  bench/windows.py NATIVE "WINDOWS COMMAND" [--rounds N] [--markdown FILE]
Each is a command that runs tarnwick_applytimes. The results are compared first; the ratios are of the least times over
all rounds. Windows takes a block of 508 KiB and more from the system each time it is allocated, in small pages: the build of
this system runs as memory is had here, and again as there.
"""
import argparse
import ctypes
import os
import shlex
import subprocess
import sys

import figures


def small_pages():
    """For this process and what it becomes."""
    set_thp_disable = 41  # prctl's PR_SET_THP_DISABLE
    ctypes.CDLL(None).prctl(set_thp_disable, 1, 0, 0, 0)


def times(command, memory_as_on_windows=False):
    """{(period, samples per UI, repetitions): (seconds, last sample)}"""
    settings = {}
    if memory_as_on_windows:
        settings = {"env": {**os.environ, "MALLOC_MMAP_THRESHOLD_": str(508 * 1024)}, "preexec_fn": small_pages}
    done = subprocess.run(shlex.split(command), capture_output=True, text=True, check=True, **settings)
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
        alike = times(options.native, memory_as_on_windows=True)
        if not native or native.keys() != windows.keys():
            sys.exit("windows.py: the two programs measured different lengths")
        for length, (_, last) in native.items():
            # Samples of about 1: the builds may differ in rounding alone.
            if abs(last - windows[length][1]) > 1e-13:
                sys.exit(f"windows.py: {length}: the results differ, {last} and {windows[length][1]}")
            runs = native[length][0], alike[length][0], windows[length][0]
            least[length] = tuple(map(min, least.get(length, runs), runs))

    lines = ["| period | repetitions | here, µs | Windows build / here | / here, memory as there |", "|---|---|---|---|---|"]
    for (period, samples_per_ui, repetitions), (here, alike, there) in least.items():
        lines.append(f"| {period}·{samples_per_ui} | {repetitions} | {here * 1e6:.0f} | {there / here:.2f} | {there / alike:.2f} |")
    print("\n".join(lines))
    if options.markdown:
        figures.keep(options.markdown, "The Windows build under Wine, Bessel-Thomson, `Apply`:\n\n" + "\n".join(lines) + "\n",
                     behind=True)


if __name__ == "__main__":
    main()
