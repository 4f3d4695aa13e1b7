"""What the tests of the Python module share: signals, and the program that they are compared with."""
import os
import subprocess

import matplotlib
import numpy as np
import pytest

matplotlib.use("Agg")

def _prbs7():
    """One period of x^7 + x^6 + 1 from all ones."""
    bits = [1] * 7
    while len(bits) < 127:
        bits.append(bits[-7] ^ bits[-6])
    return "".join(map(str, bits))


PATTERN = _prbs7()
DEVICE = {"baudRateGBd": 10.3125, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": PATTERN}


@pytest.fixture(scope="session")
def wave():
    """[V] One period of PATTERN behind a channel that smears each edge over a UI."""
    levels = np.repeat([0.2 if bit == "1" else -0.2 for bit in PATTERN], DEVICE["samplesPerUi"])
    taps = np.exp(-np.arange(24) / 5.0)
    spectrum = np.fft.rfft(taps / taps.sum(), levels.size) * np.fft.rfft(levels)
    return np.fft.irfft(spectrum, levels.size) + 1e-3 * np.random.default_rng(7).normal(size=levels.size)


@pytest.fixture(scope="session")
def program():
    """Runs the program with arguments; its output."""
    def run(*arguments):
        return subprocess.run([os.environ["TARNWICK_PROGRAM"], *map(str, arguments)], check=True, capture_output=True,
                              text=True).stdout
    return run
