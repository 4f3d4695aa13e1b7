// What a captured multilevel signal is worth: eyes, level mismatch, TDECQ.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/eye.h"
#include "workbench/lock.h"

namespace Tarnwick::DSO::Workbench {

/// Ratio of level mismatch of four levels, 1 for evenly spaced ones:
///     min(3 ES1, 3 ES2, 2 - 3 ES1, 2 - 3 ES2),  ES1 = (mid - V1)/(mid - V0), ES2 = (V2 - mid)/(V3 - mid)
/// with mid half way between V0 and V3. Source: IEEE 802.3 clause 120D.3.1.2, R_LM.
TARNWICK_WORKBENCH_API double LevelMismatchRatio(std::span<const double> levels);

/// The symbol-spaced reference equaliser of least TDECQ. Source: IEEE 802.3 clause 121.8.5.
struct ReferenceEqualiser {
    std::vector<double> taps;     ///< sum 1
    std::size_t mainCursor = 0;   ///< index of the largest tap
    bool leavesEyeClosed = true;  ///< then there is no TDECQ
    double tdecqDb = 0.0;
    double oma = 0.0;        ///< [V] outer modulation amplitude behind it
    double noiseRms = 0.0;   ///< [V] that could be added behind it up to the target symbol error ratio
    double noiseGain = 0.0;  ///< C_eq: of the noise behind the reference receiver
};

/// The usual number of its taps. Source: IEEE 802.3 clause 121.8.5.4.
inline constexpr int kReferenceTaps = 5;

/// @param samples  whole UI of whole samples: whole periods, or a single shot, of which the valid part counts
/// @param eyes     what is known of them
/// @return nothing for other codings than PAM4, without symbols, and where no taps have their largest among the first three
TARNWICK_WORKBENCH_API std::optional<ReferenceEqualiser> FindReferenceEqualiser(std::span<const double> samples,
                                                                                const EyeSettings& eyes,
                                                                                int numberOfTaps = kReferenceTaps);

/// [dB] behind that equaliser; nothing without it, and where it leaves the eye closed.
TARNWICK_WORKBENCH_API std::optional<double> TdecqDbOf(std::span<const double> samples, const EyeSettings& eyes);

struct SignalQuality {
    EyeReport eye;                                ///< with the bathtub
    std::optional<double> levelMismatchRatio;     ///< of PAM4
    std::optional<ReferenceEqualiser> equaliser;  ///< of PAM4
    std::string whyNoTdecq;                       ///< why there is no equaliser
};

/// @param numberOfTaps  of the reference equaliser
/// @param name          the capture's, for messages
/// @throws DataFailure  the capture's coding is neither given nor found
TARNWICK_WORKBENCH_API SignalQuality MeasureSignalQuality(const LockedCapture& capture, int numberOfTaps,
                                                          const std::string& name);

}  // namespace Tarnwick::DSO::Workbench
