#include "eyeplot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <vector>

#include <fmt/format.h>

#include "failure.h"
#include "waveform.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kColumns = 480;  // over two UI
constexpr std::size_t kRows = 320;
constexpr double kSpanUi = 2.0;
constexpr float kShade = 0.35F;

// How many traces cross each cell, lowest row first.
struct Density {
    std::vector<float> cells = std::vector<float>(kColumns * kRows, 0.0F);
};

// The waveform cut into pieces of two UI around the measuring phase, drawn as lines from sample to sample.
Density Accumulate(std::span<const double> samples, double samplesPerUi, double phaseUi, VoltageRange range)
{
    Density density;
    const double rowsPerVolt = static_cast<double>(kRows - 1) / (range.high - range.low);
    const double columnsPerSample = static_cast<double>(kColumns) / kSpanUi / samplesPerUi;
    const auto row = [&](double value) { return (value - range.low) * rowsPerVolt; };
    // Each UI is drawn twice, in the left and in the right half; `shift` is where sample 0 lies in columns.
    const double shift = (1.0 - phaseUi) * static_cast<double>(kColumns) / kSpanUi;
    for (std::size_t k = 0; k + 1 < samples.size(); ++k) {
        const double from = shift + static_cast<double>(k) * columnsPerSample;
        const double to = from + columnsPerSample;
        for (auto column = static_cast<std::size_t>(std::ceil(from)); static_cast<double>(column) < to; ++column) {
            const double part = (static_cast<double>(column) - from) / columnsPerSample;
            const double here = row(samples[k] + part * (samples[k + 1] - samples[k]));
            const double next =
                row(samples[k] + std::min(1.0, part + 1.0 / columnsPerSample) * (samples[k + 1] - samples[k]));
            // A steep edge passes through several rows in one column.
            const auto first = static_cast<std::size_t>(std::min(here, next));
            const auto last = std::min(static_cast<std::size_t>(std::max(here, next)), kRows - 1);
            const float share = 1.0F / static_cast<float>(last - first + 1);
            for (std::size_t r = first; r <= last; ++r) {
                density.cells[r * kColumns + column % (kColumns / 2)] += share;
                density.cells[r * kColumns + column % (kColumns / 2) + kColumns / 2] += share;
            }
        }
    }
    return density;
}

std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char letter : text)
        quoted += letter == '\'' ? std::string("''") : std::string(1, letter);
    return quoted + "'";
}

// gnuplot's own text markup is off; what is left to guard is the quote.
std::string Script(const Density& density, VoltageRange range, const EyeReport& report, const std::string& title,
                   const fs::path& picture)
{
    const double swing = range.high - range.low;
    const bool milli = swing < 0.5;
    const double unit = milli ? 1e3 : 1.0;
    std::ostringstream script;
    script << "set terminal pngcairo size 960,640 noenhanced font 'sans,12' background '#101018'\n"
           << "set output " << Quoted(picture.string()) << "\n"
           << "set title " << Quoted(title) << " textcolor '#e8e8f0'\n"
           << "set border linecolor '#a0a0b0'\n"
           << "set xlabel 'time from the measuring phase [UI]' textcolor '#e8e8f0'\n"
           << "set ylabel 'voltage [" << (milli ? "mV" : "V") << "]' textcolor '#e8e8f0'\n"
           << "set tics textcolor '#e8e8f0'\n"
           << "set grid front linecolor '#505060' linewidth 0.5\n"
           << "unset key\nunset colorbox\n"
           << "set palette defined (0 '#101018', 0.15 '#14288c', 0.4 '#1e96c8', 0.65 '#50dc78', 0.85 '#ffe650', 1 "
              "'#ffffff')\n"
           << "set cbrange [0:1]\n"
           << "set style textbox opaque noborder fillcolor '#101018' margins 0.6,0.6\n"
           << fmt::format("set xrange [-1:1]\nset yrange [{}:{}]\n", range.low * unit, range.high * unit);
    for (std::size_t eye = 0; eye < report.eyes.size(); ++eye) {
        const double middle = 0.5 * (report.levels[eye] + report.levels[eye + 1]);
        const double height = report.eyes[eye].height;
        script << fmt::format(
                      "set arrow from 0,{} to 0,{} heads size 0.015,25 front linecolor '#ff6060' linewidth 1.5\n",
                      (middle - 0.5 * height) * unit, (middle + 0.5 * height) * unit)
               << fmt::format("set label '{:.4g} {}' at 0.04,{} front left boxed textcolor '#ffb0b0'\n", height * unit,
                              milli ? "mV" : "V", middle * unit);
    }
    script << fmt::format("plot '-' binary array=({},{}) format='%float32' origin=({},{}) dx={} dy={} with image\n",
                          kColumns, kRows, -1.0 + 1.0 / static_cast<double>(kColumns),
                          (range.low + 0.5 * swing / static_cast<double>(kRows)) * unit,
                          kSpanUi / static_cast<double>(kColumns), swing * unit / static_cast<double>(kRows));
    // Rare traces have to show beside the common ones: a root, between the linear scale and the logarithm.
    const float most = *std::max_element(density.cells.begin(), density.cells.end());
    std::vector<float> shades(density.cells.size());
    std::transform(density.cells.begin(), density.cells.end(), shades.begin(),
                   [most](float count) { return most > 0.0F ? std::pow(count / most, kShade) : 0.0F; });
    script.write(reinterpret_cast<const char*>(shades.data()),
                 static_cast<std::streamsize>(shades.size() * sizeof(float)));
    script << "\nunset output\n";
    return script.str();
}

// A fixed command: everything about the picture goes through its standard input.
bool RunGnuplot(const std::string& script)
{
#if defined(_WIN32)
    std::FILE* pipe = _popen("gnuplot -", "wb");
#else
    std::FILE* pipe = popen("gnuplot - 2>/dev/null", "w");
#endif
    if (pipe == nullptr)
        return false;
    const bool written = std::fwrite(script.data(), 1, script.size(), pipe) == script.size();
#if defined(_WIN32)
    return _pclose(pipe) == 0 && written;
#else
    return pclose(pipe) == 0 && written;
#endif
}

}  // namespace

VoltageRange RangeOf(std::span<const double> samples, std::span<const double> others)
{
    VoltageRange range{samples.front(), samples.front()};
    for (const auto& part : {samples, others}) {
        for (const double sample : part) {
            range.low = std::min(range.low, sample);
            range.high = std::max(range.high, sample);
        }
    }
    const double room = std::max(0.08 * (range.high - range.low), 1e-12);
    return {range.low - room, range.high + room};
}

void DrawEye(const fs::path& path, std::span<const double> samples, double samplesPerUi, const EyeReport& report,
             VoltageRange range, const std::string& title)
{
    fs::path temporary = path;
    temporary += fmt::format(".{:08x}.part", std::random_device()());
    const Density density = Accumulate(samples, samplesPerUi, report.phaseUi, range);
    std::error_code error;
    const bool drawn = RunGnuplot(Script(density, range, report, title, temporary)) && fs::exists(temporary, error);
    if (drawn)
        fs::rename(temporary, path, error);
    if (!drawn || error) {
        fs::remove(temporary, error);
        throw DataFailure(fmt::format("{}: gnuplot, which draws the eyes, is missing or failed (Debian: gnuplot-nox)",
                                      path.string()));
    }
}

}  // namespace Tarnwick::App
