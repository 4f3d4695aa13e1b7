// The best equaliser for a capture, or for several together: a CTLE, an FFE fitted where the receiver samples and the DFE behind it, together.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/captures.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
#include "workbench/lock.h"
#include "workbench/ranking.h"

namespace Tarnwick::DSO::Workbench {

/// peaking, hdmi, hdmi2.0 and ieee802.3bs: the types of CTLE that one gain describes.
TARNWICK_WORKBENCH_API std::vector<std::string> OptimisedCtleTypes();

/// A setting of the equaliser.
struct EqualiserPoint {
    std::string ctle = {};  ///< its type; empty: none
    double gain = 0.0;      ///< as the chain file's
    int ffeTaps = 0;        ///< 0: no FFE
    int dfeTaps = 0;        ///< 0: no DFE

    bool operator==(const EqualiserPoint&) const = default;
};

/// What a setting made of the capture; of several, of each figure the worst.
struct EqualiserTrial {
    EqualiserPoint point;
    double figure = -std::numeric_limits<double>::infinity();  ///< that ranks, FigureOf
    double openingPercent = 0.0;                               ///< the smallest over the eyes
    double heightV = 0.0;                                      ///< [V] the smallest
    std::optional<double> widthUi = {};                        ///< [UI] the smallest
    std::optional<double> ber = {};
    std::string capture = {};  ///< of several: the one with the smallest figure
    std::string error = {};    ///< why there are no figures
};

struct OptimiserInput {
    ChainFile
        chain;  ///< its CTLE, FFE and DFE are searched again, with their other settings kept; the other filters stay
    std::vector<NamedCapture> captures;  ///< at least one; all are held in memory
    CaptureFacts facts;                  ///< of each capture; go before what the chain file says
    std::vector<std::string> ctleTypes;  ///< to be tried beside none
    int ffeTaps = 5;                     ///< at most; 0: no FFE
    int dfeTaps = 0;                     ///< at most; 0: no DFE
    RankBy rank = RankBy::Opening;
    std::vector<EqualiserTrial> known = {};  ///< of the same captures and chain: not run again
    unsigned threads = 0;                    ///< 0: as many as there are processors
};

/// Called as trials run, one at a time; each may be empty.
struct OptimiserObserver {
    std::function<void(const EqualiserPoint& point)> begin;
    std::function<void(const EqualiserTrial& trial)> end;  ///< of those that were not known
    std::function<void(const std::string& note)> note;     ///< what was found of the capture, assumed or left out
    std::function<bool()> stop;                            ///< true: no further trial is begun
    /// What a trial made of a capture, on any thread: its figure, its eyes, and the samples that are valid, from the start of a
    /// UI on.
    std::function<void(const EqualiserTrial& trial, const EyeReport& eye, std::span<const double> samples,
                       double samplesPerUi)>
        measured = {};
};

struct OptimiserResult {
    std::vector<EqualiserTrial> trials;  ///< in the order in which they were chosen
    std::size_t best = 0;                ///< index; of equal figures the one chosen first
    bool stopped = false;                ///< by the observer
};

/// The most trials that a search runs.
inline constexpr std::size_t kMostTrials = 60;

/// A coarse grid of gains for each type of CTLE with all taps, then descent along gain, FFE taps and DFE taps from the best,
/// the steps halved until the finest. With several captures, a
/// setting counts by its worst figure. The same result for any number of threads.
/// @throws UsageFailure  the chain file
/// @throws DataFailure   a capture; or no setting gives a figure: why the first did not
TARNWICK_WORKBENCH_API OptimiserResult Optimise(const OptimiserInput& input, const OptimiserObserver& observer = {});

/// The chain file with the equaliser of a point, and with what is given of the capture in its device. Files that it names
/// are named from another folder.
/// @param folder  in which the text will stand
TARNWICK_WORKBENCH_API std::string OptimisedChain(const OptimiserInput& input, const EqualiserPoint& point,
                                                  const std::filesystem::path& folder);

}  // namespace Tarnwick::DSO::Workbench
