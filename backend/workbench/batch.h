// Many captures through one chain, side by side, and a table with a row for each of them: what was found of the capture, the
// eyes behind the chain, or why there are none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"
#include "workbench/chain.h"
#include "workbench/eye.h"
#include "workbench/lock.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// The columns of the table. What is not known is left empty; of several eyes the smallest figure stands, and those of all eyes,
/// lowest first, in the columns of the plural.
enum class BatchColumn {
    File,             ///< the capture, as it was given
    Status,           ///< done or failed
    Reason,           ///< why it failed
    Output,           ///< the name of what was written, in the folder of the batch
    SymbolRateGBd,    ///< of the acquisition, as what follows
    SamplesPerUi,     ///< of the capture as it was read
    Coding,           ///< line coding
    Pattern,          ///< "PRBS15 inverted"; empty: not recognised
    Mode,             ///< periodic or single-shot
    Repetitions,      ///< of the pattern
    Samples,          ///< that were written, and measured
    OpeningPercent,   ///< behind the last stage, as what follows
    HeightV,          ///< [V]
    WidthUi,          ///< [UI]
    HeightAtBerV,     ///< [V] at a bit error ratio of 1e-6
    Q,                ///< inf: no noise beyond rounding
    OpeningsPercent,  ///< numbers with blanks between
    HeightsV,         ///< [V]
    Symbols,          ///< found, or decided from the samples, which flatters an eye that is closed
    Ber,              ///< bit error ratio
    NoiseRmsV,        ///< [V]
    Seconds,          ///< [s] that it took
    Notes,            ///< what was assumed or left out, and what contradicts
    Key,              ///< checksum of chain, options, and the capture's size and time of change
};
inline constexpr std::size_t kBatchColumns = static_cast<std::size_t>(BatchColumn::Key) + 1;

/// A row of the table.
class TARNWICK_WORKBENCH_API BatchRow {
public:
    std::string& operator[](BatchColumn column) { return cells_[static_cast<std::size_t>(column)]; }
    const std::string& operator[](BatchColumn column) const { return cells_[static_cast<std::size_t>(column)]; }
    bool IsDone() const;
    /// None: the cell is empty or holds no number.
    std::optional<double> Number(BatchColumn column) const;
    std::span<const std::string> Cells() const { return cells_; }

private:
    std::array<std::string, kBatchColumns> cells_;
};

/// One capture of a batch.
struct BatchJob {
    std::string capture;  ///< the file
    std::string name;     ///< what its outputs are called, without ending
};

/// Draws what a capture has become.
/// @param samples  [V] the valid ones, from the start of a UI on
using BatchPicture = std::function<void(const BatchJob& job, std::span<const double> samples, double samplesPerUi,
                                        const EyeReport& report)>;

struct BatchInput {
    ChainFile chain;
    CaptureFacts facts = {};       ///< of every capture; go before what the chain file says
    WaveformOptions reading = {};  ///< of every capture
    bool whole = false;            ///< write the ends of a single shot too
    std::filesystem::path folder;  ///< that takes the outputs; exists
    BatchPicture picture = {};     ///< called on any thread; empty: none. A capture without eyes fails when it is set
    BatchPicture measured = {};    ///< called on any thread with the eyes of captures that have some; empty: none
    std::uint64_t chainChecksum = 0;  ///< BatchChecksum
    unsigned threads = 0;             ///< 0: as many as there are processors
};

/// Called as captures run; each may be empty.
struct BatchObserver {
    std::function<void(std::size_t index, const BatchRow& row)> end;  ///< one at a time
    std::function<bool()> stop;                                       ///< true: no further capture is begun
};

struct BatchPlan {
    std::vector<BatchJob> jobs;      ///< in the order of the captures
    std::vector<std::string> notes;  ///< captures that were given twice, and are run once
};

/// Names the outputs of captures: by the file, without folder and ending; where that is the same for several, with as many of
/// the folders before it as tell them apart, and the ending if need be.
/// @throws UsageFailure  no captures; standard input among them
TARNWICK_WORKBENCH_API BatchPlan PlanBatch(const std::vector<std::string>& captures);

/// Checks what can be checked of a chain without a capture: its keys, and that the files which it names can be read.
/// @return a checksum of chain, files, facts and options
/// @throws UsageFailure  the chain file
/// @throws DataFailure   a file that it names
TARNWICK_WORKBENCH_API std::uint64_t BatchChecksum(const BatchInput& input);

/// The key of a capture's row: another one once the capture, chain or an option is another.
/// @return empty: there is no such file
TARNWICK_WORKBENCH_API std::string BatchKey(const BatchInput& input, const std::string& capture);

/// Reads a capture, locks it as InputFor does, runs the chain, writes the record behind it as <name>.npy and measures its eyes.
/// The same row from run to run but for its seconds. Whatever fails becomes the row's reason; then nothing was written, or it
/// was the picture that failed.
TARNWICK_WORKBENCH_API BatchRow RunCapture(const BatchInput& input, const BatchJob& job);

/// RunCapture for each job, side by side; in memory is one capture a thread.
TARNWICK_WORKBENCH_API void RunBatch(const BatchInput& input, std::span<const BatchJob> jobs,
                                     const BatchObserver& observer = {});

/// The first line of the table, comma-separated values: the columns' names.
TARNWICK_WORKBENCH_API std::string BatchTableHead();
TARNWICK_WORKBENCH_API std::string BatchTableRow(const BatchRow& row);

/// The rows of a table, of each capture the last one; a row that was cut off is left out.
/// @param name  the table's, for messages
/// @throws UsageFailure  it is no such table
TARNWICK_WORKBENCH_API std::vector<BatchRow> ReadBatchTable(std::string_view text, const std::string& name);

/// What the rows of a batch come to.
struct BatchSummary {
    std::size_t captures = 0;
    std::size_t done = 0;
    std::size_t failed = 0;
    const BatchRow* worst = nullptr;  ///< of the rows, that of the smallest opening; null: none has eyes
};

/// @param rows  of every capture; none of one that was not run
TARNWICK_WORKBENCH_API BatchSummary SummaryOf(std::span<const std::optional<BatchRow>> rows);

/// {"captures", "done", "kept", "failed", "results", "smallestOpening": {"file", "openingPercent"} or null, "failures":
/// [{"file", "reason"}]} as JSON text, indented by two.
/// @param kept     how many of the rows an earlier batch has made
/// @param results  the table's file
TARNWICK_WORKBENCH_API std::string SummaryAsJson(std::span<const std::optional<BatchRow>> rows, std::size_t kept,
                                                 const std::string& results);

/// Whether a row of an earlier table still stands for what the job would give: done, of the same key, its output there.
TARNWICK_WORKBENCH_API bool IsUpToDate(const BatchRow& row, const BatchInput& input, const BatchJob& job);

}  // namespace Tarnwick::DSO::Workbench
