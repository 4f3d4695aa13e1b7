"""Pictures on Matplotlib axes, given or new: eyes, responses, taps, bathtubs, the clock's phase.

Every function draws on ``ax``, or on new axes where none are given, and returns the axes. Colours are those of the program's
pictures. On light axes lines take darker tones of the same hues, in an order that colour-blind eyes tell apart, each with a
dash of its own, so that they stay apart in grey print too.
"""
from __future__ import annotations

from collections.abc import Mapping, Sequence
from typing import Any, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core
from ._captures import Capture, as_capture, as_locked
from ._chains import Chain, Response, Result
from ._filters import Filter

__all__ = ["bathtub", "clock_phase", "eye", "impulse", "pulses", "response", "taps"]

HasEyes = Union[Capture, Result, _core.Eye, ArrayLike]

# The program's, for dark axes; then tones of the same hues that have a contrast of at least 3 to 1 against white.
_ON_DARK = ("#4cc9f0", "#f9c74f", "#ff6b6b", "#90be6d", "#c77dff", "#f8961e")
_ON_LIGHT = ("#0072b2", "#b58900", "#8c0f2d", "#2a9a6a", "#9b59d0", "#3a2a10")
_DASHES: tuple[Any, ...] = ("-", (0, (5, 2)), (0, (1, 1.2)), (0, (5, 1.5, 1, 1.5)), (0, (8, 2, 2, 2)), (0, (3, 1, 1, 1, 1, 1)))
_BACKGROUND = "#101018"
_PALETTE = ((0.0, "#101018"), (0.15, "#14288c"), (0.4, "#1e96c8"), (0.65, "#50dc78"), (0.85, "#ffe650"), (1.0, "#ffffff"))
_OPENING = "#ff6060"
_OPENING_TEXT = "#ffb0b0"
_THRESHOLD = "#e8e8f0"
_CONTOUR = "#ff9040"
_LOWEST_BER = 1e-15
_SHOWN_DB = 40.0  # magnitudes are shown down to this far below the largest of all
_TAIL = 0.01      # of its peak: an impulse response is shown until it stays below this
_NARROWEST_UI, _WIDEST_UI = 2.0, 10.0
_MOST_LABELS = 16
_MILLIVOLT_RANGE = 0.5  # [V] a smaller range is labelled in millivolts


def eye(samples: HasEyes, *, ax: Any = None, contour: bool = True, target_ber: float = 1e-6, sample_rate: float = 0.0) -> Any:
    """A density eye, two UI wide, with thresholds, openings and what is left at a bit error ratio.

    Parameters
    ----------
    samples : Capture, Result, Eye or array_like of float64, shape (n,)
        What is not locked is locked first.
    ax : matplotlib.axes.Axes, optional
        Default: new axes.
    contour : bool
        Draw what is left of each eye at ``target_ber``; of an `Eye` only if it has its bathtub.
    target_ber : float
        Bit error ratio of the contour.
    sample_rate : float
        Of an array [GS/s].

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        The samples have no levels, or are not finite.

    Examples
    --------
    >>> import matplotlib; matplotlib.use("Agg")
    >>> import numpy as np, tarnwick.plot
    >>> bits = np.random.default_rng(1).integers(0, 2, 400)
    >>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
    >>> tarnwick.plot.eye(edges).get_xlabel()
    'time from the measuring phase [UI]'
    """
    measured, name = _eye_of(samples, target_ber, contour, sample_rate)
    axes = _axes(ax)
    shades, low, high = measured.image()
    per_volt, unit = _voltage_unit(high - low)
    axes.set_facecolor(_BACKGROUND)
    axes.imshow(shades, origin="lower", extent=(-1.0, 1.0, low * per_volt, high * per_volt), aspect="auto", vmin=0.0, vmax=1.0,
                cmap=_density_map(), interpolation="nearest", zorder=0)
    box = {"facecolor": _BACKGROUND, "edgecolor": "none", "pad": 1.5, "alpha": 0.85}
    for each in measured.eyes:
        middle, height = each["threshold"] * per_volt, each["height"] * per_volt
        axes.axhline(middle, color=_THRESHOLD, linewidth=0.8, linestyle=(0, (4, 3)), zorder=2)
        if height > 0.0:
            axes.annotate("", (0.0, middle + 0.5 * height), (0.0, middle - 0.5 * height), zorder=4,
                          arrowprops={"arrowstyle": "<->", "color": _OPENING, "linewidth": 1.5, "shrinkA": 0, "shrinkB": 0})
        closed = "" if height > 0.0 else "closed "
        # Above its line, whose dashes would turn into a sign before the figure.
        axes.annotate(f"{closed}{height:.4g} {unit} ({each['openingPercent']:.1f} %)", (-0.97, middle), (0, 4),
                      textcoords="offset points", color=_OPENING_TEXT, fontsize="small", va="bottom", bbox=box, zorder=5)
    outlines = _contours(measured.bathtub) if contour else []
    for outline in outlines:
        axes.plot(outline[:, 0], outline[:, 1] * per_volt, color=_CONTOUR, linewidth=1.5, zorder=3)
    if outlines:
        axes.text(0.985, 0.03, f"contour: what is left at a bit error ratio of {measured.target_ber:g}", color=_CONTOUR,
                  fontsize="small", ha="right", transform=axes.transAxes, bbox=box, zorder=5)
    rate = f", {measured.symbol_rate:.6g} GBd" if measured.symbol_rate > 0.0 else ""
    axes.set(title=name + rate, xlabel="time from the measuring phase [UI]", ylabel=f"voltage [{unit}]", xlim=(-1.0, 1.0),
             ylim=(low * per_volt, high * per_volt))
    return axes


