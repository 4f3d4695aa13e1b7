#include "sirctable.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "chain.h"
#include "failure.h"
#include "files.h"
#include "program.h"

namespace Tarnwick::App {

namespace {

TEST(SircTable, PutsTheIntervalFirst)
{
    const struct {
        const char* label;
        const char* content;
        std::vector<double> values;
        std::size_t notes;
    } cases[] = {{"times, even", "0,5\n1e-12,6\n", {1e-12, 5, 6}, 0},
                 {"times, odd", "0,5\n1e-12,6\n2e-12,7\n", {1e-12, 5, 6, 7, 7}, 0},
                 {"no times, even", "5\n6\n", {5, 6}, 0},
                 {"no times, odd", "1e-12\n5\n6\n", {1e-12, 5, 6}, 1}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const TestFolder folder;
        const SircTable table = ReadSircTable(folder.Write("table.csv", row.content));
        EXPECT_EQ(table.values, row.values);
        EXPECT_EQ(table.notes.size(), row.notes);
    }
}

// Two filters on one channel, each with its own tables, which lie beside the chain file; one is switched off.
constexpr const char* kChain = R"({
    "device": {"baudRateGBd": 26.5625, "samplesPerUi": 4, "patternLengthUi": 8, "channelBandwidths": [30e9],
               "oeChannel": [false, true, false, false]},
    "filters": [{"type": "sirc", "channelResponse": "a.csv", "channelReference": "b.csv", "referenceCutoffPercent": 50},
                {"type": "sirc", "channelResponse": "b.csv", "referenceCutoffPercent": 75, "channel": 1},
                {"type": "sirc", "channelResponse": "none.csv", "enabled": false}]})";

TEST(SircTable, BelongsToOneFilter)
{
    const TestFolder folder;
    folder.Write("a.csv", "1e-12\n0\n1\n");
    folder.Write("b.csv", "0\n1\n2\n1\n");
    Chain chain(folder.Write("chain.json", kChain), 64);
    ASSERT_EQ(chain.Stages().size(), 2U);
    const auto parametersOf = [&](std::size_t k) {
        return dynamic_cast<const DSO::Filters::SircFilterParameters&>(*chain.Stages()[k].parameters);
    };
    EXPECT_EQ(*parametersOf(0).channelResponse, (std::vector<double>{1e-12, 0, 1}));
    EXPECT_EQ(*parametersOf(0).channelReference, (std::vector<double>{0, 1, 2, 1}));
    EXPECT_EQ(parametersOf(0).referenceCutoffPercent, 50.0);
    EXPECT_EQ(*parametersOf(1).channelResponse, (std::vector<double>{0, 1, 2, 1}));
    EXPECT_TRUE(parametersOf(1).channelReference->empty());
    EXPECT_EQ(chain.Stages()[0].notes.size(), 1U);
    EXPECT_EQ(dynamic_cast<const DSO::Filters::SircFilter&>(*chain.Stages()[0].filter).channelBandwidth, 30e9);
    EXPECT_EQ(dynamic_cast<const DSO::Filters::SircFilter&>(*chain.Stages()[1].filter).channelBandwidth, 3.98e10);

    std::string capture;
    for (int k = 0; k < 64; ++k)
        capture += k % 32 < 16 ? "0\n" : "1\n";
    folder.Write("capture.txt", capture);
    ASSERT_EQ(RunProgram(folder, "apply chain.json capture.txt -o out.txt --json"), 0) << folder.Read("err");
    const auto stages = nlohmann::json::parse(folder.Read("out"))["stages"];
    EXPECT_EQ(stages[1]["kernelLength"], 32);
    EXPECT_FALSE(stages[0].contains("kernelLength"));
    EXPECT_NEAR(stages[2]["mean"].get<double>(), 0.5, 1e-12);  // unit area
    EXPECT_NE(folder.Read("err").find("taken as the sample interval"), std::string::npos);
}

TEST(SircTable, IsNamedWhenItIsMissingOrWrong)
{
    const struct {
        const char* filter;
        int status;
        const char* message;
    } cases[] = {
        {R"({})", 2,
         "filters.0.channelResponse: is missing; expected the file of the channel's measured impulse response"},
        {R"({"channelResponse": 5})", 2, "filters.0.channelResponse: is 5; expected a text"},
        {R"({"channelResponse": "none.csv"})", 1, "none.csv: cannot be read"},
        {R"({"channelResponse": "flat.csv"})", 1, "filters.0: SRC not configured properly."},
        {R"({"channelResponse": "b.csv"})", 2, "filters.0: SircFilter: referenceCutoffPercent is 0"},
        {R"({"channelResponses": "b.csv"})", 2, "the nearest one is \"channelResponse\""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.filter);
        const TestFolder folder;
        folder.Write("b.csv", "0\n1\n2\n1\n");
        folder.Write("flat.csv", "2\n2\n");
        auto filter = nlohmann::json::parse(row.filter);
        filter["type"] = "sirc";
        const nlohmann::json chain = {{"device", {{"baudRateGBd", 10}, {"samplesPerUi", 4}, {"patternLengthUi", 1}}},
                                      {"filters", nlohmann::json::array({filter})}};
        folder.Write("chain.json", chain.dump());
        EXPECT_EQ(RunProgram(folder, "apply chain.json b.csv -o out.txt"), row.status);
        EXPECT_NE(folder.Read("err").find(row.message), std::string::npos) << folder.Read("err");
    }
}

}  // namespace

}  // namespace Tarnwick::App
