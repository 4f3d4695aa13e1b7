#!/usr/bin/env python3
"""Apply and Prepare of the library against SciPy's best way to do the same, taking turns in one process.

For each record the answers are compared first; then rounds of (library, SciPy, naive transforms, lower bound) are timed and the
ratios are medians over the rounds. "naive" is the direct reading of circular convolution: complex transforms of segment
and kernel at the exact length, in the same FFT library. "bound" is one real transform and one inverse at the
nearest smooth length and one copy of the record, which no dense kernel can do without.

Usage: compare.py SHIM [--program TARNWICK] [--quick] [--markdown FILE]
SHIM is the benchmark module that CMake builds (libtarnwick_benchshim.so).
"""
import argparse
import ctypes
import json
import math
import pathlib
import platform
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np
import scipy
import scipy.fft
import scipy.ndimage

import figures

DOUBLES = ctypes.POINTER(ctypes.c_double)


def load(path):
    shim = ctypes.CDLL(path)
    for name, result, arguments in (
        ("bench_bessel_thomson", ctypes.c_void_p, [ctypes.c_int] * 3),
        ("bench_ctle", ctypes.c_void_p, [ctypes.c_int] * 3 + [ctypes.c_double]),
        ("bench_taps", ctypes.c_void_p, [ctypes.c_int] * 3),
        ("bench_taps_run", ctypes.c_int, [ctypes.c_void_p]),
        ("bench_taps_naive", ctypes.c_int, [ctypes.c_void_p]),
        ("bench_taps_destroy", None, [ctypes.c_void_p]),
        ("bench_ffe", ctypes.c_void_p, [ctypes.c_int] * 3 + [ctypes.c_bool, ctypes.c_char_p]),
        ("bench_capture", ctypes.c_void_p, [ctypes.c_int, ctypes.c_double]),
        ("bench_capture_count", ctypes.c_int, [ctypes.c_void_p]),
        ("bench_lock", ctypes.c_double, [ctypes.c_void_p]),
        ("bench_read_capture", ctypes.c_void_p, [ctypes.c_char_p]),
        ("bench_capture_samples", DOUBLES, [ctypes.c_void_p]),
        ("bench_capture_destroy", None, [ctypes.c_void_p]),
        ("bench_shade", ctypes.c_double, [DOUBLES, ctypes.c_int, ctypes.c_double]),
        ("bench_read_network", ctypes.c_int, [ctypes.c_char_p]),
        ("bench_moving_average", ctypes.c_void_p, [ctypes.c_int] * 4),
        ("bench_prepare", None, [ctypes.c_void_p, DOUBLES, ctypes.c_int]),
        ("bench_kernel", DOUBLES, [ctypes.c_void_p]),
        ("bench_apply", ctypes.c_void_p, [ctypes.c_void_p, DOUBLES, ctypes.c_int]),
        ("bench_release", None, [ctypes.c_void_p]),
        ("bench_destroy", None, [ctypes.c_void_p]),
        ("bench_lower_bound", ctypes.c_void_p, [ctypes.c_int]),
        ("bench_lower_bound_run", None, [ctypes.c_void_p, DOUBLES, DOUBLES, ctypes.c_int, ctypes.c_int]),
        ("bench_naive", ctypes.c_void_p, [ctypes.c_int]),
        ("bench_naive_transform", None, [ctypes.c_void_p]),
        ("bench_naive_run", None, [ctypes.c_void_p, DOUBLES, DOUBLES, ctypes.c_int, DOUBLES, ctypes.c_int]),
    ):
        function = getattr(shim, name)
        function.restype = result
        function.argtypes = arguments
    return shim


def pointer(array):
    return array.ctypes.data_as(DOUBLES)


def smooth_even(length):
    """The least even length of prime factors up to 7."""
    length += length % 2
    while True:
        rest = length
        for prime in (2, 3, 5, 7):
            while rest % prime == 0:
                rest //= prime
        if rest == 1:
            return length
        length += 2


