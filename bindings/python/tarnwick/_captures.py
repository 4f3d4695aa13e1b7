"""Captures: from a file or an array to a record that filters can take."""
from __future__ import annotations

import json
import os
import re
from collections.abc import Mapping
from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._device import DeviceConfiguration
from ._networks import existing
from ._records import Record

_MOST_GSPS = 1e6
_CLOCKS = ("constant", "tracked")


class Capture:
    """A waveform and what is known of it: what `read` and `lock` return.

    NumPy takes it as its samples, so that filters can be called with it.

    Attributes
    ----------
    samples : ndarray of float64, shape (n,)
        The waveform [V]: a view of the library's buffer, which lives as long as any of its views.
    device : DeviceConfiguration
        What was found, in the terms of a chain file: empty of a capture that was only read.
    report : Record
        How it was found: as ``tarnwick lock --json`` prints it; of a capture that was only read its ``notes``.
    interval, start : float
        Time between the samples and of the first one [s]; 0: not known.
    name : str
        For messages and titles.
    """

    def __init__(self, core: _core.Waveform | _core.Locked, name: str, device: DeviceConfiguration) -> None:
        self._core = core
        self.name = name
        self.device = device
        self._files: list[str] = []  # that it was read from
        self.interval = core.interval
        self.start = core.start
        self.samples: NDArray[np.float64] = core.samples
        self.report: Record
        if isinstance(core, _core.Locked):
            self.report = Record.from_json(core.report())
        else:
            self.report = Record(samples=self.samples.size, interval=core.interval,
                                 notes=[*core.notes, *([core.gap] if core.gap else [])])

    @property
    def is_locked(self) -> bool:
        """Whether it is a record of whole samples per UI, as `lock` returns it."""
        return isinstance(self._core, _core.Locked)

    @property
    def t(self) -> NDArray[np.float64]:
        """Times of the samples [s], shape (n,); the numbers of the samples where the interval is not known."""
        return self.start + np.arange(self.samples.size) * (self.interval or 1.0)

    def eye(self, target_ber: float = 1e-6, bathtub: bool = False) -> _core.Eye:
        """The eyes of the capture; one that was only read is locked first.

        Parameters
        ----------
        target_ber : float
            Bit error ratio at which heights and contours are measured.
        bathtub : bool
            Measure the error ratio at every phase too.

        Examples
        --------
        >>> import numpy as np, tarnwick
        >>> bits = np.random.default_rng(1).integers(0, 2, 400)
        >>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
        >>> round(tarnwick.lock(edges).eye().eyes[0]["height"], 2)
        0.4
        """
        return as_locked(self).eye(target_ber, bathtub)

    def __array__(self, dtype: Any = None) -> NDArray[Any]:
        return self.samples if dtype is None else self.samples.astype(dtype, copy=False)

    def __len__(self) -> int:
        return int(self.samples.size)

    def __repr__(self) -> str:
        if not isinstance(self._core, _core.Locked):
            return f"Capture({self.name!r}, {self.samples.size} samples as read)"
        found = [f"{self.samples.size} samples", f"{self.report.samplesPerUiOut} per UI", self.report.coding or "no levels",
                 *([self.report.pattern] if self.report.pattern else []), self.report.mode]
        return f"Capture({self.name!r}, {', '.join(found)})"

    def __reduce__(self) -> tuple[Any, ...]:
        return _restored, (np.array(self.samples), self.interval, self.start, self.name, self.device, self.is_locked)


def _restored(samples: NDArray[np.float64], interval: float, start: float, name: str, device: DeviceConfiguration,
              locked: bool) -> Capture:
    waveform = _core.waveform(name, samples, interval, start)
    if not locked:
        return Capture(waveform, name, device)
    return Capture(_lock(waveform, name, device.to_dict()), name, device)


def read(path: str | os.PathLike[str], *, minus: str | os.PathLike[str] | None = None, skip_lines: int | None = None,
         column: str | int = "", sample_rate: float = 0.0, scale: float = 1.0) -> Capture:
    """Reads a capture: text, CSV, ``.npy``, raw ``.f32``, ``.f64`` or ``.i16``, each as ``.gz`` too.

    The options are those of the program, in its units.

    Parameters
    ----------
    path : str or path
    minus : str or path, optional
        A second capture to subtract (differential pairs).
    skip_lines : int, optional
        Lines to drop at the head of a text; 0 says that numbers at its head are samples.
    column : str or int
        Which column of a text holds the values: its title, or its number from 1.
    sample_rate : float
        Sample rate [GS/s] where the file does not tell it.
    scale : float
        Factor of every sample: for raw counts the volts of one.

    Returns
    -------
    Capture
        The samples as they were read.

    Raises
    ------
    ValueError
        Naming the file and the line or sample.
    FileNotFoundError

    Examples
    --------
    >>> import pathlib, tempfile, tarnwick
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     path = pathlib.Path(folder, "capture.csv")
    ...     _ = path.write_text("time [ps],voltage [mV]\\n0,100\\n10,-100\\n20,50\\n")
    ...     capture = tarnwick.read(path)
    >>> capture.samples
    array([ 0.1 , -0.1 ,  0.05])
    """
    name = existing(path)
    other = existing(minus) if minus is not None else ""
    try:
        core = _core.read(name, other, skip_lines, str(column), _rate("read", sample_rate), scale)
    except ValueError as failure:  # the options are the program's, but for their spelling
        raise ValueError(re.sub(r"--([a-z-]+)", lambda match: match[1].replace("-", "_"), str(failure))) from None
    capture = Capture(core, Path(name).name, DeviceConfiguration())
    capture._files = [file for file in (name, other) if file]
    return capture