def bathtub(samples: HasEyes | Mapping[str, HasEyes], *, ax: Any = None, target_ber: float = 1e-6,
            sample_rate: float = 0.0) -> Any:
    """Bit error ratio over the phase of the decision.

    Parameters
    ----------
    samples : Capture, Result, Eye with its bathtub, array_like of float64 of shape (n,), or mapping of labels to them
    ax : matplotlib.axes.Axes, optional
    target_ber : float
        Drawn as a line.
    sample_rate : float
        Of an array [GS/s].

    Returns
    -------
    matplotlib.axes.Axes

    Examples
    --------
    >>> import matplotlib; matplotlib.use("Agg")
    >>> import numpy as np, tarnwick.plot
    >>> bits = np.random.default_rng(1).integers(0, 2, 2000)
    >>> edges = np.convolve(np.repeat(bits * 0.4 - 0.2, 8), np.hanning(8) / 3.5, "same")
    >>> noisy = edges + 0.03 * np.random.default_rng(2).normal(size=edges.size)
    >>> tarnwick.plot.bathtub({"as read": noisy}).get_yscale()
    'log'
    """
    curves = samples if isinstance(samples, Mapping) else {"": samples}
    axes = _axes(ax)
    for number, (label, each) in enumerate(curves.items()):
        measured, name = _eye_of(each, target_ber, True, sample_rate)
        points = measured.bathtub
        if points["ber"].size == 0:
            raise ValueError(f"plot.bathtub: {label or name} was measured without its bathtub; expected eye(bathtub=True)")
        axes.semilogy(points["offsetUi"], np.maximum(points["ber"], _LOWEST_BER ** 2), label=label or name,
                      **_line(axes, number, 2.0))
    quiet = _quiet(axes)
    axes.axhline(target_ber, color=_tone(axes, 2), linewidth=1.0, linestyle=(0, (4, 3)))
    axes.annotate(f"{target_ber:g}", (0.5, target_ber), (0, 3), xycoords=("axes fraction", "data"), textcoords="offset points",
                  ha="center", color=_tone(axes, 2))
    axes.axvline(0.0, color=quiet, linewidth=1.0, linestyle=(0, (4, 3)))
    axes.set(xlabel="time from the measuring phase [UI]", ylabel="bit error ratio", ylim=(_LOWEST_BER, 1.0))
    return _finished(axes, legend=len(curves) > 1)


def response(chain: Chain | Response | Filter, *, ax: Any = None) -> Any:
    """Magnitude of each filter and of the whole over frequency.

    Parameters
    ----------
    chain : Chain, Response or Filter
        Its device gives symbol rate, samples per UI and pattern length.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Examples
    --------
    >>> import matplotlib; matplotlib.use("Agg")
    >>> import tarnwick, tarnwick.plot
    >>> receiver = tarnwick.BesselThomson({"baudRateGBd": 26.5625, "samplesPerUi": 16, "patternLengthUi": 127})
    >>> tarnwick.plot.response(receiver).get_ylabel()
    'magnitude [dB]'
    """
    found = _response_of(chain)
    axes = _axes(ax)
    highest = max(float(line.magnitude_db.max()) for line in found.lines)
    lowest = highest
    for line, style, label in _lines_of(axes, found):
        shown = line.f <= found.band_end
        axes.plot(line.f[shown] / 1e9, np.where(np.isfinite(line.magnitude_db[shown]), line.magnitude_db[shown], np.nan),
                  label=label, **style)
        lowest = min(lowest, float(np.maximum(line.magnitude_db[shown], highest - _SHOWN_DB).min()))
    half = 0.5e-9 * found.symbol_rate
    axes.axvline(half, color=_quiet(axes), linewidth=1.0, linestyle=(0, (4, 3)))
    axes.annotate(f"half the symbol rate, {half:.4g} GHz", (half, 0.04), (3, 0), xycoords=("data", "axes fraction"),
                  textcoords="offset points", color=_quiet(axes), fontsize="small", rotation=90, va="bottom")
    room = max(0.08 * (highest - lowest), 1.0)
    axes.set(xlabel="frequency [GHz]", ylabel="magnitude [dB]", ylim=(lowest - room, highest + room), xlim=(0.0, None))
    return _finished(axes, legend=len(found.lines) > 1)