def scipy_ways(kernel, period, repetitions):
    """SciPy's ways to convolve each row of a record circularly with one kernel; the kernel's spectrum is kept."""
    exact = scipy.fft.rfft(np.pad(kernel, (0, period - len(kernel))))
    padded_length = scipy.fft.next_fast_len(period + len(kernel) - 1, real=True)
    padded = scipy.fft.rfft(kernel, padded_length)

    def fold(y):
        out = y[..., :period].copy()
        tail = period + len(kernel) - 1 - period
        out[..., :tail] += y[..., period:period + tail]
        return out

    def exact_loop(x):
        return np.concatenate([scipy.fft.irfft(scipy.fft.rfft(row) * exact, period) for row in x.reshape(repetitions, -1)])

    def exact_batch(x):
        return scipy.fft.irfft(scipy.fft.rfft(x.reshape(repetitions, -1)) * exact, period).ravel()

    def padded_loop(x):
        rows = x.reshape(repetitions, -1)
        return np.concatenate([fold(scipy.fft.irfft(scipy.fft.rfft(row, padded_length) * padded, padded_length)) for row in rows])

    def padded_batch(x):
        rows = x.reshape(repetitions, -1)
        return fold(scipy.fft.irfft(scipy.fft.rfft(rows, padded_length) * padded, padded_length)).ravel()

    return [exact_loop, exact_batch, padded_loop, padded_batch]


def acquisition(shim, ui, spu, rounds):
    """The whole acquisition of a capture about which nothing is known, against one real transform and one inverse."""
    capture = shim.bench_capture(ui, spu)
    count = shim.bench_capture_count(capture)
    values = np.random.default_rng(1).standard_normal(count)
    ratios, times = [], []
    found = []
    grown = peak_growth(lambda: found.append(shim.bench_lock(capture)))
    found = found[0]
    added = None if grown is None else 1.0 + grown * 2**20 / (8 * count)
    if abs(found - spu) * ui > 0.1 * spu:
        sys.exit(f"acquisition: found {found} samples per UI instead of {spu}")
    for _ in range(rounds):
        times.append(once(lambda: shim.bench_lock(capture)))
        ratios.append(times[-1] / once(lambda: scipy.fft.irfft(scipy.fft.rfft(values), count)))
    shim.bench_capture_destroy(capture)
    return count, spu, 1e3 * statistics.median(times), statistics.median(ratios), added


def once(call):
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def seconds(call, at_least=0.02):
    """Time of one call, averaged over enough calls to last."""
    first = once(call)
    count = max(1, min(200, int(at_least / max(first, 1e-7))))
    start = time.perf_counter()
    for _ in range(count):
        call()
    return (time.perf_counter() - start) / count


def peak_kib():
    with open("/proc/self/status", encoding="ascii") as status:
        for line in status:
            if line.startswith("VmHWM:"):
                return int(line.split()[1])
    return 0


def peak_growth(call):
    """Growth of the process's peak resident memory [MiB] during one call; None where the system does not tell."""
    try:
        with open("/proc/self/clear_refs", "w", encoding="ascii") as reset:
            reset.write("5")
    except OSError:
        return None
    before = peak_kib()
    call()
    return (peak_kib() - before) / 1024.0


class Ours:
    def __init__(self, shim, job, samples):
        self.shim, self.job, self.samples = shim, job, samples
        shim.bench_prepare(job, pointer(samples), len(samples))

    def __call__(self):
        self.shim.bench_release(self.shim.bench_apply(self.job, pointer(self.samples), len(self.samples)))

    def result(self):
        raw = self.shim.bench_apply(self.job, pointer(self.samples), len(self.samples))
        values = np.ctypeslib.as_array(ctypes.cast(raw, DOUBLES), (len(self.samples),)).copy()
        self.shim.bench_release(raw)
        return values


