#include "workbench/chainkeys.h"

#include <algorithm>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "workbench/plumbing/device.h"
#include "workbench/plumbing/json.h"
#include "workbench/stages/stages.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using SystemFramework::BaseFilterParameters;

// A default that filters set otherwise names them: false; deembedding: true
std::string DefaultOfAll(const Field<BaseFilterParameters>& field)
{
    const std::string usual = KeyOf(field, BaseFilterParameters()).defaultValue;
    std::vector<std::pair<std::string, std::string>> others;  // value, filters
    for (const StageType& type : StageTypes()) {
        const std::string own = KeyOf(field, *type.defaults()).defaultValue;
        const auto known =
            std::find_if(others.begin(), others.end(), [&](const auto& other) { return other.first == own; });
        if (own == usual)
            continue;
        if (known == others.end())
            others.emplace_back(own, type.name);
        else
            known->second += fmt::format(", {}", type.name);
    }
    std::string text = usual;
    for (const auto& [value, filters] : others)
        text += fmt::format("; {}: {}", filters, value);
    return text;
}

std::string Joined(const std::vector<std::string>& words, const char* separator, const char* quote)
{
    std::string text;
    for (const std::string& word : words)
        text += fmt::format("{}{}{}{}", text.empty() ? "" : separator, quote, word, quote);
    return text;
}

std::string MeaningOf(const ChainKey& key, const char* quote)
{
    return key.choices.empty() ? key.meaning : fmt::format("{}: {}", key.meaning, Joined(key.choices, ", ", quote));
}

std::string WithoutQuotes(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
    return text;
}

}  // namespace

std::vector<ChainKeyGroup> ChainKeys()
{
    std::vector<ChainKeyGroup> groups;
    groups.push_back({"device", "how the instrument was set", false, KeysOf(DeviceFields(), DeviceConfiguration())});
    for (ChainKey& key : KeysOf(AcquisitionFields(), AcquisitionKeys()))
        groups.back().keys.push_back(std::move(key));
    ChainKeyGroup common{"every filter", "in addition to the keys of its type", false, {}};
    for (const auto& field : CommonFields()) {
        common.keys.push_back(KeyOf(field, BaseFilterParameters()));
        common.keys.back().defaultValue = DefaultOfAll(field);
    }
    for (const StageType& type : StageTypes())
        common.keys.front().choices.emplace_back(type.name);
    groups.push_back(std::move(common));
    for (const StageType& type : StageTypes())
        groups.push_back({type.name, type.meaning, true, type.keys()});
    return groups;
}

std::vector<std::string> FileKeysOf(const std::string& type)
{
    std::vector<std::string> names;
    for (const ChainKeyGroup& group : ChainKeys())
        if (group.isFilter && group.name == type)
            for (const ChainKey& key : group.keys)
                if (key.kind == "file")
                    names.push_back(key.name);
    return names;
}

std::string ChainKeysAsText()
{
    std::string text;
    for (const ChainKeyGroup& group : ChainKeys()) {
        text += fmt::format("{}{}: {}\n", text.empty() ? "" : "\n", group.name, group.meaning);
        for (const ChainKey& key : group.keys) {
            text += fmt::format("  {:<24} {}", key.name, WithoutQuotes(MeaningOf(key, "")));
            text += key.unit.empty() ? "" : fmt::format(" [{}]", key.unit);
            text += key.defaultValue.empty() ? "\n" : fmt::format(" (default: {})\n", WithoutQuotes(key.defaultValue));
        }
    }
    return text;
}

std::string ChainKeysAsMarkdown()
{
    std::string text;
    for (const ChainKeyGroup& group : ChainKeys()) {
        text += fmt::format("{}### {}{}{}: {}\n", text.empty() ? "" : "\n", group.isFilter ? "`" : "", group.name,
                            group.isFilter ? "`" : "", group.meaning);
        if (group.keys.empty())
            continue;
        text += "\n| key | value | unit | default | meaning |\n|---|---|---|---|---|\n";
        for (const ChainKey& key : group.keys)
            text += fmt::format("| `{}` | {} | {} | {} | {} |\n", key.name, key.kind, key.unit, key.defaultValue,
                                MeaningOf(key, "`"));
    }
    return text;
}

std::string ChainKeysAsJson()
{
    Json groups = Json::List();
    for (const ChainKeyGroup& group : ChainKeys()) {
        Json keys = Json::List();
        for (const ChainKey& key : group.keys)
            keys.Add({{"name", key.name},
                      {"value", key.kind},
                      {"unit", key.unit},
                      {"default", WithoutQuotes(key.defaultValue)},
                      {"meaning", WithoutQuotes(key.meaning)},
                      {"choices", key.choices}});
        groups.Add({{"name", group.name}, {"meaning", group.meaning}, {"isFilter", group.isFilter}, {"keys", keys}});
    }
    return Json{{"groups", groups}}.Text(2) + "\n";
}

std::string ChainKeysAsDictionary()
{
    std::set<std::string> words = {"device", "filters", "prbs"};
    for (const ChainKeyGroup& group : ChainKeys())
        for (const ChainKey& key : group.keys) {
            words.insert(key.name);
            words.insert(key.choices.begin(), key.choices.end());
        }
    std::string text;
    for (const std::string& word : words)
        text += fmt::format("\"\\\"{}\\\"\"\n", word);
    return text;
}

}  // namespace Tarnwick::DSO::Workbench
