// The symbols of a pattern, found in a capture of it.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "framework/signalcoding.h"

namespace Tarnwick::DSO::Workbench {

struct FoundSymbols {
    std::vector<int> levels;       ///< of each UI of one period, 0 the lowest
    std::vector<double> voltages;  ///< [V] mean of each level as captured
    double quality = 0.0;          ///< mean squared distance to the level over the squared spacing: 0 ideal, 0.14 noise
    bool Certain() const;
    /// As device.patternSymbols has them.
    std::string Text(E_SIGNAL_CODING coding, bool withoutGrayCoding) const;
    /// "8191 PAM4 symbols (certain, quality 0.0031)"
    std::string Description(E_SIGNAL_CODING coding) const;
};

/// @param samples          at least one period
/// @param samplesPerUi     real
/// @param patternLengthUi  UI in the period
/// @param what             the capture's name, for messages
/// @throws DataFailure  no pattern of so many levels can be told in the capture
FoundSymbols FindSymbols(std::span<const double> samples, double samplesPerUi, int patternLengthUi,
                         E_SIGNAL_CODING coding, const std::string& what);

/// A chain file with device.patternSymbols: the file as it is when they are given or no filter needs them, else with
/// those found in the capture; what was found goes to stderr.
/// @param name  the chain file's, for messages
/// @throws UsageFailure  the file, or what the search needs of it  @throws DataFailure  as FindSymbols
nlohmann::json WithSymbols(nlohmann::json file, const std::string& name, std::span<const double> samples,
                           const std::string& capture);

/// NRZ, PAM3, PAM4 or PAM4-precoded.
std::string NameOf(E_SIGNAL_CODING coding);

}  // namespace Tarnwick::DSO::Workbench
