#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/failures.h"
#include "support/files.h"
#include "support/touchstonetext.h"
#include "workbench/deembeddingreport.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/network.h"
#include "workbench/run.h"
#include "workbench/touchstonenormal.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;
using Testing::kRealOptions;
using Testing::TestFolder;
using Transmission = std::map<double, std::complex<double>>;
using Testing::FailureOf;
using Testing::FourPorts;
using Testing::kMagnitudeOptions;

TEST(FixtureFile, SumsUpDifferencesOfOneKind)
{
    const std::vector<TouchstoneDifference> differences = {
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

// A pad of 20 dB, known from 1 to 20 GHz, taken away at 160 GS/s: the band ends at 12 GHz for 10 GHz of bandwidth. With
// the raised cosine from 0.8 to 1.2 of that, white noise behind is 100 times 9.5 of 80 GHz.
TEST(DeEmbeddingReport, OfAPadIsItsGainInTheBand)
{
    const TestFolder folder;
    std::string rows = kMagnitudeOptions;
    for (int k = 2; k <= 40; ++k)
        rows += std::to_string(0.5 * k) + " 0 0 .1 0 .1 0 0 0\n";
    (void)folder.Write("pad.s2p", rows);
    const auto path = folder.Write("chain.json", R"({
        "device": {"baudRateGBd": 10, "samplesPerUi": 16, "patternLengthUi": 100, "signalCoding": "NRZ"},
        "filters": [{"type": "deembedding", "sparamFileName": "pad.s2p", "conversionParameterB": 10,
                     "preserveNoise": false}]})");
    Chain chain(path, 1600);
    Stage& stage = chain.Stages().at(0);
    std::vector<double> samples(1600, 0.25);
    const json found = json::parse(stage.findings(RunStage(stage, samples, "chain", "capture"), {}));
    EXPECT_NEAR(found["largestBoostDb"].get<double>(), 20.0, 1e-9);
    EXPECT_EQ(found["largestBoostGHz"], 0.0);
    // The sum over bins of 0.1 GHz against the integral.
    EXPECT_NEAR(found["noiseAmplificationDb"].get<double>(), 20.0 + 10.0 * std::log10(9.5 / 80.0), 0.03);
    EXPECT_NEAR(found["energyBeforeZeroPercent"].get<double>(), 50.0, 10.0);  // even, and its middle is at 0
    EXPECT_NEAR(found["bandUsedGHz"][1].get<double>(), 12.0, 0.11);           // one bin
    EXPECT_EQ(found["extrapolatedGHz"][1], 1.0);
    EXPECT_NEAR(found["extrapolatedPercent"].get<double>(), 100.0 / 12.0, 0.1);
}

TEST(DeEmbeddingReport, TellsTimeBeforeZeroAndMadeValues)
{
    std::vector<double> kernel(64, 0.0);
    kernel[61] = 0.6;
    kernel[2] = 0.3;
    const Transmission fixture = {{0.0, 0.5}, {1e9, 0.5}, {2e9, 0.5}, {3e9, 0.5}};
    DeEmbeddingFigures figures = FiguresOfDeEmbedding(kernel, 64e9, fixture, {false, 30.0, 0.0});
    EXPECT_NEAR(figures.energyBeforeZero, 0.8, 1e-15);
    EXPECT_NEAR(figures.peakDelay, -3.0 / 64e9, 1e-24);
    EXPECT_NEAR(figures.noiseAmplificationDb, 10.0 * std::log10(0.45), 1e-12);
    EXPECT_EQ(figures.extrapolatedTo, 1e9);  // the value at 0 Hz is the rule's
    Transmission measured = fixture;
    measured[0.0] = 0.51;
    figures = FiguresOfDeEmbedding(kernel, 64e9, measured, {false, 30.0, 0.0});
    EXPECT_EQ(figures.extrapolatedTo, 0.0);
    // Removed, the fixture takes its delay along: what counts lies before the peak.
    EXPECT_EQ(FiguresOfDeEmbedding(kernel, 64e9, fixture, {true, 30.0, 0.0}).energyBeforeZero, 0.0);
}

TEST(DeEmbeddingStage, KeepsNoiseUnlessItAdds)
{
    const TestFolder folder;
    (void)folder.Write("pad.s2p", kMagnitudeOptions + "1 0 0 .1 0 .1 0 0 0\n2 0 0 .1 0 .1 0 0 0\n");
    const auto path = folder.Write("chain.json", R"({"filters": [
        {"type": "deembedding", "sparamFileName": "pad.s2p"},
        {"type": "deembedding", "sparamFileName": "pad.s2p", "conversionFlag": false},
        {"type": "deembedding", "sparamFileName": "pad.s2p", "conversionFlag": false, "preserveNoise": true}]})");
    Chain chain(path, 100);
    EXPECT_TRUE(chain.Stages()[0].parameters->preserveNoise);
    EXPECT_FALSE(chain.Stages()[1].parameters->preserveNoise);
    EXPECT_TRUE(chain.Stages()[2].parameters->preserveNoise);
}

