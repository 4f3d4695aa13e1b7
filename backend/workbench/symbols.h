// The symbols of a pattern, found in a capture of it.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "framework/signalcoding.h"
#include "workbench/chain.h"

namespace Tarnwick::DSO::Workbench {

struct TARNWICK_WORKBENCH_API FoundSymbols {
    std::vector<int> levels;       ///< of each UI of one period, 0 the lowest
    std::vector<double> voltages;  ///< [V] mean of each level as captured
    double quality = 0.0;          ///< mean squared distance to the level over the squared spacing: 0 ideal, 0.14 noise
    bool Certain() const;
    /// As device.patternSymbols has them.
    std::string Text(E_SIGNAL_CODING coding, bool withoutGrayCoding) const;
    /// "8191 PAM4 symbols (certain, quality 0.0031)"
    std::string Description(E_SIGNAL_CODING coding) const;
};

/// @param samples          [V] at least one period
/// @param samplesPerUi     real
/// @param patternLengthUi  [UI] of the period
/// @param what             the capture's name, for messages
/// @throws DataFailure  no pattern of that many levels can be made out in the capture
TARNWICK_WORKBENCH_API FoundSymbols FindSymbols(std::span<const double> samples, double samplesPerUi,
                                                int patternLengthUi, E_SIGNAL_CODING coding, const std::string& what);

/// A chain file with device.patternSymbols: the file as it is when they are given or no filter needs them, otherwise with
/// those found in the capture. Files that the chain names are not opened.
/// @param samples  [V]
/// @param capture  its name, for messages
/// @param notes    gets what was found
/// @throws UsageFailure  the file, or something that the search needs and the file does not say
/// @throws DataFailure   as FindSymbols
TARNWICK_WORKBENCH_API ChainFile WithSymbols(const ChainFile& file, std::span<const double> samples,
                                             const std::string& capture, std::vector<std::string>& notes);

/// NRZ, PAM3, PAM4 or PAM4-precoded; "unknown" for any other value.
TARNWICK_WORKBENCH_API std::string NameOf(E_SIGNAL_CODING coding);

}  // namespace Tarnwick::DSO::Workbench
