#!/usr/bin/env python3
"""The least TDECQ that a general simplex search finds for eight channels, from the definition in NumPy and nothing of the library.

Prints the table that tests/numbers/tdecq_test.cpp holds the library's search to, which takes minutes. With --check FILE the
taps of a kept table are scored again: each figure has to be what its taps give, and no simplex from there may leave it far
behind. A row: channel, TDECQ [dB] of the taps at their own phase, at the best of 16 phases, that phase [UI], the taps.
The channels are recursions that the test writes down again.
"""
import sys

import numpy as np
from scipy.optimize import brentq, minimize
from scipy.special import erfc

SPU, TAPS, PHASES, BINS = 8, 5, 16, 64
ERROR_RATIO, QT, SLICE = 4.8e-4, 3.414, 0.05  # IEEE 802.3 clause 121.8.5
STARTS = 10
EVEN = (0, 1 / 3, 2 / 3, 1)
# Poles in symbol rates; echoes: delay [samples], weight; the levels sent.
CHANNELS = {
    "one-pole": ((0.4,), (), EVEN),
    "two-poles": ((0.5, 0.6), (), EVEN),
    "slow": ((0.3, 0.8), (), EVEN),
    "reflection": ((0.5, 0.5), ((20, 0.2),), EVEN),
    "both-sides": ((0.6, 0.6), ((20, 0.2), (-13, -0.1)), EVEN),
    "compressed": ((0.4, 0.7), (), (0, 0.29, 0.62, 1)),
    "beyond-the-taps": ((0.5, 0.7), ((60, 0.04),), EVEN),
    "precursor": ((0.6, 0.6), ((-8, 0.25),), EVEN),
}


def prbs13q():
    bits = [1] * 13
    while len(bits) < 8191:
        bits.append(bits[-13] ^ bits[-12] ^ bits[-2] ^ bits[-1])
    pairs = np.array(bits + bits).reshape(-1, 2)
    return np.array([0, 1, 3, 2])[2 * pairs[:, 0] + pairs[:, 1]]


def capture(symbols, poles, echoes, levels):
    """One period of the steady state: the second turn of each pole's recursion."""
    sent = np.repeat(np.array(levels)[symbols], SPU)
    x = sent + sum(weight * np.roll(sent, delay) for delay, weight in echoes)
    for pole in poles:
        kept = np.exp(-2 * np.pi * pole / SPU)
        state, out = 0.0, np.empty(len(x))
        for _ in range(2):
            for n, value in enumerate((1 - kept) * x):
                state = out[n] = kept * state + value
        x = out
    return x


class Score:
    """TDECQ of taps w at a phase, y[i] = sum_j w_j x(centre of symbol i + phase + (c - j) UI)."""

    def __init__(self, x, symbols):
        held = np.repeat(symbols - symbols.mean(), SPU)
        lag = int(np.argmax(np.fft.irfft(np.fft.rfft(x) * np.conj(np.fft.rfft(held)), len(x))))
        self.x, self.centre = x - x.mean(), lag + SPU // 2 + SPU * np.arange(len(symbols))
        self.of_level = [np.flatnonzero(symbols == level) for level in range(4)]

    def samples(self, phase):
        place = phase * SPU
        whole = int(np.floor(place))
        here, after = (self.x[(self.centre + whole + k) % len(self.x)] for k in (0, 1))
        return here + (place - whole) * (after - here)

    def __call__(self, w, c, phase):
        def equalised(phase):
            v = self.samples(phase)
            return sum(tap * np.roll(v, j - c) for j, tap in enumerate(w))

        y = equalised(phase)
        oma = y[self.of_level[3]].mean() - y[self.of_level[0]].mean()
        thresholds = y.mean() + oma * (np.arange(3) - 1) / 3
        slices = []
        for offset in (-SLICE, SLICE):
            z = equalised(phase + offset)
            distances, shares = [], []
            for level, places in enumerate(self.of_level):
                values = z[places]
                step = (values.max() - values.min()) / BINS
                counts = np.bincount(np.minimum((values - values.min()) / step, BINS - 1).astype(int), minlength=BINS)
                middles = values.min() + (np.arange(BINS) + 0.5) * step
                if level > 0:
                    distances.append(middles - thresholds[level - 1])
                    shares.append(counts / len(z))
                if level < 3:
                    distances.append(thresholds[level] - middles)
                    shares.append(counts / len(z))
            slices.append((np.concatenate(distances) / np.sqrt(2), np.concatenate(shares)))
        ratio = lambda sigma: max(0.5 * shares @ erfc(distances / sigma) for distances, shares in slices)
        if oma <= 0 or ratio(1e-9 * oma) > ERROR_RATIO:
            levels = y.mean() + oma * (np.arange(4) - 1.5) / 3
            error = sum(np.sum((y[places] - level)**2) for places, level in zip(self.of_level, levels))
            return 50 + error / len(y) / oma**2
        sigma = brentq(lambda sigma: ratio(sigma) - ERROR_RATIO, 1e-9 * oma, oma, xtol=1e-14 * oma, rtol=1e-14)
        # White noise behind the fourth-order Bessel-Thomson receiver of half the symbol rate, a whole number of UI apart.
        rho = np.zeros(max(len(w), 4))
        rho[:4] = 1, 0.02056, 0.00135, -0.00008
        lags = abs(np.subtract.outer(np.arange(len(w)), np.arange(len(w))))
        return 10 * np.log10(oma * np.sqrt(w @ rho[lags] @ w) / (6 * QT * sigma))


