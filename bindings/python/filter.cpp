#include "filter.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <pybind11/stl.h>

#include "framework/signaldata.h"
#include "workbench/failure.h"

namespace Tarnwick::Python {

using DSO::SystemFramework::SignalData;
using DSO::Workbench::Chain;
using DSO::Workbench::ChainFile;
using DSO::Workbench::Stage;
using DSO::Workbench::ValidPart;
using nlohmann::json;

namespace {

// The only filter of its chain: what the messages say of its place there is of no use.
std::string WithoutPlace(const std::string& text, const std::string& name)
{
    const std::string owner = name + ": ";
    for (const char* const place : {"filters.0.", "filters.0: "}) {
        const std::string start = owner + place;
        if (!text.starts_with(start))
            continue;
        const std::string rest = text.substr(start.size());
        return rest.starts_with(owner) ? rest : owner + rest;
    }
    return text;
}

template <typename Action>
auto Renamed(const std::string& name, const Action& action)
{
    using namespace DSO::Workbench;
    try {
        return action();
    } catch (const NoPatternLockFailure& failure) {
        throw NoPatternLockFailure(WithoutPlace(failure.what(), name));
    } catch (const UsageFailure& failure) {
        throw UsageFailure(WithoutPlace(failure.what(), name));
    } catch (const DataFailure& failure) {
        throw DataFailure(WithoutPlace(failure.what(), name));
    }
}

bool NamesPattern(const json& device)
{
    return device.contains("patternLengthUi") || device.contains("patternSymbols") ||
           device.value("useFractionalSampling", false);
}

}  // namespace

Filter::Filter(std::string name, const std::string& device, const std::string& fields)
    : name_(std::move(name)),
      device_(json::parse(std::string_view(device))),
      fields_(json::parse(std::string_view(fields)))
{
    const py::gil_scoped_release released;
    Renamed(name_, [&] {
        CheckChain(FileFor(0));  // from here on the keys hold values of their kinds
        // A record as the configuration describes it, if it does.
        const double period = std::max(device_.value("samplesPerUi", 1.0) * device_.value("patternLengthUi", 0.0), 0.0);
        constexpr double kMostSamples = 1 << 24;
        (void)StageFor(static_cast<std::size_t>(std::min(period, kMostSamples)));
    });
}

// Where the configuration names no pattern, the whole record is one period.
ChainFile Filter::FileFor(std::size_t sampleCount) const
{
    json device = device_;
    if (sampleCount > 0 && !NamesPattern(device)) {
        const auto samplesPerUi = device.value("samplesPerUi", std::int64_t{1});
        if (samplesPerUi < 1 || sampleCount % static_cast<std::size_t>(samplesPerUi) != 0)
            throw DSO::Workbench::DataFailure(name_ + ": samples are " + std::to_string(sampleCount) +
                                              "; expected whole UI of samplesPerUi = " + std::to_string(samplesPerUi) +
                                              " samples, or a configuration with patternLengthUi");
        device["samplesPerUi"] = samplesPerUi;
        device["patternLengthUi"] = sampleCount / static_cast<std::size_t>(samplesPerUi);
    }
    return ChainFile::FromText(json{{"device", std::move(device)}, {"filters", {fields_}}}.dump(), name_);
}

Stage& Filter::StageFor(std::size_t sampleCount)
{
    if (!chain_ || sampleCount != sampleCount_) {
        chain_ = std::make_unique<Chain>(FileFor(sampleCount), sampleCount);
        sampleCount_ = sampleCount;
    }
    return chain_->Stages().front();
}

py::array_t<double> Filter::Apply(const py::object& given)
{
    const Samples samples(name_, given);
    const std::span<const double> values = samples.Values();
    ApplyResult result;
    {
        const py::gil_scoped_release released;
        const std::lock_guard turn(busy_);
        Stage& stage = Renamed(name_, [&]() -> std::reference_wrapper<Stage> { return StageFor(values.size()); });
        if (stage.adaptive)
            stage.parameters->SetDirty();  // each record gets taps of its own, whatever came before
        SignalData signal;
        signal.sampleCount = static_cast<std::int32_t>(values.size());
        // A record is handed over as an array that may be written to; filters only read it.
        signal.samples = const_cast<double*>(values.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
        result.reset(stage.filter->Apply(&signal));
    }
    if (!result)
        throw std::invalid_argument(name_ + ": samples are " + std::to_string(values.size()) +
                                    "; expected at least one repetition of the pattern");
    return Adopt(std::move(result), values.size());
}

std::string Filter::Findings(const py::object& filtered)
{
    const Samples samples(name_, filtered);
    const py::gil_scoped_release released;
    const std::lock_guard turn(busy_);
    const Stage& stage = chain_->Stages().front();
    if (!stage.findings)
        return "{}";
    return stage.findings(samples.Values(), ValidPart{0, samples.Values().size()});
}

std::vector<std::string> Filter::Notes()
{
    const py::gil_scoped_release released;
    const std::lock_guard turn(busy_);
    return chain_->Stages().front().notes;
}

void BindFilter(py::module_& module)
{
    py::class_<Filter>(module, "Filter", "One filter, set by the keys of a chain file.")
        .def(py::init<std::string, const std::string&, const std::string&>(), py::arg("name"), py::arg("device"),
             py::arg("fields"))
        .def("apply", &Filter::Apply, py::arg("samples"))
        .def("findings", &Filter::Findings, py::arg("filtered"))
        .def("notes", &Filter::Notes);
}

}  // namespace Tarnwick::Python