def dense(shim, job, ui, spu, repetitions, rounds):
    period = ui * spu
    samples = np.random.default_rng(1).standard_normal(period * repetitions)
    ours = Ours(shim, job, samples)
    kernel = np.ctypeslib.as_array(shim.bench_kernel(job), (period - 1,)).copy()  # of an even period
    memory = peak_growth(ours)

    ways = scipy_ways(kernel, period, repetitions)
    expected = ways[0](samples)
    error = np.max(np.abs(ours.result() - expected)) / np.max(np.abs(expected))
    if not error < 1e-13:
        raise SystemExit(f"compare.py: {ui} UI x {spu}: answers differ by {error:.3g} of the peak; expected below 1e-13")
    best = min(ways, key=lambda way: min(once(lambda: way(samples)) for _ in range(2)))
    bound = shim.bench_lower_bound(smooth_even(period))
    naive = shim.bench_naive(period)
    scratch = np.empty_like(samples)

    def run_bound():
        shim.bench_lower_bound_run(bound, pointer(samples), pointer(scratch), period, len(samples))

    def run_naive():
        shim.bench_naive_run(naive, pointer(samples), pointer(kernel), len(kernel), pointer(scratch), len(samples))

    ratios, times = [], []
    for _ in range(rounds):
        us = seconds(ours)
        times.append(us / repetitions)
        ratios.append((us / seconds(lambda: best(samples)), us / seconds(run_naive), us / seconds(run_bound)))
    shim.bench_destroy(job)
    medians = [statistics.median(column) for column in zip(*ratios)]
    return [f"{ui}·{spu}", repetitions, statistics.median(times) * 1e6, *medians, memory, len(samples) * 8 / 2**20]


def boxcar(shim, ui, spu, window, rounds):
    samples = np.random.default_rng(2).standard_normal(ui * spu)
    job = shim.bench_moving_average(ui, spu, 1, window)
    ours = Ours(shim, job, samples)
    expected = scipy.ndimage.uniform_filter1d(samples, window, mode="wrap")
    error = np.max(np.abs(ours.result() - expected))
    if not error < 1e-11:
        raise SystemExit(f"compare.py: window {window}: answers differ by {error:.3g}; expected below 1e-11")
    target = np.empty_like(samples)
    ratios = []
    for _ in range(rounds):
        us = seconds(ours)
        ratios.append((us / seconds(lambda: scipy.ndimage.uniform_filter1d(samples, window, mode="wrap")),
                       us / seconds(lambda: np.copyto(target, samples))))
    shim.bench_destroy(job)
    return [f"{ui}·{spu}", window, *[statistics.median(column) for column in zip(*ratios)]]


def prepare(shim, ui, spu, type_, gain, rounds):
    """Prepare of a CTLE over one repetition against one complex transform of that length: SciPy's and ours."""
    period = ui * spu
    samples = np.zeros(period)
    job = shim.bench_ctle(ui, spu, type_, gain)
    transform = shim.bench_naive(period)
    data = np.full(period, 0.25 - 0.5j)

    def run():
        shim.bench_prepare(job, pointer(samples), period)

    run()
    ratios, times = [], []
    for _ in range(rounds):
        us = seconds(run)
        times.append(us)
        ratios.append((us / seconds(lambda: scipy.fft.ifft(data)),
                       us / seconds(lambda: shim.bench_naive_transform(transform))))
    shim.bench_destroy(job)
    return [f"{ui}·{spu}", statistics.median(times) * 1e3, *[statistics.median(column) for column in zip(*ratios)]]


def taps(shim, samples, count, rounds):
    """The least-squares step of the FFE's tap search against the matrices of samples it is defined by."""
    job = shim.bench_taps(samples, count, 16)
    chosen, expected = shim.bench_taps_run(job), shim.bench_taps_naive(job)
    if chosen != expected:
        raise SystemExit(f"compare.py: {count} taps: candidate {chosen} chosen; expected {expected}")
    memory = peak_growth(lambda: shim.bench_taps_run(job))
    times, ratios = [], []
    for _ in range(rounds):
        us = seconds(lambda: shim.bench_taps_run(job))
        times.append(us)
        ratios.append(us / once(lambda: shim.bench_taps_naive(job)))
    shim.bench_taps_destroy(job)
    return [samples, count, statistics.median(times) * 1e3, statistics.median(ratios), memory]


