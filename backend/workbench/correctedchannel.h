// A measured channel, the correction that a SiRC filter derives from it, and how close the two together come to the target.
#pragma once

#include <optional>
#include <vector>

#include "framework/export.h"
#include "workbench/transferfunction.h"

namespace Tarnwick::DSO::Workbench {

/// What a SiRC filter knows about its channel.
struct ChannelMeasurement {
    std::vector<double> table;   ///< impulse response; of an odd number of values the first is the interval [s]
    double window = 0.0;         ///< [s] that a table without an interval spans
    double baselineShare = 0.0;  ///< 0 to 1: leading part whose mean is the baseline, with the peak in the middle
    double cutoff = 0.0;         ///< [Hz] of the fourth-order Bessel-Thomson response that is the target
};

/// Magnitudes [dB] relative to DC, a value for each frequency; NaN where the table says nothing.
struct CorrectedChannel {
    double symbolRate = 0.0;        ///< [Hz]
    double cutoff = 0.0;            ///< [Hz] of the target
    std::vector<double> frequency;  ///< [Hz] from 0 to twice the symbol rate, about 2000 values at most
    std::vector<double> measured;
    std::vector<double> target;
    std::vector<double> correction;
    std::vector<double> corrected;     ///< measured times correction
    double comparedTo = 0.0;           ///< [Hz] the last frequency up to 1.5 times the cutoff
    double largestDifference = 0.0;    ///< [dB] corrected less target, up to there; signed
    double largestDifferenceAt = 0.0;  ///< [Hz]
};

/// The channel is the transform of its table, at the table's interval; the target is |BT4(f; cutoff)|.
/// Source of BT4: W. E. Thomson, "Delay networks having maximally flat frequency characteristics", Proc. IEE 96 (1949).
/// @param correction  the filter's response
/// @param symbolRate  [Hz]
/// @return nothing for a table without usable values
TARNWICK_WORKBENCH_API std::optional<CorrectedChannel> CorrectChannel(const ChannelMeasurement& channel,
                                                                      const TransferFunction& correction,
                                                                      double symbolRate);

}  // namespace Tarnwick::DSO::Workbench
