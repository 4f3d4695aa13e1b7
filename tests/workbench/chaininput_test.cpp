#include "workbench/chaininput.h"

#include <cmath>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/failures.h"
#include "workbench/failure.h"
#include "workbench/joined.h"
#include "workbench/run.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::FailureOf;

constexpr std::size_t kSamplesPerUi = 8;

// A traffic-like record: a stretch of a pattern that is far longer.
Waveform LongRecord(double lossDb)
{
    const SimulatedPattern pattern{.coding = SIGNAL_CODING_NRZ, .prbs = 31};
    return {.samples =
                Simulate(pattern.Levels(6400), 2,
                         {.samplesPerUi = static_cast<double>(kSamplesPerUi), .lossDb = lossDb, .lengthUi = 6400})};
}

ChainFile FileWith(const std::string& device, const std::string& filters)
{
    return ChainFile::FromText(fmt::format(R"({{"device": {{{}}}, "filters": [{}]}})", device, filters), "chain.json");
}

ChainResult RunOn(const Waveform& capture, const ChainFile& file)
{
    const ChainInput input = InputFor(file, capture, {}, "capture");
    Chain chain(input.chain, input.samples.size());
    return RunChain(chain, input.samples, input.eyes, "capture");
}

constexpr const char* kFilters =
    R"({"type": "bessel-thomson"}, {"type": "ctle", "ctleType": "peaking", "gain": 3},
       {"type": "ffe", "useManualTaps": true, "taps": [-0.1, 1.1, -0.1]})";

// What is valid of a piece is what a longer record has there, to the share of the rms that a stage may carry from afar.
TEST(SingleShot, IsValidWhereALongerRecordHasTheSame)
{
    const Waveform whole = LongRecord(6.0);
    const std::string device =
        R"("baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "record": "single-shot")";
    const ChainResult expected = RunOn(whole, FileWith(device, kFilters));
    constexpr std::size_t kFirst = 200 * kSamplesPerUi;
    const auto begin = whole.samples.begin() + kFirst;
    const Waveform piece{.samples = {begin, begin + 3000 * kSamplesPerUi}};
    const ChainResult result = RunOn(piece, FileWith(device, kFilters));

    ASSERT_EQ(result.stages.size(), 4U);
    std::size_t before = 0;
    for (const StageReport& stage : result.stages) {
        EXPECT_GE(stage.eye.valid.first, before) << stage.name;
        EXPECT_EQ(stage.eye.valid.first % kSamplesPerUi, 0U);
        EXPECT_EQ(stage.eye.valid.count, piece.samples.size() - 2 * stage.eye.valid.first);
        before = stage.eye.valid.first;
    }
    EXPECT_GT(before, 2 * kSamplesPerUi);
    EXPECT_LT(before, 100 * kSamplesPerUi);
    double difference = 0.0;
    double power = 0.0;
    for (std::size_t k = result.valid.first; k < result.valid.first + result.valid.count; ++k) {
        difference += std::pow(result.samples[k] - expected.samples[kFirst + k], 2);
        power += std::pow(result.samples[k], 2);
    }
    EXPECT_LT(std::sqrt(difference / power), 2e-3);                           // two stages of a thousandth
    EXPECT_GT(std::abs(result.samples[0] - expected.samples[kFirst]), 0.01);  // the seam is there, outside
}

// One figure, whatever the length of the pattern is said to be.
TEST(SingleShot, HasOneOpeningWhateverPatternIsClaimed)
{
    const Waveform capture = LongRecord(8.0);
    const auto openingWith = [&](const std::string& claim) {
        const ChainResult result = RunOn(
            capture, FileWith(R"("baudRateGBd": 10)" + claim, R"({"type": "ctle", "ctleType": "peaking", "gain": 6})"));
        return result.stages.back().eye.eyes.at(0).openingPercent;
    };
    const double opening = openingWith("");
    EXPECT_GT(opening, 20.0);
    for (const int claimed : {6390, 6399, 6400, 6500, 127})
        EXPECT_NEAR(openingWith(fmt::format(R"(, "patternLengthUi": {})", claimed)), opening, 0.5) << claimed;
}

