#include <cstddef>
#include <fstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/failures.h"
#include "support/files.h"
#include "workbench/chain.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/run.h"
#include "workbench/sirctable.h"
#include "workbench/symbols.h"
#include "workbench/waveform.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::ExpectFailures;
using Testing::FailureOf;
using Testing::TestFolder;

Chain ChainOf(const std::string& text, std::size_t samples = 100)
{
    return {ChainFile::FromText(text, "c.json"), samples};
}

TEST(ChainDevice, CompletesWhatIsLeftOut)
{
    const Chain chain = ChainOf(R"({
        "device": {"patternSymbols": {"prbs": 7}, "baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ"},
        "filters": []})",
                                std::size_t{3} * 127 * 8 + 5);
    const DeviceConfiguration& device = chain.Device();
    EXPECT_EQ(device.patternSymbols.size(), 127U);
    EXPECT_EQ(device.patternLengthUi, 127);
    EXPECT_EQ(device.samplesPerPattern, 127 * 8);
    EXPECT_EQ(device.patternRepeats, 3);
    EXPECT_TRUE(device.multiplePatternRecord);
    EXPECT_TRUE(device.patternLocked[0] && device.patternLocked[3]);
}

TEST(ChainDevice, KeepsWhatIsGiven)
{
    const Chain chain = ChainOf(R"({
        "device": {"patternLengthUi": 4, "samplesPerUi": 8, "samplesPerPattern": 33, "patternRepeats": 9,
                   "multiplePatternRecord": false, "uiDuration": 10, "sampleSpacing": 4,
                   "useFractionalSampling": true},
        "filters": []})",
                                320);
    EXPECT_EQ(chain.Device().samplesPerPattern, 33);
    EXPECT_EQ(chain.Device().patternRepeats, 9);
    EXPECT_FALSE(chain.Device().multiplePatternRecord);
    EXPECT_EQ(chain.SamplesPerUi(), 2.5);
}

template <typename Parameters>
const Parameters& ParametersOf(Chain& chain, std::size_t stage)
{
    return dynamic_cast<const Parameters&>(*chain.Stages().at(stage).parameters);
}

TEST(ChainFilters, SetsFieldsAndLeavesOutWhatIsOff)
{
    namespace F = Filters;
    const TestFolder folder;
    const auto fixture = folder.Write("fixture.s1p", "# GHz S MA R 50\n1 .5 0\n2 .5 0\n");
    const auto path = folder.Write("chain.json", R"({
        "device": {"patternLengthUi": 16, "samplesPerUi": 8, "baudRateGBd": 10, "signalCoding": "NRZ"},
        "filters": [{"type": "moving-average", "WindowLength": 5},
                    {"type": "copy", "enabled": false},
                    {"type": "bessel-thomson", "order": 3, "cutoffPercent": 50, "channel": 2, "preserveNoise": true},
                    {"type": "dfe", "numberOfTaps": 2, "taps": [0.25, -0.1], "samplingDelayPs": 37.5},
                    {"type": "deembedding", "sparamFileName": "fixture.s1p", "portOrder": 1, "conversionFlag": false,
                     "conversionParameterA": 20, "conversionParameterB": 35}]})");
    Chain chain(path, 128);
    ASSERT_EQ(chain.Stages().size(), 4U);
    EXPECT_EQ(chain.Stages()[1].place, "filters.2");
    EXPECT_EQ(ParametersOf<F::MovingAverageWindowSmoothingParameters>(chain, 0).WindowLength, 5);
    const auto& receiver = ParametersOf<F::BesselThomsonParameters>(chain, 1);
    EXPECT_EQ(receiver.order, 3);
    EXPECT_EQ(receiver.cutoffPercent, 50.0);
    EXPECT_EQ(receiver.channel, 2);
    EXPECT_TRUE(receiver.preserveNoise);
    const auto& feedback = ParametersOf<F::DFEFilterParameters>(chain, 2);
    EXPECT_EQ(feedback.taps, (std::vector<double>{0.25, -0.1}));
    EXPECT_EQ(feedback.samplingDelayPs, 37.5);
    const auto& deembedding = ParametersOf<F::DeEmbeddingParameters>(chain, 3);
    EXPECT_EQ(deembedding.sparamFileName, fixture.string());
    EXPECT_EQ(deembedding.portOrder, PORT_ORDER_13_24);
    EXPECT_FALSE(deembedding.conversionFlag);
    EXPECT_EQ(deembedding.conversionParameterA, 20);
    EXPECT_EQ(deembedding.conversionParameterB, 35);
}

