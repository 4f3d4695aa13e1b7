// One chain with many settings, ranked by the eyes behind it.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "workbench/eye.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

/// A key of the chain file and the values that it takes.
struct SweepAxis {
    std::string path;                    ///< keys with dots between, lists counted from 0: filters.1.gain
    std::vector<nlohmann::json> values;  ///< numbers, flags, texts; whole numbers are integers
};

/// Reads PATH=FROM:TO:STEP or PATH=v1,v2,v3. The steps are FROM + k STEP, TO among them within half a millionth of a step.
/// @throws UsageFailure  naming the text: no such form, a number that is not finite, a step that leads nowhere, too many
SweepAxis ReadSweepAxis(const std::string& text);

struct SweepRun {
    std::vector<nlohmann::json> values;  ///< one an axis
    EyeReport eye;                       ///< at the end of the chain
    std::string error;                   ///< why there is none; empty: it ran
    bool hasUnknownKey = false;          ///< the error is one of the chain file's keys, whatever its value

    /// The worst over the eyes; -infinity without eyes.
    double SmallestHeight() const;
    double SmallestWidth() const;
};

/// Higher eyes first; of equally high ones the wider.
bool IsBetter(const SweepRun& one, const SweepRun& other);

/// The runs that came to an end, best first; of equal ones the first.
std::vector<std::size_t> Ranking(std::span<const SweepRun> runs);

// What might throw is the JSON library's assertions, which are off.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct SweepInput {
    nlohmann::json chain;   ///< content of the chain file
    std::string chainName;  ///< for messages
    std::string captureName;
    std::vector<double> samples;  ///< [V]
    std::vector<SweepAxis> axes;
};

/// What a sweep tells of while it runs.
struct SweepObserver {
    std::function<void(std::size_t run, const std::vector<nlohmann::json>& values)> begin;
    std::function<void(std::size_t run, const SweepRun& result, std::span<const double> samples, double samplesPerUi)>
        end;  ///< only of runs without an error
};

/// Runs the chain with every combination of the values; the last axis changes fastest in the result. Filters before the
/// first changed one run once. A combination that a filter refuses has its error and keeps none of the others from running.
/// @throws UsageFailure  a path that leads past a list or through a value; what fails whatever the values are
/// @throws DataFailure   what fails whatever the values are
std::vector<SweepRun> Sweep(const SweepInput& input, const SweepObserver& observer);

}  // namespace Tarnwick::App
