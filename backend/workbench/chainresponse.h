// What each filter of a chain, and the whole chain, does to an impulse.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/correctedchannel.h"
#include "workbench/pulseresponse.h"
#include "workbench/transferfunction.h"

namespace Tarnwick::DSO::Workbench {

/// A record that holds one impulse.
struct ImpulseRecord {
    std::size_t sampleCount;  ///< whole repetitions of the pattern, rounded up to samples
    std::size_t repetitions;
    double sampleRate;  ///< [Hz]
    std::size_t RepetitionLength() const { return sampleCount / repetitions; }
};

/// The record that a chain file's device describes: one repetition, or as many as it says.
/// @throws UsageFailure  a size or the symbol rate is missing or out of range, naming the key
TARNWICK_WORKBENCH_API ImpulseRecord ImpulseRecordFor(const ChainFile& file);

struct FilterResponse {
    std::string label;  ///< its place in the file, from 0, and its type: "1 ctle"
    TransferFunction function;
    std::size_t index = 0;                    ///< among all filters of the file
    std::optional<CorrectedChannel> channel;  ///< of a SiRC filter
};

/// An equaliser whose taps the file gives.
struct FilterTaps {
    std::string type;       ///< as in the file
    std::size_t index = 0;  ///< among all filters of the file
    TapFigure figure =
        {};  ///< of an ideal symbol through the filters in front; behind a filter that decides there is none
};

struct TARNWICK_WORKBENCH_API ChainResponse {
    double symbolRate = 0.0;  ///< [Hz]
    double samplesPerUi = 0.0;
    /// [Hz] Where figures and pictures end: kSymbolRatesShown; where a fixture is removed or added, half the sample rate,
    /// because a boost may lie anywhere.
    double bandEnd = 0.0;
    std::vector<FilterResponse> filters;
    std::vector<FilterTaps> taps;
    TransferFunction whole;            ///< of all filters in a row
    std::vector<std::string> leftOut;  ///< labels of the filters that decide or adapt; the whole is without them

    /// The filters in their order, then the whole, labelled "whole".
    void ForEach(const std::function<void(const std::string& label, const TransferFunction& function)>& visit) const;
};

/// Runs a unit impulse in the record's first repetition through every filter, and through all of them; the responses are
/// those of that repetition. The filters themselves are the only source: none of their formulas is used.
/// @param symbolRate  [Hz]
/// @param begin       called with each filter's type, then "whole", before it runs; may be empty
/// @throws UsageFailure  a filter refuses its settings
/// @throws DataFailure   a filter refuses the record or its files
TARNWICK_WORKBENCH_API ChainResponse MeasureResponse(Chain& chain, const ImpulseRecord& record, double symbolRate,
                                                     const std::function<void(const std::string& what)>& begin = {});

}  // namespace Tarnwick::DSO::Workbench
