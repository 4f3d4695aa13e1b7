// The search for the TDECQ reference equaliser against tests/numbers/tdecq.py: eight channels, each with the least that a
// general simplex search found from ten starts.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "maths/equalisers/tdecq.h"
#include "support/captures.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

constexpr std::size_t kSpu = 8;
constexpr std::size_t kTaps = 5;

struct Channel {
    std::string name;
    std::vector<double> poles;                   // [symbol rates]
    std::vector<std::pair<int, double>> echoes;  // delay [samples], weight
    std::vector<double> levels = {0.0, 1.0 / 3.0, 2.0 / 3.0, 1.0};
};

const std::vector<Channel>& Channels()
{
    static const std::vector<Channel> channels = {
        {"one-pole", {0.4}, {}},
        {"two-poles", {0.5, 0.6}, {}},
        {"slow", {0.3, 0.8}, {}},
        {"reflection", {0.5, 0.5}, {{20, 0.2}}},
        {"both-sides", {0.6, 0.6}, {{20, 0.2}, {-13, -0.1}}},
        {"compressed", {0.4, 0.7}, {}, {0.0, 0.29, 0.62, 1.0}},
        {"beyond-the-taps", {0.5, 0.7}, {{60, 0.04}}},
        {"precursor", {0.6, 0.6}, {{-8, 0.25}}},
    };
    return channels;
}

// One period of the steady state: the second turn of each pole's recursion.
std::vector<double> CaptureBehind(const Channel& channel)
{
    std::vector<double> sent;
    for (const int level : Prbs13qLevels())
        sent.insert(sent.end(), kSpu, channel.levels[static_cast<std::size_t>(level)]);
    const auto count = static_cast<int>(sent.size());
    std::vector<double> samples = sent;
    for (const auto& [delay, weight] : channel.echoes)
        for (int n = 0; n < count; ++n)
            samples[static_cast<std::size_t>(n)] +=
                weight * sent[static_cast<std::size_t>((n - delay + count) % count)];
    for (const double pole : channel.poles) {
        const double kept = std::exp(-2.0 * std::numbers::pi * pole / kSpu);
        const std::vector<double> before = samples;
        double state = 0.0;
        for (int turn = 0; turn < 2; ++turn)
            for (std::size_t n = 0; n < samples.size(); ++n)
                samples[n] = state = kept * state + (1.0 - kept) * before[n];
    }
    return samples;
}

// What tdecq.py keeps of a channel.
struct BestFound {
    std::string name;
    double tdecqDb = 0.0;     // at phaseUi
    double atPhasesDb = 0.0;  // at the best of 16 phases
    double phaseUi = 0.0;
    std::vector<double> taps;
};

std::vector<BestFound> ReadBest()
{
    std::vector<BestFound> table;
    std::ifstream file(TARNWICK_TDECQ_NUMBERS);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        BestFound& row = table.emplace_back();
        words >> row.name >> row.tdecqDb >> row.atPhasesDb >> row.phaseUi;
        for (double tap = 0.0; words >> tap;)
            row.taps.push_back(tap);
    }
    return table;
}

TEST(ReferenceEqualizerSearch, FindsWhatASimplexFinds)
{
    const std::vector<BestFound> table = ReadBest();
    ASSERT_EQ(table.size(), Channels().size());
    for (std::size_t k = 0; k < table.size(); ++k) {
        const BestFound& best = table[k];
        SCOPED_TRACE(best.name);
        ASSERT_EQ(best.name, Channels()[k].name);
        ASSERT_EQ(best.taps.size(), kTaps);
        const std::vector<double> capture = CaptureBehind(Channels()[k]);
        const auto symbols = LocatePattern(capture, Prbs13qLevels(), kSpu);
        ASSERT_TRUE(symbols);
        // Both score alike, but for a sample that a rounding puts into the next bin of a histogram.
        EXPECT_NEAR(MeasureClosure(capture, *symbols, kSpu, best.taps).tdecqDb, best.atPhasesDb, 1e-4);
        const auto found = FindReferenceEqualizer(capture, *symbols, kSpu, kTaps, std::nullopt);
        ASSERT_TRUE(found);
        // Not above, and not below either: then the simplex would be no yardstick.
        EXPECT_NEAR(found->closure.tdecqDb, best.tdecqDb, 0.02);
    }
}

}  // namespace
