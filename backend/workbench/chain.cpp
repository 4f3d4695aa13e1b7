#include "workbench/chain.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/chainkeys.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/device.h"
#include "workbench/plumbing/stageplans.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

constexpr const char* kNoEffect = "no effect";  // in the meaning of keys that are read and not used

// Kernels are as long as the sizes say, whatever the record: a short chain file must not make filters take memory for
// which the record gives no reason. The first of the limits is for records that are short by mistake, which filters name.
void RequireBounded(double claimed, std::size_t sampleCount, const Place& place, const char* claimedBy)
{
    constexpr double kAlwaysGranted = 1 << 20;  // [samples]
    constexpr double kTimesTheRecord = 16.0;
    if (claimed > std::max(kAlwaysGranted, kTimesTheRecord * static_cast<double>(sampleCount)))
        place.Fail<DataFailure>(
            fmt::format("{} is {:.10g} samples; the record has {}", claimedBy, claimed, sampleCount));
}

// The same for a device. What does not fit 32 bits is left to the filters, which refuse and name it.
void RequireBounded(const DeviceConfiguration& config, std::size_t sampleCount, const Place& place)
{
    const double repeats = std::max(config.patternRepeats, 1);
    const double period = static_cast<double>(config.samplesPerUi) * config.patternLengthUi;
    const double fractional = SamplesPerUiOf(config) * config.patternLengthUi;
    const struct {
        double samples;
        const char* claimedBy;
    } claims[] = {{static_cast<double>(config.samplesPerPattern), "samplesPerPattern"},
                  {period, "patternLengthUi * samplesPerUi"},
                  {period * repeats, "patternLengthUi * samplesPerUi * patternRepeats"},
                  {fractional, "patternLengthUi * uiDuration / sampleSpacing"},
                  {fractional * repeats, "patternLengthUi * uiDuration / sampleSpacing * patternRepeats"}};
    for (const auto& claim : claims)
        if (claim.samples <= std::numeric_limits<std::int32_t>::max())
            RequireBounded(claim.samples, sampleCount, place, claim.claimedBy);
}

const StageType& StageTypeFrom(const json& settings, const Place& place)
{
    const Place here = place.Below("type");
    if (!settings.contains("type"))
        here.Fail("is missing; expected the name of a filter");
    const std::string name = TextFrom(settings["type"], here);
    std::vector<std::string> known;
    for (const StageType& type : StageTypes()) {
        if (name == type.name)
            return type;
        known.emplace_back(type.name);
    }
    here.Fail(fmt::format("is \"{}\", not a known filter; the nearest one is \"{}\"", name, Nearest(name, known)));
}

}  // namespace

void ReadChainDevice(const ChainFile& file, std::size_t sampleCount, DeviceConfiguration& config)
{
    const Place top{file.Name(), ""};
    const json& content = ObjectFrom(JsonOf(file), top);
    for (const auto& item : content.items())
        if (item.key() != "device" && item.key() != "filters")
            RefuseUnknownKey(item.key(), {"device", "filters"}, top);
    ReadDevice(content, top, sampleCount, config);
}

bool NeedsTiming(const ChainFile& file)
{
    const json& content = JsonOf(file);
    if (!content.is_object() || !content.contains("filters") || !content["filters"].is_array())
        return true;
    const auto needsTiming = [](const json& settings) {
        if (!settings.is_object() || !settings.contains("type"))
            return true;
        if (settings.contains("enabled") && settings["enabled"] == false)
            return false;
        const auto types = StageTypes();
        const auto type = std::find_if(types.begin(), types.end(),
                                       [&](const StageType& one) { return settings["type"] == one.name; });
        return type == types.end() || type->needsTiming;
    };
    return std::any_of(content["filters"].begin(), content["filters"].end(), needsTiming);
}

