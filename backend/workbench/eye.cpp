#include "workbench/eye.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "maths/captures/errorratio.h"
#include "maths/captures/eyes.h"
#include "maths/captures/resampling.h"
#include "workbench/plumbing/checkedeyes.h"
#include "workbench/statistics.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr double kPercent = 100.0;
constexpr double kPsPerNs = 1e3;

// Whether the symbols of the range take every level: otherwise an eye has no upper or no lower side.
bool HasAllLevels(std::span<const int> levels, Maths::SymbolRange range, int levelCount)
{
    const std::span<const int> part = levels.subspan(range.first, range.count);
    for (int level = 0; level < levelCount; ++level)
        if (std::find(part.begin(), part.end(), level) == part.end())
            return false;
    return true;
}

std::optional<Maths::ErrorRatios> RatiosAt(const Maths::EyeRecord& record, const Maths::AlignedSymbols& symbols,
                                           const Maths::NoiseSplit& split)
{
    if (!HasAllLevels(symbols.levels, split.range, record.levelCount))
        return std::nullopt;
    return Maths::ErrorRatios(split, symbols.levels, record.levelCount);
}

// The middle between the walls of the open eyes, in whole steps from the measuring phase, which so stays one of the phases. The
// eye opens widest where it is measured, but seldom as far to the left as to the right.
int MiddleOfWidths(std::span<const Maths::Eye> eyes)
{
    constexpr int kHalf = Maths::kEyePhases / 2;
    double sum = 0.0;
    double count = 0.0;
    for (const Maths::Eye& eye : eyes) {
        if (!(eye.height > 0.0))
            continue;
        sum += 0.5 * (eye.leftUi + eye.rightUi);
        count += 1.0;
    }
    const double middle = count > 0.0 ? sum / count : 0.0;
    return std::clamp(static_cast<int>(std::lround(middle * static_cast<double>(Maths::kEyePhases))), -kHalf, kHalf);
}

std::vector<BathtubPoint> Bathtub(const Maths::EyeRecord& record, const Maths::AlignedSymbols& symbols,
                                  const Maths::EyeFigures& figures, std::span<const double> thresholds,
                                  Maths::NoiseSplitter& splitter, const EyeSettings& settings)
{
    std::vector<BathtubPoint> points;
    constexpr int kHalf = Maths::kEyePhases / 2;
    const int middle = MiddleOfWidths(figures.eyes);
    constexpr int kTogether = 8;  // phases read in one pass: more take as much time each, and more memory
    for (int first = middle - kHalf; first <= middle + kHalf; first += kTogether) {
        std::vector<double> offsetsUi;
        std::vector<double> positions;
        for (int step = first; step < std::min(first + kTogether, middle + kHalf + 1); ++step) {
            offsetsUi.push_back(static_cast<double>(step) / static_cast<double>(Maths::kEyePhases));
            positions.push_back(figures.position + offsetsUi.back() * settings.samplesPerUi);
        }
        const std::vector<Maths::PhaseValues> phases = ValuesAt(record, symbols, positions);
        for (std::size_t k = 0; k < phases.size(); ++k) {
            BathtubPoint point{offsetsUi[k], 0.0, {}};
            const auto ratios = RatiosAt(record, symbols, splitter.Of(phases[k]));
            if (!ratios)
                continue;
            point.ber = ratios->OfBits(thresholds);
            for (std::size_t eye = 0; eye < thresholds.size(); ++eye) {
                const Maths::ErrorRatios::Opening opening = ratios->At(eye, settings.targetBer);
                point.openings.push_back({opening.low, opening.high});
            }
            points.push_back(std::move(point));
        }
    }
    return points;
}

}  // namespace

bool HoldsWaveform(const EyeSettings& settings)
{
    return settings.holdsWaveform && settings.samplesPerUi >= kFewestSamplesPerUi;
}

double OuterModulationAmplitude(const EyeReport& report)
{
    return report.levels.empty() ? 0.0 : report.levels.back() - report.levels.front();
}

std::optional<double> ExtinctionRatioDb(const EyeReport& report)
{
    if (report.levels.empty() || !(report.levels.front() > 0.0))
        return std::nullopt;
    return 10.0 * std::log10(report.levels.back() / report.levels.front());
}

EyeReport MeasureEyes(std::span<const double> samples, const EyeSettings& settings)
{
    return MeasureEyes(samples, settings, AreFinite(samples));
}

