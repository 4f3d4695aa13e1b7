#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

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

// A capture about which nothing is said, not at a whole number of samples per UI: its eye, and a record that filters take.
TEST(LockProgram, MakesAnyCaptureFitForTheFilters)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 31 --coding NRZ --spu 5.3 --length 1500 --loss 3"), 0);
    const json report = ReportOf(folder, "eye c.npy -o eye");
    EXPECT_EQ(report["acquisition"]["mode"], "single-shot");
    EXPECT_EQ(report["acquisition"]["pattern"], "PRBS31");
    EXPECT_GT(report["stages"][0]["eyes"][0]["openingPercent"], 50.0);
    EXPECT_TRUE(std::filesystem::exists(folder / "eye.png") && std::filesystem::exists(folder / "eye-bathtub.png"));
    json expected = report["acquisition"];
    expected["samplesPerUiOut"] = 8;
    json lock = ReportOf(folder, "lock c.npy -o locked.npy --chain chain.json --spu 8 --whole --picture clock");
    EXPECT_TRUE(IsPng(folder.Read("clock-phase.png")) && IsPng(folder.Read("clock-spectrum.png")));
    EXPECT_EQ(lock["levels"].size(), 2U);
    for (json* const of : {&lock, &expected})
        of->erase("levels");  // at another phase
    expected["samples"] = ReadWaveform(folder / "locked.npy").samples.size();
    EXPECT_EQ(lock, expected);
    const json stage = ReportOf(folder, "apply chain.json locked.npy -o filtered.npy")["stages"][0];
    EXPECT_NEAR(stage["eyes"][0]["openingPercent"].get<double>(),
                report["stages"][0]["eyes"][0]["openingPercent"].get<double>(), 1.0);  // other phases are looked at
    ExpectRefusals(folder, "lock c.npy",
                   {{"-o c.npy", 2, "--output: is c.npy, which this command reads"},
                    {"-o x.wav", 2, "x.wav"},
                    {"--samples-per-ui 0.5", 2, "--samples-per-ui"},
                    {"--clock wandering", 2, "--clock"}});
    folder.Write("flat.txt", "1\n1\n1\n");
    EXPECT_EQ(ReportOf(folder, "info flat.txt")["whyNoAcquisition"],
              "flat.txt: is constant, 1 V; expected a data signal");
    ExpectRefusals(folder, "eye flat.txt", {{"-o eye2", 1, "flat.txt: is constant, 1 V; expected a data signal"}});
}

#if !defined(_WIN32)
// "-" is standard input and output; the report then goes to stderr.
TEST(LockProgram, TakesAndGivesStreams)
{
    const TestFolder folder;
    WriteCase(folder);
    const std::string lock = "lock capture.csv -o locked.csv";
    ASSERT_EQ(RunProgram(folder, lock), 0);
    const std::string report = folder.Read("out");
    ASSERT_EQ(RunProgram(folder, "lock - -o -", "cat capture.csv | "), 0);
    EXPECT_EQ(folder.Read("out"), folder.Read("locked.csv"));
    EXPECT_NE(folder.Read("err").find(report), std::string::npos) << folder.Read("err");
    ASSERT_EQ(RunProgram(folder, "apply chain.json capture.csv -o applied.csv"), 0);
    ASSERT_EQ(RunProgram(folder, "apply chain.json capture.csv -o -"), 0);
    EXPECT_EQ(folder.Read("out"), folder.Read("applied.csv"));
    EXPECT_NE(folder.Read("err").find("eye open %"), std::string::npos) << folder.Read("err");
    ASSERT_EQ(RunProgram(folder,
                         "simulate -o - --prbs 7 --coding NRZ --baud 10 --spu 8 --repetitions 2 --amplitude 0.5 "
                         "--rise 0"),
              0);
    EXPECT_EQ(folder.Read("out"), folder.Read("capture.csv"));
    EXPECT_EQ(RunProgram(folder, "info -", "printf 1 | "), 0);
    EXPECT_NE(folder.Read("out").find("none: standard input: is constant"), std::string::npos) << folder.Read("out");
    ExpectRefusals(folder, "measure -",
                   {{"< /dev/null", 1, "standard input: holds nothing"},
                    {"--minus -", 2, "--minus: is standard input, as the capture"}});
}
#endif

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
        EXPECT_TRUE(stage["symbolsKnown"]);
        EXPECT_EQ(stage["valid"], json({{"first", 0}, {"count", 2 * 127 * 8}}));
        EXPECT_NEAR(stage["eyes"][0]["widthPs"].get<double>(), 100.0 * stage["eyes"][0]["widthUi"].get<double>(), 1e-9);
        for (const char* const figure : {"openingPercent", "threshold", "heightAtBer"})
            EXPECT_TRUE(stage["eyes"][0][figure].is_number()) << figure;
        EXPECT_LT(stage["ber"].get<double>(), 1e-12);
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

