#!/usr/bin/env python3
"""Every filter's answer to one small capture, from its formulas in NumPy and nothing of the library.

Prints the table that tests/numbers/numbers_test.cpp holds the library to, or with --check FILE compares a kept one.
The capture, the fixture and the measured responses are closed forms that the test writes down again.
"""
import sys

import numpy as np

BAUD, SPU, UI, REPEATS = 26.5625e9, 8, 31, 2
PERIOD = SPU * UI
COUNT = PERIOD * REPEATS
FS = BAUD * SPU
STEP = 9  # every ninth sample is kept: all phases of a UI come up


def bits():
    """One period of x^5 + x^3 + 1."""
    b = [1] * 5
    while len(b) < UI:
        b.append(b[-5] ^ b[-3])
    return np.array(b)


def capture():
    n = np.arange(COUNT)
    held = lambda k: bits()[k % PERIOD // SPU]
    return 0.5 * (held(n) + held(n - 1)) + 0.3 * held(n - SPU) + 0.01 * np.sin(0.7 * n * n)


def convolved(x, taps, period=PERIOD):
    """Circularly, each period alone; taps longer than a period fold."""
    folded = np.zeros(period)
    np.add.at(folded, np.arange(len(taps)) % period, taps)
    spectrum = np.fft.fft(folded)
    return np.concatenate([np.fft.ifft(np.fft.fft(part) * spectrum).real for part in x.reshape(-1, period)])


def impulse(half, count):
    """Real inverse transform of `count` bins from those up to the middle."""
    bins = np.zeros(count, complex)
    bins[:len(half)] = half
    for k in range(1, len(half)):
        bins[count - k] = np.conj(half[k])
    return np.fft.ifft(bins).real


def bessel4(f, cutoff, at_cutoff):
    """Reverse Bessel polynomial of order 4 (Thomson 1949); at_cutoff is its normalised -3 dB angular frequency."""
    s = 1j * at_cutoff * f / cutoff
    return 105 / (s**4 + 10 * s**3 + 45 * s**2 + 105 * s + 105)


def noise_preserved(h, f, count, corner, upper):
    """Equal noise power below the corner and over all bins, by the root of a quadratic in the lift."""
    w = np.full(len(h), 2.0)
    w[0] = 1.0
    if count % 2 == 0:
        w[-1] = 1.0
    a = abs(h)
    inside, above = f <= corner, f > upper
    out = ~inside & ~above
    end = min(2 * corner, upper, f[-1])
    t = 0.5 - 0.5 * np.cos(np.pi * np.clip((f - corner) / (end - corner), 0, 1))
    power = (w * a**2)[inside].sum() / w[inside].sum()
    qa = (w * t**2)[out].sum()
    qb = 2 * (w * a * t * (1 - t))[out].sum()
    qc = (w * (a * (1 - t))**2)[out].sum() + (w * a**2)[inside | above].sum() - count * power
    lift = (-qb + np.sqrt(qb * qb - 4 * qa * qc)) / (2 * qa)
    return np.where(out, (a * (1 - t) + lift * t) * h / a, h)


def bessel_thomson(preserve):
    taps = PERIOD - 1
    f = np.arange(taps // 2 + 1) * FS / taps
    h = bessel4(f, 0.75 * BAUD, 2.11393)
    return impulse(noise_preserved(h, f, taps, 35e9, 200e9) if preserve else h, taps)


def ctle(response):
    """Over the whole record, the bin at half the sample rate absent."""
    f = np.arange(COUNT // 2) * FS / COUNT
    return impulse(response(f), COUNT - 1)


def peaking(f, gain=4.0):
    w, wn = 2 * np.pi * f, np.pi * BAUD
    p1, p2 = 2 * np.pi * (BAUD / 2 - BAUD / 40), 2 * np.pi * (BAUD / 2 + BAUD / 40)
    two_poles = lambda w: p1 * p2 / ((p1 + 1j * w) * (p2 + 1j * w))
    z = wn / np.sqrt((10**(gain / 20) / abs(two_poles(wn)))**2 - 1)
    h = lambda w: (1 + 1j * w / z) * two_poles(w)
    return h(w) / abs(h(wn))


def hdmi(f):
    """Level 3: ratio 1.8."""
    w, p1, p2 = 2 * np.pi * f, 2 * np.pi * 3.5e9, 2 * np.pi * 10e9
    return (1 + 1j * w / (p1 / 1.8)) / ((1 + 1j * w / p1) * (1 + 1j * w / p2))


def hdmi2(f, gain=4.0):
    x = (gain + 0.705115) / (8.685890 * np.sqrt(BAUD / 2))
    return np.exp((1 + 1j) * x * np.sqrt(np.minimum(f, BAUD))) * bessel4(f, BAUD, 2 * np.pi * 0.33644)


def ieee(f):
    """Preset 4.5 of IEEE 802.3bs."""
    g = f / 1e9
    return (0.595662 * (1 + 1j * g / 7.076858) * (1 + 1j * g / 1.0) /
            ((1 + 1j * g / 26.5625) * (1 + 1j * g / 14.1) * (1 + 1j * g / 1.2)))


def oif(f):
    g = f / 1e9
    return ((10**(-6 / 20) + 1j * g / 20) * (10**(-1 / 20) + 1j * g / 1.2) /
            ((1 + 1j * g / 40) * (1 + 1j * g / 53) * (1 + 1j * g / 1.2)))


def truncated(a, b):
    return int(a / b)


def ffe(x, cursor=0, taps=5):
    x = x[:PERIOD]
    ideal = x.min() + (x.max() - x.min()) * np.repeat(bits(), SPU)
    ideal = ideal - ideal.mean()
    x = x - x.mean()
    f = np.fft.fftfreq(PERIOD, 1 / (26.5625 * SPU))
    ideal = np.fft.ifft(np.fft.fft(ideal) * np.exp(-np.log(2) / 2 * (f / 40)**2)).real
    correlation = convolved(ideal, x[::-1])
    peak = int(np.argmax(abs(correlation)))
    ideal = ideal * np.sign(correlation[peak])
    columns = np.array([np.roll(x, peak + j * SPU) for j in range(taps)]).T
    if cursor:
        candidates = [np.roll(ideal, (cursor - 1) * SPU - 1)]
    else:
        count = 4 * taps + (4 * taps + 1) % 2
        offsets = [k // 2 if k % 2 == 0 else -(k + 1) // 2 for k in range(count)]
        candidates = [np.roll(ideal, truncated(o * SPU, 4) + taps * SPU // 2) for o in offsets]
    solutions = [np.linalg.lstsq(columns, y, rcond=None)[0] for y in candidates]
    errors = [np.sum((y - columns @ w)**2) for y, w in zip(candidates, solutions)]
    return spread(solutions[int(np.argmin(errors))])


def spread(taps):
    out = np.zeros(len(taps) * SPU)
    out[::SPU] = taps
    return out


def ffe_at_phase(x, taps=3, spacing=SPU // 2, feedback=1):
    x = x[:PERIOD]
    a = (bits() - 0.5) * (x.max() - x.min())
    lag = int(np.argmax(abs(convolved(np.roll(np.repeat(a - a.mean(), SPU)[::-1], 1), x))))
    span = -(-(taps - 1) * spacing // SPU)
    least = np.inf
    for q in range(lag - SPU, lag + (span + 2) * SPU):
        columns = [x[(q - j * spacing + SPU * np.arange(UI)) % PERIOD] for j in range(taps)]
        columns += [np.roll(a, k) for k in range(1, feedback + 1)] + [np.ones(UI)]
        w, error = np.linalg.lstsq(np.array(columns).T, a, rcond=None)[:2]
        if error[0] < least:
            least, best = error[0], w[:taps]
    out = np.zeros(taps * spacing)
    out[::spacing] = best
    return out


def dfe(x, taps=2):
    v = 2.0 * bits() - 1
    first = x[:PERIOD]
    held = np.repeat(v, SPU)
    lag = int(np.argmax([np.dot(first, np.roll(held, k)) for k in range(PERIOD)]))
    fits = []
    for k in range(SPU):
        s = first[k::SPU]
        middle = round((k - SPU / 2 - lag) / SPU)
        best = (np.inf, -np.inf, None, 0.0)
        for q in range(middle - 1, middle + 2):
            a = np.array([np.roll(v, j - q) for j in range(taps + 1)] + [np.ones(UI)]).T
            h = np.linalg.lstsq(a, s, rcond=None)[0]
            score = np.sqrt(np.mean((s - a @ h)**2)) / h[0]
            if h[0] > 0 and np.all(abs(h[1:taps + 1]) <= h[0]) and score < best[0]:
                y = s - a[:, 1:taps + 1] @ h[1:taps + 1]
                opening = (y[a[:, 0] > 0].min() - y[a[:, 0] < 0].max()) / 2
                best = (score, opening, h[1:taps + 1] / h[0], h[0])
        fits.append(best)
    opening = np.array([fit[1] for fit in fits]) / max(fit[3] for fit in fits)
    # The middle of the longest run of delays with an open eye. The eye is not open all round.
    is_open = opening >= opening.max() - 0.05
    runs = [(next(n for n in range(SPU) if not is_open[(k + n) % SPU]), k)
            for k in range(SPU) if is_open[k] and not is_open[k - 1]]
    length, start = max(runs, key=lambda run: (run[0], -run[1]))
    delay = (start + length // 2) % SPU
    earlier = (start + (length - 1) // 2) % SPU
    if opening[earlier] > opening[delay] + 0.01:
        delay = earlier
    weights = fits[delay][2]
    return np.concatenate([feed_back(part, delay, weights) for part in x.reshape(-1, PERIOD)])


def feed_back(x, delay, weights):
    s = x[delay::SPU]
    swing = np.std(s) / np.sqrt(1 + np.sum(weights**2))
    levels = np.mean(s) + swing * np.array([-1.0, 1.0])
    decided = None
    for _ in range(8):
        middle = levels.mean()
        volts = np.zeros(UI) if decided is None else levels[decided] - middle
        new = np.zeros(UI, int)
        feedback = np.zeros(UI)
        for i in range(UI):
            feedback[i] = sum(w * volts[i - j - 1] for j, w in enumerate(weights))
            new[i] = s[i] - feedback[i] > middle
            volts[i] = levels[new[i]] - middle
        y = s - feedback
        if decided is not None and np.array_equal(new, decided):
            break
        levels = np.array([y[new == l].mean() for l in (0, 1)])
        decided = new
    m = np.arange(PERIOD)
    return x - feedback[(m - delay + SPU // 2) // SPU % UI]


def fixture(remove):
    """0.1 dB a GHz and 50 ps, measured at 2 to 60 GHz."""
    keys = np.arange(2.0, 61.0)
    magnitude, phase = 10**(-0.005 * keys), -2 * np.pi * 0.05 * keys
    # Towards 0 Hz: the phase in a line, the loss with the square root, from 2 GHz and four times that.
    f = np.arange(PERIOD // 2 + 1) * FS / PERIOD / 1e9
    rise = np.log(magnitude[0] / magnitude[6])
    low = magnitude[0] * np.exp(np.clip(rise, -np.log(10) / 20, np.log(10) / 20) * (1 - np.sqrt(np.minimum(f / 2, 1.0))))
    m = np.where(f < 2.0, low, np.interp(f, keys, magnitude))
    p = np.where(f < 2.0, phase[0] * f / 2, np.interp(f, keys, phase))
    if remove:
        m, p = np.minimum(1 / m, 10**1.5 / magnitude.max()), -p
    band = min(45.0, 60 / 1.2, FS / 2e9 / 1.2)
    taper = 0.5 + 0.5 * np.cos(np.pi * np.clip((f / band - 0.8) / 0.4, 0, 1))
    h = taper * m * np.exp(1j * p)
    h[-1] = h[-1].real
    return impulse(h, PERIOD)


GRID = 8128  # over 10 ns


def two_poles(rate):
    t = np.maximum(np.arange(GRID) - GRID // 2, 0) * 10e-9 / GRID
    return 2 * np.pi * rate * t * np.exp(-2 * np.pi * rate * t)


def sirc():
    f = np.arange(GRID // 2 + 1) * 0.1
    gauss = np.exp(-np.log(2) / 2 * (f / 100)**2)

    def processed(h):
        y = np.fft.irfft(np.fft.rfft(h) * gauss, GRID)
        peak = int(np.argmax(abs(y)))
        y = np.roll(y * np.sign(y[peak]), GRID // 2 - peak - 1)
        y = y - y[:1301].mean()
        return np.fft.rfft(y / y.sum())

    c, r = processed(two_poles(30e9)), processed(two_poles(35e9))
    bandwidth, cutoff = 39.8, 0.75 * BAUD / 1e9
    good = (abs(c) >= 0.01 * gauss) & (f <= 2 * bandwidth)
    q = r[good] / c[good]
    q = np.interp(f, f[good], q.real) + 1j * np.interp(f, f[good], q.imag)
    q = q * np.minimum(1, 10 / abs(q))
    taper = 0.5 + 0.5 * np.cos(np.pi * np.clip(f / bandwidth - 1, 0, 1))
    k = q * taper * bessel4(f, cutoff, 2 * np.pi * 0.33644) / bessel4(f, bandwidth, 2 * np.pi * 0.33644)
    k[-1] = 0
    fine = np.fft.fftshift(np.fft.irfft(np.append(k, np.zeros(7 * GRID // 2)), 8 * GRID))
    times = (np.arange(8 * GRID) - 4 * GRID) * 10e-9 / (8 * GRID)
    last = int(5e-9 * FS)
    taps = np.zeros(PERIOD)
    for m in range(-last, last + 1):
        taps[m % PERIOD] += np.interp(m / FS, times, fine)
    return taps / taps.sum()


def main():
    x = capture()
    boxcar = np.zeros(COUNT)
    boxcar[[0, 1, 2, -1, -2]] = 0.2
    answers = {
        "copy": x,
        "moving-average": convolved(x, boxcar, COUNT),
        "bessel-thomson": convolved(x, bessel_thomson(False)),
        "bessel-thomson-noise": convolved(x, bessel_thomson(True)),
        "ctle-peaking": convolved(x, ctle(peaking)),
        "ctle-hdmi": convolved(x, ctle(hdmi)),
        "ctle-hdmi2": convolved(x, ctle(hdmi2)),
        "ctle-ieee": convolved(x, ctle(ieee)),
        "ctle-oif": convolved(x, ctle(oif)),
        "ffe-manual": convolved(x, spread([-0.1, 1.2, -0.2])),
        "ffe-searched": convolved(x, ffe(x)),
        "ffe-cursor-2": convolved(x, ffe(x, 2)),
        "ffe-phase": convolved(x, ffe_at_phase(x)),
        "dfe": dfe(x),
        "deembedding-removed": convolved(x, fixture(True)),
        "deembedding-added": convolved(x, fixture(False)),
        "sirc": convolved(x, sirc()),
    }
    kept = {name: values[::STEP] for name, values in answers.items()}
    if sys.argv[1:2] != ["--check"]:
        for name, values in kept.items():
            print(name, *(f"{v:.15g}" for v in values))
        return
    with open(sys.argv[2], encoding="ascii") as file:
        table = {name: np.array(values, float) for name, *values in map(str.split, file)}
    # Other NumPys sum in another order.
    if table.keys() != kept.keys() or any(np.max(abs(table[name] - kept[name])) > 1e-12 for name in kept):
        sys.exit(f"{sys.argv[2]} is not what the formulas give")


main()