TEST(ChainFilters, TakeAsManyManualTapsAsAreGiven)
{
    Chain chain = ChainOf(R"({
        "device": {"patternLengthUi": 16, "samplesPerUi": 8, "baudRateGBd": 10, "signalCoding": "NRZ"},
        "filters": [{"type": "ffe", "useManualTaps": true, "taps": [-0.1, 1, -0.2]},
                    {"type": "dfe", "useManualTaps": true, "taps": [0.25, -0.1], "numberOfTaps": 1}]})",
                          128);
    EXPECT_EQ(ParametersOf<Filters::FFEFilterParameters>(chain, 0).numberOfTaps, 3);
    EXPECT_EQ(ParametersOf<Filters::DFEFilterParameters>(chain, 1).numberOfTaps, 1);
}

// Files are opened when the chain is made, and never when only symbols are asked for: what stands behind it runs although
// they are gone.
TEST(ChainFilters, ReadTheirFilesOnce)
{
    constexpr const char* kText = R"({
        "device": {"patternLengthUi": 127, "samplesPerUi": 8, "baudRateGBd": 10, "signalCoding": "NRZ"},
        "filters": [{"type": "deembedding", "sparamFileName": "pad.s2p"},
                    {"type": "sirc", "channelResponse": "channel.csv", "referenceCutoffPercent": 75},
                    {"type": "ffe", "numberOfTaps": 3}]})";
    std::vector<double> samples;
    for (const char symbol : PrbsSymbols(7, SIGNAL_CODING_NRZ))
        samples.insert(samples.end(), 8, symbol - '0');
    const TestFolder folder;
    std::vector<std::string> notes;
    const ChainFile file =
        WithSymbols(ChainFile::FromText(kText, (folder / "chain.json").string()), samples, "capture", notes);
    EXPECT_EQ(notes.size(), 1U);
    EXPECT_EQ(nlohmann::json::parse(file.Text())["device"]["patternSymbols"], PrbsSymbols(7, SIGNAL_CODING_NRZ));

    std::string pad = "# GHz S MA R 50\n";
    for (int k = 1; k <= 40; ++k)
        pad += std::to_string(k) + " 0 0 .5 0 .5 0 0 0\n";
    std::string channel;
    for (int k = 0; k < 100; ++k)
        channel += std::to_string(k) + "e-12," + (k == 50 ? "1" : "0") + "\n";
    const auto padFile = folder.Write("pad.s2p", pad);
    const auto channelFile = folder.Write("channel.csv", channel);
    Chain chain(file, samples.size());
    std::filesystem::remove(padFile);
    std::filesystem::remove(channelFile);
    const ChainResult result = RunChain(chain, samples, "capture");
    ASSERT_EQ(result.stages.size(), 4U);
    // The pad halves the voltage; removed, that is twice the mean.
    EXPECT_NEAR(result.stages[1].mean, 2.0 * result.stages[0].mean, 1e-9);
    EXPECT_TRUE(nlohmann::json::parse(result.stages[1].findings).contains("largestBoostDb"));
}

TEST(ChainFilters, RefuseAFixtureThatTheReaderRefuses)
{
    const TestFolder folder;
    const auto fixture = folder.Write("fixture.s2p", "! c\n\n1 2\n").string();
    const auto chain =
        folder.Write("chain.json", R"({"filters": [{"type": "deembedding", "sparamFileName": "fixture.s2p"}]})");
    EXPECT_EQ(FailureOf<DataFailure>([&] { Chain failing(chain, 128); }),
              fixture + ": line 3: the file is refused: 2 tokens of at least 5");
}

