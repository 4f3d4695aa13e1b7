#include "workbench/symbols.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "maths/patterns/codings.h"
#include "maths/patterns/symboldetection.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/stageplans.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// Noise of a tenth of the spacing: the thresholds are five times as far away.
constexpr double kCertain = 0.01;

}  // namespace

bool FoundSymbols::Certain() const
{
    return quality < kCertain;
}

std::string FoundSymbols::Text(E_SIGNAL_CODING coding, bool withoutGrayCoding) const
{
    const auto map = withoutGrayCoding ? Maths::SymbolMap::Level : Maths::SymbolMap::Gray;
    return Maths::SymbolsOf(levels, Maths::Alphabet(coding, map, {}));
}

std::string FoundSymbols::Description(E_SIGNAL_CODING coding) const
{
    return fmt::format("{} {} symbols ({}, quality {:.2g})", levels.size(), NameOf(coding),
                       Certain() ? "certain" : "likely", quality);
}

FoundSymbols FindSymbols(std::span<const double> samples, double samplesPerUi, int patternLengthUi,
                         E_SIGNAL_CODING coding, const std::string& what)
{
    const int levelCount = LevelCount(coding);
    const double period = samplesPerUi * patternLengthUi;
    const auto length = static_cast<std::size_t>(std::lround(std::max(period, 0.0)));
    if (patternLengthUi < 1 || length > samples.size() + 1)
        throw DataFailure(fmt::format("{}: has {} samples; one period of {} UI takes {:.6g}", what, samples.size(),
                                      patternLengthUi, period));
    samples = samples.first(std::min(length, samples.size()));
    if (!std::all_of(samples.begin(), samples.end(), [](double sample) { return std::isfinite(sample); }))
        throw DataFailure(fmt::format("{}: holds values that are not finite; no symbols can be made out in it", what));
    Maths::SymbolDetection detection =
        Maths::DetectSymbols(samples, static_cast<std::size_t>(patternLengthUi), levelCount);
    if (detection.levels.empty() || detection.quality > Maths::kWorstQuality)
        throw DataFailure(
            fmt::format("{}: no {} pattern of {} UI can be made out in it (quality {:.2g}; "
                        "expected at most {}); give device.patternSymbols",
                        what, NameOf(coding), patternLengthUi, detection.quality, Maths::kWorstQuality));
    return {std::move(detection.levels), std::move(detection.voltages), detection.quality};
}

ChainFile WithSymbols(const ChainFile& file, std::span<const double> samples, const std::string& capture,
                      std::vector<std::string>& notes)
{
    DeviceConfiguration device;
    bool oeChannels[4] = {};
    device.oeChannel = oeChannels;
    ReadChainDevice(file, samples.size(), device);
    const std::vector<StagePlan> plans = PlanStages(file, device);
    const auto user =
        std::find_if(plans.begin(), plans.end(), [](const StagePlan& plan) { return plan.stage.needsSymbols; });
    if (user == plans.end() || !device.patternSymbols.empty())
        return file;
    const auto require = [&](bool isGiven, const char* key) {
        if (!isGiven)
            throw UsageFailure(fmt::format("{}: device.{}: is missing; {} ({}) needs it", file.Name(), key,
                                           user->stage.place, user->stage.name));
    };
    const double samplesPerUi = SamplesPerUiOf(device);
    require(LevelCount(device.signalCoding) > 1, "signalCoding");
    require(samplesPerUi >= 1.0, "samplesPerUi");
    require(device.patternLengthUi > 0, "patternLengthUi");
    const FoundSymbols symbols =
        FindSymbols(samples, samplesPerUi, device.patternLengthUi, device.signalCoding, capture);
    notes.push_back(fmt::format("{}: device.patternSymbols is not given; found {} in {}", file.Name(),
                                symbols.Description(device.signalCoding), capture));
    nlohmann::json content = JsonOf(file);
    content["device"]["patternSymbols"] = symbols.Text(device.signalCoding, device.withoutGrayCoding);
    return ChainFileOf(std::move(content), file.Name());
}

std::string NameOf(E_SIGNAL_CODING coding)
{
    const Maths::Coding* const row = Maths::FindCoding(coding);
    return row == nullptr ? "unknown" : std::string(row->name);
}

}  // namespace Tarnwick::DSO::Workbench
