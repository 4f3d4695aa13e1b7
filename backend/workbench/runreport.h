// A capture through a chain, described in full: what a report of it shows.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/chaininput.h"
#include "workbench/chainresponse.h"
#include "workbench/eyecounts.h"
#include "workbench/lock.h"
#include "workbench/run.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// Means of the capture's levels, block by block.
struct LevelsOverRecord {
    double firstUi = 0.0;  ///< [UI] of the first block's middle from the record's first sample
    double blockUi = 0.0;
    std::vector<std::vector<double>> levels = {};  ///< [V] [level][block]; not a number: the block does not hold it
};

struct RunReport {
    ChainFile chain;          ///< its device completed for the record
    double samplesPerUi = 0;  ///< of the record; 0: not known
    double symbolRateGBd = 0;
    bool hasEyes = false;  ///< coding and samples per UI are known
    std::optional<LockReport> acquisition = {};
    std::vector<std::string> notes = {};     ///< what was assumed or left out; without the acquisition's warnings
    std::vector<std::string> clipping = {};  ///< sentences: the capture is cut off at the ends of its range
    std::vector<StageReport> stages = {};    ///< the first is the capture as read
    std::vector<std::size_t> places = {};    ///< of each but the first among the filters of the chain file
    std::vector<EyeCounts> eyes = {};        ///< a stage each; without cells: none
    std::optional<ChainResponse> response = {};
    std::string whyNoResponse = {};
    LevelsOverRecord levels = {};
};

/// Locks the capture as InputFor does, runs the chain as RunChain does, with pulse responses, and with bathtubs where they do not
/// take the longest; counts the eyes, and measures the responses of the filters, those of feed-forward equalisers from the
/// taps that they found. A record of more than 131072 samples has them measured on so many.
/// @param given  goes before what the chain file says
/// @param name   the capture's, for messages
/// @param begin  called with each step before it is taken; may be empty
/// @throws UsageFailure  @throws DataFailure  as those
TARNWICK_WORKBENCH_API RunReport RunForReport(const ChainFile& chain, const Waveform& capture,
                                              const CaptureFacts& given, const std::string& name,
                                              const std::function<void(const std::string& step)>& begin = {});
/// The same of a capture that is locked already.
/// @param input    as InputFor
/// @param capture  as it was read
TARNWICK_WORKBENCH_API RunReport RunForReport(ChainInput input, const Waveform& capture, const std::string& name,
                                              const std::function<void(const std::string& step)>& begin = {});

}  // namespace Tarnwick::DSO::Workbench
