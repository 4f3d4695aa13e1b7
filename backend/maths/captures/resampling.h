// A record at other instants than its own: band-limited interpolation by a windowed sinc.
//     y(t) = sum_n x[n] g(t - n),   g(t) = c sinc(c t) I0(9 sqrt(1 - (t/w)^2)) / I0(9),   |t| < w
// c is the lower of the two rates over the input's, w = 24/c samples: the cut lies at half the lower rate, and 24 samples of
// the lower rate either side of t count. Source: J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh
// window function", Proc. IEEE Int. Symp. Circuits and Systems (1974) 20-23.
//
// What the input holds above 0.44 of its sample rate comes out weaker, with an image; below, tones come back to 1e-5 of
// their rms. g is tabulated at 1024 instants a sample of the lower rate with straight lines between: 4e-7.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "maths/captures/clockrecovery.h"
#include "maths/transforms/alignedbuffer.h"

namespace Tarnwick::DSO::Maths {

class TARNWICK_FRAMEWORK_API Resampler {
public:
    /// @param rate  the output's sample rate over the input's; above 0
    /// @throws std::invalid_argument  the rate is below 1/4096 or no number
    explicit Resampler(double rate);

    /// The samples that are used up at either end of a record: 24, more where the output's rate is the lower one.
    std::size_t UsedUp() const { return half_; }

    /// The values at the given positions, in samples from the record's first one, in any order.
    /// @param positions  UsedUp() to samples.size() - 1 - UsedUp()
    /// @param values     as many as positions
    /// @throws std::invalid_argument  a position lies outside
    /// Samples that are not finite spread over UsedUp() samples to both sides.
    void At(std::span<const double> samples, std::span<const double> positions, std::span<double> values) const;

private:
    std::size_t half_;
    std::size_t phases_;
    AlignedBuffer<double> rows_;  // phases_ + 1 rows of 2 half_ taps
};

/// Fills in the positions of outputs first, first + 1, ...
using PositionsOfOutputs = std::function<void(std::size_t first, std::span<double> positions)>;

/// `count` values at positions that are asked for a block at a time and never stored whole.
TARNWICK_FRAMEWORK_API std::vector<double> Resampled(std::span<const double> samples, const Resampler& resampler,
                                                     std::size_t count, const PositionsOfOutputs& positions);

/// A record at a whole number of samples per UI. Sample k N lies where a UI begins.
struct AlignedRecord {
    std::vector<double> samples;  // whole UI; empty where the record is too short for one
    double firstPosition = 0.0;   // in samples of the input
    double firstUi = 0.0;         // u of the clock there
};

/// All whole UI that a record holds between its used-up ends, along a clock. A record that has the wanted number of samples
/// per UI already comes back at other phases and without its ends: the caller passes such a record on as it is, bit for
/// bit (WholeSamplesPerUi).
/// @param samplesPerUi  N, at least 1
TARNWICK_FRAMEWORK_API AlignedRecord ResampledAlong(const SymbolClock& clock, std::span<const double> samples,
                                                    std::size_t samplesPerUi);

}  // namespace Tarnwick::DSO::Maths
