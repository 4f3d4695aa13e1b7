// What each filter of a chain, and the whole chain, does to an impulse.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "workbench/chain.h"
#include "workbench/correctedchannel.h"
#include "workbench/transferfunction.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

/// A record that holds one impulse.
struct ImpulseRecord {
    std::size_t sampleCount;  ///< whole repetitions of the pattern, rounded up to samples
    std::size_t repetitions;
    double sampleRate;  ///< [Hz]
    std::size_t RepetitionLength() const { return sampleCount / repetitions; }
};

/// The record that a chain file's device describes: one repetition, or as many as it says.
/// @param name  the file's, for messages
/// @throws UsageFailure  a size or the symbol rate is missing or out of range, naming the key
ImpulseRecord RecordFor(const nlohmann::json& file, const std::string& name);

struct FilterResponse {
    std::string label;  ///< where it stands in the file, from 0, and its type: "1 ctle"
    TransferFunction function;
    std::size_t index = 0;                    ///< among all filters of the file
    std::optional<CorrectedChannel> channel;  ///< of a SiRC filter
};

struct ChainResponse {
    double symbolRate = 0.0;  ///< [Hz]
    double samplesPerUi = 0.0;
    std::vector<FilterResponse> filters;
    TransferFunction whole;            ///< of one filter behind the other
    std::vector<std::string> leftOut;  ///< labels of the filters that decide or adapt; the whole is without them
};

/// Runs a unit impulse in the record's first repetition through every filter, and through all of them; the responses are
/// those of that repetition. The filters are the only source: no formula of a filter is used.
/// @param symbolRate  [Hz]
/// @param name        the chain file's, for messages
/// @throws UsageFailure  a filter refuses its settings
/// @throws DataFailure   a filter refuses the record or its files
ChainResponse MeasureResponse(std::span<Stage> stages, const ImpulseRecord& record, double symbolRate,
                              const std::string& name);

}  // namespace Tarnwick::App
