"""Chains of filters, as chain files describe them."""
from __future__ import annotations

import json
import os
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _fields
from ._captures import Capture, as_capture
from ._device import DeviceConfiguration
from ._filters import Filter
from ._networks import existing
from ._records import Record


class Result:
    """A capture behind a chain: what `Chain.apply` returns.

    Attributes
    ----------
    samples : ndarray of float64, shape (n,)
        The waveform [V] that ``tarnwick apply`` writes: of a single shot without the ends that the filters have spoilt. A view
        of the library's buffer, which lives as long as any of its views.
    whole : ndarray of float64
        With those ends.
    stages : list of Record
        As ``--json`` prints them: the capture first, then each filter with statistics, eyes and what it has found.
    acquisition : Record or None
        How clock, coding and pattern were found; None where the capture went through as it was read.
    interval, start : float
        Time between the samples and of the first of ``samples`` [s]; interval 0: not known.
    taps : list of dict
        Of each equaliser ``name``, ``values`` and ``offsets_ui`` and, if asked for, ``pulses``.
    notes : list of str
        What was assumed or left out, for the user to read.
    """

    def __init__(self, core: _core.Result, name: str, write: Callable[[str, str], None]) -> None:
        self._core = core
        self._write = write
        self.name = name
        report = Record.from_json(core.report())
        first, count = core.valid
        self.whole: NDArray[np.float64] = core.samples
        self.samples: NDArray[np.float64] = self.whole[first:first + count]
        self.stages: list[Record] = report["stages"]
        self.acquisition: Record | None = report.get("acquisition")
        self.interval = core.interval
        self.start = core.start + first * core.interval
        self.taps = core.taps()
        self.notes = core.notes

    def eye(self, target_ber: float = 1e-6, bathtub: bool = False) -> _core.Eye:
        """The eyes behind the last filter.

        Parameters
        ----------
        target_ber : float
            Bit error ratio at which heights and contours are measured.
        bathtub : bool
            Measure the error ratio at every phase too.

        Raises
        ------
        ValueError
            There are none: line coding or samples per UI are not known.
        """
        return self._core.eye(target_ber, bathtub)

    def report(self, path: str | os.PathLike[str], *, mask: str | os.PathLike[str] = "") -> None:
        """Writes a page with all figures, eyes and plots, which any browser opens: what ``tarnwick report`` writes.

        The chain runs once more, and the eyes of every stage are measured at every phase.

        Parameters
        ----------
        path : str or path
            The page, complete or absent.
        mask : str or path, optional
            A JSON file of polygons [UI, V] that the page compares eyes with.

        Raises
        ------
        ValueError
            The page cannot be written, or the mask is none.

        Examples
        --------
        >>> import pathlib, tempfile, tarnwick
        >>> chain = tarnwick.Chain({"filters": [{"type": "bessel-thomson"}]})
        >>> result = chain.apply(tarnwick.simulate(coding="NRZ", prbs=7, repetitions=4, noise=0.01))
        >>> with tempfile.TemporaryDirectory() as folder:
        ...     path = pathlib.Path(folder, "report.html")
        ...     result.report(path)
        ...     path.read_text().startswith("<!DOCTYPE html>")
        True
        """
        self._write(os.fspath(path), os.fspath(mask))

    def __array__(self, dtype: Any = None) -> NDArray[Any]:
        return self.samples if dtype is None else self.samples.astype(dtype, copy=False)

    def __repr__(self) -> str:
        names = " > ".join(stage.name for stage in self.stages)
        eyes = self.stages[-1].eyes
        opening = f", smallest eye {min(eye.openingPercent for eye in eyes):.1f} % open" if eyes else ""
        return f"Result({self.name!r}, {self.samples.size} samples, {names}{opening})"


class Response:
    """What the filters of a chain, and all of them together, do to an impulse.

    Attributes
    ----------
    symbol_rate : float
        [Hz]
    samples_per_ui : float
    lines : list of Record
        A filter each, then the whole: ``label``, ``f`` [Hz] and ``magnitude_db`` and ``group_delay`` [s], shape (n // 2 + 1,),
        ``impulse``, shape (n,), with the impulse at index 0 of one circular record, and ``peak``, its index there.
    band_end : float
        [Hz] up to which figures and pictures go.
    figures : Record
        As ``tarnwick response --json`` prints them.
    taps : list of dict
        Of each equaliser whose taps are given.
    left_out : list of str
        Filters that decide or adapt: they have no response of their own.
    """

    def __init__(self, name: str, found: Mapping[str, Any]) -> None:
        self.name = name
        self.symbol_rate: float = found["symbol_rate"]
        self.samples_per_ui: float = found["samples_per_ui"]
        self.band_end: float = found["band_end"]
        self.left_out: list[str] = found["left_out"]
        self.taps: list[dict[str, Any]] = found["taps"]
        self.figures: Record = Record.from_json(found["figures"])
        self.lines = [Record(line, f=np.arange(line["magnitude_db"].size) * line["spacing"]) for line in found["lines"]]

    def __repr__(self) -> str:
        return f"Response({self.name!r}, {', '.join(line.label for line in self.lines)})"


