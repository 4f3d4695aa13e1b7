#include "apps/program.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::ReadWaveform;
using DSO::Workbench::Waveform;
using DSO::Workbench::WriteWaveform;

constexpr const char* kChain = R"({
    "device": {"baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": {"prbs": 7}},
    "filters": [{"type": "moving-average", "WindowLength": 3}, {"type": "bessel-thomson"}, {"type": "copy"}]})";

// Two repetitions of 127 UI of two levels, and their chain.
void WriteCase(const TestFolder& folder)
{
    const char* const simulated = "--prbs 7 --coding NRZ --baud 10 --spu 8 --repetitions 2 --amplitude 0.5 --rise 0";
    ASSERT_EQ(RunProgram(folder, std::string("simulate -o capture.csv ") + simulated), 0) << folder.Read("err");
    folder.Write("chain.json", kChain);
}

TEST(ApplyProgram, WritesTheFilteredCaptureAndOneJsonDocument)
{
    const TestFolder folder;
    WriteCase(folder);
    const json stages = ReportOf(folder, "apply chain.json capture.csv -o filtered.csv")["stages"];
    EXPECT_EQ(folder.Read("err").find("left out"), std::string::npos);
    ASSERT_EQ(stages.size(), 4U);
    const char* const names[] = {"capture", "moving-average", "bessel-thomson", "copy"};
    for (std::size_t k = 0; k < 4; ++k) {
        const json& stage = stages[k];
        EXPECT_EQ(stage["name"], names[k]);
        EXPECT_EQ(stage["samples"], 2 * 127 * 8);
        EXPECT_EQ(stage["repetitions"], 2);
        EXPECT_EQ(stage["levels"].size(), 2U);
        EXPECT_EQ(stage["eyes"].size(), 1U);
        // Every filter here has gain 1 at DC; the mean of the capture moves by rounding only.
        EXPECT_NEAR(stage["mean"].get<double>(), stages[0]["mean"].get<double>(), 1e-12);
    }
    EXPECT_EQ(stages[0]["eyes"][0]["height"], 0.5);
    EXPECT_LT(stages[2]["eyes"][0]["height"], 0.5);
    EXPECT_EQ(stages[3]["rms"], stages[2]["rms"]);

    const Waveform filtered = ReadWaveform(folder / "filtered.csv");
    EXPECT_EQ(filtered.samples.size(), 2U * 127 * 8);
    EXPECT_NEAR(filtered.interval, 1.25e-11, 1e-24);

    // What stands behind the last repetition changes nothing.
    std::vector<double> samples = ReadWaveform(folder / "capture.csv").samples;
    samples.insert(samples.end(), {9.0, -9.0});
    WriteWaveform(folder / "longer.csv", samples, 1.25e-11);
    ASSERT_EQ(RunProgram(folder, "apply chain.json longer.csv -o cut.npy"), 0) << folder.Read("err");
    EXPECT_NE(folder.Read("err").find("longer.csv: 2 samples after the last whole repetition are left out"),
              std::string::npos);
    EXPECT_EQ(ReadWaveform(folder / "cut.npy").samples, filtered.samples);
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
    folder.Write("flat.csv", "2\n2\n");
    std::filesystem::create_directory(folder / "taken.csv");
    const auto writeChain = [&](const char* name, const json& filter) {
        json chain = json::parse(kChain);
        chain["filters"] = json::array({filter});
        folder.Write(name, chain.dump());
    };
    writeChain("flat.json", {{"type", "sirc"}, {"channelResponse", "flat.csv"}});
    writeChain("order.json", {{"type", "bessel-thomson"}, {"order", 17}});
    writeChain("poles.json", {{"type", "ctle"}, {"ctleType", "oif-cei-112g"}});
    ExpectRefusals(
        folder, "apply",
        {
            {"chain.json none.csv -o f.csv", 1, "none.csv: cannot be read"},
            {"chain.json short.csv -o f.csv", 1, "short.csv: filters.1: BesselThomson: sampleCount is 3;"},
            {"chain.json capture.csv --minus short.csv -o f.csv", 1, "short.csv: has 3 samples; expected 2032"},
            {"chain.json capture.csv -o no/f.csv", 1, "no/f.csv: cannot be written"},
            {"chain.json capture.csv -o taken.csv", 1, "taken.csv: "},
            {"flat.json capture.csv -o f.csv", 1, "flat.json: filters.0: SRC not configured properly."},
            {"order.json capture.csv -o f.csv", 2, "filters.0: BesselThomson: order is 17; expected 1 to 16"},
            {"poles.json capture.csv -o f.csv", 2, "poles.json: filters.0: gives values that are not finite"},
            {"chain.json capture.csv -o f.wav", 2, "f.wav: output format is \".wav\"; expected .csv, .txt or .npy"},
            {"chain.json capture.csv", 2, "--output is required\nRun with --help"},
        });
}

}  // namespace

}  // namespace Tarnwick::App
