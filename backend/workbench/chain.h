// The chain file: what the instrument was set to, and the filters to run one after the other.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "filters/filters.h"
#include "workbench/correctedchannel.h"

namespace Tarnwick::DSO::Workbench {

/// One filter of a chain with its parameters.
struct Stage {
    std::string name;                ///< its type, as in the file
    std::string place;               ///< where it stands in the file: filters.1
    std::size_t index = 0;           ///< among all filters of the file
    bool linear = true;              ///< false: it decides, and a response to an impulse says nothing of it
    std::vector<std::string> notes;  ///< what was assumed of its files, for the user to read
    bool adaptive = false;           ///< it fits itself to the capture, which an impulse is none of
    bool needsSymbols = false;       ///< the pattern's symbols, given or found
    /// What the filter has found, for reports: a JSON object, from the samples behind it. Empty: it finds nothing.
    std::function<nlohmann::json(std::span<const double> behind)> found;
    std::optional<ChannelMeasurement> channel;  ///< what it corrects
    std::unique_ptr<DSO::SystemFramework::BaseFilterParameters> parameters;
    std::unique_ptr<DSO::SystemFramework::BaseFilter> filter;
};

/// The content of a chain file.
/// @throws UsageFailure  naming the file
nlohmann::json ReadChainFile(const std::filesystem::path& path);
/// The same of a file's content; `name` stands for the file in messages.
nlohmann::json ParseChain(std::string_view text, const std::string& name);

/// The device as the file describes it, completed for one record.
class Chain {
public:
    /// @param sampleCount  samples of the record, from which the number of repetitions follows
    /// @throws UsageFailure  naming the file and the key
    /// @throws DataFailure   naming a file that a filter reads; or sizes that by far exceed the record
    Chain(const std::filesystem::path& path, std::size_t sampleCount);
    /// The same from a file's content; `name` stands for the file in messages.
    Chain(const nlohmann::json& file, std::string name, std::size_t sampleCount);
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    const DSO::DeviceConfiguration& Device() const { return config_; }
    /// The filters that are enabled, in their order.
    std::vector<Stage>& Stages() { return stages_; }
    /// Samples per UI as a real number; 0 when the file does not say.
    double SamplesPerUi() const;

private:
    void ReadDevice(const nlohmann::json& device);
    void CompleteDevice(std::size_t sampleCount);
    void ReadFilters(const nlohmann::json& filters, std::size_t sampleCount);

    std::string name_;
    DSO::DeviceConfiguration config_;
    bool oeChannels_[4] = {false, false, false, false};
    bool repeatsGiven_ = false;
    bool periodGiven_ = false;
    bool multipleGiven_ = false;
    std::vector<Stage> stages_;
};

/// The name in `known` that begins with `name`, or is nearest to it by edit distance.
std::string Nearest(const std::string& name, const std::vector<std::string>& known);

}  // namespace Tarnwick::DSO::Workbench
