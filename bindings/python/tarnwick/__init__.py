"""Filters, captures and eyes of high-speed serial data on NumPy arrays.

`read` and `lock` take whatever an instrument saved; `Chain` runs it through filters as the program ``tarnwick`` does; each
filter is a class by itself, called with samples; `plot` draws eyes, responses and taps. Voltages are in volts, arrays are
float64 of shape (n,).

Examples
--------
>>> import numpy as np, tarnwick
>>> bits = np.random.default_rng(1).integers(0, 2, 400)
>>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
>>> capture = tarnwick.lock(edges, sample_rate=80.0)
>>> capture
Capture('samples', 3200 samples, 8 per UI, NRZ, single-shot)
>>> tarnwick.BesselThomson(capture.device, cutoffPercent=75)(capture).size
3200
"""
import importlib
from typing import Any

from ._captures import Capture, lock, measure, read, simulate
from ._chains import Chain, Response, Result
from ._core import Eye, PatternLockFailed
from ._core import version as __version__
from ._device import DeviceConfiguration
from ._filters import (BesselThomson, Copy, CTLEFilter, DeEmbeddingFilter, DFEFilter, FFEFilter, Filter,
                       MovingAverageSmoothingFilter, SircFilter)
from ._networks import Network, touchstone
from ._records import Record

__all__ = [
    "BesselThomson", "CTLEFilter", "Capture", "Chain", "Copy", "DFEFilter", "DeEmbeddingFilter", "DeviceConfiguration", "Eye",
    "FFEFilter", "Filter", "MovingAverageSmoothingFilter", "Network", "PatternLockFailed", "Record", "Response", "Result",
    "SircFilter", "__version__", "lock", "measure", "read", "simulate", "touchstone",
]


def __getattr__(name: str) -> Any:
    """The module `batch`, which can be called, when it is first asked for: it costs a second and few need it."""
    if name == "batch":
        return importlib.import_module("tarnwick.batch")
    raise AttributeError(f"module 'tarnwick' has no attribute {name!r}")