// The ends of a single shot are not written, unless asked for; the times stay those of the capture.
TEST(ApplyProgram, WritesWhatIsValidOfASingleShot)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.csv --prbs 31 --coding NRZ --spu 8 --length 800 --baud 10"), 0);
    folder.Write("chain.json", R"({"filters": [{"type": "bessel-thomson"}]})");
    const json report = ReportOf(folder, "apply chain.json c.csv");
    EXPECT_EQ(report["acquisition"]["mode"], "single-shot");
    const json& valid = report["stages"][1]["valid"];
    const auto first = valid["first"].get<std::size_t>();
    EXPECT_GE(first, 8U);
    EXPECT_EQ(valid["count"], 6400 - 2 * first);
    EXPECT_FALSE(std::filesystem::exists(folder / "f.csv"));
    ASSERT_EQ(RunProgram(folder, "apply chain.json c.csv -o f.csv"), 0);
    ASSERT_EQ(RunProgram(folder, "apply chain.json c.csv -o w.csv --whole"), 0);
    const Waveform whole = ReadWaveform(folder / "w.csv");
    const Waveform part = ReadWaveform(folder / "f.csv");
    EXPECT_EQ(whole.samples.size(), 6400U);
    const auto begin = whole.samples.begin() + static_cast<std::ptrdiff_t>(first);
    EXPECT_EQ(part.samples, std::vector<double>(begin, whole.samples.end() - static_cast<std::ptrdiff_t>(first)));
    EXPECT_NEAR(part.start - whole.start, static_cast<double>(first) * 1.25e-11, 1e-15);
}

TEST(ApplyProgram, SubtractsASecondCapture)
{
    const TestFolder folder;
    folder.Write("chain.json", R"({"filters": [{"type": "copy"}]})");
    folder.Write("p.txt", "header\n1\n2\n4\n");
    folder.Write("m.txt", "header\n-1\n0\n1\n");
    ASSERT_EQ(RunProgram(folder, "apply chain.json p.txt --minus m.txt --skip-lines 1 -o d.npy"), 0)
        << folder.Read("err");
    EXPECT_EQ(ReadWaveform(folder / "d.npy").samples, (std::vector<double>{2, 2, 3}));
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
    writeChain("level.json", {{"type", "ctle"}, {"ctleType", "hdmi"}, {"gain", 9}});
    writeChain("zeros.json", {{"type", "ffe"}, {"useManualTaps", true}, {"taps", {0, 0}}});
    writeChain("idle.json", {{"type", "dfe"}});
    writeChain("scale.json", {{"type", "ctle"}, {"ctleType", "oif-cei-112g"}, {"outputScale", 0}});
    json repeats = json::parse(kChain);
    repeats["device"]["patternRepeats"] = 0;
    folder.Write("repeats.json", repeats.dump());
    folder.Write("broken.json", "{\n  \"filters\": [x]}");
    ExpectRefusals(
        folder, "apply",
        {
            {"level.json capture.csv -o f.csv", 2, "filters.0.gain: is 9; expected a level from 1 to 8"},
            {"zeros.json capture.csv -o f.csv", 2, "filters.0.taps: hold no number other than 0"},
            {"idle.json capture.csv -o f.csv", 2, "filters.0.numberOfTaps: is missing; expected at least 1"},
            {"scale.json capture.csv -o f.csv", 2, "filters.0.outputScale: is 0"},
            {"repeats.json capture.csv -o f.csv", 2, "device.patternRepeats: is 0; expected at least 1"},
            {"broken.json capture.csv -o f.csv", 2, "broken.json: line 2, column 15: is no JSON"},
            {"chain.json capture.csv -o ./capture.csv", 2, "--output: is ./capture.csv, which this command reads"},
            {"flat.json capture.csv -o flat.csv", 2, "--output: is flat.csv, which this command reads"},
            {"chain.json none.csv -o f.csv", 1, "none.csv: cannot be read"},
            {"chain.json short.csv -o f.csv", 1, "short.csv: has 3 samples, less than one UI of 8"},
            {"chain.json capture.csv --minus short.csv -o f.csv", 1, "short.csv: has 3 samples; expected 2032"},
            {"chain.json capture.csv -o no/f.csv", 1, "no/f.csv: cannot be written"},
            {"chain.json capture.csv -o taken.csv", 1, "taken.csv: "},
            {"flat.json capture.csv -o f.csv", 1, "flat.json: filters.0: SRC not configured properly."},
            {"order.json capture.csv -o f.csv", 2, "filters.0: BesselThomson: order is 17; expected 1 to 16"},
            {"poles.json capture.csv -o f.csv", 2, "poles.json: filters.0: gives values that are not finite"},
            {"chain.json capture.csv -o f.wav", 2, "f.wav: output format is \".wav\"; expected .csv, .txt or .npy"},
        });
}

