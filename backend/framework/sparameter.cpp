#include "framework/sparameter.h"

#include <optional>

#include "framework/plumbing/fixturekernel.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::SystemFramework {

// NOLINTBEGIN(performance-unnecessary-value-param): the data by value, as hosts declare it
double* SParameter::ConvertSparamFilterDataToImpulseResponse(int& length, double baudRateGBd, int samplesPerPattern,
                                                             int patternLengthUi,
                                                             std::map<double, std::complex<double>> data,
                                                             bool conversionFlag, int conversionParameterA,
                                                             int conversionParameterB, bool preserveNoise,
                                                             double noiseCornerFrequency, double noiseSecondParameter,
                                                             double* /*frequencyGrid*/, bool& preserveNoiseApplied)
// NOLINTEND(performance-unnecessary-value-param)
{
    const auto noise =
        preserveNoise ? std::optional(NoiseBand{noiseCornerFrequency, noiseSecondParameter}) : std::nullopt;
    const FixtureKernel kernel = MakeFixtureKernel("SParameter::ConvertSparamFilterDataToImpulseResponse",
                                                   {baudRateGBd, samplesPerPattern, patternLengthUi, conversionFlag,
                                                    conversionParameterA, conversionParameterB, noise},
                                                   data);
    OwnedArray taps = NewArrayFrom<double>(kernel.taps);
    length = samplesPerPattern;
    preserveNoiseApplied = kernel.noisePreserved;
    return taps.release();
}

}  // namespace Tarnwick::DSO::SystemFramework
