#include "workbench/sirctable.h"

#include <nlohmann/json.hpp>

#include "support/files.h"
#include "workbench/run.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::TestFolder;

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
        return dynamic_cast<const Filters::SircFilterParameters&>(*chain.Stages()[k].parameters);
    };
    EXPECT_EQ(*parametersOf(0).channelResponse, (std::vector<double>{1e-12, 0, 1}));
    EXPECT_EQ(*parametersOf(0).channelReference, (std::vector<double>{1e-12, 1, 2}));
    EXPECT_EQ(*parametersOf(1).channelResponse, (std::vector<double>{1e-12, 0, 1, 2, 2}));
    EXPECT_TRUE(parametersOf(1).channelReference->empty());
    EXPECT_EQ(dynamic_cast<const Filters::SircFilter&>(*chain.Stages()[0].filter).channelBandwidth, 30e9);
    EXPECT_EQ(dynamic_cast<const Filters::SircFilter&>(*chain.Stages()[1].filter).channelBandwidth, 3.98e10);

    std::vector<double> capture(64);
    for (std::size_t k = 0; k < capture.size(); ++k)
        capture[k] = k % 32 < 16 ? 0.0 : 1.0;
    const ChainResult result = RunChain(chain, capture, "capture");
    EXPECT_EQ(nlohmann::json::parse(result.stages[1].findings), (nlohmann::json{{"kernelLength", 32}}));
    EXPECT_NEAR(result.stages[2].mean, 0.5, 1e-12);  // unit area
    ASSERT_EQ(chain.Stages()[0].notes.size(), 1U);
    EXPECT_NE(chain.Stages()[0].notes[0].find("taken as the sample interval"), std::string::npos);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