#if !defined(_WIN32)
// Whatever does not fit is named and leaves nothing behind, not even a part; the report goes before the pictures.
TEST(Outputs, AreWholeOrAbsent)
{
    const TestFolder folder;
    WriteCase(folder);
    const struct {
        const char* limit;  // blocks of 512 or 1024 bytes, by the shell
        const char* arguments;
        const char* message;
        std::size_t written;
    } cases[] = {
        {"1", "apply chain.json capture.csv -o f.npy", "f.npy: cannot be written", 0},
        {"36", "apply chain.json capture.csv -o f.npy --eye e", ".png: cannot be written as a whole", 1},
        {"1", "simulate --prbs 9 -o s.csv", "s.csv: cannot be written", 0},
        {"1", "response chain.json -o r", "r-frequency.csv: cannot be written", 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.arguments);
        EXPECT_EQ(RunProgram(folder, row.arguments, fmt::format("ulimit -f {} && ", row.limit)), 1);
        EXPECT_NE(folder.Read("err").find(row.message), std::string::npos) << folder.Read("err");
        std::size_t pictures = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder / ".")) {
            EXPECT_EQ(entry.path().string().find(".part"), std::string::npos) << entry.path();
            const bool isPicture = entry.path().extension() == ".png";
            pictures += isPicture ? 1 : 0;
            EXPECT_TRUE(!isPicture || IsPng(folder.Read(entry.path().filename().string())));
        }
        EXPECT_LE(pictures, row.written);
        EXPECT_EQ(std::filesystem::exists(folder / "f.npy"), row.written > 0);
        std::filesystem::remove(folder / "f.npy");
    }
    EXPECT_EQ(RunProgram(folder, "info capture.csv > /dev/full; test $? -eq 1"), 0) << folder.Read("err");
    // Without gnuplot the picture is lost, not the table.
    EXPECT_EQ(RunProgram(folder, "apply chain.json capture.csv -o f.npy --eye e", "PATH=/none "), 1);
    EXPECT_NE(folder.Read("out").find("bessel-thomson "), std::string::npos);
}
#endif

