#include "workbench/run.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>

#include <fmt/format.h>

#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

using DSO::SystemFramework::SignalData;

namespace {

bool AreFinite(const std::vector<double>& values)
{
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

}  // namespace

std::vector<double> RunStage(Stage& stage, std::vector<double>& samples, const std::string& chain,
                             const std::string& capture)
{
    SignalData signal;
    signal.sampleCount = static_cast<std::int32_t>(samples.size());
    signal.samples = samples.data();
    try {
        stage.filter->Prepare(&signal);
        stage.parameters->ResetDirty();
    } catch (const std::invalid_argument& failure) {
        throw UsageFailure(fmt::format("{}: {}: {}", chain, stage.place, failure.what()));
    } catch (const std::runtime_error& failure) {  // what a filter makes of the files that it was given
        throw DataFailure(fmt::format("{}: {}: {}", chain, stage.place, failure.what()));
    }
    struct Release {
        void operator()(double* array) const { ::operator delete(array); }
    };
    std::unique_ptr<double[], Release> result;
    try {
        result.reset(stage.filter->Apply(&signal));
    } catch (const std::invalid_argument& failure) {
        throw DataFailure(fmt::format("{}: {}: {}", capture, stage.place, failure.what()));
    }
    if (!result)
        throw DataFailure(fmt::format("{}: {}: {} samples are fewer than one repetition of the pattern", capture,
                                      stage.place, samples.size()));
    std::vector<double> filtered(samples.size());
    std::copy_n(result.get(), filtered.size(), filtered.begin());
    if (AreFinite(samples) && !AreFinite(filtered))
        throw UsageFailure(fmt::format("{}: {}: gives values that are not finite; are all of its settings there?",
                                       chain, stage.place));
    return filtered;
}

}  // namespace Tarnwick::DSO::Workbench