TEST(SingleShot, RefusesAStageThatReachesThroughMoreThanHalf)
{
    Waveform capture = LongRecord(0.0);
    capture.samples.resize(400 * kSamplesPerUi);
    std::string taps = "1";
    for (int tap = 0; tap < 120; ++tap)
        taps += ", 0.001";
    const std::string message = FailureOf<DataFailure>([&] {
        RunOn(capture, FileWith(R"("baudRateGBd": 10, "samplesPerUi": 8)",
                                R"({"type": "copy"}, {"type": "ffe", "useManualTaps": true, "taps": [)" + taps + "]}"));
    });
    EXPECT_EQ(message.rfind("capture: filters.1: carries the ends of a single shot 120 UI into it", 0), 0U) << message;
}

// The device keys that say how a capture is acquired, and what the file leaves out.
TEST(ChainInputFor, CompletesTheDevice)
{
    const SimulatedPattern pattern{.coding = SIGNAL_CODING_NRZ, .prbs = 7};
    const auto captured = [&](double samplesPerUi, int repetitions) {
        return Waveform{.samples = Simulate(pattern.Levels(), 2,
                                            {.samplesPerUi = samplesPerUi, .repetitions = repetitions, .lossDb = 3.0}),
                        .interval = 1e-10 / samplesPerUi};
    };
    const struct {
        const char* label;
        const char* device;
        double samplesPerUi;
        int repetitions;
        int found;     // samples per UI of the record
        int periodUi;  // in the completed device
        bool circular;
        const char* note;
    } cases[] = {
        {"nothing said", "", 8.0, 4, 8, 127, true, ""},
        {"one period by name", R"("samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": {"prbs": 7})", 8.0, 1, 8,
         127, true, ""},
        {"one period, not named", R"("samplesPerUi": 8)", 8.0, 1, 8, 127, false, ""},
        {"at any rate", "", 6.3, 4, 16, 127, true, "after the last whole repetition are left out"},
        {"fractional sizes", R"("useFractionalSampling": true, "uiDuration": 63, "sampleSpacing": 10)", 6.3, 4, 16, 127,
         true, "are left out"},
        {"forced single shot", R"("record": "single-shot")", 8.0, 4, 8, 508, false, ""},
        {"forced period", R"("samplesPerUi": 8, "patternLengthUi": 120, "record": "periodic")", 8.0, 4, 8, 120, true,
         "is said to repeat after 120 UI"},
        {"another rate than the times'", R"("samplesPerUi": 8, "baudRateGBd": 9)", 8.0, 4, 8, 127, true,
         "its times give 8.889 samples per UI at 9 GBd; it is said to have 8"},
        {"another rate than the clock's", R"("samplesPerUi": 8.5)", 8.0, 4, 0, 0, false, "samplesPerUi"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const ChainFile file = FileWith(row.device, R"({"type": "bessel-thomson"})");
        const Waveform capture = captured(row.samplesPerUi, row.repetitions);
        if (row.found == 0) {
            EXPECT_NE(FailureOf<UsageFailure>([&] { (void)InputFor(file, capture, {}, "c"); }).find(row.note),
                      std::string::npos);
            continue;
        }
        const ChainInput input = InputFor(file, capture, {}, "c");
        Chain chain(input.chain, input.samples.size());
        EXPECT_EQ(chain.Device().samplesPerUi, row.found);
        EXPECT_EQ(chain.Device().patternLengthUi, row.periodUi);
        EXPECT_FALSE(chain.Device().useFractionalSampling);
        EXPECT_EQ(input.eyes.circular, row.circular);
        const std::string notes = Joined(input.notes, "\n");
        EXPECT_EQ(notes.empty(), *row.note == '\0') << notes;
        EXPECT_NE(notes.find(row.note), std::string::npos) << notes;
        const ChainResult result = RunChain(chain, input.samples, input.eyes, "c");
        const bool isWrong = row.periodUi == 120;
        EXPECT_EQ(result.stages.back().eye.eyes.at(0).openingPercent > 50.0, !isWrong);
    }
}

TEST(ChainInputFor, LeavesAloneWhatItMayNotOrNeedNotResample)
{
    const SimulatedPattern pattern{.coding = SIGNAL_CODING_NRZ, .prbs = 7};
    const Waveform fractional{.samples = Simulate(pattern.Levels(), 2, {.samplesPerUi = 6.3, .repetitions = 2})};
    const ChainInput kept =
        InputFor(FileWith(R"("baudRateGBd": 10, "useFractionalSampling": true, "uiDuration": 63, "sampleSpacing": 10,
                    "patternSymbols": {"prbs": 7}, "signalCoding": "NRZ", "resample": false)",
                          R"({"type": "bessel-thomson"})"),
                 fractional, {}, "c");
    EXPECT_FALSE(kept.acquisition);
    EXPECT_EQ(kept.samples, fractional.samples);

    const Waveform ramp{.samples = {1.0, 2.0, 4.0}};
    const ChainInput passed = InputFor(FileWith("", R"({"type": "copy"})"), ramp, {}, "c");
    EXPECT_EQ(passed.samples, ramp.samples);
    ASSERT_EQ(passed.notes.size(), 1U);
    EXPECT_NE(passed.notes[0].find("too few to find a clock in"), std::string::npos) << passed.notes[0];
    const ChainFile receiver = FileWith(R"("baudRateGBd": 10)", R"({"type": "bessel-thomson"})");
    EXPECT_NE(FailureOf<NoClockFailure>([&] { (void)InputFor(receiver, ramp, {}, "c"); }).find("too few"),
              std::string::npos);
}

