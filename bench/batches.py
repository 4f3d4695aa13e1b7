#!/usr/bin/env python3
"""Two processors against one, in both forms of the batch: `tarnwick batch` and `tarnwick.batch`.

    script/python bench/batches.py PROGRAM [--captures N] [--samples N] [--rounds N]

PROGRAM is the built `tarnwick`. The captures, NRZ at 16 samples per UI, are made in a temporary folder, their rate alone given,
so that each is read, locked, filtered, measured and written. A round runs each form with one job and with two, in turns; a
figure is the median over the rounds. Processor time is that of the batch and its workers. The machine has to be idle.
"""
import argparse
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

CHAIN = {"device": {"baudRateGBd": 10.3125},
         "filters": [{"type": "bessel-thomson"}, {"type": "ctle", "ctleType": "peaking", "gain": 3.0}]}
JOBS = (1, 2)


def make(program, folder, captures, samples):
    """Different captures of one length; as many seeds as there are files would take longer than what is timed."""
    seeds = []
    for seed in range(min(captures, 8)):
        seeds.append(folder / f"seed-{seed}.npy")
        subprocess.run([program, "simulate", "-o", seeds[-1], "--coding", "NRZ", "--prbs", "31", "--spu", "16", "--length",
                        str(samples // 16), "--loss", "4", "--noise", "0.01", "--seed", str(seed + 1)], check=True,
                       stdout=subprocess.DEVNULL)
    names = []
    for k in range(captures):
        names.append(str(folder / f"capture-{k:03}.npy"))
        os.link(seeds[k % len(seeds)], names[-1])
    return names


def timed(command):
    """[s] Wall time and processor time of a batch."""
    before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    wall, after = time.perf_counter() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", help="the built tarnwick")
    parser.add_argument("--captures", type=int, default=200)
    parser.add_argument("--samples", type=int, default=1_000_000, help="of each capture")
    parser.add_argument("--rounds", type=int, default=3)
    given = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="tarnwick-batches-") as scratch:
        folder = Path(scratch)
        captures = make(given.program, folder, given.captures, given.samples)
        chain = folder / "chain.json"
        chain.write_text(json.dumps(CHAIN))
        forms = {"tarnwick batch": [given.program, "batch"], "tarnwick.batch": [sys.executable, "-m", "tarnwick.batch"]}
        times = {(form, jobs): [] for form in forms for jobs in JOBS}
        for _ in range(given.rounds):
            for (form, jobs), rows in times.items():
                out = folder / "out"
                rows.append(timed([*forms[form], chain, *captures, "-o", out, "--jobs", str(jobs)]))
                shutil.rmtree(out)
    print(f"{given.captures} captures of {given.samples} samples, {os.cpu_count()} processors, median of {given.rounds} rounds")
    print(f"{'form':15}  jobs  wall [s]  processor [s]  captures/s")
    for (form, jobs), rows in times.items():
        wall, processor = (statistics.median(column) for column in zip(*rows))
        print(f"{form:15}  {jobs:4}  {wall:8.2f}  {processor:13.2f}  {given.captures / wall:10.2f}")
    for form in forms:
        one, two = ([wall for wall, _ in times[form, jobs]] for jobs in JOBS)
        ratios = [a / b for a, b in zip(one, two)]
        print(f"{form}: two jobs are {statistics.median(ratios):.2f} times as fast as one ({min(ratios):.2f} to {max(ratios):.2f})")


main()