def lock(samples: ArrayLike | Capture, *, coding: str = "", baud: float = 0.0, samples_per_ui: float = 0.0,
         pattern_length: int = 0, spu: int = 0, clock: str = "constant", loop_bandwidth: float = 0.0,
         average: bool = False, sample_rate: float = 0.0, device: DeviceConfiguration | None = None) -> Capture:
    """From whatever an instrument saved to a record that filters can take.

    Finds the symbol clock, the line coding, the symbols and the pattern, resamples what is not sampled at a whole number of
    samples per UI, and says whether the record is whole periods or a single shot. What is given is used and checked. The
    options are those of the program, in its units; zeros and empty texts stand for "find it".

    Parameters
    ----------
    samples : array_like of float64, shape (n,), or Capture
        The waveform [V]; an array is copied.
    coding : str
        ``NRZ``, ``PAM3``, ``PAM4`` or ``PAM4-precoded``.
    baud : float
        Symbol rate [GBd].
    samples_per_ui : float
        Of the samples, whole or not.
    pattern_length : int
        [UI]
    spu : int
        Samples per UI of the record; 0: its own where that is whole, else 16.
    clock : str
        ``constant`` or ``tracked``.
    loop_bandwidth : float
        Of the tracked clock [MHz]; 0: symbol rate / 1667.
    average : bool
        Of whole periods, their mean instead of all of them.
    sample_rate : float
        Of an array [GS/s].
    device : DeviceConfiguration, optional
        More that is known; the options go before it. Default: the capture's.

    Returns
    -------
    Capture

    Raises
    ------
    ValueError
        Samples that are not finite, a constant record, no clock, an option out of range.

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> bits = np.random.default_rng(1).integers(0, 2, 400)
    >>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
    >>> locked = tarnwick.lock(edges, sample_rate=80.0)
    >>> locked.report.coding, locked.device.baudRateGBd
    ('NRZ', 10.0)
    """
    if clock not in _CLOCKS:
        raise ValueError(f"lock: clock is {clock!r}; expected {' or '.join(_CLOCKS)}")
    codings = DeviceConfiguration(signalCoding=coding).signalCoding if coding else ""
    for name, value in (("baud", baud), ("samples_per_ui", samples_per_ui), ("pattern_length", pattern_length),
                        ("spu", spu), ("loop_bandwidth", loop_bandwidth)):
        if not 0 <= value <= 1e9:
            raise ValueError(f"lock: {name} is {value}; expected 0 to find it, or a positive number")
    capture = as_capture("lock", samples, sample_rate)
    known = {**capture.device.to_dict(), **(device.to_dict() if device is not None else {})}
    if isinstance(capture._core, _core.Locked):
        waveform = _core.waveform("lock", capture.samples, capture.interval, capture.start)
    else:
        waveform = capture._core
    core = _lock(waveform, capture.name, known, codings, baud, samples_per_ui, pattern_length, spu, clock == "tracked",
                 loop_bandwidth, average)
    locked = Capture(core, capture.name, _device_of(core))
    locked._files = capture._files
    return locked