TEST(EqualiserProgram, FindsSymbolsAndTapsByItself)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o capture.npy --loss 8 --noise 0.004 --prbs 11 --repetitions 2"), 0);
    folder.Write("ffe.json", R"({
        "device": {"baudRateGBd": 26.5625, "patternLengthUi": 2047, "samplesPerUi": 16, "signalCoding": "PAM4"},
        "filters": [{"type": "ffe", "numberOfTaps": 7, "tapsPerUi": 1, "quantizeTaps": true, "tapResolution": 64}]})");
    const json report = ReportOf(folder, "apply ffe.json capture.npy -o out.npy --taps taps");
    EXPECT_TRUE(IsPng(folder.Read("taps-ffe-0.png")));
    EXPECT_EQ(report["acquisition"]["pattern"], "PRBS11Q");
    const json& stages = report["stages"];
    const json& ffe = stages[1];
    EXPECT_EQ(ffe["taps"].size(), 7U);
    EXPECT_EQ(ffe["appliedTaps"].size(), 7U);
    EXPECT_EQ(ffe["taps"][0].get<double>(), std::round(ffe["taps"][0].get<double>()));
    EXPECT_LT(ffe["residualError"], 0.3);
    EXPECT_GE(ffe["mainCursor"], 1);
    EXPECT_LT(stages[0]["eyes"][1]["height"], 0.01);
    EXPECT_GT(ffe["eyes"][1]["height"], 0.15);

    const json swept = ReportOf(folder, "sweep ffe.json capture.npy --over filters.0.numberOfTaps=1,7");
    EXPECT_EQ(swept["runs"][0]["values"]["filters.0.numberOfTaps"], 7);

    const json measured = ReportOf(folder, "measure out.npy");
    EXPECT_EQ(measured["coding"], "PAM4");
    EXPECT_EQ(measured["samplesPerUi"], 16);
    EXPECT_EQ(measured["patternLengthUi"], 2047);
    EXPECT_EQ(measured["eyes"].size(), 3U);
    EXPECT_TRUE(measured["tdecqDb"].is_number());
    EXPECT_FALSE(measured["assumptions"].empty());
    EXPECT_EQ(measured["acquisition"]["pattern"], "PRBS11Q");
    // As captured the eyes are closed; nothing needs to be said all the same.
    EXPECT_LT(ReportOf(folder, "measure capture.npy")["eyes"][1]["openingPercent"], 3.0);

    std::filesystem::copy_file(folder / "ffe.json", folder / "t-ffe-0.png");
    folder.Write("copy.json", R"({"filters": [{"type": "copy"}]})");
    ExpectRefusals(folder, "apply",
                   {{"t-ffe-0.png capture.npy --taps t", 2, "--taps: is t-ffe-0.png, which this command reads"},
                    {"copy.json capture.npy --taps t", 2, "--taps: copy.json has no filter with taps"}});

    folder.Write("none.json", R"({"filters": [{"type": "ffe", "numberOfTaps": 3}]})");
    ExpectRefusals(folder, "apply",
                   {{"none.json capture.npy -o f.npy", 2, "baudRateGBd is 0; expected a finite positive symbol rate"}});
    EXPECT_EQ(ReportOf(folder, "apply none.json capture.npy --sample-rate 425")["stages"][1]["taps"].size(), 3U);
}

