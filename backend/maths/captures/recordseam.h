// What the seam of a record does when it is filtered as one circular piece: whether the record joins there as a period does,
// and how far from it a linear stage carries the joint.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// What the symbols -8 .. +8 leave unexplained at the seam, where they wrap round the record, and in its interior, on which
/// alone their response is fitted. Test patterns that join leave 0.0 to 1.6 times as much, records that were cut 4 to 40.
struct SeamTest {
    double seamRms;      // [unit of the samples] of the 8 UI on either side of the seam
    double interiorRms;  // [unit of the samples] of the UI whose symbols do not wrap
    double smallestRms;  // [unit of the samples] a thousandth of the span of the samples: no interior counts as less

    TARNWICK_FRAMEWORK_API double Ratio() const;
    /// The ratio is at most 2.5: the record joins as a period does.
    TARNWICK_FRAMEWORK_API bool Joins() const;
};

/// @param samples       finite, samplesPerUi for each symbol
/// @param symbolLevels  the level of each symbol of the record, in any unit; its ends decided as a period's are
/// @return nothing where the record has fewer than 64 symbols, too few to fit their response to
TARNWICK_FRAMEWORK_API std::optional<SeamTest> TestSeam(std::span<const double> samples, std::size_t samplesPerUi,
                                                        std::span<const double> symbolLevels);

/// How far from either side of its delay a linear stage spreads a record: the smallest of 1, 2, 4, .. UI such that the taps
/// beyond change this record by at most a thousandth of its rms about its mean, by Parseval's theorem
///     rms^2 = (1/(M N)) sum_k |X[k] H[k]|^2
/// of the record of N samples continued with zeros to M. The sum of the taps' magnitudes will not do: kernels that stop at
/// half the sample rate end in an alternating 1/n tail that never sums up. O(N log N) for each UI count that is tried.
/// @param record        finite
/// @param kernel        circular, as many taps as the record has samples: tap m is m samples late, or record.size() - m early
/// @param samplesPerUi  at least 1
/// @param delay         [samples] of the stage; any number, taken round the record
/// @return [UI] at most half the record, rounded up
TARNWICK_FRAMEWORK_API std::size_t ReachUi(std::span<const double> record, std::span<const double> kernel,
                                           std::size_t samplesPerUi, long long delay);

}  // namespace Tarnwick::DSO::Maths
