#include "workbench/plumbing/reportquantities.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "workbench/chainkeys.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/jsontext.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

// What JSON files hold, as a figure to be shown: lists as numbers with blanks between.
Json Shown(const json& value)
{
    if (value.is_number_float())
        return value.get<double>();
    if (!value.is_structured())
        return Json(value);
    std::string text;
    for (const json& each : value) {
        text += text.empty() ? "" : " ";
        text += ReadableText(each, kFindingDigits);
    }
    return text;
}

// The keys of one group of a chain file.
const std::vector<ChainKey>& KeysOfGroup(const std::string& name)
{
    static const std::vector<ChainKeyGroup> groups = ChainKeys();
    static const std::vector<ChainKey> none;
    const auto group =
        std::find_if(groups.begin(), groups.end(), [&](const ChainKeyGroup& each) { return each.name == name; });
    return group == groups.end() ? none : group->keys;
}

// A default that says something: not the 0 of what is taken from elsewhere, nor a text about what would be taken.
Json DefaultOf(const ChainKey& key)
{
    if (!key.choices.empty() && !key.defaultValue.empty())
        return key.defaultValue;
    const json value = JsonOrDiscarded(key.defaultValue);
    const bool isSet = value.is_boolean() || (value.is_number() && value != 0);
    return isSet && key.meaning.find("no effect") == std::string::npos ? Shown(value) : Json();
}

// "largestBoostDb" is a "largest boost" in dB.
Json FindingOf(const std::string& key, const json& value)
{
    static const std::vector<std::pair<std::string, std::string>> units = {
        {"Db", "dB"}, {"GHz", "GHz"}, {"Percent", "%"}, {"Ps", "ps"}, {"Ui", "UI"}};
    std::string name = key;
    std::string unit;
    for (const auto& [ending, symbol] : units)
        if (name.size() > ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0) {
            name.resize(name.size() - ending.size());
            unit = symbol;
            break;
        }
    std::string words;
    for (const char letter : name) {
        const auto code = static_cast<unsigned char>(letter);
        if (std::isupper(code) != 0)
            words += ' ';
        words += static_cast<char>(std::tolower(code));
    }
    return QuantityOf(words, Shown(value), unit);
}

}  // namespace

Json QuantityOf(const std::string& name, Json value, const std::string& unit)
{
    return {{"name", name}, {"value", std::move(value)}, {"unit", unit}};
}

Json SettingsOf(const ChainFile& chain, std::size_t place)
{
    const json& filter = JsonOf(chain)["filters"][place];
    Json settings = Json::List();
    for (const ChainKey& key : KeysOfGroup(filter.value("type", ""))) {
        if (filter.contains(key.name)) {
            settings.Add(QuantityOf(key.name, Shown(filter[key.name]), key.unit));
        } else if (Json value = DefaultOf(key); !value.IsNull()) {
            settings.Add(QuantityOf(key.name, std::move(value), key.unit));
        }
    }
    for (const ChainKey& key : KeysOfGroup("every filter"))
        if (key.name != "type" && key.name != "enabled" && filter.contains(key.name))
            settings.Add(QuantityOf(key.name, Shown(filter[key.name]), key.unit));
    return settings;
}

Json FindingsOf(const StageReport& stage)
{
    Json findings = Json::List();
    if (stage.findings.empty())
        return findings;
    const json found = JsonFrom(stage.findings);
    for (const auto& [key, value] : found.items())
        if (key != "taps" && (key != "appliedTaps" || !stage.taps))
            findings.Add(FindingOf(key, value));
    return findings;
}

Json DeviceOf(const ChainFile& chain)
{
    Json device = Json::List();
    const json& content = JsonOf(chain);
    if (!content.is_object() || !content.contains("device") || !content["device"].is_object())
        return device;
    for (const ChainKey& key : KeysOfGroup("device"))
        if (key.name != "patternSymbols" && content["device"].contains(key.name))
            device.Add(QuantityOf(key.name, Shown(content["device"][key.name]), key.unit));
    return device;
}

}  // namespace Tarnwick::DSO::Workbench