TEST(ResponseProgram, WritesFiguresColumnsAndAPicture)
{
    const TestFolder folder;
    const json filters = {{{"type", "moving-average"}, {"WindowLength", 2}},
                          {{"type", "copy"}, {"enabled", false}},
                          {{"type", "bessel-thomson"}, {"cutoffPercent", 50}}};
    const json device = {{"baudRateGBd", 10},
                         {"samplesPerUi", 16},
                         {"signalCoding", "NRZ"},
                         {"patternSymbols", {{"prbs", 9}}},
                         {"patternRepeats", 3}};  // the figures are those of one repetition
    folder.Write("chain.json", json{{"device", device}, {"filters", filters}}.dump());
    const json report = ReportOf(folder, "response chain.json -o r");
    EXPECT_EQ(report["samples"], 511 * 16);
    ASSERT_EQ(report["filters"].size(), 2U);
    const json& receiver = report["filters"][1];
    EXPECT_EQ(receiver["name"], "2 bessel-thomson");
    // The normalised cutoff of order 4 is known to five digits, and the record is one sample longer than the taps.
    EXPECT_NEAR(receiver["halfRateGainDb"].get<double>(), 10.0 * std::log10(0.5), 1e-3);
    EXPECT_NEAR(receiver["cutoffFrequencyGHz"].get<double>(), 5.0, 2e-3);
    EXPECT_NEAR(report["whole"]["dcGainDb"].get<double>(), 0.0, 1e-9);
    EXPECT_LT(report["whole"]["noiseBandwidthGHz"], receiver["noiseBandwidthGHz"]);

    const std::string frequency = folder.Read("r-frequency.csv");
    EXPECT_EQ(frequency.rfind("frequency [Hz],0 moving-average magnitude [dB],0 moving-average group delay [ps],"
                              "2 bessel-thomson magnitude [dB],2 bessel-thomson group delay [ps],whole magnitude [dB],"
                              "whole group delay [ps]\n0,",
                              0),
              0U);
    EXPECT_EQ(std::count(frequency.begin(), frequency.end(), '\n'), 1 + 511 * 8 + 1);
    EXPECT_NE(frequency.find("\n80000000000,"), std::string::npos);
    EXPECT_EQ(frequency.substr(frequency.size() - 2), ",\n");  // far below -60 dB at half the sample rate: no delay

    const Waveform impulse = ReadWaveform(folder / "r-impulse.csv", {{}, "whole"});
    ASSERT_EQ(impulse.samples.size(), 511U * 16);
    EXPECT_NEAR(std::accumulate(impulse.samples.begin(), impulse.samples.end(), 0.0), 16.0, 1e-9);  // DC gain, per UI
    const auto peak = std::max_element(impulse.samples.begin(), impulse.samples.end()) - impulse.samples.begin();
    EXPECT_EQ(peak, (511 * 16 - 1) / 2);  // in the middle
    EXPECT_NEAR((impulse.start + static_cast<double>(peak) * impulse.interval) * 1e12,
                report["whole"]["peakDelayPs"].get<double>(), 1e-9);
    EXPECT_TRUE(IsPng(folder.Read("r.png")));

    ASSERT_EQ(RunProgram(folder, "response chain.json"), 0);
    const std::string table = folder.Read("out");
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 4);
    EXPECT_EQ(folder.Read("err"), "");
    const json equalisers = {{{"type", "ffe"}, {"useManualTaps", true}, {"taps", {1.1, -0.1}}},
                             {{"type", "dfe"}, {"useManualTaps", true}, {"taps", {0.2, 0.1}}},
                             {{"type", "ffe"}, {"numberOfTaps", 3}}};
    folder.Write("e-dfe-1.png", json{{"device", device}, {"filters", equalisers}}.dump());
    ASSERT_EQ(RunProgram(folder, "response e-dfe-1.png -o r"), 0) << folder.Read("err");
    EXPECT_TRUE(IsPng(folder.Read("r-ffe-0.png")) && IsPng(folder.Read("r-dfe-1.png")));
    EXPECT_FALSE(std::filesystem::exists(folder / "r-ffe-2.png"));
    ExpectRefusals(folder, "response",
                   {{"chain.json -o no/r", 1, "no/r-frequency.csv: cannot be written"},
                    {"e-dfe-1.png -o e", 2, "--output: is e-dfe-1.png, which this command reads"}});
}

// A Gaussian channel of 8 ps, its peak at 3 ns.
TEST(ResponseProgram, DrawsAndReportsACorrectedChannel)
{
    const TestFolder folder;
    constexpr double kInterval = 1.2303e-12;  // [s]
    std::vector<double> impulse(8128);
    for (std::size_t k = 0; k < impulse.size(); ++k)
        impulse[k] = 0.4 * std::exp(-0.5 * std::pow((static_cast<double>(k) * kInterval - 3e-9) / 8e-12, 2.0));
    DSO::Workbench::WriteWaveform(folder / "table.csv", impulse, kInterval);
    const json filters = {{{"type", "copy"}},
                          {{"type", "sirc"}, {"channelResponse", "table.csv"}, {"referenceCutoffPercent", 75}}};
    const json device = {{"baudRateGBd", 26.5625}, {"samplesPerUi", 16}, {"patternLengthUi", 511}};
    folder.Write("chain.json", json{{"device", device}, {"filters", filters}}.dump());
    const json report = ReportOf(folder, "response chain.json -o r")["filters"];
    EXPECT_FALSE(report[0].contains("correctedChannel"));
    const json& channel = report[1]["correctedChannel"];
    EXPECT_NEAR(channel["cutoffGHz"].get<double>(), 19.921875, 1e-9);
    EXPECT_NEAR(channel["comparedToGHz"].get<double>(), 1.5 * 19.921875, 0.06);  // a bin
    // Linear interpolation of the kernel and of the table on the filter's grid: a hundredth of a dB.
    EXPECT_LT(std::abs(channel["largestDifferenceDb"].get<double>()), 0.02);

    EXPECT_TRUE(IsPng(folder.Read("r-sirc-1.png")));
    const std::string table = folder.Read("r-sirc-1.csv");
    EXPECT_EQ(table.rfind("frequency [Hz],measured [dB],target [dB],correction [dB],corrected [dB]\n0,", 0), 0U);
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1024);  // a head and bins 0 to 2 * 511
    EXPECT_FALSE(std::filesystem::exists(folder / "r-sirc-0.png"));

    ASSERT_EQ(RunProgram(folder, "response chain.json"), 0);
    EXPECT_NE(folder.Read("out").find("\n1 sirc: corrected channel less target (Bessel-Thomson, 19.922 GHz): "),
              std::string::npos);
}

