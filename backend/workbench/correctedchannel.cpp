#include "workbench/correctedchannel.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <span>

#include "maths/responses/besselthomson.h"
#include "maths/responses/channelcorrection.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

using Complex = std::complex<double>;

namespace {

constexpr std::size_t kMostPoints = 2000;  // of a curve: more than a picture has columns
constexpr double kComparedBand = 1.5;      // [cutoff] up to which channel and correction are held against the target
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Turned the right way up, aligned and without its baseline, as in the filter, but not smoothed and at the table's own
// interval. The sum is 1.
std::vector<double> Aligned(std::span<const double> values, double baselineShare)
{
    std::vector<double> identity(values.size(), 0.0);
    identity.front() = 1.0;
    const double baseline = std::round(baselineShare * static_cast<double>(values.size()));
    return Maths::AlignedImpulseResponse(values, identity, std::min(static_cast<std::size_t>(baseline), values.size()));
}

// sum_n h[n] z^n by Horner's rule, z = exp(-2 pi i f dt).
Complex TransformAt(std::span<const double> values, double frequencyTimesInterval)
{
    const Complex z = std::polar(1.0, -2.0 * std::numbers::pi * frequencyTimesInterval);
    Complex sum = 0.0;
    for (std::size_t n = values.size(); n-- > 0;)
        sum = sum * z + values[n];
    return sum;
}

}  // namespace

std::optional<CorrectedChannel> CorrectChannel(const ChannelMeasurement& channel, const TransferFunction& correction,
                                               double symbolRate)
{
    const auto table = Maths::ReadTable(channel.table);
    if (!table || table->values.size() < 2)
        return std::nullopt;
    const double interval =
        table->interval > 0.0 ? table->interval : channel.window / static_cast<double>(table->values.size());
    const std::vector<double> response = Aligned(table->values, channel.baselineShare);

    CorrectedChannel result;
    result.symbolRate = symbolRate;
    result.cutoff = channel.cutoff;
    const std::size_t last = LastBinUpTo(correction, kSymbolRatesShown * symbolRate);
    const std::size_t stride = std::max<std::size_t>(1, last / kMostPoints);
    for (std::size_t k = 0; k <= last; k += stride) {
        const double frequency = static_cast<double>(k) * correction.Spacing();
        const bool isMeasured = frequency * interval <= 0.5;
        const double measured = isMeasured ? Decibels(std::abs(TransformAt(response, frequency * interval))) : kNaN;
        const double target =
            Decibels(std::abs(Maths::FourthOrderResponse(frequency * Maths::kFourthOrderCutoff / channel.cutoff)));
        const double own = correction.magnitudeDb[k] - correction.magnitudeDb.front();
        result.frequency.push_back(frequency);
        result.measured.push_back(measured);
        result.target.push_back(target);
        result.correction.push_back(own);
        result.corrected.push_back(measured + own);
        if (!isMeasured || frequency > kComparedBand * channel.cutoff)
            continue;
        result.comparedTo = frequency;
        const double difference = measured + own - target;
        if (std::abs(difference) > std::abs(result.largestDifference)) {
            result.largestDifference = difference;
            result.largestDifferenceAt = frequency;
        }
    }
    return result;
}

}  // namespace Tarnwick::DSO::Workbench
