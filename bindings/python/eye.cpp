#include "eye.h"

#include <cstddef>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "workbench/eyeimage.h"
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
    py::class_<Eye>(module, "Eye", "The eyes of a waveform: figures, bathtub and density.")
        .def_property_readonly("levels", [](const Eye& eye) { return eye.Report().levels; })
        .def_property_readonly("eyes", [](const Eye& eye) { return EyesOf(eye.Report()); })
        .def_property_readonly("phase_ui", [](const Eye& eye) { return eye.Report().phaseUi; })
        .def_property_readonly("ber", [](const Eye& eye) { return eye.Report().ber; })
        .def_property_readonly("noise_rms", [](const Eye& eye) { return eye.Report().noiseRms; })
        .def_property_readonly("target_ber", [](const Eye& eye) { return eye.Report().targetBer; })
        .def_property_readonly("symbols_known", [](const Eye& eye) { return eye.Report().symbolsKnown; })
        .def_property_readonly("symbol_rate", [](const Eye& eye) { return eye.Report().symbolRateGBd; })
        .def_property_readonly("samples_per_ui", &Eye::SamplesPerUi)
        .def_property_readonly("bathtub", [](const Eye& eye) { return BathtubOf(eye.Report()); })
        .def("image", &Eye::Image, py::arg("columns") = 480, py::arg("rows") = 320);
}

}  // namespace Tarnwick::Python