def impulse(chain: Chain | Response | Filter, *, ax: Any = None) -> Any:
    """Impulse response of each filter and of the whole, in UI from the impulse.

    Parameters
    ----------
    chain : Chain, Response or Filter
        As for `response`.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Examples
    --------
    >>> import matplotlib; matplotlib.use("Agg")
    >>> import tarnwick, tarnwick.plot
    >>> receiver = tarnwick.BesselThomson({"baudRateGBd": 26.5625, "samplesPerUi": 16, "patternLengthUi": 127})
    >>> tarnwick.plot.impulse(receiver).get_xlabel()
    'time from the impulse [UI]'
    """
    found = _response_of(chain)
    axes = _axes(ax)
    whole = found.lines[-1]
    count = whole.impulse.size
    offsets = np.arange(-((count - 1) // 2), (count - 1) // 2 + 1)
    around = np.abs(whole.impulse[(whole.peak + offsets) % count])
    large = np.abs(offsets[around > _TAIL * around.max()]).max(initial=0)
    reach = np.clip(1.2 * large, _NARROWEST_UI * found.samples_per_ui, _WIDEST_UI * found.samples_per_ui)
    shown = whole.peak + offsets[np.abs(offsets) <= reach]
    for line, style, label in _lines_of(axes, found):
        axes.plot(shown / found.samples_per_ui, line.impulse[shown % count] * found.samples_per_ui, label=label, **style)
    tallest = 3.0 * float(around.max()) * found.samples_per_ui  # a single line far taller is cut off
    low, high = axes.get_ylim()
    axes.set(xlabel="time from the impulse [UI]", ylabel="impulse response [1/UI]",
             ylim=(max(low, -tallest), min(high, tallest)) if tallest > 0.0 else None)
    return _finished(axes, legend=len(found.lines) > 1)


def taps(equaliser: Result | Response | Chain | Sequence[float] | NDArray[np.float64], *, index: int = 0, ax: Any = None) -> Any:
    """The taps of an equaliser as bars over their offset from the main cursor.

    Parameters
    ----------
    equaliser : Result, Response, Chain or array_like of float64, shape (n,)
        Of a `Result` the taps that were applied; of a `Chain` or `Response` those that are given; of an array the largest is
        the main cursor, one a UI.
    index : int
        Which of its equalisers, from 0.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        There is no such equaliser.

    Examples
    --------
    >>> import matplotlib; matplotlib.use("Agg")
    >>> import tarnwick.plot
    >>> tarnwick.plot.taps([-0.1, 1.0, -0.2]).get_ylabel()
    'taps'
    """
    found = _taps_of(equaliser, index)
    values, offsets = found["values"], found["offsets_ui"]
    axes = _axes(ax)
    spacing = float(offsets[1] - offsets[0]) if offsets.size > 1 else 1.0
    bars = axes.bar(offsets, values, width=0.6 * min(spacing, 1.0), color=_tone(axes, 1), edgecolor=_text(axes), linewidth=0.6,
                    zorder=2)
    if values.size <= _MOST_LABELS:
        axes.bar_label(bars, fmt="%.3f", fontsize="small", padding=2, color=_text(axes), rotation=0 if values.size <= 8 else 90)
        axes.margins(y=0.15 if values.size <= 8 else 0.3)
    axes.axhline(0.0, color=_text(axes), linewidth=0.8)
    axes.locator_params(axis="x", integer=True)
    axes.set(title=found["name"], xlabel="time from the main cursor [UI]",
             ylabel="taps [main cursors]" if found["feedback"] else "taps")
    return _finished(axes, legend=False)


def pulses(result: Result | Response | Chain, *, index: int = 0, ax: Any = None) -> Any:
    """The pulse response in front of an equaliser and behind it, with dots one UI apart.

    Parameters
    ----------
    result : Result, Response or Chain
        A `Result` of ``Chain.apply(capture, pulses=True)``.
    index : int
        Which of its equalisers, from 0.
    ax : matplotlib.axes.Axes, optional

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        No pulse response was fitted.
    """
    found = _taps_of(result, index)
    fitted = found["pulses"]
    if fitted is None:
        raise ValueError(f"plot.pulses: {found['name']} has no pulse responses; expected Chain.apply(capture, pulses=True) of a "
                         "capture whose symbols are known")
    axes = _axes(ax)
    curves = [(fitted["before"], "in front", {**_line(axes, 0, 2.0), "color": _quiet(axes), "linestyle": _DASHES[1]}),
              (fitted["after"], "behind", _line(axes, 0, 2.0))]
    largest = max((float(np.abs(values).max(initial=0.0)) for values, _, _ in curves), default=0.0)
    per_volt, unit = (1.0, "") if fitted["ideal"] else _voltage_unit(largest)
    for values, label, style in curves:
        if values.size:
            at = fitted["first_ui"] + np.arange(values.size) / fitted["values_per_ui"]
            axes.plot(at, values * per_volt, label=label, **style)
            axes.plot(at[::fitted["values_per_ui"]], values[::fitted["values_per_ui"]] * per_volt, "o", markersize=4,
                      color=style["color"])
    axes.axvline(0.0, color=_quiet(axes), linewidth=1.0, linestyle=(0, (4, 3)), zorder=1)
    axes.set(title=found["name"], xlabel="time from the main cursor [UI]",
             ylabel="response to an ideal symbol" if fitted["ideal"] else f"pulse response [{unit}]")
    return _finished(axes, legend=True)


def clock_phase(capture: Capture | ArrayLike, *, ax: Any = None, sample_rate: float = 0.0) -> Any:
    """The phase of a capture's symbol clock over the record, about a constant clock.

    Parameters
    ----------
    capture : Capture or array_like of float64, shape (n,)
        What is not locked is locked first.
    ax : matplotlib.axes.Axes, optional
    sample_rate : float
        Of an array [GS/s].

    Returns
    -------
    matplotlib.axes.Axes

    Raises
    ------
    ValueError
        The record is too short to look for its clock.
    """
    given = as_capture("plot.clock_phase", capture, sample_rate)
    clock = as_locked(given).clock()
    phase = clock["phaseUi"]
    if phase.size == 0:
        raise ValueError(f"plot.clock_phase: {given.name} has too few samples, or fewer than 2 per UI, to look for its clock")
    axes = _axes(ax)
    at = clock["first"] + np.arange(phase.size) * clock["spacing"]
    per_sample, unit = _time_unit(clock["interval"], 2.0 * clock["first"] + (phase.size - 1) * clock["spacing"])
    marker = {"marker": "o", "markersize": 3} if phase.size <= 64 else {}
    axes.plot(at * per_sample, phase, label=f"found, {clock['residualUi']:.2g} UI rms about a constant clock",
              **_line(axes, 0, 1.8), **marker)
    tracked = clock["trackedPhaseUi"]
    if tracked.size:
        axes.plot((clock["first"] + np.arange(tracked.size) * clock["spacing"]) * per_sample, tracked,
                  label=f"tracked, {clock['trackedResidualUi']:.2g} UI rms left", **_line(axes, 1, 1.8))
    largest = max(0.01, float(np.abs(phase).max()))  # what any clean capture stays within looks flat
    axes.axhline(0.0, color=_quiet(axes), linewidth=1.0, linestyle=(0, (4, 3)))
    axes.set(title=given.name, xlabel=unit, ylabel="clock phase [UI]", ylim=(-1.15 * largest, 1.4 * largest))
    return _finished(axes, legend=True)


def _axes(given: Any) -> Any:
    if given is not None:
        return given
    from matplotlib import pyplot
    return pyplot.subplots(constrained_layout=True)[1]


def _luminance(axes: Any) -> float:
    from matplotlib import colors
    red, green, blue, _ = colors.to_rgba(axes.get_facecolor())
    return float(0.2126 * red + 0.7152 * green + 0.0722 * blue)


def _is_dark(axes: Any) -> bool:
    return _luminance(axes) < 0.3


def _tone(axes: Any, number: int) -> str:
    return (_ON_DARK if _is_dark(axes) else _ON_LIGHT)[number % len(_ON_DARK)]


def _text(axes: Any) -> str:
    return "#e8e8f0" if _is_dark(axes) else "#202028"


def _quiet(axes: Any) -> str:
    return "#a0a0b0" if _is_dark(axes) else "#707078"


def _line(axes: Any, number: int, width: float) -> dict[str, Any]:
    return {"color": _tone(axes, number), "linestyle": _DASHES[number % len(_DASHES)], "linewidth": width}


def _lines_of(axes: Any, found: Response) -> list[tuple[Any, dict[str, Any], str]]:
    # The whole first, thick, so that no filter hides behind it.
    whole = {"color": _text(axes), "linewidth": 3.5, "linestyle": "-", "alpha": 0.85}
    filters = [(line, _line(axes, number, 1.8), str(line.label)) for number, line in enumerate(found.lines[:-1])]
    return [(found.lines[-1], whole, "whole"), *filters]


def _finished(axes: Any, legend: bool) -> Any:
    axes.grid(True, color=_quiet(axes), linewidth=0.4, alpha=0.6, zorder=0)
    axes.set_axisbelow(True)
    if legend:
        axes.legend(fontsize="small", handlelength=3.0)
    return axes


def _density_map() -> Any:
    from matplotlib import colors
    return colors.LinearSegmentedColormap.from_list("tarnwick", list(_PALETTE))


def _voltage_unit(span: float) -> tuple[float, str]:
    return (1e3, "mV") if span < _MILLIVOLT_RANGE else (1.0, "V")


def _time_unit(interval: float, samples: float) -> tuple[float, str]:
    if not interval > 0.0:
        return 1.0, "sample"
    for per_second, name in ((1.0, "s"), (1e3, "ms"), (1e6, "us"), (1e9, "ns")):
        if samples * interval * per_second >= 1.0:
            return interval * per_second, f"time from the first sample [{name}]"
    return interval * 1e12, "time from the first sample [ps]"


def _eye_of(given: Any, target_ber: float, with_bathtub: bool, sample_rate: float) -> tuple[_core.Eye, str]:
    if isinstance(given, _core.Eye):
        return given, "eye"
    if isinstance(given, Result):
        return given.eye(target_ber, with_bathtub), f"{given.name} behind {given.stages[-1].name}"
    capture = as_capture("plot.eye", given, sample_rate)
    return capture.eye(target_ber, with_bathtub), capture.name


def _contours(points: Mapping[str, NDArray[np.float64]]) -> list[NDArray[np.float64]]:
    """Closed outlines (offset [UI], voltage [V]), shape (k, 2), of what is left of each eye about where most is left."""
    outlines = []
    offset, low, high = points["offsetUi"], points["low"], points["high"]
    for number in range(low.shape[1] if offset.size else 0):
        height = high[:, number] - low[:, number]
        middle = 0.5 * (high[:, number] + low[:, number])
        most = int(height.argmax())
        if not height[most] > 0.0:
            continue
        shut = np.flatnonzero(~(height > 0.0))
        first = int(max(shut[shut < most], default=-1)) + 1
        last = int(min(shut[shut > most], default=height.size)) - 1
        outline = [np.column_stack((offset[first:last + 1], high[first:last + 1, number])),
                   np.column_stack((offset[first:last + 1], low[first:last + 1, number]))[::-1]]
        # Where it closes, on a straight line from the last open phase to the first closed one.
        for position, is_open, closed in ((1, last, last + 1), (len(outline) + 1, first, first - 1)):
            if 0 <= closed < height.size:
                part = height[is_open] / (height[is_open] - height[closed])
                outline.insert(position, np.array([[offset[is_open] + part * (offset[closed] - offset[is_open]),
                                                    middle[is_open] + part * (middle[closed] - middle[is_open])]]))
        path = np.concatenate(outline)
        outlines.append(np.concatenate((path, path[:1])))
    return outlines


def _response_of(given: Chain | Response | Filter) -> Response:
    if isinstance(given, Response):
        return given
    if isinstance(given, Filter):
        return Chain({"device": given.config, "filters": [given]}).response()
    return given.response()


def _taps_of(given: Any, index: int) -> dict[str, Any]:
    if isinstance(given, Chain):
        given = given.response()
    if isinstance(given, (Result, Response)):
        if not 0 <= index < len(given.taps):
            raise ValueError(f"plot.taps: index is {index}; {given.name} has {len(given.taps)} equalisers with taps")
        return given.taps[index]
    values = np.asarray(given, dtype=np.float64)
    if values.ndim != 1 or values.size == 0:
        raise ValueError(f"plot.taps: taps have shape {values.shape}; expected at least one, in one dimension")
    return {"name": "", "feedback": False, "values": values, "offsets_ui": np.arange(values.size) - np.abs(values).argmax(),
            "pulses": None}
