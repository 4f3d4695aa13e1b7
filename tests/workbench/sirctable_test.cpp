#include "workbench/sirctable.h"

#include "apps/program.h"
#include "workbench/chain.h"

namespace Tarnwick::App {

namespace {

// Two filters on one channel, each with its own tables, which lie beside the chain file; one is switched off.
constexpr const char* kChain = R"({
    "device": {"baudRateGBd": 26.5625, "samplesPerUi": 4, "patternLengthUi": 8, "channelBandwidths": [30e9],
               "oeChannel": [false, true, false, false]},
    "filters": [{"type": "sirc", "channelResponse": "a.csv", "channelReference": "c.csv", "referenceCutoffPercent": 50},
                {"type": "sirc", "channelResponse": "b.csv", "referenceCutoffPercent": 75, "channel": 1},
                {"type": "sirc", "channelResponse": "none.csv", "enabled": false}]})";

// An interval comes first; behind one that the times give, the number of values is even.
TEST(SircTable, BelongsToOneFilter)
{
    const TestFolder folder;
    folder.Write("a.csv", "1e-12\n0\n1\n");
    folder.Write("b.csv", "0,0\n1e-12,1\n2e-12,2\n");
    folder.Write("c.csv", "0,1\n1e-12,2\n");
    Chain chain(folder.Write("chain.json", kChain), 64);
    ASSERT_EQ(chain.Stages().size(), 2U);
    const auto parametersOf = [&](std::size_t k) {
        return dynamic_cast<const DSO::Filters::SircFilterParameters&>(*chain.Stages()[k].parameters);
    };
    EXPECT_EQ(*parametersOf(0).channelResponse, (std::vector<double>{1e-12, 0, 1}));
    EXPECT_EQ(*parametersOf(0).channelReference, (std::vector<double>{1e-12, 1, 2}));
    EXPECT_EQ(*parametersOf(1).channelResponse, (std::vector<double>{1e-12, 0, 1, 2, 2}));
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
