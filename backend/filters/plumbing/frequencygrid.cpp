#include "filters/plumbing/frequencygrid.h"

#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "maths/responses/noisepreservation.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::OwnedArray;
using SystemFramework::Refuse;
using SystemFramework::RequireFinite;
using SystemFramework::RequirePositive;

int RecordLength(const char* filter, const DeviceConfiguration& config)
{
    const char* const product = "patternRepeats * patternLengthUi * samplesPerUi";
    const int count =
        CheckedProduct(filter, product, config.patternRepeats, config.patternLengthUi, config.samplesPerUi);
    if (count < 0)
        Refuse(filter, product, count, "0 or more samples");
    return count;
}

OwnedArray RecordFrequencyGrid(const char* filter, const DeviceConfiguration& config)
{
    const int count = RecordLength(filter, config);
    OwnedArray grid = SystemFramework::NewArray(static_cast<std::size_t>(count));
    const double sampleRate = config.samplesPerUi * config.baudRateGBd * 1e9;
    for (int k = 0; k < count; ++k)
        grid[k] = k * sampleRate / count;
    return grid;
}

ResponseGrid ResponseGridOf(const char* filter, const SystemFramework::BaseFilterParameters& parameters,
                            double samplesPerUi)
{
    const DeviceConfiguration& config = ConfigurationOf(filter, parameters);
    const double symbolRate = SymbolRate(filter, config);
    RequirePositive(filter, "samplesPerUi", samplesPerUi, "a finite positive number of samples");
    RequireFinite(filter, "noiseCornerFrequency", parameters.noiseCornerFrequency, "a finite frequency in hertz");
    const int length = CheckedProduct(filter, "patternRepeats * samplesPerUi * patternLengthUi", config.patternRepeats,
                                      config.samplesPerUi, config.patternLengthUi);
    const double sampleRate = 1.0 / ((1.0 / symbolRate) / samplesPerUi);
    return {length, sampleRate / length};
}

void PreserveNoise(SystemFramework::BaseFilterParameters& parameters, std::span<std::complex<double>> bins,
                   double spacing)
{
    if (!parameters.preserveNoise)
        return;
    parameters.preserveNoiseApplied =
        Maths::PreserveNoiseOnGrid(bins, spacing, parameters.noiseCornerFrequency, Maths::kNoiseUpperFrequency);
    if (!parameters.preserveNoiseApplied)
        parameters.preserveNoise = false;
}

}  // namespace Tarnwick::DSO::Filters
