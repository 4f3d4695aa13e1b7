// tarnwick info: what a capture holds.
#include "commands/info.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <numeric>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "capture.h"
#include "commands/commands.h"
#include "framework/fftifft.h"
#include "workbench/eye.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

namespace {

using Complex = std::complex<double>;

constexpr std::size_t kMostAnalysed = std::size_t{1} << 21U;  // samples: plenty for timing, and 64 MiB of transform
constexpr std::size_t kFewest = 64;

std::span<const double> Head(std::span<const double> samples)
{
    return samples.first(std::min(samples.size(), kMostAnalysed));
}

std::vector<double> PowerSpectrum(const std::vector<double>& values, std::size_t length)
{
    std::vector<Complex> bins(values.begin(), values.end());
    bins.resize(length);
    DSO::SystemFramework::FFTIFFT_Factory::GetInstance().FFT(bins.data(), static_cast<int>(length));
    std::vector<double> power(length);
    std::transform(bins.begin(), bins.end(), power.begin(), [](Complex bin) { return std::norm(bin); });
    return power;
}

// Where the line around bin k stands, between the bins: the peak of a parabola through the logarithms of three.
double LinePosition(const std::vector<double>& power, std::size_t k)
{
    const double tiny = 1e-12 * power[k];
    const double left = std::log(power[k - 1] + tiny);
    const double here = std::log(power[k] + tiny);
    const double right = std::log(power[k + 1] + tiny);
    const double bend = left - 2.0 * here + right;
    return static_cast<double>(k) + (bend < 0.0 ? 0.5 * (left - right) / bend : 0.0);
}

}  // namespace

std::optional<Found> FindSamplesPerUi(std::span<const double> samples)
{
    samples = Head(samples);
    if (samples.size() < kFewest)
        return std::nullopt;
    std::vector<double> slope(samples.size() - 1);
    for (std::size_t k = 0; k < slope.size(); ++k)
        slope[k] = (samples[k + 1] - samples[k]) * (samples[k + 1] - samples[k]);
    const double mean = std::accumulate(slope.begin(), slope.end(), 0.0) / static_cast<double>(slope.size());
    // A Hann window, so that a line between two bins leaks little.
    for (std::size_t k = 0; k < slope.size(); ++k) {
        const double phase = 2.0 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(slope.size());
        slope[k] = (slope[k] - mean) * (0.5 - 0.5 * std::cos(phase));
    }
    const std::size_t length = std::bit_ceil(2 * slope.size());
    const std::vector<double> power = PowerSpectrum(slope, length);
    // From hundreds of samples per UI to two; the record has to hold some tens of symbols.
    const std::size_t lowest = std::max<std::size_t>(length / 1024, 64);
    const std::size_t highest = length / 2 - 2;
    if (lowest >= highest)
        return std::nullopt;
    const auto strongest =
        static_cast<std::size_t>(std::max_element(power.begin() + static_cast<std::ptrdiff_t>(lowest),
                                                  power.begin() + static_cast<std::ptrdiff_t>(highest)) -
                                 power.begin());
    const double background = std::accumulate(power.begin() + static_cast<std::ptrdiff_t>(lowest),
                                              power.begin() + static_cast<std::ptrdiff_t>(highest), 0.0) /
                              static_cast<double>(highest - lowest);
    // The largest of n bins of white noise stands ln n above their mean.
    const double noise = background * std::log(static_cast<double>(length));
    if (!(power[strongest] > 4.0 * noise))
        return std::nullopt;
    // Short edges leave lines at all multiples of the symbol rate: the lowest of those that are as strong is the clock.
    std::size_t clock = strongest;
    for (std::size_t part = 2; strongest / part >= lowest; ++part) {
        const std::size_t middle = strongest / part;
        const auto peak = std::max_element(power.begin() + static_cast<std::ptrdiff_t>(middle) - 2,
                                           power.begin() + static_cast<std::ptrdiff_t>(middle) + 3);
        if (*peak > 0.3 * power[strongest])
            clock = static_cast<std::size_t>(peak - power.begin());
    }
    double samplesPerUi = static_cast<double>(length) / LinePosition(power, clock);
    // Closer than the record can tell, a whole number is meant.
    if (std::abs(samplesPerUi - std::round(samplesPerUi)) <
        samplesPerUi * samplesPerUi / static_cast<double>(samples.size()))
        samplesPerUi = std::round(samplesPerUi);
    return Found{samplesPerUi, power[clock] > 40.0 * noise ? Confidence::Certain : Confidence::Likely};
}

