#include "support/signals.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <utility>

namespace Tarnwick::Testing {

Record::Record(std::vector<double> values) : values_(std::move(values))
{
    sampleCount = static_cast<std::int32_t>(values_.size());
    samples = values_.data();
}

std::vector<double> Constant(double value, std::size_t count)
{
    std::vector<double> values(count, value);
    return values;
}

std::vector<double> RandomValues(std::size_t count, std::uint64_t seed)
{
    std::mt19937_64 bits(seed);
    std::vector<double> values(count);
    // Not a standard distribution: those differ between libraries.
    std::generate(values.begin(), values.end(), [&] { return static_cast<double>(bits() >> 11U) * 0x1p-52 - 1.0; });
    return values;
}

std::vector<std::complex<double>> RandomComplex(std::size_t count, std::uint64_t seed)
{
    const std::vector<double> parts = RandomValues(2 * count, seed);
    std::vector<std::complex<double>> values(count);
    for (std::size_t k = 0; k < count; ++k)
        values[k] = {parts[2 * k], parts[2 * k + 1]};
    return values;
}

std::vector<int> PrbsLevels(std::size_t order, std::size_t tap)
{
    const std::size_t length = (std::size_t{1} << order) - 1;
    std::vector<int> bits(order, 1);
    while (bits.size() < length)
        bits.push_back(bits[bits.size() - order] ^ bits[bits.size() - tap]);
    return bits;
}

std::vector<double> Tiled(const std::vector<double>& values, std::size_t repetitions)
{
    std::vector<double> tiled;
    for (std::size_t r = 0; r < repetitions; ++r)
        std::copy(values.begin(), values.end(), std::back_inserter(tiled));
    return tiled;
}

DSO::DeviceConfiguration Configuration(int samplesPerUi, int patternLengthUi, double baudRateGBd)
{
    DSO::DeviceConfiguration config;
    config.baudRateGBd = baudRateGBd;
    config.samplesPerUi = samplesPerUi;
    config.patternLengthUi = patternLengthUi;
    config.patternRepeats = 1;
    std::fill(std::begin(config.patternLocked), std::end(config.patternLocked), true);
    return config;
}

DSO::DeviceConfiguration FractionallySampled(DSO::DeviceConfiguration config, double uiDuration, double sampleSpacing)
{
    config.useFractionalSampling = true;
    config.uiDuration = uiDuration;
    config.sampleSpacing = sampleSpacing;
    return config;
}

}  // namespace Tarnwick::Testing