def phase_fit(shim, ui, spu, count, rounds):
    """Prepare of an FFE that is fitted at the sampling phase against that of one fitted to the whole waveform; symbols given."""
    random = np.random.default_rng(3)
    bits = random.integers(0, 2, ui)
    held = np.repeat(bits - 0.5, spu)
    samples = held + 0.3 * np.roll(held, 20) - 0.1 * np.roll(held, -13) + 0.01 * random.standard_normal(ui * spu)
    symbols = "".join(map(str, bits)).encode()
    whole, at_phase = (shim.bench_ffe(ui, spu, count, way, symbols) for way in (False, True))

    def opening(job):
        """Of the eye at the best phase, by the signs of its samples."""
        shim.bench_prepare(job, pointer(samples), len(samples))
        taps = np.ctypeslib.as_array(shim.bench_kernel(job), (count * spu,))[::spu]
        equalised = sum(tap * np.roll(samples, j * spu) for j, tap in enumerate(taps))
        magnitudes = abs(equalised - equalised.mean()).reshape(ui, spu)
        return np.max(magnitudes.min(axis=0) / magnitudes.mean(axis=0))

    openings = opening(whole), opening(at_phase)
    if not 0.0 < openings[0] <= openings[1] + 0.005:
        raise SystemExit(f"compare.py: {count} taps: openings {openings[0]:.3f}, {openings[1]:.3f}; expected the second larger")
    memory = peak_growth(lambda: shim.bench_prepare(at_phase, pointer(samples), len(samples)))
    times = []
    for _ in range(rounds):
        times.append([once(lambda: shim.bench_prepare(job, pointer(samples), len(samples))) for job in (whole, at_phase)])
    for job in (whole, at_phase):
        shim.bench_destroy(job)
    return [f"{ui}·{spu}", count, *[1e3 * statistics.median(column) for column in zip(*times)],
            statistics.median(b / a for a, b in times), memory, len(samples) * 8 / 2**20]


def processor(call):
    """Seconds of processor time, of all threads: a machine that is shared does not change it much."""
    start = time.process_time()
    call()
    return time.process_time() - start


def child(command, output=subprocess.DEVNULL):
    """Processor time [s], its share of the time that passed, and peak resident memory [bytes] of a program that has to
    succeed."""
    # A process inherits the peak of the one that starts it, so that a small one has to.
    between = ("import json, resource, subprocess, sys, time; start = time.perf_counter(); "
               "subprocess.run(sys.argv[1:], stdout=sys.stderr, check=True); passed = time.perf_counter() - start; "
               "used = resource.getrusage(resource.RUSAGE_CHILDREN); taken = used.ru_utime + used.ru_stime; "
               "print(json.dumps([taken, taken / passed, 1024 * used.ru_maxrss]))")
    result = subprocess.run([sys.executable, "-S", "-c", between, *map(str, command)], stdout=subprocess.PIPE, stderr=output,
                            check=False)
    if result.returncode != 0:
        raise SystemExit(f"compare.py: {' '.join(map(str, command))} has failed")
    return json.loads(result.stdout)


def read_capture(shim, path):
    """A capture as the library reads it."""
    capture = shim.bench_read_capture(str(path).encode())
    count = shim.bench_capture_count(capture)
    samples = np.ctypeslib.as_array(shim.bench_capture_samples(capture), (count,)).copy()
    shim.bench_capture_destroy(capture)
    return samples


