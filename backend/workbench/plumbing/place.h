// Values of a chain file, read with the place where they stand.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json_fwd.hpp>

#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

/// Where a value stands, for messages: chain.json: filters.1.order
struct Place {
    std::string file;
    std::string key;

    Place Below(const std::string& name) const { return {file, key.empty() ? name : key + "." + name}; }
    template <typename Failure = UsageFailure>
    [[noreturn]] void Fail(const std::string& what) const
    {
        throw Failure(fmt::format("{}: {}: {}", file, key.empty() ? "the file" : key, what));
    }
};

// Each throws UsageFailure, naming the place, for a value of another kind.
double RealFrom(const nlohmann::json& value, const Place& place);
std::int32_t IntegerFrom(const nlohmann::json& value, const Place& place);
bool FlagFrom(const nlohmann::json& value, const Place& place);
std::string TextFrom(const nlohmann::json& value, const Place& place);
std::vector<double> NumbersFrom(const nlohmann::json& value, const Place& place);
const nlohmann::json& ObjectFrom(const nlohmann::json& value, const Place& place);
/// A file that the chain file names, relative to the folder that holds the chain file.
std::filesystem::path FileFrom(const nlohmann::json& value, const Place& place);

bool Has(const nlohmann::json& object, const char* key);
/// Unless the settings say otherwise.
bool IsEnabled(const nlohmann::json& settings);
void ForEachMember(const nlohmann::json& object,
                   const std::function<void(const std::string& name, const nlohmann::json& value)>& visit);

/// @throws UnknownKeyFailure  naming the nearest of the known keys
[[noreturn]] void RefuseUnknownKey(const std::string& name, const std::vector<std::string>& known, const Place& place);

}  // namespace Tarnwick::DSO::Workbench
