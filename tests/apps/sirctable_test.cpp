#include "sirctable.h"

#include "chain.h"
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
    EXPECT_EQ(*parametersOf(1).channelResponse, (std::vector<double>{0, 1, 2, 1}));
    EXPECT_TRUE(parametersOf(1).channelReference->empty());
    EXPECT_EQ(dynamic_cast<const DSO::Filters::SircFilter&>(*chain.Stages()[0].filter).channelBandwidth, 30e9);
    EXPECT_EQ(dynamic_cast<const DSO::Filters::SircFilter&>(*chain.Stages()[1].filter).channelBandwidth, 3.98e10);

    std::string capture;
    for (int k = 0; k < 64; ++k)
        capture += k % 32 < 16 ? "0\n" : "1\n";
    folder.Write("capture.txt", capture);
    const auto stages = ReportOf(folder, "apply chain.json capture.txt -o out.txt")["stages"];
    EXPECT_EQ(stages[1]["kernelLength"], 32);
    EXPECT_FALSE(stages[0].contains("kernelLength"));
    EXPECT_NEAR(stages[2]["mean"].get<double>(), 0.5, 1e-12);  // unit area
    EXPECT_NE(folder.Read("err").find("taken as the sample interval"), std::string::npos);
}

}  // namespace

}  // namespace Tarnwick::App
