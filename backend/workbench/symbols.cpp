#include "workbench/symbols.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "maths/patterns/codings.h"
#include "maths/patterns/symboldetection.h"
#include "workbench/chain.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"

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
        throw DataFailure(fmt::format("{}: holds values that are not finite; no symbols can be told in it", what));
    Maths::SymbolDetection detection =
        Maths::DetectSymbols(samples, static_cast<std::size_t>(patternLengthUi), levelCount);
    if (detection.levels.empty() || detection.quality > Maths::kWorstQuality)
        throw DataFailure(
            fmt::format("{}: holds no {} pattern of {} UI that could be told from it (quality {:.2g}; "
                        "expected at most {}); give device.patternSymbols",
                        what, NameOf(coding), patternLengthUi, detection.quality, Maths::kWorstQuality));
    return {std::move(detection.levels), std::move(detection.voltages), detection.quality};
}

nlohmann::json WithSymbols(nlohmann::json file, const std::string& name, std::span<const double> samples,
                           const std::string& capture)
{
    Chain chain(file, name, samples.size());
    const auto user = std::find_if(chain.Stages().begin(), chain.Stages().end(),
                                   [](const Stage& stage) { return stage.needsSymbols; });
    const DSO::DeviceConfiguration& device = chain.Device();
    if (user == chain.Stages().end() || !device.patternSymbols.empty())
        return file;
    const auto require = [&](bool there, const char* key) {
        if (!there)
            throw UsageFailure(
                fmt::format("{}: device.{}: is missing; {} ({}) needs it", name, key, user->place, user->name));
    };
    require(LevelCount(device.signalCoding) > 1, "signalCoding");
    require(chain.SamplesPerUi() >= 1.0, "samplesPerUi");
    require(device.patternLengthUi > 0, "patternLengthUi");
    const FoundSymbols found =
        FindSymbols(samples, chain.SamplesPerUi(), device.patternLengthUi, device.signalCoding, capture);
    fmt::print(stderr, "tarnwick: {}: device.patternSymbols is not given; found {} in {}\n", name,
               found.Description(device.signalCoding), capture);
    file["device"]["patternSymbols"] = found.Text(device.signalCoding, device.withoutGrayCoding);
    return file;
}

std::string NameOf(E_SIGNAL_CODING coding)
{
    const Maths::Coding* const row = Maths::FindCoding(coding);
    return row == nullptr ? "unknown" : std::string(row->name);
}

}  // namespace Tarnwick::DSO::Workbench
