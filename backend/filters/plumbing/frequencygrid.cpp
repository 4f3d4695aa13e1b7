#include "filters/plumbing/frequencygrid.h"

#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "maths/responses/noisepreservation.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::OwnedArray;
using SystemFramework::Refuse;

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
