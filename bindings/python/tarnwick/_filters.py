"""The filters as classes: their fields are keywords, their objects are called with samples."""
from __future__ import annotations

import inspect
import json
import os
import tempfile
from collections.abc import Mapping
from pathlib import Path
from typing import Any, ClassVar

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _fields
from ._device import DeviceConfiguration, given_by
from ._networks import write_touchstone
from ._records import Record


class Filter:
    """What all filters have in common; the classes below say what each does.

    A filter is made once and called with any number of records. It keeps a copy of the configuration; its fields can be read
    and set as attributes. Several threads may call one filter: they take turns, and the interpreter runs other threads
    meanwhile.
    """

    _type: ClassVar[str]
    _group: ClassVar[_fields.FieldGroup]
    _config: DeviceConfiguration
    _given: dict[str, Any]
    _kept: dict[str, Any]
    _folder: tempfile.TemporaryDirectory[str] | None
    _core: _core.Filter

    def __init_subclass__(cls, *, type: str = "") -> None:
        if not type:  # a user's own, as its base
            return
        cls._type = type
        cls._group = _fields.of_filter(type)
        leading = inspect.Parameter("config", inspect.Parameter.POSITIONAL_OR_KEYWORD, default=None)
        cls.__signature__ = cls._group.signature(leading)  # type: ignore[attr-defined]
        parameters = ("config : DeviceConfiguration or mapping of its fields, optional\n"
                      "    how the instrument was set; it is copied\n") + cls._group.described()
        cls.__doc__ = inspect.cleandoc(cls.__doc__ or "").replace("{parameters}", parameters)

    def __init__(self, config: DeviceConfiguration | Mapping[str, Any] | None = None, **fields: Any) -> None:
        object.__setattr__(self, "_config", given_by(config))
        object.__setattr__(self, "_given", {})
        self._set(fields)

    def _set(self, fields: Mapping[str, Any]) -> None:
        owner = type(self).__name__
        given = {**self._given, **{self._named(name): value for name, value in fields.items()}}
        kept = {name: value for name, value in given.items() if self._is_array_for_file(name, value)}
        folder = tempfile.TemporaryDirectory(prefix="tarnwick-") if kept else None
        settings = {}
        for name, value in given.items():
            if name in kept:
                assert folder is not None
                settings[name] = _as_file(owner, name, value, Path(folder.name))
            else:
                settings[name] = given[name] = _fields.plain(owner, name, value)
        try:
            core = _core.Filter(owner, json.dumps(self._config.to_dict()), json.dumps({"type": self._type, **settings}))
        except ValueError as failure:
            raise ValueError(_without_folder(str(failure), folder)) from None
        for name, value in (("_given", given), ("_kept", settings), ("_folder", folder), ("_core", core)):
            object.__setattr__(self, name, value)

    def _named(self, name: str) -> str:
        if name == "type" and "ctleType" in self._group.fields:
            return "ctleType"  # as the parameters class calls it; in a chain file "type" is the filter's
        if name in ("type", "enabled"):
            raise ValueError(f"{type(self).__name__}: {name}: is a key of chain files alone")
        return name

    def _is_array_for_file(self, name: str, value: Any) -> bool:
        field = self._group.fields.get(name)
        return field is not None and field.kind == "file" and not isinstance(value, (str, Path))

    def __call__(self, samples: ArrayLike) -> NDArray[np.float64]:
        """The samples behind the filter.

        Parameters
        ----------
        samples : array_like of float64, shape (n,)
            A record [V], only read. A contiguous array of float64 is not copied; any other array of real numbers that convert
            to float64 without loss is copied once. NaN and infinity flow through.

        Returns
        -------
        ndarray of float64, shape (n,)
            A new array [V], which owns the buffer that the filter wrote.

        Raises
        ------
        ValueError
            Another shape, or a record or setting that the filter refuses.
        TypeError
            Samples that are no real numbers.
        MemoryError
            The result or the kernel cannot be allocated.
        """
        return self._core.apply(samples)

    def findings(self, filtered: ArrayLike) -> Record:
        """What the filter has found for its last record: taps, sampling delay, figures.

        Parameters
        ----------
        filtered : array_like of float64, shape (n,)
            What it made of that record [V].
        """
        record: Record = Record.from_json(self._core.findings(filtered))
        return record

    @property
    def notes(self) -> list[str]:
        """What was assumed about the settings, and what of them has no effect."""
        return [_without_folder(note, self._folder) for note in self._core.notes()]

    @property
    def config(self) -> DeviceConfiguration:
        """A copy of the filter's configuration."""
        return given_by(self._config)

    def to_dict(self) -> dict[str, Any]:
        """The filter as a chain file lists it. Arrays that stand for files are named as files that last as long as the filter."""
        return {"type": self._type, **self._kept}

    def __getattr__(self, name: str) -> Any:
        group: _fields.FieldGroup | None = getattr(type(self), "_group", None)
        if group is not None and name in group.fields:
            return self._given.get(name, group.fields[name].default)
        raise AttributeError(f"{type(self).__name__} has no field {name!r}")

    def __setattr__(self, name: str, value: Any) -> None:
        self._set({name: value})

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._group.fields]

    def __repr__(self) -> str:
        config = [repr(self._config)] if list(self._config) else []
        return _fields.shown(type(self).__name__, self._given, *config)

    def __reduce__(self) -> tuple[Any, ...]:
        return _restored, (type(self), self._config, self._given)


