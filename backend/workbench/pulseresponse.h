// What an equaliser does, as a figure: its taps, and the pulse response in front of it and behind it. A pulse response is what
// one symbol of the highest level among many of the lowest would show, by linear fit to all symbols of a waveform.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"
#include "workbench/eye.h"
#include "workbench/validpart.h"

namespace Tarnwick::DSO::Workbench {

struct StageTaps {
    enum class Kind {
        FeedForward,  ///< factors of the waveform itself
        Feedback,     ///< what a decided symbol leaves later, over the main cursor
    };
    Kind kind = Kind::FeedForward;
    std::vector<double> values = {};     ///< as they are applied
    std::vector<double> offsetsUi = {};  ///< [UI] of each from the main cursor; below 0: pre-cursors
    double delayUi = 0.0;                ///< [UI] by which the main tap delays the waveform
    /// [UI] 0 to below 1: where the stage decides, in the waveform that it makes; none: it does not.
    std::optional<double> instantUi = {};
};

/// Both of the same symbols on one axis of time: what is in front is shown as the main tap delays it.
struct PulseResponses {
    enum class Source {
        KnownSymbols,    ///< fitted to a waveform whose pattern was found in it
        DecidedSymbols,  ///< wrong decisions make it smaller
        IdealSymbol,     ///< no waveform: a rectangle of one UI and of 1 V
    };
    Source source = Source::KnownSymbols;
    std::size_t valuesPerUi = 0;
    double firstUi = 0.0;             ///< [UI] of the first values from the cursor, a whole number of them
    std::vector<double> before = {};  ///< [V] in front of the stage
    std::vector<double> after = {};   ///< [V] behind it; empty: only a waveform can tell
    double beforeResidualRms = 0.0;   ///< [V] of the waveform: what the fit does not explain
    double afterResidualRms = 0.0;    ///< [V]
};

struct TapFigure {
    StageTaps taps = {};
    /// None: too few symbols to tell 5 + 20 UI apart, too short a pattern, or no eyes.
    std::optional<PulseResponses> pulses = {};
};

/// A waveform and what of it may be measured.
struct WaveformPart {
    std::span<const double> samples;
    ValidPart valid;
};

/// The responses from 5 UI before the cursor to 20 UI behind it. The cursor is the instant at which the stage decides; of one
/// that does not, the measuring phase of the eye behind it.
/// @param after   as many samples as before, with the valid part behind the stage
/// @param eyes    what is known of both
/// @param behind  the eyes behind the stage; without levels nothing is fitted
TARNWICK_WORKBENCH_API std::optional<PulseResponses> FitPulseResponses(const StageTaps& taps,
                                                                       const WaveformPart& before,
                                                                       const WaveformPart& after,
                                                                       const EyeSettings& eyes,
                                                                       const EyeReport& behind);

/// The same of filters: what they make of a rectangle of one UI. The cursor is where the response behind is largest, without
/// one that in front.
/// @param before, after  impulse responses in front of the stage and behind it, the impulse at sample 0 of one circular record;
///                       of a stage that decides there is none behind
/// @return nothing when the record is shorter than the responses
TARNWICK_WORKBENCH_API std::optional<PulseResponses> IdealPulseResponses(const StageTaps& taps,
                                                                         std::span<const double> before,
                                                                         std::span<const double> after,
                                                                         double samplesPerUi);

}  // namespace Tarnwick::DSO::Workbench