// What is said with the command goes before what the file says.
TEST(FactsOf, TakesTheFilesWhereNothingElseIsSaid)
{
    const ChainFile file = FileWith(
        R"("baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": "0110", "clock": "tracked",
           "loopBandwidthMHz": 2, "record": "periodic")",
        "");
    const CaptureFacts ofFile = FactsOf(file);
    EXPECT_EQ(ofFile.symbolRateGBd, 10.0);
    EXPECT_EQ(ofFile.samplesPerUi, 8.0);
    EXPECT_EQ(ofFile.coding, SIGNAL_CODING_NRZ);
    EXPECT_EQ(ofFile.patternLengthUi, 4);
    EXPECT_EQ(ofFile.pattern, (std::vector<int>{0, 1, 1, 0}));
    EXPECT_EQ(ofFile.clock, ClockKind::Tracked);
    EXPECT_EQ(ofFile.loopBandwidthMHz, 2.0);
    EXPECT_EQ(ofFile.record, RecordKind::Periodic);
    const CaptureFacts given =
        FactsOf(file, {.symbolRateGBd = 9.0, .samplesPerUi = 7.5, .coding = SIGNAL_CODING_PAM4, .patternLengthUi = 5});
    EXPECT_EQ(given.symbolRateGBd, 9.0);
    EXPECT_EQ(given.samplesPerUi, 7.5);
    EXPECT_EQ(given.coding, SIGNAL_CODING_PAM4);
    EXPECT_EQ(given.patternLengthUi, 5);
    EXPECT_TRUE(given.pattern.empty());  // the file's symbols are of another coding
    EXPECT_NE(FailureOf<UsageFailure>([] {
                  (void)FactsOf(FileWith(R"("record": "often")", ""));
              }).find("chain.json: device.record: is \"often\"; expected auto, periodic or single-shot"),
              std::string::npos);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