// Networks of two ports; in the second the wave that comes back is 0.1 stronger, in the third the path has a step of 120 degrees and
// gain.
TEST(NetworkQuality, TellsWhatAFixtureCannotBe)
{
    const struct {
        const char* label;
        std::string row;
        bool isPassive;
        bool isReciprocal;
        bool isSmooth;
    } cases[] = {
        {"pad", "2 0 0 .5 0 .5 0 0 0\n", true, true, true},
        {"isolator", "2 0 0 .5 0 .6 0 0 0\n", true, false, true},
        {"amplifier", "2 0 0 1.5 120 1.5 120 0 0\n", false, true, false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const Network network = ReadNetwork(kMagnitudeOptions + "1 0 0 .5 0 .5 0 0 0\n" + row.row, "a.s2p");
        ASSERT_EQ(network.frequency, (std::vector<double>{1e9, 2e9}));
        const NetworkQuality quality = JudgeNetwork(network);
        EXPECT_EQ(quality.IsPassive(), row.isPassive) << quality.largestSingularValue.value;
        EXPECT_EQ(quality.IsReciprocal(), row.isReciprocal) << quality.asymmetry->value;
        EXPECT_EQ(quality.IsSmooth(), row.isSmooth) << quality.phaseStep->value;
    }
    // A path that answers before it is asked: its phase rises.
    std::string early = kMagnitudeOptions;
    for (int k = 1; k <= 100; ++k)
        early += fmt::format("{0} 0 0 .5 {1} .5 {1} 0 0\n", k, 30 * k);
    EXPECT_FALSE(JudgeNetwork(ReadNetwork(early, "a.s2p")).IsCausal());
}

TEST(DeEmbeddingReport, WarnsBeforeAWaveformIsSpoilt)
{
    const TestFolder folder;
    std::string rows = kRealOptions;
    for (int k = 1; k <= 5; ++k)
        rows += FourPorts(std::to_string(2 * k + 1), "\n");
    const auto file = folder.Write("f.s4p", rows).string();
    (void)folder.Write("g.s2p",
                       kMagnitudeOptions + "1 .1 0 .5 0 .5 0 .1 0 \n3 .1 0 .5 0 .5 0 .1 0 \n4 .1 0 .5 0 .5 0 .1 0\n");
    const auto path = folder.Write("chain.json", R"({"filters": [
        {"type": "deembedding", "sparamFileName": "f.s4p"}, {"type": "deembedding", "sparamFileName": "f.s4p", "portOrder": 1},
        {"type": "deembedding", "sparamFileName": "g.s2p"}]})");
    Chain chain(path, 128);
    EXPECT_EQ(chain.Stages()[0].notes, std::vector<std::string>{file + ": portOrder is 0, but 1 carries 19.1 dB more"});
    EXPECT_EQ(chain.Stages()[1].notes, std::vector<std::string>{});
    EXPECT_EQ(chain.Stages()[2].notes,
              std::vector<std::string>{(folder / "g.s2p").string() +
                                       ": line 2, token 10: a blank at the end counts as a token; their value is put "
                                       "at 0 Hz; 1 more like it, the last in line 3"});
}

const std::string kRow = "1 .1 0 .5 -90 .5 -90 .1 0\n";
const std::string kRow3 = "3 .2 0 .4 -90 .4 -90 .2 0\n";

