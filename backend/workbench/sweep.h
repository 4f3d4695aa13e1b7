// One chain with many settings, ranked by the eyes behind it.
#pragma once

#include <cstddef>
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

/// A key of the chain file and the values that it takes.
struct SweepAxis {
    std::string path;                 ///< keys with dots between, lists counted from 0: filters.1.gain
    std::vector<std::string> values;  ///< JSON texts: numbers (whole ones as integers), flags, quoted texts
};

/// Reads PATH=FROM:TO:STEP or PATH=v1,v2,v3. The steps are FROM + k STEP, TO included when it lies within half a millionth
/// of a step of one of them.
/// @throws UsageFailure  naming the text: neither form, a number that is not finite, a step that never reaches TO, more
///                       than 10000 values
TARNWICK_WORKBENCH_API SweepAxis ReadSweepAxis(const std::string& text);

/// One axis or two, of different paths.
/// @throws UsageFailure  also for more than 10000 combinations
TARNWICK_WORKBENCH_API std::vector<SweepAxis> ReadSweepAxes(const std::vector<std::string>& texts);

/// The product of the numbers of values.
TARNWICK_WORKBENCH_API std::size_t CombinationsOf(std::span<const SweepAxis> axes);

struct SweepRun {
    std::vector<std::string> values;                           ///< one an axis
    EyeReport eye;                                             ///< at the end of the chain
    std::optional<double> tdecqDb = {};                        ///< measured where it ranks
    double figure = -std::numeric_limits<double>::infinity();  ///< that ranks, FigureOf
    std::string capture = {};    ///< of several: the one with the smallest figure, or that failed
    std::string error = {};      ///< why there is no report; empty: the run succeeded
    bool hasUnknownKey = false;  ///< the error is about one of the chain file's keys, whatever its value
};

/// The larger figure first; of equal ones the wider eye.
TARNWICK_WORKBENCH_API bool IsBetter(const SweepRun& one, const SweepRun& other);

/// The runs that succeeded, best first; of equally good ones the earlier first.
TARNWICK_WORKBENCH_API std::vector<std::size_t> Ranking(std::span<const SweepRun> runs);

struct SweepInput {
    ChainFile chain;
    std::vector<NamedCapture> captures;  ///< at least one; of several, the worst counts
    CaptureFacts facts;                  ///< of each capture; go before what the chain file says
    std::vector<SweepAxis> axes;
    RankBy rank = RankBy::Opening;
};

/// Called as a sweep runs.
struct SweepObserver {
    std::function<void(std::size_t run, const std::vector<std::string>& values)> begin;
    /// Only for runs without an error, for each capture; the samples are those that are valid, from the start of a UI on.
    std::function<void(std::size_t run, const SweepRun& result, std::span<const double> samples, double samplesPerUi)>
        end;
    /// What was found of the capture, assumed or left out, for the user; may be empty.
    std::function<void(const std::string& note)> note;
};

/// Runs the chain with every combination of the values; the last axis changes fastest in the result. A run on several captures
/// is that on the one where it is worst; one that fails on any of them has failed. Each capture is locked once, or for each device that the axes make, and filters before the first one that changes run once. A combination that a filter refuses has its error and stops none of the others.
/// @throws UsageFailure  a path that leads past the end of a list or through a value; what fails whatever the values are
/// @throws DataFailure   what fails whatever the values are
TARNWICK_WORKBENCH_API std::vector<SweepRun> Sweep(const SweepInput& input, const SweepObserver& observer);

}  // namespace Tarnwick::DSO::Workbench