TEST(OptimiseProgram, WritesTheBestChainAndGoesOnWithItsTable)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.csv --prbs 11 --coding NRZ --spu 8 --loss 12 --noise 0.002"), 0);
    folder.Write("chain.json", R"({"filters": []})");
    const std::string search = "optimise chain.json c.csv -o best.json --ctle peaking --ffe-taps 4 --tried t.txt";
    const json report = ReportOf(folder, search);
    EXPECT_EQ(report["rank"], "opening");
    const json stages = ReportOf(folder, "apply best.json c.csv")["stages"];
    EXPECT_EQ(stages.back()["eyes"][0]["openingPercent"], report["trials"][0]["figure"]);
    const std::string table = folder.Read("t.txt");
    EXPECT_EQ(ReportOf(folder, search), report);
    EXPECT_EQ(folder.Read("t.txt"), table);
    folder.Write("table.json", R"({"filters": [{"type": "sirc", "channelResponse": "h.csv"}]})");
    folder.Write("h.csv", "0, 1");
    ExpectRefusals(folder, "optimise table.json c.csv",
                   {{"-o h.csv", 2, "--output: is h.csv, which this command reads"},
                    {"-o b.json --tried ./h.csv", 2, "--tried: is ./h.csv, which this command reads"}});
    ExpectRefusals(folder, "optimise chain.json c.csv",
                   {{"-o chain.json", 2, "--output: is chain.json, which this command reads"},
                    {"c.csv -o b.json --minus c.csv", 2, "--minus: is c.csv; expected none for 2 captures"},
                    {"- -o b.json", 2, "capture: is -, standard input, among 2"},
                    {"-o b.json --tried t.txt --rank height", 2, "t.txt: is no table of trials of these captures"},
                    {"-o b.json --ctle none --ffe-taps 0", 2, "expected something to search"},
                    {"-o b.json --rank luck", 2, "--rank"}});
}

