// tarnwick measure: levels, eyes and TDECQ of a capture.
#include "commands/measure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "commands/info.h"
#include "options.h"
#include "progress.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

namespace Maths = DSO::Maths;

namespace {

constexpr std::array<const char*, 4> kAssumptions = {
    "the capture is taken behind the reference receiver, a fourth-order Bessel-Thomson response of half the symbol "
    "rate",
    "noise behind that receiver is white; the capture's own noise counts as part of the signal",
    "the symbols are those decided from the capture, the levels evenly spaced between the outer ones",
    "target symbol error ratio 4.8e-4 in two time slices 0.1 UI apart; the taps sum to 1, the largest is tap 1, 2 or 3",
};

}  // namespace

double LevelMismatchRatio(std::span<const double> levels)
{
    const double middle = 0.5 * (levels[0] + levels[3]);
    const double lower = (middle - levels[1]) / (middle - levels[0]);
    const double upper = (levels[2] - middle) / (levels[3] - middle);
    return std::min({3.0 * lower, 3.0 * upper, 2.0 - 3.0 * lower, 2.0 - 3.0 * upper});
}

SignalQuality Measure(std::span<const double> samples, double samplesPerUi, int patternLengthUi, E_SIGNAL_CODING coding,
                      int numberOfTaps, const std::string& name)
{
    SignalQuality quality;
    const int levelCount = LevelCount(coding);
    quality.eye = MeasureEyes(samples, samplesPerUi, levelCount);
    std::vector<double> levels = quality.eye.levels;
    if (patternLengthUi > 0) {
        try {
            quality.symbols = FindSymbols(samples, samplesPerUi, patternLengthUi, coding, name);
            if (levels.empty())
                levels = quality.symbols->voltages;
        } catch (const DataFailure& failure) {
            quality.whyNot = failure.what();
        }
    } else {
        quality.whyNot = "the pattern's length is not known";
    }
    if (levelCount != 4) {
        quality.whyNot = "it is defined for PAM4";
        return quality;
    }
    if (!levels.empty())
        quality.levelMismatchRatio = LevelMismatchRatio(levels);
    if (!quality.symbols || patternLengthUi < 1)
        return quality;
    const auto whole = static_cast<std::size_t>(samplesPerUi);
    if (whole == 0 || static_cast<double>(whole) != samplesPerUi) {
        quality.whyNot = fmt::format("{:.6g} samples per UI are not a whole number", samplesPerUi);
        return quality;
    }
    const std::size_t period = whole * static_cast<std::size_t>(patternLengthUi);
    samples = samples.first(samples.size() / period * period);
    if (const auto symbols = Maths::LocatePattern(samples, quality.symbols->levels, whole))
        quality.equalizer = Maths::FindReferenceEqualizer(samples, *symbols, whole,
                                                          static_cast<std::size_t>(numberOfTaps), std::nullopt);
    if (!quality.equalizer)
        quality.whyNot = "no taps have their largest among the first three";
    return quality;
}