EyeReport MeasureEyes(std::span<const double> samples, const EyeSettings& settings, bool areFinite)
{
    EyeReport report;
    report.valid =
        settings.circular ? ValidPart{0, samples.size()} : settings.valid.value_or(ValidPart{0, samples.size()});
    const bool holdsWaveform = HoldsWaveform(settings);
    report.targetBer = settings.targetBer;
    report.symbolRateGBd = settings.symbolRateGBd;
    const Maths::EyeRecord record{samples,
                                  settings.samplesPerUi,
                                  settings.levelCount,
                                  report.valid.first,
                                  report.valid.count,
                                  settings.circular ? Maths::Wrapping::Circular : Maths::Wrapping::None};
    if (samples.empty() || record.UiCount() < static_cast<std::size_t>(settings.levelCount) || !areFinite)
        return report;

    std::optional<Maths::AlignedSymbols> symbols = LocateSymbols(record, settings.pattern);
    report.symbolsKnown = symbols.has_value();
    if (!symbols)
        symbols = DecideSymbols(record);
    const auto figures = symbols ? Maths::MeasureEyes(record, *symbols) : std::nullopt;
    if (!figures)
        return report;

    const Maths::PhaseValues& values = figures->values;
    Maths::NoiseSplitter splitter(symbols->levels, record.wrapping, settings.periodUi);
    const Maths::NoiseSplit split = splitter.Of(values);
    const auto ratios = RatiosAt(record, *symbols, split);
    const std::vector<double> factors = QFactors(values, symbols->levels, settings.levelCount);
    report.levels = figures->levels;
    report.phaseUi = figures->position / settings.samplesPerUi;
    report.phaseUi -= std::floor(report.phaseUi);
    std::vector<double> thresholds;
    for (std::size_t k = 0; k < figures->eyes.size(); ++k) {
        const Maths::Eye& eye = figures->eyes[k];
        EyeOpening opening{.height = eye.height,
                           .widthUi = holdsWaveform ? std::optional(eye.widthUi) : std::nullopt,
                           .leftUi = eye.leftUi,
                           .rightUi = eye.rightUi,
                           .openingPercent = kPercent * eye.opening,
                           .widthPs = std::nullopt,
                           .threshold = eye.threshold,
                           .heightAtBer = std::nullopt,
                           .q = factors[k]};
        if (settings.symbolRateGBd > 0.0 && holdsWaveform)
            opening.widthPs = eye.widthUi / settings.symbolRateGBd * kPsPerNs;
        if (ratios) {
            const Maths::ErrorRatios::Opening left = ratios->At(k, settings.targetBer);
            opening.heightAtBer = left.high - left.low;
        }
        report.eyes.push_back(opening);
        thresholds.push_back(eye.threshold);
    }
    if (ratios) {
        report.ber = ratios->OfBits(thresholds);
        report.noiseRms = split.noiseRms;
        if (settings.withBathtub && holdsWaveform)
            report.bathtub = Bathtub(record, *symbols, *figures, thresholds, splitter, settings);
    }
    return report;
}

EyeReport MeasureEyes(std::span<const double> samples, double samplesPerUi, int levelCount)
{
    return MeasureEyes(samples, EyeSettings{.samplesPerUi = samplesPerUi, .levelCount = levelCount});
}

void ReadBetween(std::span<const double> samples, double first, double step, std::span<double> values)
{
    std::vector<double> positions(values.size());
    for (std::size_t k = 0; k < positions.size(); ++k)
        positions[k] = first + step * static_cast<double>(k);
    static const Maths::Resampler resampler(1.0);
    resampler.At(samples, positions, values);
}

std::optional<ReadingGrid> GridBetween(std::size_t sampleCount, double samplesPerUi)
{
    constexpr double kReach = 24.0;  // [samples] that a value is made of, to either side
    const double step = samplesPerUi / static_cast<double>(ReadingGrid::kValuesPerUi);
    const double first = std::ceil(kReach / samplesPerUi) * samplesPerUi;
    const double last = static_cast<double>(sampleCount) - 1.0 - kReach;
    if (step >= 1.0 || samplesPerUi < kFewestSamplesPerUi || last - first < samplesPerUi)
        return std::nullopt;
    return ReadingGrid{first, step, static_cast<std::size_t>((last - first) / step)};
}

}  // namespace Tarnwick::DSO::Workbench
