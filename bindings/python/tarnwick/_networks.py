"""S-parameter files as arrays."""
from __future__ import annotations

import os
from collections.abc import Iterable
from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core

_PORTS = (1, 2, 4)


class Network:
    """Scattering parameters over frequency, laid out as in scikit-rf.

    Parameters
    ----------
    f : array_like of float64, shape (n,)
        Frequencies [Hz], rising.
    s : array_like of complex128, shape (n, ports, ports)
        ``s[k, to, from]`` at ``f[k]``, ports counted from 0; 1, 2 or 4 ports.
    z0 : float
        Reference impedance [Ohm].
    name : str

    Examples
    --------
    >>> import numpy as np, tarnwick
    >>> line = tarnwick.Network([1e9, 2e9], np.array([[[0, 0.9], [0.9, 0]], [[0, 0.8], [0.8, 0]]]), name="line")
    >>> line
    Network('line', 2 ports, 2 points from 1e+09 to 2e+09 Hz)
    >>> line.s[:, 1, 0].real
    array([0.9, 0.8])
    """

    def __init__(self, f: ArrayLike, s: ArrayLike, z0: float = 50.0, name: str = "") -> None:
        self.f: NDArray[np.float64] = np.asarray(f, dtype=np.float64)
        self.s: NDArray[np.complex128] = np.asarray(s, dtype=np.complex128)
        self.z0 = float(z0)
        self.name = name
        if self.f.ndim != 1 or self.f.size == 0 or not np.all(np.isfinite(self.f)) or np.any(np.diff(self.f) <= 0.0):
            raise ValueError(f"Network: f has shape {self.f.shape}; expected rising frequencies [Hz] in one dimension")
        if self.s.ndim != 3 or self.s.shape != (self.f.size, self.ports, self.ports) or self.ports not in _PORTS:
            raise ValueError(f"Network: s has shape {self.s.shape}; expected ({self.f.size}, ports, ports) with 1, 2 or 4 ports")

    @property
    def ports(self) -> int:
        """1, 2 or 4."""
        return int(self.s.shape[-1])

    def __repr__(self) -> str:
        name = f"{self.name!r}, " if self.name else ""
        return f"Network({name}{self.ports} ports, {self.f.size} points from {self.f[0]:g} to {self.f[-1]:g} Hz)"


def touchstone(path: str | os.PathLike[str]) -> Network:
    """Reads a Touchstone file of one, two or four ports; other parameters than S are converted.

    Parameters
    ----------
    path : str or path
        Its ending, .s1p, .s2p or .s4p, says how many ports there are.

    Returns
    -------
    Network
        ``f`` [Hz], shape (n,), and ``s``, shape (n, ports, ports).

    Raises
    ------
    ValueError
        The file cannot be read as a whole; the text names it, the line and what was expected.
    FileNotFoundError

    Examples
    --------
    >>> import pathlib, tempfile, tarnwick
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     path = pathlib.Path(folder, "line.s2p")
    ...     _ = path.write_text("# GHz S RI R 50\\n1 0 0 0.9 0 0.9 0 0 0\\n2 0 0 0.8 0 0.8 0 0 0\\n")
    ...     line = tarnwick.touchstone(path)
    >>> line.f, line.s.shape
    (array([1.e+09, 2.e+09]), (2, 2, 2))
    """
    name = existing(path)
    f, s, reference = _core.read_network(name)
    return Network(f, s, _impedance(reference), Path(name).stem)


def existing(path: str | os.PathLike[str]) -> str:
    """The name of a file that is there."""
    name = os.fspath(path)
    os.stat(name)  # FileNotFoundError, PermissionError: as open() would say it
    return name


def _impedance(reference: str) -> float:
    try:
        return float(reference)
    except ValueError:
        return 50.0


def write_touchstone(network: Any, stem: Path) -> str:
    """Writes any object with f and s as a file that reads back to the same numbers; returns its name."""
    checked = Network(network.f, network.s)
    pairs = checked.s.copy()
    if checked.ports == 2:  # the format's order of two ports is 11, 21, 12, 22
        pairs = pairs.transpose(0, 2, 1)
    values = np.empty((checked.f.size, 2 * checked.ports ** 2))
    values[:, 0::2] = pairs.real.reshape(checked.f.size, -1)
    values[:, 1::2] = pairs.imag.reshape(checked.f.size, -1)
    path = stem.with_suffix(f".s{checked.ports}p")
    path.write_text("# HZ S RI R 50\n" + "".join(_lines(checked, values)))
    return str(path)


def _lines(network: Network, values: NDArray[np.float64]) -> Iterable[str]:
    row = 2 * network.ports if network.ports > 2 else values.shape[1]
    for frequency, line in zip(network.f.tolist(), values.tolist()):
        yield repr(frequency)
        for first in range(0, len(line), row):
            yield " " + " ".join(map(repr, line[first:first + row])) + "\n"
