#include "framework/sparameter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/responses/fixtureresponse.h"
#include "maths/responses/noisepreservation.h"
#include "maths/transforms/spectrum.h"

namespace Tarnwick::DSO::SystemFramework {

using Complex = std::complex<double>;

namespace {

constexpr const char* kOperation = "SParameter::ConvertSparamFilterDataToImpulseResponse";

void RequireFixture(const std::map<double, Complex>& data)
{
    if (data.empty())
        Refuse(kOperation, "data", "empty", "two frequencies or more (file missing or unreadable?)");
    for (const auto& [frequency, value] : data) {
        if (!std::isfinite(frequency) || frequency < 0.0)
            Refuse(kOperation, "frequency", TextOf(frequency) + " Hz",
                   "a finite frequency of 0 Hz or more (data before the option line are negative)");
        if (!std::isfinite(value.real()) || !std::isfinite(value.imag()))
            Refuse(kOperation, "value at " + TextOf(frequency) + " Hz",
                   TextOf(value.real()) + " + " + TextOf(value.imag()) + "i", "a finite number");
    }
    if (data.size() < 2)
        Refuse(kOperation, "number of frequencies", data.size(), "2 or more");
}

}  // namespace

// NOLINTBEGIN(performance-unnecessary-value-param): the data by value, as hosts declare it
double* SParameter::ConvertSparamFilterDataToImpulseResponse(int& length, double baudRateGBd, int samplesPerPattern,
                                                             int patternLengthUi, std::map<double, Complex> data,
                                                             bool conversionFlag, int conversionParameterA,
                                                             int conversionParameterB, bool preserveNoise,
                                                             double noiseCornerFrequency, double noiseSecondParameter,
                                                             double* /*frequencyGrid*/, bool& preserveNoiseApplied)
// NOLINTEND(performance-unnecessary-value-param)
{
    RequirePositive(kOperation, "baudRateGBd", baudRateGBd, "a finite positive symbol rate in GBd");
    if (samplesPerPattern < 1)
        Refuse(kOperation, "samplesPerPattern", samplesPerPattern, "at least 1 sample");
    if (patternLengthUi < 1)
        Refuse(kOperation, "patternLengthUi", patternLengthUi, "at least 1 UI");
    if (conversionParameterA < 0)
        Refuse(kOperation, "conversionParameterA", conversionParameterA, "0 dB of boost or more");
    if (conversionParameterB < 0)
        Refuse(kOperation, "conversionParameterB", conversionParameterB, "a bandwidth of 0 GHz or more");
    if (preserveNoise) {
        RequireFinite(kOperation, "noiseCornerFrequency", noiseCornerFrequency, "a finite frequency in hertz");
        RequireFinite(kOperation, "noiseSecondParameter", noiseSecondParameter, "a finite frequency in hertz");
    }
    RequireFixture(data);
    const Maths::FixtureResponse fixture(data);
    if (conversionFlag && fixture.Strongest() == 0.0)
        Refuse(kOperation, "largest magnitude", fixture.Strongest(), "a fixture that lets something through");

    const auto count = static_cast<std::size_t>(samplesPerPattern);
    // Not the whole samples per UI: at 3.33 of them every frequency would be off by a tenth.
    const double sampleRate = baudRateGBd * 1e9 * samplesPerPattern / patternLengthUi;
    Maths::HermitianBins bins = Maths::FixtureSpectrum(
        fixture, conversionFlag ? Maths::FixtureUse::Remove : Maths::FixtureUse::Add,
        {static_cast<double>(conversionParameterA), conversionParameterB * 1e9}, sampleRate, count);
    bool applied = false;
    if (preserveNoise)
        applied = Maths::PreserveNoiseOnGrid(
            bins.Bins(), sampleRate / static_cast<double>(count), noiseCornerFrequency,
            noiseSecondParameter > noiseCornerFrequency ? noiseSecondParameter : Maths::kNoiseUpperFrequency);
    OwnedArray taps = NewArrayFrom<double>(bins.Inverse());
    length = samplesPerPattern;
    preserveNoiseApplied = applied;
    return taps.release();
}

}  // namespace Tarnwick::DSO::SystemFramework