TEST(ChainErrors, NameTheKey)
{
    ExpectFailures<UsageFailure>(
        "c.json: ",
        {
            {R"([])", "the file: is array; expected an object"},
            {R"({"device": {}})", "filters: is missing; expected a list of filters"},
            {R"({"filters": [], "filter": 1})", "filter: is not a known key; the nearest one is \"filters\""},
            {R"({"filters": {}})", "filters: is object; expected a list of filters"},
            {R"({"filters": [{"type": "deembedding"}]})",
             "filters.0.sparamFileName: is missing; expected the fixture's S-parameter file"},
            {R"({"filters": [{"type": "deembedding", "portOrder": 2}]})",
             "filters.0.portOrder: is 2; expected 0 for the pairs 1, 2 and 3, 4 or 1 for 1, 3 and 2, 4"},
            {R"({"filters": [{"type": "sirc"}]})",
             "filters.0.channelResponse: is missing; expected the file of the channel's measured impulse response"},
            {R"({"filters": [{"type": "sirc", "channelResponse": 5}]})",
             "filters.0.channelResponse: is 5; expected a text"},
            {R"({"filters": [{}]})", "filters.0.type: is missing; expected the name of a filter"},
            {R"({"filters": [{"type": "bessel"}]})",
             R"(filters.0.type: is "bessel", not a known filter; the nearest one is "bessel-thomson")"},
            {R"({"filters": [{"type": "moving-average", "windowLength": 3}]})",
             "filters.0.windowLength: is not a known key; the nearest one is \"WindowLength\""},
            {R"({"filters": [{"type": "moving-average", "WindowLength": 2.5}]})",
             "filters.0.WindowLength: is 2.5; expected a whole number"},
            {R"({"filters": [{"type": "moving-average", "WindowLength": 3000000000}]})",
             "filters.0.WindowLength: is 3000000000; expected at most 2147483647"},
            {R"({"filters": [{"type": "copy", "enabled": 1}]})", "filters.0.enabled: is 1; expected true or false"},
            {R"({"device": {"samplesPerUI": 8}, "filters": []})",
             "device.samplesPerUI: is not a known key; the nearest one is \"samplesPerUi\""},
            {R"({"device": {"signalCoding": "PAM5"}, "filters": []})",
             "device.signalCoding: is \"PAM5\"; expected NRZ, PAM4, PAM3 or PAM4-precoded"},
            {R"({"device": {"baudRateGBd": "fast"}, "filters": []})",
             "device.baudRateGBd: is \"fast\"; expected a number"},
            {R"({"device": {"oeChannel": [true]}, "filters": []})",
             "device.oeChannel: is [true]; expected true, false or a list of four of them"},
            {R"({"device": {"patternLocked": false, "patternLengthUi": 1, "samplesPerUi": 8, "baudRateGBd": 1},
             "filters": [{"type": "bessel-thomson"}]})",
             "filters.0: No pattern lock"},
        },
        [](const std::string& text) { return ChainOf(text); });
}

TEST(ChainErrors, NameTheFileThatIsNoJson)
{
    const TestFolder folder;
    const auto broken = folder.Write("broken.json", "{\"filters\": [");
    EXPECT_EQ(FailureOf<UsageFailure>([&] { Chain(broken, 1); }).rfind(broken.string() + ": ", 0), 0U);
    EXPECT_EQ(FailureOf<UsageFailure>([&] { Chain(folder / "none.json", 1); }),
              (folder / "none.json").string() + ": cannot be read");
    const std::string nested = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(FailureOf<UsageFailure>([&] { ChainFile::FromText(R"({"device": )" + nested + "}", "deep.json"); }),
              "deep.json: lists or objects are nested more than 32 deep");
}

// What a few bytes of a file can ask for is bounded by the record, before any filter is made.
TEST(ChainErrors, RefuseSizesFarBeyondTheRecord)
{
    ExpectFailures<DataFailure>(
        "c.json: ",
        {
            {R"({"device": {"baudRateGBd": 10, "samplesPerUi": 32000, "patternLengthUi": 60000},
             "filters": [{"type": "bessel-thomson"}]})",
             "device: samplesPerPattern is 1920000000 samples; the record has 100"},
            {R"({"device": {"baudRateGBd": 10, "samplesPerUi": 8, "patternLengthUi": 4, "patternRepeats": 60000000},
             "filters": [{"type": "ctle", "gain": 3}]})",
             "device: patternLengthUi * samplesPerUi * patternRepeats is 1920000000 samples; the record has 100"},
            {R"({"device": {"samplesPerUi": 8, "patternLengthUi": 4},
             "filters": [{"type": "ffe", "useManualTaps": true, "taps": [1], "numberOfTaps": 60000000}]})",
             "filters.0: numberOfTaps * samplesPerUi is 480000000 samples; the record has 100"},
        },
        [](const std::string& text) { return ChainOf(text); });
}

#if !defined(_WIN32)
// A device gives bytes for ever, and is not opened. A pipe ends when its writer closes it; one without a writer is empty.
TEST(ChainErrors, RefuseFilesThatAreNone)
{
    ExpectFailures<DataFailure>(
        "/dev/zero: ",
        {
            {R"({"filters": [{"type": "deembedding", "sparamFileName": "/dev/zero"}]})", "cannot be read"},
            {R"({"filters": [{"type": "sirc", "channelResponse": "/dev/zero"}]})", "cannot be read"},
        },
        [](const std::string& text) { return ChainOf(text); });
    const TestFolder folder;
    const std::string pipe = (folder / "pipe.csv").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(FailureOf<UsageFailure>([&] { Chain(pipe, 1); }),
              pipe + ": cannot be read: a pipe that nothing is written to");
    // More than the pipe holds at once.
    const std::size_t count = 100'000;
    std::thread writer([&] {
        std::ofstream file(pipe);
        for (std::size_t k = 0; k < count; ++k)
            file << k % 7 << '\n';
    });
    EXPECT_EQ(ReadWaveform(pipe).samples.size(), count);
    writer.join();
}
#endif

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