std::optional<Found> FindPeriod(std::span<const double> samples, double shortest)
{
    samples = Head(samples);
    if (samples.size() < kFewest)
        return std::nullopt;
    const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
    std::vector<double> centred(samples.begin(), samples.end());
    for (double& value : centred)
        value -= mean;
    const std::size_t length = std::bit_ceil(2 * centred.size());
    const std::vector<double> power = PowerSpectrum(centred, length);
    std::vector<Complex> correlation(power.begin(), power.end());
    DSO::SystemFramework::FFTIFFT_Factory::GetInstance().IFFT(correlation.data(), static_cast<int>(length), true);
    // Energies of the two stretches that a lag lays over each other.
    std::vector<double> energy(centred.size() + 1, 0.0);
    for (std::size_t k = 0; k < centred.size(); ++k)
        energy[k + 1] = energy[k] + centred[k] * centred[k];
    const auto likeness = [&](std::size_t lag) {
        const double both = energy[centred.size() - lag] * (energy.back() - energy[lag]);
        return both > 0.0 ? correlation[lag].real() / std::sqrt(both) : 0.0;
    };
    const std::size_t first = std::max<std::size_t>(static_cast<std::size_t>(shortest) + 1, 2);
    // At most half the record, or what is laid over each other is too short to tell; a shade more, for captures a sample short.
    const std::size_t last = centred.size() / 2 + 2;
    double best = 0.0;
    for (std::size_t lag = first; lag < std::min(last, centred.size()); ++lag)
        best = std::max(best, likeness(lag));
    if (best < 0.7)
        return std::nullopt;
    std::size_t period = first;
    while (likeness(period) < best - 0.02)
        ++period;
    while (likeness(period + 1) > likeness(period))
        ++period;
    return Found{static_cast<double>(period), best > 0.95 ? Confidence::Certain : Confidence::Likely};
}

std::vector<double> FindLevels(std::span<const double> samples, double samplesPerUi)
{
    std::vector<double> best;
    double bestOpening = 0.02;  // of the distance between two levels
    for (int count = 2; count <= 4; ++count) {
        const EyeReport report = MeasureEyes(samples, samplesPerUi, count);
        double opening = report.eyes.empty() ? 0.0 : 1.0;
        for (std::size_t eye = 0; eye < report.eyes.size(); ++eye)
            opening = std::min(opening, report.eyes[eye].height / (report.levels[eye + 1] - report.levels[eye]));
        if (opening > bestOpening) {
            bestOpening = opening;
            best = report.levels;
        }
    }
    return best;
}

namespace {

struct Options {
    CaptureOptions capture;
    bool json = false;
};

const char* Name(Confidence confidence)
{
    return confidence == Confidence::Certain ? "certain" : "likely";
}

nlohmann::ordered_json ToJson(const std::optional<Found>& found)
{
    if (!found)
        return nullptr;
    return {{"value", found->value}, {"confidence", Name(found->confidence)}};
}

void Line(const char* name, const std::string& value)
{
    fmt::print("{:<18} {}\n", name, value);
}

void Run(const Options& options)
{
    const Waveform capture = ReadCapture(options.capture);
    const std::span<const double> samples = capture.samples;
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    const auto count = static_cast<double>(samples.size());
    const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) / count;
    const double rms = std::sqrt(std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0) / count);
    const auto samplesPerUi = FindSamplesPerUi(samples);
    const auto period = FindPeriod(samples, samplesPerUi ? 1.5 * samplesPerUi->value : 8.0);
    const auto levels = samplesPerUi ? FindLevels(samples, samplesPerUi->value) : std::vector<double>();
    const double rate = samplesPerUi && capture.interval > 0.0 ? 1e-9 / (capture.interval * samplesPerUi->value) : 0.0;

    if (options.json) {
        nlohmann::ordered_json report = {{"samples", samples.size()},
                                         {"interval", nullptr},
                                         {"min", *low},
                                         {"max", *high},
                                         {"mean", mean},
                                         {"rms", rms},
                                         {"samplesPerUi", ToJson(samplesPerUi)},
                                         {"symbolRateGBd", nullptr},
                                         {"period", ToJson(period)},
                                         {"levels", levels}};
        if (capture.interval > 0.0)
            report["interval"] = capture.interval;
        if (rate > 0.0)
            report["symbolRateGBd"] = rate;
        fmt::print("{}\n", report.dump(2));
        return;
    }
    Line("samples", fmt::format("{}", samples.size()));
    Line("sample interval", capture.interval > 0.0 ? fmt::format("{:.6g} s", capture.interval) : "not in the file");
    Line("range", fmt::format("{:.6g} to {:.6g} V", *low, *high));
    Line("mean, rms", fmt::format("{:.6g} V, {:.6g} V", mean, rms));
    Line("samples per UI",
         samplesPerUi ? fmt::format("{:.6g} ({})", samplesPerUi->value, Name(samplesPerUi->confidence)) : "not found");
    Line("symbol rate", rate > 0.0 ? fmt::format("{:.6g} GBd", rate) : "not found");
    std::string length = "not found: the record holds one repetition or less, or none";
    if (period) {
        length = fmt::format("{} samples", period->value);
        if (samplesPerUi)
            length += fmt::format(" = {:.6g} UI", period->value / samplesPerUi->value);
        length += fmt::format(" ({}), {:.6g} repetitions", Name(period->confidence), count / period->value);
    }
    Line("pattern period", length);
    std::string text;
    for (const double level : levels)
        text += fmt::format("{}{:.5g}", text.empty() ? "" : ", ", level);
    Line("levels", levels.empty() ? "not found: no level stands apart from the next"
                                  : fmt::format("{}: {} V", levels.size(), text));
}

}  // namespace

void AddInfo(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("info", "Tell what a capture holds");
    AddCaptureOptions(*command, options->capture);
    command->add_flag("--json", options->json, "Print as JSON; null where nothing was found");
    command->callback([options] { Run(*options); });
}

}  // namespace Tarnwick::App
