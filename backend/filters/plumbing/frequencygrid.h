// The record's frequency axis, and the grid on which kernels are built from a response.
#pragma once

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

#include "framework/basefilterparameters.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/transforms/spectrum.h"

namespace Tarnwick::DSO::Filters {

/// Samples of the whole record: patternRepeats patternLengthUi samplesPerUi, always with the integer samples per UI.
/// Deliberate.
/// @throws std::invalid_argument  the product is negative or does not fit 32 bits
int RecordLength(const char* filter, const DeviceConfiguration& config);

/// k (samplesPerUi baudRateGBd 1e9) / N [Hz], k = 0 .. N - 1, N the record's length as above.
/// @throws std::invalid_argument  as RecordLength
SystemFramework::OwnedArray RecordFrequencyGrid(const char* filter, const DeviceConfiguration& config);

/// The bins k = 0, 1, .. below N/2 at which a filter evaluates its response stand at k times the spacing.
struct ResponseGrid {
    int length;      // N, samples of the whole record; below 1 there are no bins
    double spacing;  // [Hz]
};

/// @param samplesPerUi  of the record, which need not be whole
/// @throws std::invalid_argument  there is no configuration, or the symbol rate, samplesPerUi, the noise correction's corner
///                                or N is out of range
ResponseGrid ResponseGridOf(const char* filter, const SystemFramework::BaseFilterParameters& parameters,
                            double samplesPerUi);

/// Passes the bins (bin M - k the conjugate of bin k) through the noise-preserving correction when the parameters ask
/// for it. A correction that does not apply leaves the bins as they are and switches `preserveNoise` off.
/// @param spacing  [Hz] between two bins: the frequencies at which they were evaluated, which for several repetitions
///                 or fractional sampling are not those of the record's axis
void PreserveNoise(SystemFramework::BaseFilterParameters& parameters, std::span<std::complex<double>> bins,
                   double spacing);

/// The taps of a response on its grid: the mirrored half, the noise step and the inverse transform.
/// @param response  H at a frequency [Hz]
template <typename Response>
std::vector<double> ImpulseResponse(SystemFramework::BaseFilterParameters& parameters, const ResponseGrid& grid,
                                    const Response& response)
{
    const std::size_t half = grid.length > 0 ? (static_cast<std::size_t>(grid.length) + 1) / 2 : 0;
    Maths::HermitianBins bins(half > 0 ? 2 * half - 1 : 0);
    for (std::size_t k = 0; k < half; ++k)
        bins.Set(k, response(grid.spacing * static_cast<double>(k)));
    PreserveNoise(parameters, bins.Bins(), grid.spacing);
    return bins.Inverse();
}

}  // namespace Tarnwick::DSO::Filters
