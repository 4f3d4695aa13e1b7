#include <algorithm>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "filters/filters.h"
#include "workbench/chain.h"
#include "workbench/chainkeys.h"
#include "workbench/ctlepresets.h"
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
        {"device", "baudRateGBd", "number", "GBd", "found in a capture with times"},
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

// What the filter itself writes into its parameters for a preset.
Filters::CTLEFilterParameters Prepared(CTLE_Type type, double gain)
{
    DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = 4;
    config.samplesPerUi = 4;
    config.patternLocked[0] = true;
    Filters::CTLEFilterParameters parameters(&config);
    parameters.type = type;
    parameters.gain = gain;
    Filters::CTLEFilter filter(&parameters);
    static_cast<SystemFramework::BaseFilter&>(filter).Prepare(nullptr);
    return parameters;
}

TEST(CtlePresets, AreThoseOfTheFilter)
{
    const struct {
        CTLE_Type type;
        std::vector<CtlePreset> rows;
        std::size_t count;
        double step;           // of the gain, from 1
        std::size_t poles;     // and a zero less
        double peakingMargin;  // [dB]
    } cases[] = {
        {CTLE_IEEE802_3bs, Ieee802_3bsPresets(), 17, 0.5, 3, 1e-3},  // the zeros have six decimals
        {CTLE_HDMI, HdmiPresets(), 8, 1.0, 2, 0.03},  // a level is its peaking, of a ratio with three digits
    };
    constexpr double kRadPerGHz = 6.283185307179586e9;
    for (const auto& expected : cases) {
        ASSERT_EQ(expected.rows.size(), expected.count);
        for (std::size_t k = 0; k < expected.count; ++k) {
            const CtlePreset& row = expected.rows[k];
            EXPECT_EQ(row.gain, 1.0 + expected.step * static_cast<double>(k));
            const auto filter = Prepared(expected.type, row.gain);
            const double poles[] = {filter.pole1, filter.pole2, filter.pole3};
            const double zeros[] = {filter.zero1, filter.zero2};
            ASSERT_EQ(row.polesGHz.size(), expected.poles);
            ASSERT_EQ(row.zerosGHz.size(), expected.poles - 1);
            for (std::size_t n = 0; n < row.polesGHz.size(); ++n)
                EXPECT_DOUBLE_EQ(row.polesGHz[n] * kRadPerGHz, poles[n]);
            for (std::size_t n = 0; n < row.zerosGHz.size(); ++n)
                EXPECT_DOUBLE_EQ(row.zerosGHz[n] * kRadPerGHz, zeros[n]);
            EXPECT_NEAR(row.dcGain, expected.type == CTLE_HDMI ? 1.0 : filter.dcGain, 1e-12);
            EXPECT_NEAR(row.peakingDb, row.gain, expected.peakingMargin);
        }
    }
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
