// The chain file: how the instrument was set, and the filters to run one after the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "filters/filters.h"
#include "framework/export.h"
#include "workbench/correctedchannel.h"
#include "workbench/pulseresponse.h"
#include "workbench/validpart.h"

namespace Tarnwick::DSO::Workbench {

struct ChainJson;

/// The JSON text of a chain file, parsed but not yet understood. Copies share what was parsed.
class TARNWICK_WORKBENCH_API ChainFile {
public:
    /// @throws UsageFailure  naming the file: it cannot be read, is not JSON, or nests more than 32 deep
    explicit ChainFile(const std::filesystem::path& path);
    /// The same from a text.
    /// @param name  stands for the file in messages; files that the chain names are looked for beside it
    static ChainFile FromText(std::string_view text, std::string name);
    /// What was parsed: a type of the workbench's own sources.
    explicit ChainFile(std::shared_ptr<const ChainJson> json) : json_(std::move(json)) {}
    const ChainJson& Json() const { return *json_; }

    const std::string& Name() const;
    /// The content as JSON text.
    std::string Text() const;

private:
    std::shared_ptr<const ChainJson> json_;
};

/// One filter of a chain with its parameters.
struct Stage {
    std::string name;                ///< its type, as in the file
    std::string place;               ///< where it stands in the file: filters.1
    std::size_t index = 0;           ///< among all filters of the file
    bool linear = true;              ///< false: it makes decisions, so that an impulse response does not describe it
    std::vector<std::string> notes;  ///< what was assumed about them, and what has no effect, for the user to read
    bool adaptive = false;           ///< it fits itself to the capture; an impulse cannot stand in for that
    bool needsSymbols = false;       ///< it needs the pattern's symbols, given or found in the capture
    /// [UI] from the first tap to the last of an equaliser; 0: how far the stage reaches is seen by its response to an impulse
    std::size_t spanUi = 0;
    /// The field of its parameters, if it has one, for the UI at both ends of the record that its fit leaves out.
    std::int32_t* ignoredUi = nullptr;
    /// What the filter has found, for reports: a JSON object as text, from the samples that the stage made [V] and the part of
    /// them that is valid. Empty for a filter that finds nothing. To be called after the stage has run.
    std::function<std::string(std::span<const double> filtered, ValidPart valid)> findings;
    /// The taps of an equaliser, empty for any other stage. To be called after the stage has run, or when they are given.
    std::function<StageTaps()> taps;
    std::optional<ChannelMeasurement> channel;  ///< the measured channel that it corrects
    std::unique_ptr<SystemFramework::BaseFilterParameters> parameters;
    std::unique_ptr<SystemFramework::BaseFilter> filter;
};

/// The device and the filters of a chain file, completed for records of one length. Files that the chain names are read
/// here, once; that they change later has no effect.
class TARNWICK_WORKBENCH_API Chain {
public:
    /// @param sampleCount  samples of the record, from which the number of repetitions follows
    /// @throws UsageFailure  naming the file and the key
    /// @throws DataFailure   naming a file that a filter reads; or sizes that exceed the record's by far
    Chain(const ChainFile& file, std::size_t sampleCount);
    Chain(const std::filesystem::path& path, std::size_t sampleCount);
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    /// The file's name, for messages.
    const std::string& Name() const { return name_; }
    const DeviceConfiguration& Device() const { return config_; }
    /// The filters that are enabled, in their order.
    std::vector<Stage>& Stages() { return stages_; }
    /// Samples per UI as a real number; 0 when the file does not say.
    double SamplesPerUi() const;

private:
    std::string name_;
    DeviceConfiguration config_;
    bool oeChannels_[4] = {false, false, false, false};
    std::vector<Stage> stages_;
};

/// Checks the keys of a chain file and their values, as far as they tell by themselves: no file that it names is opened, and no
/// filter made.
/// @throws UsageFailure  naming the file and the key
TARNWICK_WORKBENCH_API void CheckChain(const ChainFile& file);

/// The files that the filters of a chain file name, those of disabled filters too, as they are opened: a path that is
/// relative is from the folder of the chain file.
TARNWICK_WORKBENCH_API std::vector<std::string> FilesOf(const ChainFile& file);

/// How many filters a chain file has, those that are disabled too; 0 for none and for a file that is no chain.
TARNWICK_WORKBENCH_API std::size_t FilterCount(const ChainFile& file);

/// The name in `known` that begins with `name`, or is nearest to it by edit distance.
/// @param known  at least one
TARNWICK_WORKBENCH_API std::string Nearest(const std::string& name, const std::vector<std::string>& known);

}  // namespace Tarnwick::DSO::Workbench