def taps_of(free, c):
    return np.insert(free, c, 1 - free.sum())


def simplex(score, c, start, edge, limit):
    """The free taps and the phase of least TDECQ, with the largest tap at c."""
    def cost(v):
        w = taps_of(v[:-1], c)
        excess = abs(w).max() - abs(w[c])
        return 100 + excess if excess > 0 else score(w, c, v[-1])

    corners = np.vstack([start, start + edge * np.eye(len(start))])
    found = minimize(cost, start, method="Nelder-Mead",
                     options={"initial_simplex": corners, "maxfev": limit, "xatol": 1e-5, "fatol": 1e-6})
    return found.fun, found.x


def search(score, name):
    """From ten starts spread over the cursors and phases, each restarted where it ended until that gains nothing."""
    random = np.random.default_rng(1)
    best = (np.inf, None, None)
    for start in range(STARTS):
        c = start % 3
        v = np.append(random.normal(0, 0.1, TAPS - 1), random.uniform(-0.3, 0.3))
        least = np.inf
        for edge in (0.1, 0.05, 0.05, 0.02, 0.02, 0.02):
            value, v = simplex(score, c, v, edge, 1500)
            gained, least = least - value, value
            if gained < 1e-4:
                break
        print(f"{name}: start {start}, cursor {c}: {least:.4f} dB", file=sys.stderr)
        if least < best[0]:
            best = (least, c, v)
    return best[1:]


def row(score, w, phase):
    c = int(np.argmax(abs(w)))
    at_phases = min(score(w, c, k / PHASES - 0.5) for k in range(PHASES))
    return np.concatenate([[score(w, c, phase), at_phases, phase], w])


def main():
    symbols = prbs13q()
    scores = {name: Score(capture(symbols, *channel), symbols) for name, channel in CHANNELS.items()}
    if sys.argv[1:2] != ["--check"]:
        for name, score in scores.items():
            c, v = search(score, name)
            print(name, *(f"{value:.15g}" for value in row(score, taps_of(v[:-1], c), v[-1])), flush=True)
        return
    with open(sys.argv[2], encoding="ascii") as file:
        table = {name: np.array(values, float) for name, *values in map(str.split, file)}
    if table.keys() != scores.keys():
        sys.exit(f"{sys.argv[2]} has other channels")
    for name, kept in table.items():
        given = row(scores[name], kept[3:], kept[2])
        # A sum in another order may put a sample into the next bin of a histogram.
        if np.max(abs(given - kept)) > 1e-4:
            sys.exit(f"{sys.argv[2]}: the taps of {name} give {given[0]:.6f} and {given[1]:.6f} dB")
        c = int(np.argmax(abs(kept[3:])))
        least = simplex(scores[name], c, np.append(np.delete(kept[3:], c), kept[2]), 0.02, 200)[0]
        if least < kept[0] - 0.002:
            sys.exit(f"{sys.argv[2]}: a simplex from the taps of {name} reaches {least:.4f} dB, not {kept[0]:.4f}")


main()