def _restored(kind: type[Filter], config: DeviceConfiguration, fields: dict[str, Any]) -> Filter:
    return kind(config, **fields)


def _without_folder(text: str, folder: tempfile.TemporaryDirectory[str] | None) -> str:
    # An array is known by its field; where it is stored meanwhile does not concern the user.
    return text if folder is None else text.replace(folder.name + os.sep, "")


def _as_file(owner: str, name: str, value: Any, folder: Path) -> str:
    if hasattr(value, "f") and hasattr(value, "s"):
        return write_touchstone(value, folder / name)
    array = np.asarray(value)
    if array.ndim != 1 or array.dtype.kind not in "fiu":
        raise ValueError(f"{owner}: {name} is an array of {array.dtype} of shape {array.shape}; "
                         "expected a file, a network, or real numbers in one dimension")
    path = folder / f"{name}.npy"
    np.save(path, array.astype(np.float64))
    return str(path)


class Copy(Filter, type="copy"):
    """Leaves the samples as they are, in a new array.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import tarnwick
    >>> tarnwick.Copy()([0.1, -0.1, 0.1])
    array([ 0.1, -0.1,  0.1])
    """


class MovingAverageSmoothingFilter(Filter, type="moving-average"):
    """Centred moving average of odd length: averages noise, zero phase.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import tarnwick
    >>> smooth = tarnwick.MovingAverageSmoothingFilter(WindowLength=3)
    >>> smooth([0.0, 0.0, 3.0, 0.0, 0.0]).round(12) + 0.0
    array([0., 1., 1., 1., 0.])
    """


class BesselThomson(Filter, type="bessel-thomson"):
    """The reference receiver: a Bessel-Thomson low-pass of the symbol rate.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> receiver = tarnwick.BesselThomson({"baudRateGBd": 26.5625, "samplesPerUi": 16}, order=4, cutoffPercent=75)
    >>> step = np.repeat([-0.2, 0.2], 8 * 16)      # 16 UI, one period
    >>> receiver(step).shape
    (256,)
    >>> receiver.cutoffPercent
    75
    """


class CTLEFilter(Filter, type="ctle"):
    """Continuous-time linear equaliser. ``type`` is taken for ``ctleType``.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> ctle = tarnwick.CTLEFilter({"baudRateGBd": 26.5625, "samplesPerUi": 16}, ctleType="ieee802.3bs", gain=4.0)
    >>> ctle(np.repeat([-0.2, 0.2], 8 * 16)).size
    256
    """


class FFEFilter(Filter, type="ffe"):
    """Feed-forward equaliser. Without manual taps it finds taps for each record that it is called with.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import tarnwick
    >>> echo = tarnwick.FFEFilter({"baudRateGBd": 10.0, "samplesPerUi": 1}, useManualTaps=True, taps=[1.0, -0.5], mainCursorPosition=1)
    >>> echo([1.0, 0.0, 0.0, 0.0]).round(12) + 0.0
    array([ 1. , -0.5,  0. ,  0. ])
    """


class DFEFilter(Filter, type="dfe"):
    """Decision-feedback equaliser. Without manual taps it finds taps for each record that it is called with.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> levels = np.array([int(bit) for bit in "0001011100101101"]) * 0.4 - 0.2
    >>> wave = np.repeat(levels + 0.25 * np.roll(levels, 1), 8)        # each symbol leaves a quarter one UI later
    >>> dfe = tarnwick.DFEFilter({"baudRateGBd": 10.3125, "samplesPerUi": 8, "signalCoding": "NRZ",
    ...                           "patternSymbols": "0001011100101101"}, numberOfTaps=1)
    >>> round(dfe.findings(dfe(wave)).taps[0], 3)
    0.25
    """


class DeEmbeddingFilter(Filter, type="deembedding"):
    """Removes a fixture described by its S-parameters, or adds it.

    ``sparamFileName`` is a file, a `Network`, or any object with the frequencies ``f`` [Hz], shape (n,), and the
    scattering matrices ``s``, shape (n, ports, ports), as scikit-rf's networks are.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> f = np.arange(0.0, 40.5e9, 0.1e9)
    >>> s = np.zeros((f.size, 2, 2), complex)
    >>> s[:, 1, 0] = s[:, 0, 1] = 0.5                                  # 6 dB at all frequencies
    >>> pad = tarnwick.Network(f, s)
    >>> config = {"baudRateGBd": 10.0, "samplesPerUi": 8}
    >>> behind = tarnwick.DeEmbeddingFilter(config, sparamFileName=pad, preserveNoise=False)
    >>> wave = 0.1 * np.sin(2 * np.pi * np.arange(256) / 64)           # 1.25 GHz
    >>> round(behind(wave).max() / wave.max(), 2)
    2.0
    """


class SircFilter(Filter, type="sirc"):
    """Corrects a capture for the channel's measured response.

    ``channelResponse`` and ``channelReference`` are files or arrays of shape (n,): of an odd number of values the first is the
    sample interval [s], an even number spans 10 ns.

    Parameters
    ----------
    {parameters}

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> t = np.arange(5000) * 2e-12                                    # 10 ns
    >>> measured = np.exp(-0.5 * ((t - 1e-9) / 8e-12) ** 2)
    >>> sirc = tarnwick.SircFilter({"baudRateGBd": 10.0, "samplesPerUi": 8}, channelResponse=measured,
    ...                            referenceCutoffPercent=75)
    >>> sirc(np.repeat([-0.2, 0.2], 512)).shape
    (1024,)
    """
