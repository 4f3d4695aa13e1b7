"""How the instrument was set."""
from __future__ import annotations

import inspect
import json
from collections.abc import Iterator, Mapping
from typing import Any

from . import _core, _fields


class DeviceConfiguration:
    """How the instrument was set, as far as it is known: rate, sampling, line coding and pattern.

    What is left out is found in a capture by `lock` and `Chain.apply`. A filter by itself needs what its formula names; without
    a pattern it takes the whole record for one period. `patternLocked` is true unless it is given.

    Parameters
    ----------
    {parameters}

    Raises
    ------
    ValueError
        A name that is no field, with the nearest one; a value of another kind.

    Examples
    --------
    >>> from tarnwick import DeviceConfiguration
    >>> config = DeviceConfiguration(baudRateGBd=26.5625, samplesPerUi=16)
    >>> config.patternLengthUi = 127
    >>> config
    DeviceConfiguration(baudRateGBd=26.5625, samplesPerUi=16, patternLengthUi=127)
    >>> DeviceConfiguration(baudRate=26.5625)
    Traceback (most recent call last):
    ...
    ValueError: DeviceConfiguration: baudRate: is not a known key; the nearest one is "baudRateGBd"
    """

    __slots__ = ("_given",)
    _given: dict[str, Any]

    def __init__(self, **fields: Any) -> None:
        object.__setattr__(self, "_given", {})
        self._set(fields)

    def _set(self, fields: Mapping[str, Any]) -> None:
        owner = type(self).__name__
        changed = {**self._given, **{name: _fields.plain(owner, name, value) for name, value in fields.items()}}
        try:
            _core.ChainFile(json.dumps({"device": changed, "filters": []}), owner).check()
        except ValueError as failure:
            raise ValueError(str(failure).replace(f"{owner}: device.", f"{owner}: ", 1)) from None
        object.__setattr__(self, "_given", changed)

    def __getattr__(self, name: str) -> Any:
        if name in _fields.DEVICE.fields:
            return self._given.get(name, _fields.DEVICE.fields[name].default)
        raise AttributeError(f"DeviceConfiguration has no field {name!r}")

    def __setattr__(self, name: str, value: Any) -> None:
        self._set({name: value})

    def __delattr__(self, name: str) -> None:
        if name not in self._given:
            raise AttributeError(f"DeviceConfiguration: {name!r} is not given")
        object.__setattr__(self, "_given", {key: value for key, value in self._given.items() if key != name})

    def __iter__(self) -> Iterator[str]:
        return iter(self._given)

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *_fields.DEVICE.fields]

    def __eq__(self, other: object) -> bool:
        return isinstance(other, DeviceConfiguration) and self._given == other._given

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return _fields.shown(type(self).__name__, self._given)

    def __reduce__(self) -> tuple[Any, ...]:
        return _restored, (dict(self._given),)

    def to_dict(self) -> dict[str, Any]:
        """The fields that are given: the ``device`` of a chain file.

        Examples
        --------
        >>> from tarnwick import DeviceConfiguration
        >>> DeviceConfiguration(samplesPerUi=16).to_dict()
        {'samplesPerUi': 16}
        """
        return dict(self._given)


def _restored(fields: dict[str, Any]) -> DeviceConfiguration:
    return DeviceConfiguration(**fields)


def given_by(config: DeviceConfiguration | Mapping[str, Any] | None) -> DeviceConfiguration:
    """A configuration of its own from what a caller passes in."""
    if config is None:
        return DeviceConfiguration()
    if isinstance(config, DeviceConfiguration):
        return DeviceConfiguration(**config.to_dict())
    if isinstance(config, Mapping):
        return DeviceConfiguration(**config)
    raise TypeError(f"config is of type {type(config).__name__}; expected a DeviceConfiguration, a mapping of its fields or None")


DeviceConfiguration.__signature__ = _fields.DEVICE.signature()  # type: ignore[attr-defined]
DeviceConfiguration.__doc__ = inspect.cleandoc(DeviceConfiguration.__doc__ or "").replace(
    "{parameters}", _fields.DEVICE.described())
