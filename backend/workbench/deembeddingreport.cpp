#include "workbench/deembeddingreport.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>
#include <vector>

#include "maths/responses/fixtureresponse.h"
#include "workbench/fixturefile.h"
#include "workbench/transferfunction.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

double Energy(std::span<const double> values)
{
    return std::inner_product(values.begin(), values.end(), values.begin(), 0.0);
}

// Where the fixture's spectrum ends: above its taper the bins are zero.
double BandEnd(const Maths::FixtureResponse& fixture, Maths::FixtureUse use, const Maths::FixtureLimits& limits,
               double sampleRate, std::size_t count)
{
    Maths::HermitianBins bins = Maths::FixtureSpectrum(fixture, use, limits, sampleRate, count);
    const auto half = bins.Bins().first(count / 2 + 1);
    std::size_t last = half.size() - 1;
    while (last > 0 && half[last] == 0.0)
        --last;
    return static_cast<double>(last) * sampleRate / static_cast<double>(count);
}

}  // namespace

DeEmbeddingFigures FiguresOfDeEmbedding(std::span<const double> kernel, double sampleRate,
                                        const std::map<double, std::complex<double>>& fixture,
                                        const DeEmbeddingSettings& settings)
{
    DeEmbeddingFigures figures;
    const TransferFunction function = Transform({kernel.begin(), kernel.end()}, sampleRate);
    const ResponseFigures response = FiguresOf(function, sampleRate / 2.0, sampleRate / 2.0);
    figures.largestBoostDb = response.peakGainDb;
    figures.largestBoostAt = response.peakFrequency;
    figures.noiseAmplificationDb = Decibels(response.noiseGain);
    figures.peakDelay = response.peakDelay;
    // The second half of the circular response lies before the impulse. A fixture that is removed takes its delay with it,
    // and with that all of the response would lie there: it is counted from its peak.
    std::vector<double> counted(kernel.begin(), kernel.end());
    if (settings.remove)
        std::rotate(counted.begin(), counted.begin() + (function.peak < 0 ? function.peak + std::ssize(counted) : 0),
                    counted.end());
    figures.energyBeforeZero =
        Energy(std::span<const double>(counted).subspan(counted.size() / 2 + 1)) / Energy(kernel);
    figures.bandEnd =
        BandEnd(Maths::FixtureResponse(fixture), settings.remove ? Maths::FixtureUse::Remove : Maths::FixtureUse::Add,
                {settings.boostDb, settings.bandwidth}, sampleRate, kernel.size());
    const auto firstMeasured = MadeAtZero(fixture) ? std::next(fixture.begin()) : fixture.begin();
    figures.extrapolatedTo = std::min(firstMeasured->first, figures.bandEnd);
    return figures;
}

}  // namespace Tarnwick::DSO::Workbench
