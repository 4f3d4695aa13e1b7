#include "filters/plumbing/timebase.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::Refuse;

namespace {

constexpr int kLargest = std::numeric_limits<int>::max();
constexpr int kSmallest = std::numeric_limits<int>::min();

}  // namespace

int CheckedProduct(const char* filter, const char* what, int a, int b, int c)
{
    // Two factors fit 64 bits; the third is multiplied in only where the product can still fit.
    const std::int64_t pair = static_cast<std::int64_t>(a) * b;
    const bool pairFits = pair >= kSmallest && pair <= kLargest;
    const std::int64_t product = pairFits ? pair * c : (c == 0 ? 0 : pair);
    if (product < kSmallest || product > kLargest)
        Refuse(filter, what, static_cast<double>(a) * b * c, "at most 2147483647");
    return static_cast<int>(product);
}

int Truncated(const char* filter, const char* what, double value)
{
    if (!(std::abs(value) < 2147483648.0))
        Refuse(filter, what, value, "a finite number of at most 2147483647");
    return static_cast<int>(value);
}

int SamplesPerPattern(const char* filter, const DeviceConfiguration& config)
{
    if (config.useFractionalSampling)
        return Truncated(filter, "patternLengthUi * uiDuration / sampleSpacing",
                         config.patternLengthUi * config.uiDuration / config.sampleSpacing);
    return CheckedProduct(filter, "samplesPerUi * patternLengthUi", config.samplesPerUi, config.patternLengthUi);
}

double SymbolRate(const char* filter, const DeviceConfiguration& config)
{
    SystemFramework::RequirePositive(filter, "baudRateGBd", config.baudRateGBd, "a finite positive symbol rate");
    return config.baudRateGBd * 1e9;
}

double RealSamplesPerUi(const DeviceConfiguration& config)
{
    return config.useFractionalSampling ? config.uiDuration / config.sampleSpacing : config.samplesPerUi;
}

int WholeSamplesPerUi(const char* filter, const DeviceConfiguration& config)
{
    if (!config.useFractionalSampling)
        return config.samplesPerUi;
    return Truncated(filter, "uiDuration / sampleSpacing", config.uiDuration / config.sampleSpacing);
}

PatternPeriod::PatternPeriod(const char* filter, const DeviceConfiguration& config, int samplesPerUi, int symbols)
    : filter_(filter),
      samplesPerUi_(config.useFractionalSampling ? RealSamplesPerUi(config) : samplesPerUi),
      length_(samplesPerUi_ * symbols),
      slack_(length_ == std::floor(length_) ? 0.0 : 1.0)
{
    if (symbols < 1)
        Refuse(filter, "patternLengthUi", symbols, "at least 1 UI");
    if (!std::isfinite(length_) || length_ < 1.0)
        Refuse(filter, "samples of one repetition", length_, "at least 1");
}

int PatternPeriod::RequiredIn(int samples) const
{
    const int count = CountIn(samples);
    if (count < 1)
        RefuseShort(samples);
    return count;
}

int PatternPeriod::RoundedCountIn(int samples) const
{
    return static_cast<int>(std::lround(samples / length_));
}

double PatternPeriod::LengthIn(int samples) const
{
    const double share = static_cast<double>(samples) / CountIn(samples);
    return slack_ > 0.0 && share < length_ + slack_ ? share : length_;
}

void PatternPeriod::RequireWholeRepetitions(int sampleCount) const
{
    const int count = RoundedCountIn(sampleCount);
    if (count < 1)
        RefuseShort(sampleCount);
    if (!(std::abs(sampleCount - count * length_) <= slack_))
        Refuse(filter_, "sampleCount", sampleCount,
               "a whole number of repetitions of " + SystemFramework::TextOf(length_) + " samples");
}

void PatternPeriod::RefuseShort(int sampleCount) const
{
    Refuse(filter_, "sampleCount", sampleCount,
           "at least one repetition of " + SystemFramework::TextOf(length_) + " samples");
}

int WorkingLength(const char* filter, const DeviceConfiguration& config, int samplesPerUi,
                  const std::string& patternSymbols, int sampleCount)
{
    PatternPeriod(filter, config, samplesPerUi, config.patternLengthUi).RequiredIn(sampleCount);
    if (!config.multiplePatternRecord && !config.useFractionalSampling)
        return sampleCount;
    if (patternSymbols.empty())
        Refuse(filter, "patternSymbols", "empty",
               "the pattern's symbols, of which a record of several repetitions is counted");
    const PatternPeriod pattern(filter, config, samplesPerUi, static_cast<int>(patternSymbols.size()));
    return sampleCount / pattern.RequiredIn(sampleCount);
}

void RequireSampleInterval(const char* filter, const DeviceConfiguration& config, int samplesPerPattern)
{
    (void)SymbolRate(filter, config);
    if (config.patternLengthUi <= 0)
        Refuse(filter, "patternLengthUi", config.patternLengthUi, "at least 1 UI");
    const int samplesPerUi = samplesPerPattern / config.patternLengthUi;
    if (samplesPerUi <= 0)
        Refuse(filter, "samples per UI", samplesPerUi, "at least 1");
}

double SampleInterval(const DeviceConfiguration& config, int samplesPerPattern)
{
    const int samplesPerUi = config.patternLengthUi > 0 ? samplesPerPattern / config.patternLengthUi : 0;
    return samplesPerUi > 0 ? (1.0 / (config.baudRateGBd * 1e9)) / samplesPerUi : 0.0;
}

int WholeRepetitions(const char* filter, const DeviceConfiguration& config, int sampleCount)
{
    if (config.useFractionalSampling) {
        const double period = config.patternLengthUi * (config.uiDuration / config.sampleSpacing);
        if (!(std::abs(period) >= 1.0))
            Refuse(filter, "patternLengthUi * (uiDuration / sampleSpacing)", period, "at least 1 sample");
        return Truncated(filter, "repetitions", sampleCount / period);
    }
    const int period =
        CheckedProduct(filter, "samplesPerUi * patternLengthUi", config.samplesPerUi, config.patternLengthUi);
    if (period == 0)
        Refuse(filter, "samplesPerUi * patternLengthUi", period, "at least 1 sample");
    return sampleCount / period;
}

}  // namespace Tarnwick::DSO::Filters
