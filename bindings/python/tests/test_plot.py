"""Pictures: they draw on axes given or new, what they show is there, and their colours can be told apart."""
import itertools

import numpy as np
import pytest
from matplotlib import colors, pyplot

import tarnwick
from tarnwick import plot
from conftest import DEVICE

CHAIN = {"device": {**DEVICE, "record": "periodic"},
         "filters": [{"type": "bessel-thomson"}, {"type": "ffe", "numberOfTaps": 3, "mainCursorPosition": 1},
                     {"type": "dfe", "numberOfTaps": 2}]}


@pytest.fixture(scope="module")
def result(wave):
    return tarnwick.Chain(CHAIN).apply(np.tile(wave, 3), sample_rate=82.5, pulses=True)


@pytest.fixture
def ax():
    figure, axes = pyplot.subplots()
    yield axes
    figure.canvas.draw()
    pyplot.close("all")


GIVEN = {**CHAIN, "filters": [{"type": "ctle", "gain": 3.0}, {"type": "bessel-thomson"},
                              {"type": "ffe", "useManualTaps": True, "taps": [1.0, -0.2]}]}


def everything(result, wave):
    capture = tarnwick.lock(np.tile(wave, 3), sample_rate=82.5)
    chain = tarnwick.Chain(GIVEN)
    return {
        "eye": lambda **ax: plot.eye(result, **ax),
        "bathtub": lambda **ax: plot.bathtub({"as read": capture, "behind the chain": result}, **ax),
        "response": lambda **ax: plot.response(chain, **ax),
        "impulse": lambda **ax: plot.impulse(chain.response(), **ax),
        "taps": lambda **ax: plot.taps(result, **ax),
        "feedback taps": lambda **ax: plot.taps(result, index=1, **ax),
        "pulses": lambda **ax: plot.pulses(result, **ax),
        "clock_phase": lambda **ax: plot.clock_phase(capture, **ax),
    }


def test_each_picture_takes_axes_and_makes_its_own(result, wave):
    before = pyplot.rcParams.copy()
    for name, draw in everything(result, wave).items():
        figure, axes = pyplot.subplots()
        assert draw(ax=axes) is axes, name
        own = draw()
        assert own is not axes and own.get_xlabel() and own.get_ylabel(), name
        assert "[" in own.get_xlabel() or own.get_xlabel() == "sample", name
        for each in (figure, own.figure):
            each.canvas.draw()
    assert pyplot.rcParams == before
    pyplot.close("all")


def test_an_eye_shows_its_threshold_its_opening_and_its_contour(result, ax):
    measured = result.eye(bathtub=True)
    plot.eye(measured, ax=ax)
    per_volt = 1e3 if "mV" in ax.get_ylabel() else 1.0
    thresholds = [line.get_ydata()[0] for line in ax.lines if len(line.get_xdata()) == 2]
    assert np.allclose(thresholds, [eye["threshold"] * per_volt for eye in measured.eyes], rtol=1e-12)
    contour = max(ax.lines, key=lambda line: len(line.get_xdata()))
    low, high = contour.get_ydata().min(), contour.get_ydata().max()
    assert contour.get_xdata()[0] == contour.get_xdata()[-1] and low < thresholds[0] < high
    assert abs(high - low) <= measured.eyes[0]["height"] * per_volt * 1.5
    assert any(f"({measured.eyes[0]['openingPercent']:.1f} %)" in text.get_text() for text in ax.texts)


def test_bars_stand_at_the_taps_that_were_applied(result, ax):
    plot.taps(result, ax=ax)
    heights = [bar.get_height() for bar in ax.patches]
    assert heights == result.stages[2].appliedTaps
    assert [bar.get_x() + bar.get_width() / 2 for bar in ax.patches] == pytest.approx([0, 1, 2])


@pytest.mark.parametrize(("draw", "text"), [
    (lambda result: plot.taps(result, index=2), "index is 2; samples has 2 equalisers"),
    (lambda result: plot.taps([]), r"taps have shape \(0,\)"),
    (lambda result: plot.bathtub(result.eye()), "without its bathtub"),
    (lambda result: plot.pulses(tarnwick.Chain(CHAIN).apply(np.tile(result.whole, 1))), "no pulse responses"),
    (lambda result: plot.eye(np.zeros(100)), ""),
], ids=range(5))
def test_what_cannot_be_drawn_is_said(draw, text, result):
    with pytest.raises(ValueError, match=text):
        draw(result)
    pyplot.close("all")


def linear(colour):
    rgb = np.array(colors.to_rgb(colour))
    return np.where(rgb <= 0.04045, rgb / 12.92, ((rgb + 0.055) / 1.055) ** 2.4)


def luminance(colour):
    return float(linear(colour) @ [0.2126, 0.7152, 0.0722])


# Full deuteranopia and protanopia in linear RGB. Source: Machado, Oliveira, Fernandes, "A physiologically-based model for
# simulation of color vision deficiency", IEEE Trans. Visualization and Computer Graphics 15 (2009), table for severity 1.
BLIND = {
    "deutan": [[0.367322, 0.860646, -0.227968], [0.280085, 0.672501, 0.047413], [-0.011820, 0.042940, 0.968881]],
    "protan": [[0.152286, 1.052583, -0.204868], [0.114503, 0.786281, 0.099216], [-0.003882, -0.048116, 1.051998]],
}


def test_lines_are_readable_on_paper_and_told_apart_without_colour_vision():
    for colour in plot._ON_LIGHT:
        assert 1.05 / (luminance(colour) + 0.05) >= 3.0, colour  # WCAG 2.1, 1.4.11: contrast of graphical objects
    assert len({str(dash) for dash in plot._DASHES}) == len(plot._DASHES) == len(plot._ON_LIGHT)
    for matrix in BLIND.values():
        for one, other in itertools.combinations(plot._ON_LIGHT[:4], 2):
            seen = [np.clip(np.array(matrix) @ linear(colour), 0.0, 1.0) for colour in (one, other)]
            assert np.linalg.norm(np.cbrt(seen[0]) - np.cbrt(seen[1])) > 0.3, (one, other)  # a tenth of it is seen side by side


def test_the_density_map_rises_in_brightness_so_that_it_prints_in_grey():
    steps = [luminance(colour) for _, colour in plot._PALETTE]
    assert all(b > a for a, b in zip(steps, steps[1:]))