TEST(SweepProgram, RanksTheBandwidthsOfANoisyCapture)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 9 --noise 0.03 --loss 6 --spu 8 --chain chain.json"), 0);
    const json report =
        ReportOf(folder, "sweep chain.json c.npy --over filters.1.cutoffPercent=-1,20:1,30,50,70,90 -o s");
    EXPECT_EQ(report["over"], json::array({"filters.1.cutoffPercent"}));
    ASSERT_EQ(report["runs"].size(), 6U);
    for (std::size_t k = 0; k < 4; ++k) {
        const json& run = report["runs"][k];
        EXPECT_EQ(run["rank"], k + 1);
        EXPECT_EQ(run["eyes"].size(), 3U);
        const auto smallest = [&](const char* figure) {
            return std::min({run["eyes"][0][figure], run["eyes"][1][figure], run["eyes"][2][figure]});
        };
        EXPECT_EQ(run["smallestHeight"], smallest("height"));
        EXPECT_EQ(run["smallestWidthUi"], smallest("widthUi"));
        EXPECT_EQ(run["smallestOpeningPercent"], smallest("openingPercent"));
        EXPECT_LE(run["smallestOpeningPercent"], report["runs"][k == 0 ? 0 : k - 1]["smallestOpeningPercent"]);
    }
    // 30 % of the symbol rate is too little for four levels, whatever the noise.
    EXPECT_EQ(report["runs"][3]["values"]["filters.1.cutoffPercent"], 30);
    EXPECT_EQ(report["runs"][4]["values"]["filters.1.cutoffPercent"], -1);
    EXPECT_NE(report["runs"][4]["error"].get<std::string>().find("cutoffPercent is -1"), std::string::npos);
    EXPECT_NE(report["runs"][5]["error"].get<std::string>().find("expected a number"), std::string::npos);
    EXPECT_EQ(report["runs"][5].size(), 2U);
    EXPECT_TRUE(IsPng(folder.Read("s.png")));

    ASSERT_EQ(RunProgram(folder, "simulate -o hard.npy --prbs 9 --noise 0.04 --loss 8 --spu 8"), 0);
    const json both =
        ReportOf(folder, "sweep chain.json hard.npy c.npy --over filters.1.cutoffPercent=-1,50,70 -o both")["runs"];
    EXPECT_EQ(both[0]["worstCapture"], "hard.npy");
    EXPECT_LT(both[0]["smallestOpeningPercent"], report["runs"][0]["smallestOpeningPercent"]);
    EXPECT_NE(both[2]["error"].get<std::string>().find("cutoffPercent is -1"), std::string::npos);
    EXPECT_TRUE(IsPng(folder.Read("both.png")));
}

// The sheet takes 64 of them; the table all.
TEST(SweepProgram, TellsOfMoreRunsThanASheetTakes)
{
    const TestFolder folder;
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 7 --coding NRZ --spu 8 --chain chain.json"), 0);
    ASSERT_EQ(RunProgram(folder, "sweep chain.json c.npy --over filters.1.cutoffPercent=31:100:1"), 0);
    const std::string table = folder.Read("out");
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 71);
    EXPECT_NE(table.find("\n   70 "), std::string::npos) << table;
    EXPECT_TRUE(IsPng(folder.Read("sweep.png")));
}

TEST(SweepProgram, SaysWhoseFaultAFailureIs)
{
    const TestFolder folder;
    folder.Write("chain.json", R"({
        "device": {"baudRateGBd": 10, "samplesPerUi": 8, "signalCoding": "NRZ", "patternSymbols": {"prbs": 7}},
        "filters": [{"type": "copy"}, {"type": "copy"}, {"type": "bessel-thomson", "cutoffPercent": 75},
                    {"type": "copy"}, {"type": "copy"}]})");
    folder.Write("flat.txt", "1\n1\n1\n");
    ASSERT_EQ(RunProgram(folder, "simulate -o c.npy --prbs 7 --coding NRZ --spu 8 --baud 10"), 0);
    folder.Write("short.txt", "1\n2\n");
    const std::string good = " --over filters.2.cutoffPercent=50,75";
    ExpectRefusals(
        folder, "sweep",
        {
            {"chain.json c.npy", 2, "--over is required"},
            {"chain.json c.npy --over filters.2.cutofPercent=1,2", 2, "the nearest one is \"cutoffPercent\""},
            {"chain.json c.npy --over filters.5.order=1", 2, "filters has no 5; it holds 5, counted from 0"},
            {"chain.json c.npy --over filters.2.cutoffPercent.x=1", 2, "filters.2.cutoffPercent is 75, which holds no"},
            {"chain.json c.npy --over filters.2.cutoffPercent=-1,-2", 1, "cutoffPercent is -1"},
            {"chain.json c.npy" + good + good, 2, "is given twice"},
            {"chain.json c.npy" + good + good + good, 2, "is given 3 times"},
            {"chain.json c.npy --over a=1:200:1 --over b=1:200:1", 2, "gives 40000 combinations"},
            {"chain.json flat.txt" + good, 1, "flat.txt: is constant, 1 V"},
            {"chain.json c.npy --minus short.txt" + good, 1, "short.txt: has 2 samples"},
        });
}

}  // namespace

}  // namespace Tarnwick::App
