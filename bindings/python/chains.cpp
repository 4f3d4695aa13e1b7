#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "captures.h"
#include "eye.h"
#include "framework/filenames.h"
#include "workbench/chain.h"
#include "workbench/chaininput.h"
#include "workbench/chainresponse.h"
#include "workbench/htmlreport.h"
#include "workbench/responsereport.h"
#include "workbench/run.h"
#include "workbench/runreport.h"
#include "workbench/units.h"
#include "workbench/waveform.h"

namespace Tarnwick::Python {

using namespace DSO::Workbench;

namespace {

struct TapsOfStage {
    std::size_t stage;  // among the reports
    TapFigure figure;
};

struct Result {
    ChainResult chain;
    std::optional<LockReport> acquisition;
    EyeSettings eyes;
    double interval = 0.0;
    double start = 0.0;
    std::vector<std::string> notes;
    std::vector<TapsOfStage> taps;
};
using SharedResult = std::shared_ptr<Result>;

// As the program's apply.
SharedResult Apply(const ChainFile& file, const Waveform& waveform, const std::string& device, const std::string& name,
                   bool withPulses)
{
    ChainInput input = InputFor(file, waveform, FactsOf(ChainFile::FromText(device, name)), name);
    input.eyes.withPulses = withPulses;
    Chain chain(input.chain, input.samples.size());
    auto result = std::make_shared<Result>();
    result->chain = RunChain(chain, input.samples, input.eyes, name);
    result->notes = std::move(input.notes);
    std::size_t report = 0;  // of the capture; those of the stages follow
    for (Stage& stage : chain.Stages()) {
        StageReport& described = result->chain.stages[++report];
        result->notes.insert(result->notes.end(), stage.notes.begin(), stage.notes.end());
        if (described.taps)
            result->taps.push_back({report, std::move(*described.taps)});
        else if (stage.taps)
            result->taps.push_back({report, {stage.taps(), {}}});
    }
    result->acquisition = std::move(input.acquisition);
    result->eyes = std::move(input.eyes);
    result->interval = input.interval;
    result->start = input.start;
    return result;
}

// As the program's report.
// @param samples  of each capture's file; 0: not known
void WriteReport(const ChainFile& file, const Waveform& waveform, const std::string& device, const std::string& name,
                 const std::vector<std::string>& captures, std::size_t samples, const std::string& mask,
                 const std::string& path)
{
    const std::string chain = DSO::FileNameOf(file.Name());
    ReportHead head{name + " through " + chain, TARNWICK_VERSION, ReportDate(), "", {}, file, {}};
    if (!mask.empty())
        head.mask = ReadReportMask(mask);
    for (const std::string& capture : captures)
        head.captures.push_back(SourceOf(capture, samples > 0 ? std::optional(samples) : std::nullopt));
    if (captures.empty())
        head.captures.push_back({name, waveform.samples.size(), ""});
    const RunReport report = RunForReport(file, waveform, FactsOf(ChainFile::FromText(device, name)), name);
    WriteWhole(path, HtmlReport(report, head));
}

Eye EyeOfResult(const SharedResult& result, double targetBer, bool bathtub)
{
    EyeSettings settings = result->eyes;
    settings.valid = result->chain.valid;
    settings.targetBer = targetBer;
    settings.withBathtub = bathtub;
    return {result->chain.samples, settings, result};
}

py::object PulsesOf(const std::optional<PulseResponses>& pulses)
{
    if (!pulses)
        return py::none();
    py::dict row;
    row["first_ui"] = pulses->firstUi;
    row["values_per_ui"] = pulses->valuesPerUi;
    row["before"] = Adopt(std::vector<double>(pulses->before));
    row["after"] = Adopt(std::vector<double>(pulses->after));
    row["before_residual_rms"] = pulses->beforeResidualRms;
    row["after_residual_rms"] = pulses->afterResidualRms;
    row["ideal"] = pulses->source == PulseResponses::Source::IdealSymbol;
    return row;
}

py::dict TapsToDict(const std::string& name, const TapFigure& figure)
{
    py::dict row;
    row["name"] = name;
    row["feedback"] = figure.taps.kind == StageTaps::Kind::Feedback;
    row["values"] = Adopt(std::vector<double>(figure.taps.values));
    row["offsets_ui"] = Adopt(std::vector<double>(figure.taps.offsetsUi));
    row["pulses"] = PulsesOf(figure.pulses);
    return row;
}

py::list TapsOf(const SharedResult& result)
{
    py::list list;
    for (const TapsOfStage& taps : result->taps)
        list.append(TapsToDict(result->chain.stages[taps.stage].name, taps.figure));
    return list;
}

py::dict ResponseOf(const ChainFile& file)
{
    ChainResponse response;
    {
        const py::gil_scoped_release released;
        const ImpulseRecord record = ImpulseRecordFor(file);
        Chain chain(file, record.sampleCount);
        response = MeasureResponse(chain, record, chain.Device().baudRateGBd * kGiga);
    }
    py::list filters;
    response.ForEach([&](const std::string& label, const TransferFunction& function) {
        py::dict row;
        row["label"] = label;
        row["spacing"] = function.Spacing();
        row["peak"] = function.peak;
        row["impulse"] = Adopt(std::vector<double>(function.impulse));
        row["magnitude_db"] = Adopt(std::vector<double>(function.magnitudeDb));
        row["group_delay"] = Adopt(std::vector<double>(function.groupDelay));
        filters.append(row);
    });
    py::list taps;
    for (const FilterTaps& each : response.taps)
        taps.append(TapsToDict(each.type, each.figure));
    py::dict all;
    all["symbol_rate"] = response.symbolRate;
    all["samples_per_ui"] = response.samplesPerUi;
    all["band_end"] = response.bandEnd;
    all["left_out"] = response.leftOut;
    all["lines"] = filters;
    all["taps"] = taps;
    all["figures"] = ResponseAsJson(response);
    return all;
}

}  // namespace

void BindChains(py::module_& module)
{
    using Released = py::call_guard<py::gil_scoped_release>;
    py::class_<ChainFile>(module, "ChainFile", "The JSON text of a chain file.")
        .def(py::init(&ChainFile::FromText), py::arg("text"), py::arg("name"))
        .def_static(
            "read", [](const std::string& path) { return ChainFile(std::filesystem::path(path)); }, py::arg("path"))
        .def_property_readonly("name", &ChainFile::Name)
        .def("text", &ChainFile::Text)
        .def("check", &CheckChain)
        .def("files", &FilesOf)
        .def("apply", &Apply, py::arg("waveform"), py::arg("device"), py::arg("name"), py::arg("pulses"), Released())
        .def("report", &WriteReport, py::arg("waveform"), py::arg("device"), py::arg("name"), py::arg("captures"),
             py::arg("samples"), py::arg("mask"), py::arg("path"), Released())
        .def("response", &ResponseOf);

    py::class_<Result, SharedResult>(module, "Result", "A capture behind a chain.")
        .def_property_readonly("samples",
                               [](const py::object& self) { return View(self.cast<Result&>().chain.samples, self); })
        .def_property_readonly(
            "valid",
            [](const Result& result) { return py::make_tuple(result.chain.valid.first, result.chain.valid.count); })
        .def_readonly("interval", &Result::interval)
        .def_readonly("start", &Result::start)
        .def_readonly("notes", &Result::notes)
        .def("report", [](const Result& result) { return ReportAsJson(result.chain.stages, result.acquisition); })
        .def("taps", &TapsOf)
        .def("eye", &EyeOfResult, py::arg("target_ber"), py::arg("bathtub"), Released());
}

}  // namespace Tarnwick::Python