def program_apply(shim, program, folder, repetitions, rounds):
    """`tarnwick apply` with one filter, from .npy to .npy, against Prepare and Apply of that filter: as the same process runs
    them, and once more where the chirp is made and the memory at hand; its memory against the capture's; and the two pictures of
    --eye, as far as the library makes them, against the filter."""
    ui, spu = 32767, 16
    capture, chain, result = folder / "capture.npy", folder / "chain.json", folder / "filtered.npy"
    child([program, "simulate", "-o", capture, "--prbs", "15", "--coding", "NRZ", "--spu", str(spu),
           "--repetitions", str(repetitions), "--loss", "4", "--noise", "0.01"])
    chain.write_text(json.dumps({"device": {"baudRateGBd": 26.5625, "signalCoding": "NRZ", "samplesPerUi": spu,
                                            "patternSymbols": {"prbs": 15}},
                                 "filters": [{"type": "bessel-thomson"}]}), encoding="ascii")
    command = [program, "apply", chain, capture, "-o", result, "--json"]
    samples = np.load(capture)
    child(command)
    job = shim.bench_bessel_thomson(ui, spu, repetitions)
    expected = Ours(shim, job, samples).result()
    error = np.max(np.abs(np.load(result) - expected)) / np.max(np.abs(expected))
    if not error < 1e-12:
        raise SystemExit(f"compare.py: apply: answers differ by {error:.3g} of the peak; expected below 1e-12")
    shim.bench_destroy(job)

    def filter_once():
        job = shim.bench_bessel_thomson(ui, spu, repetitions)
        shim.bench_prepare(job, pointer(samples), len(samples))
        shim.bench_release(shim.bench_apply(job, pointer(samples), len(samples)))
        shim.bench_destroy(job)

    ratios = []
    for _ in range(rounds):
        again = processor(filter_once)
        with open(folder / "report.json", "w+", encoding="ascii") as report:
            taken, share, memory = child(command, report)
            report.seek(0)
            # The program tells the time that passed.
            within = share * json.load(report)["stages"][1]["seconds"]
        pictures = 2 * processor(lambda: shim.bench_shade(pointer(samples), len(samples), spu))
        ratios.append((taken / within, taken / again, memory / samples.nbytes, pictures / within, pictures / again))
    applied, applied_again, memory, pictures, pictures_again = (statistics.median(column) for column in zip(*ratios))
    name = f"{len(samples) / 1e6:.1f} million samples"
    within, again = "Prepare and Apply of its filter", "the filter once more in another process"
    return [(f"`apply`, one filter, {name}", within, applied, 4.0), ("", again, applied_again, math.inf),
            (f"its memory, {name}", "the capture", memory, 3.0),
            (f"two pictures of eyes, {name}", within, pictures, 2.0), ("", again, pictures_again, math.inf)]


def text_reading(shim, folder, count, rounds):
    """Text captures, of one column and of two, against NumPy's loadtxt."""
    values = np.random.default_rng(4).standard_normal(count)
    rows = []
    for name, columns, options in (("a value a line", values[:, None], {}),
                                   ("time and value", np.stack([np.arange(count) * 1e-12, values], 1), {"delimiter": ","})):
        path = folder / "capture.csv"
        np.savetxt(path, columns, fmt="%.9g", **options)
        expected = np.loadtxt(path, ndmin=2, **options)[:, -1]
        if not np.array_equal(read_capture(shim, path), expected):
            raise SystemExit(f"compare.py: {name}: read differently; expected the same to the bit")
        ratios = [processor(lambda: shim.bench_capture_destroy(shim.bench_read_capture(str(path).encode())))
                  / processor(lambda: np.loadtxt(path, **options)) for _ in range(rounds)]
        rows.append((f"reading text, {name}, {count} lines", "NumPy's `loadtxt`", statistics.median(ratios), 0.40))
    return rows


def touchstone(shim, program, folder, rounds):
    """`tarnwick touchstone` on a file of some 4 MB against reading its parameters once."""
    path = folder / "fixture.s4p"
    points = 7500
    with open(path, "w", encoding="ascii") as file:
        file.write("# GHz S MA R 50\n")
        for k in range(1, points + 1):
            for to in range(4):
                row = [f"{0.9 * math.exp(-k / 3000) / (1 + 3 * abs(to - by)):.9e} {-3.0 * k % 360 - 180:.9e}" for by in range(4)]
                file.write((f"{0.01 * k:.9f} " if to == 0 else "") + " ".join(row) + "\n")
    report = subprocess.run([program, "touchstone", path, "--json"], stdout=subprocess.PIPE, check=True)
    if shim.bench_read_network(str(path).encode()) != points or json.loads(report.stdout)["points"] != points:
        raise SystemExit(f"compare.py: touchstone: another number of points was read than {points}")
    ratios = [child([program, "touchstone", path])[0] / processor(lambda: shim.bench_read_network(str(path).encode()))
              for _ in range(rounds)]
    return (f"`touchstone`, {path.stat().st_size / 1e6:.1f} MB", "reading the parameters", statistics.median(ratios), 5.0)