def simulate(*, coding: str = "PAM4", prbs: int = 13, symbols: str = "", baud: float = 26.5625, spu: float = 16.0,
             repetitions: int = 1, amplitude: float = 1.0, rise: float = 0.2, loss: float = 0.0, noise: float = 0.0,
             jitter: float = 0.0, length: int = 0, first: int = 0, ppm: float = 0.0, averages: int = 1,
             band_limited: bool = False, seed: int = 1) -> Capture:
    """A synthetic capture: a pattern, edges, jitter, a lossy line and noise, as ``tarnwick simulate`` writes it.

    Parameters
    ----------
    coding : str
        ``NRZ``, ``PAM3`` or ``PAM4``.
    prbs : int
        Pattern: PRBS 7, 9, 11, 13, 15, 23 or 31.
    symbols : str
        One digit a symbol, instead of the PRBS.
    baud, spu : float
        Symbol rate [GBd]; samples per UI, whole or not.
    repetitions : int
        Of the pattern.
    amplitude, noise : float
        From the lowest to the highest level [V]; white noise, rms [V].
    rise, jitter : float
        Edge from 0 to 100 % [UI]; random jitter of the edges, rms [UI].
    loss : float
        Of the line at half the symbol rate [dB].
    length, first : int
        Cut this many UI out of the pattern, from this one on, instead of whole repetitions.
    ppm : float
        A UI takes this many more samples.
    averages : int
        Acquisitions averaged.
    band_limited : bool
        Nothing of the waveform folds at half the sample rate.
    seed : int
        Of noise and jitter.

    Returns
    -------
    Capture
        As if it had been read from a file with times.

    Examples
    --------
    >>> import tarnwick
    >>> tarnwick.lock(tarnwick.simulate(coding="NRZ", prbs=9, noise=0.01))
    Capture('simulated', 8176 samples, 16 per UI, NRZ, PRBS9, single-shot)
    """
    for name, value, low, high in (
            ("baud", baud, 1e-6, 1e6), ("spu", spu, 1.0, 4096.0), ("repetitions", repetitions, 1, 1e6),
            ("amplitude", amplitude, 0.0, 1e6), ("rise", rise, 0.0, 1.0), ("loss", loss, 0.0, 100.0),
            ("noise", noise, 0.0, 1e6), ("jitter", jitter, 0.0, 1.0), ("length", length, 0, 1 << 30),
            ("first", first, 0, 1 << 30), ("ppm", ppm, -1e5, 1e5), ("averages", averages, 1, 1e6), ("seed", seed, 0, 2.0 ** 63)):
        if not low <= value <= high:
            raise ValueError(f"simulate: {name} is {value}; expected {low:g} to {high:g}")
    if coding not in ("NRZ", "PAM3", "PAM4"):
        raise ValueError(f"simulate: coding is {coding!r}; expected NRZ, PAM3 or PAM4")
    core = _core.simulate(coding, prbs, symbols, baud, spu, repetitions, amplitude, rise, loss, noise, jitter, length, first, ppm,
                          averages, band_limited, seed)
    return Capture(core, "simulated", DeviceConfiguration())


def measure(capture: ArrayLike | Capture, *, taps: int = 5, sample_rate: float = 0.0) -> Record:
    """Levels, eyes, noise, error ratio and, for PAM4, level mismatch and TDECQ: as ``tarnwick measure --json`` prints them.

    Parameters
    ----------
    capture : Capture or array_like of float64, shape (n,)
        What is not locked is locked first.
    taps : int
        Of the reference equaliser, 1 to 64.
    sample_rate : float
        Of an array [GS/s].

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> bits = np.random.default_rng(1).integers(0, 2, 400)
    >>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
    >>> quality = tarnwick.measure(edges)
    >>> quality.coding, round(quality.oma, 2)
    ('NRZ', 0.4)
    """
    if not 1 <= taps <= 64:
        raise ValueError(f"measure: taps is {taps}; expected 1 to 64")
    given = as_capture("measure", capture, sample_rate)
    record: Record = Record.from_json(as_locked(given).quality(taps, given.name))
    return record


def as_capture(owner: str, given: ArrayLike | Capture, sample_rate: float = 0.0) -> Capture:
    """A capture of samples that may be one already."""
    if isinstance(given, Capture):
        return given
    rate = _rate(owner, sample_rate)
    waveform = _core.waveform(owner, given, 1e-9 / rate if rate > 0.0 else 0.0, 0.0)
    return Capture(waveform, "samples", DeviceConfiguration())


def as_locked(capture: Capture) -> _core.Locked:
    """The capture's record; found where the capture was only read."""
    core = capture._core
    return core if isinstance(core, _core.Locked) else _lock(core, capture.name, capture.device.to_dict())


def _lock(waveform: _core.Waveform, name: str, device: Mapping[str, Any], coding: str = "", baud: float = 0.0,
          samples_per_ui: float = 0.0, pattern_length: int = 0, spu: int = 0, tracked: bool = False,
          loop_bandwidth: float = 0.0, average: bool = False) -> _core.Locked:
    return _core.lock(waveform, name, json.dumps({"device": device, "filters": []}), coding, baud, samples_per_ui,
                      pattern_length, spu, tracked, loop_bandwidth, average)


def _device_of(core: _core.Locked) -> DeviceConfiguration:
    return DeviceConfiguration(**json.loads(core.chain_file())["device"])


def _rate(owner: str, sample_rate: float) -> float:
    if not 0.0 <= sample_rate <= _MOST_GSPS:
        raise ValueError(f"{owner}: sample_rate is {sample_rate} GS/s; expected 0 (not known) to {_MOST_GSPS:g} GS/s")
    return float(sample_rate)
