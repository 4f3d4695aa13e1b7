// What a captured multilevel signal is worth: levels, their mismatch, eyes, TDECQ.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/signalcoding.h"
#include "maths/equalisers/tdecq.h"
#include "workbench/eye.h"
#include "workbench/symbols.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

/// Ratio of level mismatch of four levels, 1 for evenly spaced ones:
///     min(3 ES1, 3 ES2, 2 - 3 ES1, 2 - 3 ES2),  ES1 = (mid - V1)/(mid - V0), ES2 = (V2 - mid)/(V3 - mid)
/// with mid the middle of V0 and V3. Source: IEEE 802.3 clause 120D.3.1.2, R_LM.
double LevelMismatchRatio(std::span<const double> levels);

struct SignalQuality {
    EyeReport eye;  ///< of the samples as they are; without eyes when they are closed
    std::optional<FoundSymbols> symbols;
    std::optional<double> levelMismatchRatio;                 ///< of PAM4
    std::optional<DSO::Maths::ReferenceEqualizer> equalizer;  ///< of PAM4
    std::string whyNot;                                       ///< there is no TDECQ
};

/// @param samples          whole periods or one and more
/// @param patternLengthUi  0: unknown, no symbols and no TDECQ
/// @param name             the capture's, for messages
SignalQuality Measure(std::span<const double> samples, double samplesPerUi, int patternLengthUi, E_SIGNAL_CODING coding,
                      int numberOfTaps, const std::string& name);

}  // namespace Tarnwick::App