def whole_program(shim, program, quick, rounds):
    """The table of the program; the number of its figures above their limits."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        rows = program_apply(shim, program, folder, 4 if quick else 16, rounds)
        rows += text_reading(shim, folder, 200_000 if quick else 1_000_000, rounds)
        rows.append(touchstone(shim, program, folder, rounds))
    late = [value > limit for _, _, value, limit in rows]
    lines = [[what, against, f"{value:.2f}{' !' if mark else ''}", "-" if limit == math.inf else f"{limit:g}"]
             for (what, against, value, limit), mark in zip(rows, late)]
    return "The program, processor time:\n\n" + table(["what", "against", "ratio", "limit"], lines), sum(late)


def limits(period):
    """What the figures have to stay below: against SciPy, naive transforms and the bound."""
    against_scipy = 0.70 if period <= 65536 else (0.35 if period >= 1_000_000 else 0.65)
    against_bound = 3.3 if period <= 131_000 else (1.5 if period >= 1_000_000 else 2.5)
    return against_scipy, 0.25, against_bound


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("shim")
    parser.add_argument("--program", help="tarnwick: time the whole program too")
    parser.add_argument("--quick", action="store_true", help="few lengths, few rounds")
    parser.add_argument("--markdown", help="write the tables to this file too, or to their place in a document")
    options = parser.parse_args()
    shim = load(options.shim)
    rounds = 3 if options.quick else 7
    lengths = [(127, 8), (2047, 16), (8191, 16)] if options.quick else [
        (ui, spu) for ui in (127, 511, 2047, 8191, 32767, 65535) for spu in (8, 16, 32)]

    missed = 0
    text = ""
    head = ["period", "repetitions", "µs each", "/ SciPy", "/ naive", "/ bound", "first Apply, MiB (output)"]
    for name, make, periods in (
        ("Bessel-Thomson", lambda ui, spu, repetitions: shim.bench_bessel_thomson(ui, spu, repetitions), lengths),
        ("CTLE (peaking, 6 dB)", lambda ui, spu, repetitions: shim.bench_ctle(ui, spu, 0, 6.0), lengths[::4]),
    ):
        rows = []
        for ui, spu in periods:
            repetitions = 8 if ui * spu < 60_000 else 2
            row = dense(shim, make(ui, spu, repetitions), ui, spu, repetitions, rounds)
            marks = [value > limit for value, limit in zip(row[3:6], limits(ui * spu))]
            missed += any(marks)
            memory = "-" if row[6] is None else f"{row[6]:.1f} ({row[7]:.1f})"
            rows.append([row[0], str(row[1]), f"{row[2]:.0f}",
                         *[f"{value:.2f}{' !' if mark else ''}" for value, mark in zip(row[3:6], marks)], memory])
            print(name, *rows[-1], file=sys.stderr, flush=True)
        text += f"{name}, `Apply`:\n\n" + table(head, rows) + "\n\n"

    rows = []
    for ui, spu in ((127, 8), (8191, 16)) if options.quick else ((127, 8), (8191, 16), (8191, 32), (65535, 16)):
        for name, type_, gain in (("peaking, 6 dB", 0, 6.0), ("HDMI 2.0, 6 dB", 2, 6.0), ("IEEE 802.3bs, 6 dB", 3, 6.0),
                                  ("OIF CEI-112G", 4, -6.0)):
            row = prepare(shim, ui, spu, type_, gain, rounds)
            marks = [value > 2.5 for value in row[2:]]
            missed += any(marks)
            rows.append([row[0], name, f"{row[1]:.2f}",
                         *[f"{value:.2f}{' !' if mark else ''}" for value, mark in zip(row[2:], marks)]])
            print("CTLE Prepare", *rows[-1], file=sys.stderr, flush=True)
    text += ("CTLE, `Prepare` against one complex transform of the period:\n\n"
             + table(["period", "type", "ms", "/ SciPy's transform", "/ FFTW's"], rows))

    rows = []
    for samples, count in ((131_056, 5),) if options.quick else ((131_056, 5), (262_112, 5), (262_112, 11), (1_048_560, 5)):
        row = taps(shim, samples, count, rounds)
        late = row[3] > 0.03 or (row[4] is not None and row[4] > 2.0)
        missed += late
        memory = "-" if row[4] is None else f"{row[4]:.1f}"
        rows.append([str(row[0]), str(row[1]), f"{row[2]:.1f}", f"{row[3]:.4f}{' !' if late else ''}", memory])
        print("FFE taps", *rows[-1], file=sys.stderr, flush=True)
    text += "\n\nFFE, least-squares step:\n\n" + table(["samples", "taps", "ms", "/ matrices", "added, MiB"], rows)

    rows = []
    for ui, spu, count in ((8191, 16, 15),) if options.quick else ((8191, 16, 5), (8191, 16, 15), (1_048_576, 16, 15)):
        row = phase_fit(shim, ui, spu, count, max(3, rounds // 2))
        late = row[4] > 3.0
        missed += late
        rows.append([row[0], str(row[1]), f"{row[2]:.0f}", f"{row[3]:.0f}", f"{row[4]:.2f}{' !' if late else ''}",
                     "-" if row[5] is None else f"{row[5]:.0f} ({row[6]:.0f})"])
        print("FFE at the sampling phase", *rows[-1], file=sys.stderr, flush=True)
    text += ("\n\nFFE, `Prepare` with the fit at the sampling phase against that with the fit to the whole waveform, symbols given:\n\n"
             + table(["period", "taps", "waveform, ms", "phase, ms", "/ waveform", "added, MiB (record)"], rows))

    rows = []
    for ui, spu in ((8191, 16), (65535, 32)):
        for window in (3, 11, 31, 101):
            row = boxcar(shim, ui, spu, window, rounds)
            missed += row[3] > 11
            rows.append([row[0], str(row[1]), f"{row[2]:.2f}", f"{row[3]:.1f}{' !' if row[3] > 11 else ''}"])
    text += "\n\nMoving average, `Apply`, one repetition:\n\n" + table(["period", "window", "/ SciPy", "/ copy"], rows)

    rows = []
    for ui, spu in ((20_000, 8.0), (20_000, 7.3)) if options.quick else ((20_000, 7.3), (1_048_576, 8.0), (1_048_576, 8.003)):
        row = acquisition(shim, ui, spu, max(3, rounds // 3))
        late = row[0] > 1_000_000 and (row[3] > 6 or (row[4] or 0) > 3)
        missed += late
        rows.append([str(row[0]), f"{row[1]:g}", f"{row[2]:.0f}", f"{row[3]:.2f}{' !' if late else ''}", "-" if row[4] is None else f"{row[4]:.1f}"])
        print("Acquisition", *rows[-1], file=sys.stderr, flush=True)
    text += ("\n\nAcquisition of a capture about which nothing is known, against one real transform and its inverse:\n\n"
             + table(["samples", "per UI", "ms", "/ SciPy's rfft + irfft", "peak memory / capture"], rows))

    if options.program:
        of_program, late = whole_program(shim, options.program, options.quick, 3)
        missed += late
        text += "\n\n" + of_program
        print(of_program, file=sys.stderr, flush=True)

    one = dense(shim, shim.bench_bessel_thomson(511, 8, 1), 511, 8, 1, rounds)[2]
    many = dense(shim, shim.bench_bessel_thomson(511, 8, 64), 511, 8, 64, rounds)[2]
    missed += many / one > 1.1
    text += f"\n\n64 repetitions of 511·8 cost {many / one:.2f} times one, each.\n"
    text += (f"\nPython {platform.python_version()}, SciPy {scipy.__version__}, NumPy {np.__version__}, {rounds} rounds. "
             f"Smaller is better; `!` marks a figure above its limit: {missed} of them.\n")
    print(text)
    if options.markdown:
        figures.keep(options.markdown, text)


if __name__ == "__main__":
    main()
