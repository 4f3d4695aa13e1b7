#include <cmath>
#include <numbers>

#include <nlohmann/json.hpp>

#include "files.h"
#include "program.h"
#include "waveform.h"

namespace Tarnwick::App {

namespace {

constexpr const char* kChain = R"({
    "device": {"baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": {"prbs": 7}},
    "filters": [{"type": "moving-average", "WindowLength": 3}, {"type": "bessel-thomson"}, {"type": "copy"}]})";

// Two repetitions of 127 UI of two levels, and their chain.
void WriteCase(const TestFolder& folder)
{
    std::vector<double> samples;
    for (int k = 0; k < 2 * 127 * 8; ++k)
        samples.push_back(k / 8 % 127 * 37 % 5 < 2 ? 0.25 : -0.25);
    WriteWaveform(folder / "capture.csv", samples, 1.25e-11);
    folder.Write("chain.json", kChain);
}

TEST(ApplyProgram, WritesTheFilteredCaptureAndOneJsonDocument)
{
    const TestFolder folder;
    WriteCase(folder);
    ASSERT_EQ(RunProgram(folder, "apply chain.json capture.csv -o filtered.csv --json"), 0) << folder.Read("err");
    const auto report = nlohmann::json::parse(folder.Read("out"));
    ASSERT_EQ(report["stages"].size(), 4U);
    const char* const names[] = {"capture", "moving-average", "bessel-thomson", "copy"};
    for (std::size_t k = 0; k < 4; ++k) {
        const auto& stage = report["stages"][k];
        EXPECT_EQ(stage["name"], names[k]);
        EXPECT_EQ(stage["samples"], 2 * 127 * 8);
        EXPECT_EQ(stage["repetitions"], 2);
        EXPECT_EQ(stage["levels"].size(), 2U);
        EXPECT_EQ(stage["eyes"].size(), 1U);
        // Every filter here has gain 1 at DC; the mean of the capture moves by rounding only.
        EXPECT_NEAR(stage["mean"].get<double>(), report["stages"][0]["mean"].get<double>(), 1e-12);
    }
    EXPECT_EQ(report["stages"][0]["eyes"][0]["height"], 0.5);
    EXPECT_LT(report["stages"][2]["eyes"][0]["height"], 0.5);
    EXPECT_EQ(report["stages"][3]["rms"], report["stages"][2]["rms"]);

    const Waveform filtered = ReadWaveform(folder / "filtered.csv");
    EXPECT_EQ(filtered.samples.size(), 2U * 127 * 8);
    EXPECT_NEAR(filtered.interval, 1.25e-11, 1e-24);
}

TEST(ApplyProgram, LeavesOutWhatStandsBehindTheLastRepetition)
{
    const TestFolder folder;
    WriteCase(folder);
    ASSERT_EQ(RunProgram(folder, "apply chain.json capture.csv -o whole.npy"), 0) << folder.Read("err");
    EXPECT_EQ(folder.Read("err").find("left out"), std::string::npos);
    std::vector<double> samples = ReadWaveform(folder / "capture.csv").samples;
    samples.insert(samples.end(), {9.0, -9.0});
    WriteWaveform(folder / "longer.csv", samples, 1.25e-11);
    ASSERT_EQ(RunProgram(folder, "apply chain.json longer.csv -o cut.npy"), 0) << folder.Read("err");
    EXPECT_NE(folder.Read("err").find("longer.csv: 2 samples behind the last whole repetition are left out"),
              std::string::npos);
    EXPECT_EQ(ReadWaveform(folder / "cut.npy").samples, ReadWaveform(folder / "whole.npy").samples);
}

TEST(ApplyProgram, SubtractsASecondCapture)
{
    const TestFolder folder;
    folder.Write("chain.json", R"({"filters": [{"type": "copy"}]})");
    folder.Write("p.txt", "header\n1\n2\n3\n");
    folder.Write("m.txt", "header\n-1\n0\n1\n");
    ASSERT_EQ(RunProgram(folder, "apply chain.json p.txt --minus m.txt --skip-lines 1 -o d.npy"), 0)
        << folder.Read("err");
    EXPECT_EQ(ReadWaveform(folder / "d.npy").samples, (std::vector<double>{2, 2, 2}));
    EXPECT_NE(folder.Read("out").find("copy"), std::string::npos);
}

TEST(ApplyProgram, SaysWhoseFaultAFailureIsAndWritesNothing)
{
    const TestFolder folder;
    WriteCase(folder);
    folder.Write("short.csv", "1\n2\n3\n");
    folder.Write("bad.csv", "1\nx\n");
    folder.Write("key.json", R"({"filters": [{"type": "copy", "chanel": 0}]})");
    folder.Write("order.json", R"({"device": {"baudRateGBd": 10, "samplesPerUi": 8, "patternLengthUi": 127},
                                   "filters": [{"type": "bessel-thomson", "order": 17}]})");
    folder.Write("poles.json", R"({"device": {"baudRateGBd": 10, "samplesPerUi": 8, "patternLengthUi": 127},
                                   "filters": [{"type": "ctle", "ctleType": "oif-cei-112g"}]})");
    const std::size_t before = folder.Count();
    const struct {
        const char* arguments;
        int status;
        const char* message;
    } cases[] = {
        {"apply chain.json none.csv -o f.csv", 1, "none.csv: cannot be read"},
        {"apply chain.json bad.csv -o f.csv", 1, "bad.csv:2: \"x\" is no number"},
        {"apply chain.json short.csv -o f.csv", 1, "short.csv: filters.1: BesselThomson: sampleCount is 3;"},
        {"apply chain.json capture.csv --minus short.csv -o f.csv", 1, "short.csv: has 3 samples; expected 2032"},
        {"apply chain.json capture.csv -o no/f.csv", 1, "cannot be written"},
        {"apply none.json capture.csv -o f.csv", 2, "none.json: cannot be read"},
        {"apply key.json capture.csv -o f.csv", 2, "filters.0.chanel: is no known key; the nearest one is \"channel\""},
        {"apply order.json capture.csv -o f.csv", 2, "filters.0: BesselThomson: order is 17; expected 1 to 16"},
        {"apply poles.json capture.csv -o f.csv", 2, "poles.json: filters.0: gives values that are not finite"},
        {"apply chain.json capture.csv -o f.wav", 2, "output format is \".wav\""},
        {"apply chain.json capture.csv", 2, "--output is required"},
        {"filter", 2, "Run with --help"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.arguments);
        EXPECT_EQ(RunProgram(folder, row.arguments), row.status);
        const std::string message = folder.Read("err");
        EXPECT_NE(message.find(row.message), std::string::npos) << message;
        EXPECT_EQ(message.rfind("tarnwick: ", 0), 0U) << message;
        EXPECT_EQ(folder.Read("out"), "");
        std::filesystem::remove(folder / "out");
        std::filesystem::remove(folder / "err");
        EXPECT_EQ(folder.Count(), before);
    }
}

TEST(ApplyProgram, DrawsTheEyes)
{
    const TestFolder folder;
    WriteCase(folder);
    ASSERT_EQ(RunProgram(folder, "apply chain.json capture.csv -o f.csv --eye \"it's an eye\""), 0)
        << folder.Read("err");
    for (const char* name : {"it's an eye-before.png", "it's an eye-after.png"}) {
        const std::string picture = folder.Read(name);
        EXPECT_EQ(picture.substr(0, 8), "\x89PNG\r\n\x1a\n") << name;
        EXPECT_EQ(picture.substr(picture.size() - 8, 4), "IEND") << name;
    }
}

}  // namespace

}  // namespace Tarnwick::App