TEST(TouchstoneNormal, IsReadAsTheOriginalIsMeant)
{
    const std::string clean = kMagnitudeOptions + kRow;
    const std::string rows = "\n    ";
    const struct {
        const char* label;
        const char* name;
        std::string text;
        std::string normalised;
        bool isPlain = true;  // the plain reading of both is the same
    } cases[] = {
        {"blanks at the end", "a.s2p", kMagnitudeOptions + "1 .1 0 .5 -90 .5 -90 .1 0 \t\n", clean},
        {"comments", "a.s2p", " ! x\n# GHz S MA R 50 ! y\n1 .1 0 .5 -90 .5 -90 .1 0! z\n\n",
         "! x\n" + kMagnitudeOptions + "! y\n" + kRow + "! z\n"},
        {"order of the options", "a.s2p", "# r 75 ri s mhz\n" + kRow, "# MHz S RI R 75\n" + kRow},
        {"options left out", "a.s2p", "#\n" + kRow, clean},
        {"no options", "a.s2p", kRow, clean},
        {"tab behind #", "a.s2p", "#\tGHz\tS MA R 50\n" + kRow, clean},
        {"blanks before #", "a.s2p", "  # GHz S MA R 50\n" + kRow, clean},
        {"options again", "a.s2p", clean + "# Hz S RI R 50\n" + kRow3, clean + "! # Hz S RI R 50\n" + kRow3},
        {"byte order mark, carriage returns", "a.s2p", "\xEF\xBB\xBF# GHz S MA R 50\r\n1 .1 0 .5 -90 .5 -90 .1 0\r\n",
         clean},
        {"upper-case ending", "A.S2P", clean, clean},
        {"record over lines", "a.s2p", kMagnitudeOptions + "1 .1 0\n.5 -90 ! S21\n.5 -90\n.1 0\n",
         kMagnitudeOptions + "! S21\n" + kRow},
        {"noise block", "a.s2p", clean + kRow3 + "1 2 .3 40 .5\n2 2 .3 40 .5 ! n\n",
         clean + kRow3 + "! noise parameters: 1 2 .3 40 .5\n! noise parameters: 2 2 .3 40 .5\n! n\n"},
        {"noise behind a record", "a.s2p", kMagnitudeOptions + "3 .2 0 .4\n-90 .4 -90 .2 0 1 2 .3 40 .5\n",
         kMagnitudeOptions + kRow3 + "! noise parameters: 1 2 .3 40 .5\n"},
        {"one port on lines", "a.s1p", kMagnitudeOptions + "1 .5\n-90 2 .4 -90\n",
         kMagnitudeOptions + "1 .5 -90\n2 .4 -90\n"},
        {"four ports on a line", "A.S4P", "# Hz S RI R 50\n" + FourPorts("1", " "),
         "# Hz S RI R 50\n" + FourPorts("1", rows)},
        {"admittance in MA", "a.s1p", "# GHz Y R 50\n1 3 0\n", "# GHz S RI R 50\n1 -0.5 0\n", false},
        // A matched input that drives a current source: S21 comes before S12.
        {"hybrid", "a.s2p", "# GHz H RI R 50\n1 1 0 1 0 0 0 0 0\n", "# GHz S RI R 50\n1 0 0 -1 0 0 0 1 0\n", false},
        {"table", "a.s21",
         "\xEF\xBB\xBF"
         "1e9,-6,0.5\nfreq,dB\n\n 2e9 , -7\n3e9,-8,1,9\n",
         "1e9,-6,0.5\n2e9,-7\n3e9,-8,1\n", false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const NormalisedFile normalised = NormaliseTouchstone(row.text, row.name);
        EXPECT_EQ(normalised.text, row.normalised);
        std::string output = row.name;  // the filter knows endings in lower case alone
        std::replace(output.begin(), output.end(), 'S', 's');
        std::replace(output.begin(), output.end(), 'P', 'p');
        for (const PortOrderS4P order : {PORT_ORDER_12_34, PORT_ORDER_13_24}) {
            const auto after = CheckTouchstoneText(normalised.text, output, order);
            FixtureTransmission read = after.read;
            if (MadeAtZero(read))
                read.erase(0.0);
            EXPECT_EQ(read, after.plain);
            EXPECT_LE(after.differences.size(), MadeAtZero(after.read) ? 1U : 0U);
            if (row.isPlain) {
                EXPECT_EQ(after.plain, CheckTouchstoneText(row.text, row.name, order).plain);
            }
        }
    }
}

TEST(TouchstoneNormal, RefusesWhatHasNoOneMeaning)
{
    const struct {
        const char* name;
        std::string text;
        const char* message;
    } cases[] = {
        {"a.s2p", kMagnitudeOptions + kRow + "2 .1 0\n", "line 3: the last record lacks 6 of its 9 numbers"},
        {"a.s2p", kRow + kMagnitudeOptions + kRow3,
         "line 2: an option line behind data, which were in GHz and MA up to here"},
        {"a.s2p", kMagnitudeOptions + kRow + kRow,
         "line 3, token 1: the frequency does not lie above the one before, which begins noise parameters; those "
         "come 5 a line, but here are 9 numbers"},
        {"a.s1p", kMagnitudeOptions + "2 1 0\n1 1 0\n",
         "line 3: the frequency does not lie above the one before; which of them counts is open"},
        {"a.s1p", "# GHz Z RI R 50\n1 -1 0\n", "line 2: no S-parameters follow from these Z-parameters"},
        {"a.s2p", kMagnitudeOptions + "1 \x1b[2J\n", "line 2, token 2: \"?[2J\" is no decimal number"},
        {"a.s2p", kMagnitudeOptions, "holds no data"},
        {"a.s3p", kMagnitudeOptions, "a file of this many ports has no single transmission"},
        {"a.s21", "1e9;-6\n",
         "line 1: is no row of a table: frequency in Hz, level in dB and phase in radians by commas"},
    };
    for (const auto& [name, text, message] : cases)
        EXPECT_EQ(FailureOf<DataFailure>([&, &name = name, &text = text] { (void)NormaliseTouchstone(text, name); }),
                  std::string(name) + ": " + message);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