std::vector<StagePlan> PlanStages(const ChainFile& file, DeviceConfiguration& config)
{
    const Place place{file.Name(), "filters"};
    const json& content = JsonOf(file);
    if (!content.contains("filters"))
        place.Fail("is missing; expected a list of filters");
    const json& filters = content["filters"];
    if (!filters.is_array())
        place.Fail(fmt::format("is {}; expected a list of filters", filters.type_name()));
    std::vector<StagePlan> plans;
    for (std::size_t k = 0; k < filters.size(); ++k) {
        const Place here = place.Below(std::to_string(k));
        const json& settings = ObjectFrom(filters[k], here);
        const StageType& type = StageTypeFrom(settings, here);
        StagePlan plan = type.plan(settings, here, config);
        if (settings.contains("enabled") && !settings["enabled"].get<bool>())
            continue;
        plan.stage.name = type.name;
        plan.stage.place = here.key;
        plan.stage.index = k;
        for (const ChainKey& key : type.keys())
            if (settings.contains(key.name) && key.meaning.find(kNoEffect) != std::string::npos)
                plan.stage.notes.push_back(fmt::format("{}: {}.{}: has no effect", file.Name(), here.key, key.name));
        plans.push_back(std::move(plan));
    }
    return plans;
}

void CheckChain(const ChainFile& file)
{
    DeviceConfiguration config;
    bool oeChannels[4] = {};
    config.oeChannel = oeChannels;
    ReadChainDevice(file, 0, config);
    config.useFractionalSampling = false;  // what that asks of the device may be found in the capture
    (void)PlanStages(file, config);
}

std::size_t FilterCount(const ChainFile& file)
{
    const json& content = JsonOf(file);
    return content.is_object() && content.contains("filters") ? content["filters"].size() : 0;
}

std::vector<std::string> FilesOf(const ChainFile& file)
{
    std::vector<std::string> files;
    const json& content = JsonOf(file);
    if (!content.is_object() || !content.contains("filters"))
        return files;
    for (const json& filter : content["filters"]) {
        if (!filter.is_object() || !filter.contains("type") || !filter["type"].is_string())
            continue;  // the chain will say so
        for (const std::string& key : FileKeysOf(filter["type"].get<std::string>()))
            if (filter.contains(key) && filter[key].is_string())
                files.push_back(FileFrom(filter[key], {file.Name(), key}).string());
    }
    return files;
}

std::string Nearest(const std::string& name, const std::vector<std::string>& known)
{
    const auto distance = [&](const std::string& other) {
        if (!name.empty() && other.compare(0, name.size(), name) == 0)
            return std::size_t{0};  // cut short: many letters are missing
        std::vector<std::size_t> row(other.size() + 1);
        std::iota(row.begin(), row.end(), std::size_t{0});
        for (std::size_t i = 1; i <= name.size(); ++i) {
            std::size_t corner = row[0];
            row[0] = i;
            for (std::size_t j = 1; j <= other.size(); ++j) {
                const std::size_t replaced = corner + (name[i - 1] == other[j - 1] ? 0 : 1);
                corner = row[j];
                row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
            }
        }
        return row.back();
    };
    return *std::min_element(known.begin(), known.end(),
                             [&](const std::string& a, const std::string& b) { return distance(a) < distance(b); });
}

Chain::Chain(const ChainFile& file, std::size_t sampleCount) : name_(file.Name())
{
    config_.oeChannel = oeChannels_;
    ReadChainDevice(file, sampleCount, config_);
    std::vector<StagePlan> plans = PlanStages(file, config_);
    if (!plans.empty())
        RequireBounded(config_, sampleCount, {name_, "device"});
    for (StagePlan& plan : plans) {
        RequireBounded(plan.claimedSamples, sampleCount, {name_, plan.stage.place}, plan.claimedBy);
        plan.complete(plan.stage);
        stages_.push_back(std::move(plan.stage));
    }
}

Chain::Chain(const std::filesystem::path& path, std::size_t sampleCount) : Chain(ChainFile(path), sampleCount) {}

double Chain::SamplesPerUi() const
{
    return SamplesPerUiOf(config_);
}

}  // namespace Tarnwick::DSO::Workbench
