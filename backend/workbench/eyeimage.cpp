#include "workbench/eyeimage.h"

#include <algorithm>
#include <cmath>

#include "workbench/eye.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr float kShade = 0.35F;          // exponent: between the linear scale and the logarithm rare traces show too
constexpr double kRoom = 0.08;           // of the range of the samples, above and below them
constexpr double kFlatRoom = 1e-9;       // of the value of a constant record
constexpr double kSmallestValue = 1e-3;  // [V] from which that room is reckoned at least

bool AllFinite(std::span<const double> samples)
{
    return std::all_of(samples.begin(), samples.end(), [](double sample) { return std::isfinite(sample); });
}

// Counts the traces that cross each cell: lines from sample to sample.
// @param firstUi  [UI] of sample 0 from the left edge or any edge of a UI there, 0 or more
void AddTraces(std::span<const double> samples, double samplesPerUi, double firstUi, EyeImage& image)
{
    const std::size_t columns = image.columns;
    const std::size_t rows = image.rows;
    const VoltageRange range = image.range;
    const double rowsPerVolt = static_cast<double>(rows - 1) / (range.high - range.low);
    const double columnsPerSample = static_cast<double>(columns) / kEyeSpanUi / samplesPerUi;
    const std::size_t half = columns / 2;
    const auto row = [&](double value) { return (value - range.low) * rowsPerVolt; };
    // Each UI is drawn twice, in the left and in the right half. [columns] of sample 0:
    const double shift = firstUi * static_cast<double>(columns) / kEyeSpanUi;
    for (std::size_t k = 0; k + 1 < samples.size(); ++k) {
        const double from = shift + static_cast<double>(k) * columnsPerSample;
        const double to = from + columnsPerSample;
        for (auto column = static_cast<std::size_t>(std::ceil(from)); static_cast<double>(column) < to; ++column) {
            const double part = (static_cast<double>(column) - from) / columnsPerSample;
            const double here = row(samples[k] + part * (samples[k + 1] - samples[k]));
            const double next =
                row(samples[k] + std::min(1.0, part + 1.0 / columnsPerSample) * (samples[k + 1] - samples[k]));
            // Between the samples the waveform may leave their range.
            if (std::min(here, next) < 0.0 || std::max(here, next) >= static_cast<double>(rows))
                continue;
            // A steep edge passes through several rows in one column.
            const auto first = static_cast<std::size_t>(std::min(here, next));
            const auto last = static_cast<std::size_t>(std::max(here, next));
            const float share = 1.0F / static_cast<float>(last - first + 1);
            for (std::size_t r = first; r <= last; ++r) {
                image.shades[r * columns + column % half] += share;
                image.shades[r * columns + column % half + half] += share;
            }
        }
    }
}

void ToShades(EyeImage& image)
{
    const float most = *std::max_element(image.shades.begin(), image.shades.end());
    std::transform(image.shades.begin(), image.shades.end(), image.shades.begin(),
                   [most](float count) { return most > 0.0F ? std::pow(count / most, kShade) : 0.0F; });
}

}  // namespace

VoltageRange RangeOf(std::span<const double> samples, std::span<const double> others)
{
    VoltageRange range{samples.front(), samples.front()};
    for (const auto& part : {samples, others}) {
        for (const double sample : part) {
            range.low = std::min(range.low, sample);
            range.high = std::max(range.high, sample);
        }
    }
    const double flat = kFlatRoom * std::max({std::abs(range.low), std::abs(range.high), kSmallestValue});
    const double room = std::max(kRoom * (range.high - range.low), flat);
    return {range.low - room, range.high + room};
}

EyeImage ShadeEye(std::span<const double> samples, double samplesPerUi, double phaseUi, VoltageRange range,
                  std::size_t columns, std::size_t rows)
{
    if (!AllFinite(samples))
        return {0, 0, range, {}};
    EyeImage image{columns, rows, range, std::vector<float>(columns * rows, 0.0F)};
    AddTraces(samples, samplesPerUi, 1.0 - phaseUi, image);
    ToShades(image);
    return image;
}

EyeImage ShadeBetween(std::span<const double> samples, double samplesPerUi, double phaseUi, VoltageRange range,
                      std::size_t columns, std::size_t rows)
{
    constexpr double kValuesPerUi = 32.0;
    constexpr double kReach = 24.0;  // [samples] that a value is made of, to either side
    constexpr std::size_t kBlock = std::size_t{1} << 18U;
    const double step = std::min(1.0, samplesPerUi / kValuesPerUi);
    const double first = std::ceil(kReach / samplesPerUi) * samplesPerUi;  // where a UI begins
    const double last = static_cast<double>(samples.size()) - 1.0 - kReach;
    if (step == 1.0 || samplesPerUi < kFewestSamplesPerUi || last - first < samplesPerUi || !AllFinite(samples))
        return ShadeEye(samples, samplesPerUi, phaseUi, range, columns, rows);
    EyeImage image{columns, rows, range, std::vector<float>(columns * rows, 0.0F)};
    const auto count = static_cast<std::size_t>((last - first) / step);
    std::vector<double> values;
    for (std::size_t begin = 0; begin + 1 < count; begin += kBlock) {
        const double position = first + static_cast<double>(begin) * step;
        values.resize(std::min(kBlock + 1, count - begin));  // the last one begins the next block
        ReadBetween(samples, position, step, values);
        const double ui = position / samplesPerUi;
        AddTraces(values, samplesPerUi / step, 1.0 - phaseUi + ui - std::floor(ui), image);
    }
    ToShades(image);
    return image;
}

}  // namespace Tarnwick::DSO::Workbench
