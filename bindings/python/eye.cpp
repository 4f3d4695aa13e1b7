#include "eye.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "workbench/eyeimage.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"

namespace Tarnwick::Python {

using namespace DSO::Workbench;

namespace {

template <typename Rows, typename Value>
std::vector<double> Column(const Rows& rows, const Value& value)
{
    std::vector<double> column;
    column.reserve(rows.size());
    for (const auto& row : rows)
        column.push_back(value(row));
    return column;
}

py::list EyesOf(const EyeReport& report)
{
    py::list eyes;
    for (const EyeOpening& eye : report.eyes) {
        py::dict row;
        row["height"] = eye.height;
        row["openingPercent"] = eye.openingPercent;
        row["widthUi"] = eye.widthUi;
        row["widthPs"] = eye.widthPs;
        row["threshold"] = eye.threshold;
        row["heightAtBer"] = eye.heightAtBer;
        row["q"] = eye.q;
        eyes.append(row);
    }
    return eyes;
}

// Arrays by phase: offsetUi and ber [n], low and high [n, eyes].
py::dict BathtubOf(const EyeReport& report)
{
    std::vector<double> low;
    std::vector<double> high;
    for (const BathtubPoint& point : report.bathtub)
        for (const auto& opening : point.openings) {
            low.push_back(opening.low);
            high.push_back(opening.high);
        }
    const std::vector<std::size_t> shape = {report.bathtub.size(), report.eyes.size()};
    py::dict bathtub;
    bathtub["offsetUi"] = Adopt(Column(report.bathtub, [](const BathtubPoint& point) { return point.offsetUi; }));
    bathtub["ber"] = Adopt(Column(report.bathtub, [](const BathtubPoint& point) { return point.ber; }));
    bathtub["low"] = Adopt(std::move(low), shape);
    bathtub["high"] = Adopt(std::move(high), shape);
    return bathtub;
}

// "Eye(94.6 94.7 % open at 0.52 UI)"
std::string TextOf(const Eye& eye)
{
    return "Eye(" + OpeningsText(eye.Report()) + " % open at " + WidthText(eye.Report().phaseUi) + " UI)";
}

}  // namespace

Eye::Eye(std::span<const double> samples, const EyeSettings& settings, std::shared_ptr<const void> owner)
    : shown_(settings.valid ? settings.valid->Of(samples) : samples),
      samplesPerUi_(settings.samplesPerUi),
      owner_(std::move(owner))
{
    if (settings.levelCount < 2 || settings.samplesPerUi < 1.0)
        throw DataFailure(
            "Eye: samples per UI or line coding are not known; expected a locked capture, or a device that gives them");
    report_ = MeasureEyes(samples, settings);
    if (report_.eyes.empty())
        throw DataFailure("Eye: samples do not fall into levels; expected a waveform of finite values with symbols");
}

py::tuple Eye::Image(std::size_t columns, std::size_t rows) const
{
    if (columns < 2 || columns % 2 != 0 || rows < 2)
        throw py::value_error("Eye.image: columns, rows are " + std::to_string(columns) + ", " + std::to_string(rows) +
                              "; expected an even number of columns, and at least 2 of each");
    EyeImage image{};
    {
        const py::gil_scoped_release released;
        image = ShadeBetween(shown_, samplesPerUi_, report_.phaseUi, RangeOf(shown_), columns, rows);
    }
    return py::make_tuple(Adopt(std::move(image.shades), {rows, columns}), image.range.low, image.range.high);
}

void BindEye(py::module_& module)
{
    py::class_<Eye>(module, "Eye", R"(The eyes of a waveform, lowest first: what Capture.eye and Result.eye return.

Heights and openings are at the measuring phase, where the smallest opening is largest. A waveform is read between its
samples as the band-limited one that they stand for.)")
        .def_property_readonly(
            "levels", [](const Eye& eye) { return eye.Report().levels; },
            "Means of the levels' samples at the measuring phase [V], lowest first.")
        .def_property_readonly(
            "eyes", [](const Eye& eye) { return EyesOf(eye.Report()); },
            R"(One fewer than the levels: a dict each of height [V], openingPercent, widthUi, widthPs,
threshold [V], heightAtBer [V] and q; None where there is no figure.)")
        .def_property_readonly(
            "phase_ui", [](const Eye& eye) { return eye.Report().phaseUi; }, "The measuring phase [UI], 0 to below 1.")
        .def_property_readonly(
            "ber", [](const Eye& eye) { return eye.Report().ber; },
            "Bit error ratio of a slicer at the thresholds; None: too few symbols.")
        .def_property_readonly(
            "noise_rms", [](const Eye& eye) { return eye.Report().noiseRms; },
            "What the symbols do not explain at the measuring phase [V]; None: too few symbols.")
        .def_property_readonly(
            "target_ber", [](const Eye& eye) { return eye.Report().targetBer; },
            "Bit error ratio of heightAtBer and of the bathtub's low and high.")
        .def_property_readonly(
            "symbols_known", [](const Eye& eye) { return eye.Report().symbolsKnown; },
            "False: the symbols were decided, and a closed eye looks more open than it is.")
        .def_property_readonly(
            "symbol_rate", [](const Eye& eye) { return eye.Report().symbolRateGBd; }, "[GBd]; 0: not known.")
        .def_property_readonly("samples_per_ui", &Eye::SamplesPerUi, "A real number.")
        .def_property_readonly(
            "bathtub", [](const Eye& eye) { return BathtubOf(eye.Report()); },
            R"(By phase: offsetUi [UI] from the measuring one and ber, shape (n,), and between which voltages
the target error ratio holds, low and high [V], shape (n, eyes); n is 0 unless it was asked for.)")
        .def("image", &Eye::Image, py::arg("columns") = 480, py::arg("rows") = 320,
             R"(A density eye two UI wide, the measuring phase in the middle.

Returns
-------
shades : ndarray of float32, shape (rows, columns)
    0 to 1, the more traces cross a cell the brighter; lowest row first.
low, high : float
    [V] from the bottom to the top.)")
        .def("__repr__", &TextOf);
}

}  // namespace Tarnwick::Python
