#include "framework/plumbing/fixturekernel.h"

#include <cmath>
#include <cstddef>

#include "framework/plumbing/error.h"
#include "maths/responses/fixtureresponse.h"
#include "maths/responses/noisepreservation.h"
#include "maths/transforms/spectrum.h"

namespace Tarnwick::DSO::SystemFramework {

using Complex = std::complex<double>;

namespace {

void RequireSettings(std::string_view where, const FixtureSettings& settings)
{
    RequirePositive(where, "baudRateGBd", settings.baudRateGBd, "a finite positive symbol rate in GBd");
    if (settings.samplesPerPattern < 1)
        Refuse(where, "samplesPerPattern", settings.samplesPerPattern, "at least 1 sample");
    if (settings.patternLengthUi < 1)
        Refuse(where, "patternLengthUi", settings.patternLengthUi, "at least 1 UI");
    if (settings.conversionParameterA < 0)
        Refuse(where, "conversionParameterA", settings.conversionParameterA, "0 dB of boost or more");
    if (settings.conversionParameterB < 0)
        Refuse(where, "conversionParameterB", settings.conversionParameterB, "a bandwidth of 0 GHz or more");
    if (settings.noise) {
        RequireFinite(where, "noiseCornerFrequency", settings.noise->corner, "a finite frequency in hertz");
        RequireFinite(where, "noiseSecondParameter", settings.noise->upper, "a finite frequency in hertz");
    }
}

void RequireFixture(std::string_view where, const std::map<double, Complex>& data)
{
    if (data.empty())
        Refuse(where, "data", "empty", "two frequencies or more (file missing or unreadable?)");
    for (const auto& [frequency, value] : data) {
        if (!std::isfinite(frequency) || frequency < 0.0)
            Refuse(where, "frequency", TextOf(frequency) + " Hz",
                   "a finite frequency of 0 Hz or more (data before the option line are negative)");
        if (!std::isfinite(value.real()) || !std::isfinite(value.imag()))
            Refuse(where, "value at " + TextOf(frequency) + " Hz",
                   TextOf(value.real()) + " + " + TextOf(value.imag()) + "i", "a finite number");
    }
    if (data.size() < 2)
        Refuse(where, "number of frequencies", data.size(), "2 or more");
}

}  // namespace

FixtureKernel MakeFixtureKernel(std::string_view where, const FixtureSettings& settings,
                                const std::map<double, Complex>& data)
{
    RequireSettings(where, settings);
    RequireFixture(where, data);
    const Maths::FixtureResponse fixture(data);
    if (settings.conversionFlag && fixture.Strongest() == 0.0)
        Refuse(where, "largest magnitude", fixture.Strongest(), "a fixture that lets something through");

    const auto count = static_cast<std::size_t>(settings.samplesPerPattern);
    // Not the whole samples per UI: at 3.33 of them every frequency would be off by a tenth.
    const double sampleRate = settings.baudRateGBd * 1e9 * settings.samplesPerPattern / settings.patternLengthUi;
    Maths::HermitianBins bins = Maths::FixtureSpectrum(
        fixture, settings.conversionFlag ? Maths::FixtureUse::Remove : Maths::FixtureUse::Add,
        {static_cast<double>(settings.conversionParameterA), settings.conversionParameterB * 1e9}, sampleRate, count);
    bool noisePreserved = false;
    if (const auto& noise = settings.noise)
        noisePreserved =
            Maths::PreserveNoiseOnGrid(bins.Bins(), sampleRate / static_cast<double>(count), noise->corner,
                                       noise->upper > noise->corner ? noise->upper : Maths::kNoiseUpperFrequency);
    return {bins.Inverse(), noisePreserved};
}

}  // namespace Tarnwick::DSO::SystemFramework
