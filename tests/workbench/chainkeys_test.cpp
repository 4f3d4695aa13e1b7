#include "workbench/chainkeys.h"

#include <algorithm>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "workbench/chain.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;

ChainKey KeyOf(const std::string& group, const std::string& name)
{
    for (const ChainKeyGroup& each : ChainKeys())
        for (const ChainKey& key : each.keys)
            if (each.name == group && key.name == name)
                return key;
    ADD_FAILURE() << group << " has no key " << name;
    return {};
}

TEST(ChainKeys, SayUnitAndDefault)
{
    const struct {
        const char* group;
        const char* key;
        const char* kind;
        const char* unit;
        const char* defaultValue;
    } rows[] = {
        {"device", "baudRateGBd", "number", "GBd", ""},
        {"device", "patternLocked", "true or false, or a list of four", "", "true"},
        {"every filter", "enabled", "true or false", "", "true"},
        {"every filter", "preserveNoise", "true or false", "", "false; deembedding: true"},
        {"moving-average", "WindowLength", "whole number", "samples", "3"},
        {"bessel-thomson", "cutoffPercent", "number", "% of the symbol rate", "75"},
        {"ctle", "outputScale", "number", "", "1"},
        {"ffe", "tapsPerUi", "whole number", "", "1"},
        {"dfe", "samplingDelayPs", "number", "ps", "0"},
        {"deembedding", "conversionParameterA", "whole number", "dB", "30"},
        {"sirc", "channelResponse", "file", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        const ChainKey key = KeyOf(row.group, row.key);
        EXPECT_EQ(key.kind, row.kind);
        EXPECT_EQ(key.unit, row.unit);
        EXPECT_EQ(key.defaultValue, row.defaultValue);
    }
}

// A chain that gives each key the number or flag that the reference states as its default, or a choice, is taken.
TEST(ChainKeys, AreTakenByAChain)
{
    const std::string device = R"({"samplesPerUi": 8, "patternLengthUi": 16, "baudRateGBd": 10})";
    std::size_t filters = 0;
    for (const ChainKeyGroup& group : ChainKeys()) {
        if (!group.isFilter)
            continue;
        ++filters;
        SCOPED_TRACE(group.name);
        json settings = {{"type", group.name}, {"enabled", false}};
        for (const ChainKey& key : group.keys) {
            const json value = json::parse(key.defaultValue, nullptr, false);
            if (value.is_number() || value.is_boolean())
                settings[key.name] = value;
            for (const std::string& choice : key.choices) {
                settings[key.name] = choice;
                const json chain = {{"device", json::parse(device)}, {"filters", json::array({settings})}};
                EXPECT_NO_THROW(Chain(ChainFile::FromText(chain.dump(), "c.json"), 128)) << choice;
            }
        }
        const json chain = {{"device", json::parse(device)}, {"filters", json::array({settings})}};
        EXPECT_NO_THROW(Chain(ChainFile::FromText(chain.dump(), "c.json"), 128));
    }
    EXPECT_EQ(filters, KeyOf("every filter", "type").choices.size());
}

TEST(ChainKeys, ArePrintedInEachForm)
{
    const json groups = json::parse(ChainKeysAsJson())["groups"];
    EXPECT_EQ(groups.size(), ChainKeys().size());
    const std::string dictionary = ChainKeysAsDictionary();
    const std::string text = ChainKeysAsText();
    const std::string tables = ChainKeysAsMarkdown();
    for (const ChainKeyGroup& group : ChainKeys())
        for (const ChainKey& key : group.keys) {
            EXPECT_NE(dictionary.find("\"\\\"" + key.name + "\\\"\"\n"), std::string::npos) << key.name;
            EXPECT_NE(text.find("\n  " + key.name + " "), std::string::npos) << key.name;
            EXPECT_NE(tables.find("\n| `" + key.name + "` | "), std::string::npos) << key.name;
        }
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