namespace {

struct Options {
    CaptureOptions capture;
    std::string coding;
    double samplesPerUi = 0.0;
    int patternLengthUi = 0;
    int numberOfTaps = 5;
    bool json = false;
};

E_SIGNAL_CODING CodingOf(const Options& options, std::span<const double> samples, double samplesPerUi)
{
    for (const E_SIGNAL_CODING coding :
         {SIGNAL_CODING_NRZ, SIGNAL_CODING_PAM3, SIGNAL_CODING_PAM4, SIGNAL_CODING_PAM4_PRECODED})
        if (options.coding == NameOf(coding))
            return coding;
    switch (FindLevels(samples, samplesPerUi).size()) {
        case 2: return SIGNAL_CODING_NRZ;
        case 3: return SIGNAL_CODING_PAM3;
        case 4: return SIGNAL_CODING_PAM4;
        default:
            throw DataFailure(fmt::format("{}: the number of levels cannot be told (closed eyes?); give --coding",
                                          options.capture.name));
    }
}

double SamplesPerUiOf(const Options& options, std::span<const double> samples)
{
    if (options.samplesPerUi > 0.0)
        return options.samplesPerUi;
    const auto found = FindSamplesPerUi(samples);
    if (!found)
        throw DataFailure(
            fmt::format("{}: the samples per UI cannot be told; give --samples-per-ui", options.capture.name));
    return found->value;
}

// As given, or what the record repeats itself after, or the whole record when it holds whole UI.
int PatternLengthOf(const Options& options, std::span<const double> samples, double samplesPerUi)
{
    if (options.patternLengthUi > 0)
        return options.patternLengthUi;
    const auto period = FindPeriod(samples, 1.5 * samplesPerUi);
    const double length = (period ? period->value : static_cast<double>(samples.size())) / samplesPerUi;
    const double whole = std::round(length);
    return std::abs(length - whole) * samplesPerUi < 0.5 ? static_cast<int>(whole) : 0;
}

std::string Joined(std::span<const double> values, const char* format)
{
    std::string text;
    for (const double value : values)
        text += fmt::format("{}{}", text.empty() ? "" : " ", fmt::format(fmt::runtime(format), value));
    return text.empty() ? "-" : text;
}

nlohmann::ordered_json ToJson(const SignalQuality& quality, double samplesPerUi, int patternLengthUi,
                              E_SIGNAL_CODING coding)
{
    nlohmann::ordered_json report = {{"coding", NameOf(coding)},
                                     {"samplesPerUi", samplesPerUi},
                                     {"patternLengthUi", patternLengthUi},
                                     {"levels", quality.eye.levels},
                                     {"eyes", EyesToJson(quality.eye)},
                                     {"phaseUi", quality.eye.phaseUi},
                                     {"symbolQuality", nullptr},
                                     {"rlm", nullptr},
                                     {"tdecqDb", nullptr}};
    if (quality.symbols)
        report["symbolQuality"] = quality.symbols->quality;
    if (quality.levelMismatchRatio)
        report["rlm"] = *quality.levelMismatchRatio;
    if (const auto& equalizer = quality.equalizer) {
        report["closed"] = equalizer->closure.closed;
        if (!equalizer->closure.closed)
            report["tdecqDb"] = equalizer->closure.tdecqDb;
        report["taps"] = equalizer->taps;
        report["mainCursor"] = equalizer->cursor + 1;
        report["oma"] = equalizer->closure.oma;
        report["noiseRms"] = equalizer->closure.sigma;
        report["noiseGain"] = equalizer->closure.noiseGain;
        report["assumptions"] = kAssumptions;
    } else {
        report["whyNoTdecq"] = quality.whyNot;
    }
    return report;
}

void Line(const char* name, const std::string& value)
{
    fmt::print("{:<16} {}\n", name, value);
}

void Print(const SignalQuality& quality, double samplesPerUi, int patternLengthUi, E_SIGNAL_CODING coding)
{
    Line("coding", NameOf(coding));
    Line("samples per UI", fmt::format("{:.6g}", samplesPerUi));
    Line("pattern", patternLengthUi > 0 ? fmt::format("{} UI", patternLengthUi) : "length not known");
    Line("symbols", quality.symbols ? quality.symbols->Description(coding) : "not found");
    Line("levels V", Joined(quality.eye.levels, "{:.4g}"));
    Line("eye heights V", HeightsText(quality.eye));
    Line("eye widths UI", WidthsText(quality.eye));
    if (quality.levelMismatchRatio)
        Line("RLM", fmt::format("{:.4f}", *quality.levelMismatchRatio));
    if (!quality.equalizer) {
        Line("TDECQ", "not measured: " + quality.whyNot);
        return;
    }
    const auto& equalizer = *quality.equalizer;
    Line("TDECQ", equalizer.closure.closed ? "the eye stays closed behind the reference equaliser"
                                           : fmt::format("{:.2f} dB", equalizer.closure.tdecqDb));
    Line("  taps", Joined(equalizer.taps, "{:.5f}") + fmt::format(", main cursor {}", equalizer.cursor + 1));
    Line("  OMA, noise V", fmt::format("{:.4g}, {:.4g} (noise gain {:.4f})", equalizer.closure.oma,
                                       equalizer.closure.sigma, equalizer.closure.noiseGain));
    for (const char* const assumption : kAssumptions)
        Line(assumption == kAssumptions.front() ? "  assuming that" : "", assumption);
}

void Run(const Options& options)
{
    const Waveform capture = ReadCapture(options.capture);
    const double samplesPerUi = SamplesPerUiOf(options, capture.samples);
    const E_SIGNAL_CODING coding = CodingOf(options, capture.samples, samplesPerUi);
    const int patternLengthUi = PatternLengthOf(options, capture.samples, samplesPerUi);
    SignalQuality quality;
    {
        Progress progress(1);
        progress.Begin("measure");
        quality =
            Measure(capture.samples, samplesPerUi, patternLengthUi, coding, options.numberOfTaps, options.capture.name);
    }
    if (options.json)
        fmt::print("{}\n", ToJson(quality, samplesPerUi, patternLengthUi, coding).dump(2));
    else
        Print(quality, samplesPerUi, patternLengthUi, coding);
}

}  // namespace

void AddMeasure(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    CLI::App* command =
        program.add_subcommand("measure", "Measure levels, eyes, RLM and, for PAM4, TDECQ of a capture");
    AddCaptureOptions(*command, options->capture);
    AddMinusOption(*command, options->capture);
    command->add_option("--coding", options->coding, "Line coding; found from open eyes when left out")
        ->check(CLI::IsMember({"NRZ", "PAM3", "PAM4", "PAM4-precoded"}));
    command->add_option("--samples-per-ui", options->samplesPerUi, "Samples per UI; found when left out")
        ->check(RealRange(1.0, 1e6));
    command->add_option("--pattern-length", options->patternLengthUi, "UI in the pattern; found when left out")
        ->check(CLI::Range(1, 2147483647));
    command->add_option("--taps", options->numberOfTaps, "Taps of the reference equaliser")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    command->add_flag("--json", options->json, "Print as JSON; null where nothing was found");
    command->footer("Example: tarnwick measure capture.csv --coding PAM4");
    command->callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