class Chain:
    """A chain file's content: the device, and the filters to run one after the other.

    Parameters
    ----------
    content : mapping
        ``{"device": {...}, "filters": [...]}``. The device may be a `DeviceConfiguration`, a filter one of this module's.
    folder : str or path
        From which relative paths of files count.

    Raises
    ------
    ValueError
        Naming the key; an unknown one with the nearest known.

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> chain = tarnwick.Chain({"filters": [{"type": "moving-average", "WindowLength": 3}, {"type": "bessel-thomson"}]})
    >>> chain
    Chain(moving-average, bessel-thomson)
    >>> bits = np.random.default_rng(1).integers(0, 2, 400)
    >>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
    >>> result = chain.apply(tarnwick.lock(edges, sample_rate=80.0))
    >>> [stage.name for stage in result.stages]
    ['capture', 'moving-average', 'bessel-thomson']
    >>> result.stages[-1].eyes[0].openingPercent > 50
    True
    """

    def __init__(self, content: Mapping[str, Any], *, folder: str | os.PathLike[str] = "") -> None:
        self._make(content, str(Path(folder, "Chain")))

    def _make(self, content: Mapping[str, Any], name: str) -> None:
        parts: dict[str, Any] = {}
        self._filters: list[Filter] = []  # whose arrays stand for files
        for key, value in content.items():
            if key == "device" and isinstance(value, DeviceConfiguration):
                value = value.to_dict()
            elif key == "filters" and isinstance(value, (list, tuple)):
                self._filters = [each for each in value if isinstance(each, Filter)]
                value = [each.to_dict() if isinstance(each, Filter) else each for each in value]
            parts[str(key)] = _fields.plain("Chain", str(key), value)
        parts.setdefault("filters", [])
        self._content = parts
        self._file = _core.ChainFile(json.dumps(parts), name)
        self._file.check()

    @classmethod
    def from_json(cls, path: str | os.PathLike[str]) -> Chain:
        """Reads a chain file. Files that it names are looked for beside it.

        Raises
        ------
        ValueError
            Naming the file and the key.
        FileNotFoundError

        Examples
        --------
        >>> import pathlib, tempfile, tarnwick
        >>> with tempfile.TemporaryDirectory() as folder:
        ...     path = pathlib.Path(folder, "chain.json")
        ...     _ = path.write_text('{"filters": [{"type": "copy"}]}')
        ...     tarnwick.Chain.from_json(path)
        Chain(copy)
        """
        chain = cls.__new__(cls)
        chain._filters = []
        chain._file = _core.ChainFile.read(existing(path))
        chain._content = json.loads(chain._file.text())
        chain._file.check()
        return chain

    @property
    def name(self) -> str:
        """The chain file's name; of a chain from a mapping where it would lie."""
        return self._file.name

    @property
    def files(self) -> list[str]:
        """The files that the filters read."""
        return self._file.files()

    def to_dict(self) -> dict[str, Any]:
        """The content, as a chain file has it."""
        content: dict[str, Any] = json.loads(self._file.text())
        return content

    def to_json(self, path: str | os.PathLike[str]) -> None:
        """Writes the chain file. Paths in it are written as they are."""
        Path(path).write_text(json.dumps(self._content, indent=4) + "\n")

    def apply(self, capture: ArrayLike | Capture, *, sample_rate: float = 0.0, pulses: bool = False) -> Result:
        """Runs a capture through the chain: what ``tarnwick apply`` does, bit for bit.

        The capture is locked with what the chain's device says of it; what the device leaves out is taken from the capture's
        device, or found.

        Parameters
        ----------
        capture : Capture or array_like of float64, shape (n,)
            The waveform [V]; an array is copied.
        sample_rate : float
            Of an array [GS/s].
        pulses : bool
            Fit the pulse responses in front of and behind each equaliser, for `plot.pulses`.

        Raises
        ------
        ValueError
            The capture or a setting of the chain is refused: the text names it.
        PatternLockFailed
            A filter needs pattern lock, and the device says that there is none.
        """
        given = as_capture("Chain.apply", capture, sample_rate)
        core = given._core
        waveform = (core if isinstance(core, _core.Waveform) else
                    _core.waveform("Chain.apply", given.samples, given.interval, given.start))
        device = json.dumps({"device": given.device.to_dict(), "filters": []})

        def write(path: str, mask: str) -> None:
            self._file.report(waveform, device, given.name, given._files, 0 if given.is_locked else given.samples.size,
                              mask, path)

        return Result(self._file.apply(waveform, device, given.name, pulses), given.name, write)

    def response(self) -> Response:
        """What each filter, and the whole chain, does to an impulse; the device has to give rate, sampling and pattern length.

        Examples
        --------
        >>> import tarnwick
        >>> device = {"baudRateGBd": 26.5625, "samplesPerUi": 16, "patternLengthUi": 127}
        >>> chain = tarnwick.Chain({"device": device, "filters": [tarnwick.BesselThomson(cutoffPercent=75)]})
        >>> round(chain.response().figures.whole.cutoffFrequencyGHz, 1)
        19.9
        """
        return Response(Path(self.name).name, self._file.response())

    def __len__(self) -> int:
        return len(self._content["filters"])

    def __repr__(self) -> str:
        return f"Chain({', '.join(each['type'] for each in self._content['filters'])})"

    def __reduce__(self) -> tuple[Any, ...]:
        if any(each._folder for each in self._filters):
            raise TypeError("Chain: a filter has an array in place of a file, which another process could not read; "
                            "expected files")
        return _restored, (self.to_dict(), self.name)


def _restored(content: dict[str, Any], name: str) -> Chain:
    chain = Chain.__new__(Chain)
    chain._make(content, name)
    return chain
