#include "workbench/fixturefile.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/touchstonetext.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::kRealOptions;

TEST(FixtureFile, SumsUpDifferencesOfOneKind)
{
    const std::vector<Filters::TouchstoneDifference> differences = {
        {3, 10, "10 tokens"}, {4, 1, "\"x\" is bad"}, {5, 11, "11 tokens"}, {6, 1, "\"y 2\" is bad"}, {0, 0, "odd"}};
    const auto kinds = KindsOf(differences);
    ASSERT_EQ(kinds.size(), 3U);
    EXPECT_EQ(TextOf(kinds[0]), "line 3, token 10: 10 tokens; 1 more like it, the last in line 5");
    EXPECT_EQ(TextOf(kinds[1]), "line 4, token 1: \"x\" is bad; 1 more like it, the last in line 6");
    EXPECT_EQ(TextOf(kinds[2]), "odd");
}

TEST(FixtureFile, FindsTheThroughPath)
{
    // Renumbering ports 2 and 3 leads from 1 to 3.
    const std::string through13 =
        kRealOptions + "1 0 0 .1 0 .9 0 0 0\n.1 0 0 0 0 0 .9 0\n.9 0 0 0 0 0 .1 0\n0 0 .9 0 .1 0 0 0\n";
    // From 1 to 4 and from 2 to 3 either numbering inverts.
    const std::string crossed =
        kRealOptions + "1 0 0 0 0 0 0 .9 0\n0 0 0 0 .9 0 0 0\n0 0 .9 0 0 0 0 0\n.9 0 0 0 0 0 0 0\n";
    const ThroughPath clear = FindThroughPath(through13, "a.S4P").value();
    EXPECT_EQ(clear.order, PORT_ORDER_12_34);
    EXPECT_NEAR(clear.leadDb, -20.0 * std::log10(9.0), 1e-12);  // 0.9 against 0.1
    EXPECT_EQ(FindThroughPath(crossed, "a.s4p").value().order, std::nullopt);
}

TEST(FixtureFile, UnwrapsThePhase)
{
    FixtureTransmission line;
    for (int k = 1; k <= 8; ++k)
        line[k] = std::polar(0.1, -2.0 * k);
    line[9] = 0.0;
    const TransmissionCurve shown = CurveOf("x", line);
    for (std::size_t k = 0; k < 8; ++k) {  // from its value between -pi and pi at the first
        EXPECT_NEAR(shown.phaseDeg[k], -2.0 * static_cast<double>(k + 1) * 180.0 / std::acos(-1.0), 1e-10);
        EXPECT_NEAR(shown.magnitudeDb[k], -20.0, 1e-12);
    }
    EXPECT_EQ(shown.phaseDeg[8], shown.phaseDeg[7]);
    EXPECT_EQ(shown.magnitudeDb[8], -INFINITY);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
