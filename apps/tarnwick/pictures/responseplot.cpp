#include "pictures/responseplot.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <fmt/format.h>

#include "pictures/gnuplot.h"
#include "workbench/units.h"

namespace Tarnwick::App {

namespace {

namespace fs = std::filesystem;
using DSO::Workbench::ChainResponse;
using DSO::Workbench::CorrectedChannel;
using DSO::Workbench::kGiga;
using DSO::Workbench::kPicoPerUnit;
using DSO::Workbench::TransferFunction;

constexpr int kWidth = 1100;           // [pixels]
constexpr int kHeight = 1150;          // [pixels] of the response
constexpr int kChannelHeight = 620;    // [pixels] of a corrected channel
constexpr std::size_t kPoints = 2000;  // of a line: more than the picture has columns
constexpr double kShownDb = 40.0;      // magnitudes are shown down to this far below the largest of all
// The scale of group delay is set where the magnitude is within 20 dB of its largest, without the 2 % of extreme values at
// either end: near DC poles and zeros give very large ones.
constexpr double kDelayDb = 20.0;
constexpr double kDelayOutliers = 0.02;
constexpr double kTail = 0.01;        // of its peak: the whole's impulse response is shown until it stays below this
constexpr double kNarrowestUi = 2.0;  // shown of the impulse response on each side of its peak, at least
constexpr double kWidestUi = 10.0;    // and at most
constexpr double kSpike = 3.0;        // a line taller than the whole by more than this factor is cut off
constexpr const char* kColours[] = {"#4cc9f0", "#f9c74f", "#ff6b6b", "#90be6d", "#c77dff", "#f8961e"};

struct Range {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();

    void Take(double value)
    {
        if (!std::isfinite(value))
            return;
        low = std::min(low, value);
        high = std::max(high, value);
    }
    // With room around it; a constant gets as much as it takes to look like a line.
    std::string Command(const char* axis, double least) const
    {
        if (low > high)
            return fmt::format("set {}range [{}:{}]\n", axis, -least, least);
        const double room = std::max(0.08 * (high - low), 0.5 * (least - (high - low)));
        return fmt::format("set {}range [{}:{}]\n", axis, low - room, high + room);
    }
};

// One panel's lines and their data: the filters, then the whole, which is drawn first so that no filter hides behind it.
class Lines {
public:
    template <typename Value>
    void Add(const TransferFunction& function, std::ptrdiff_t first, std::ptrdiff_t last, double perStep,
             const Value& value)
    {
        const std::ptrdiff_t stride =
            std::max<std::ptrdiff_t>(1, (last - first) / static_cast<std::ptrdiff_t>(kPoints));
        data_ += fmt::format("$line{} << EOD\n", count_++);
        for (std::ptrdiff_t k = first; k <= last; k += stride) {
            const double shown = value(function, k);
            data_ += fmt::format("{:.8g} {}\n", static_cast<double>(k) * perStep,
                                 std::isfinite(shown) ? fmt::format("{:.8g}", shown) : "NaN");
        }
        data_ += "EOD\n";
    }

    std::string Plot(const ChainResponse& response) const
    {
        std::string command =
            data_ + fmt::format("plot $line{} with lines linewidth 5 linecolor '#ffffff' title 'whole'",
                                response.filters.size());
        for (std::size_t k = 0; k < response.filters.size(); ++k)
            command += fmt::format(", $line{} with lines linewidth 1.8 linecolor '{}' title {}", k,
                                   kColours[k % std::size(kColours)], Quoted(response.filters[k].label));
        return command + "\n";
    }

private:
    std::string data_;
    std::size_t count_ = 0;
};

double Magnitude(const TransferFunction& function, std::ptrdiff_t k)
{
    return function.magnitudeDb[static_cast<std::size_t>(k)];
}

double DelayPs(const TransferFunction& function, std::ptrdiff_t k)
{
    return function.groupDelay[static_cast<std::size_t>(k)] * kPicoPerUnit;
}

// The last bin that is shown.
std::ptrdiff_t LastBin(const ChainResponse& response)
{
    return static_cast<std::ptrdiff_t>(LastBinUpTo(response.whole, response.bandEnd));
}

// Arrow 1 and label 1.
std::string HalfRateMark(double symbolRate)
{
    const double half = 0.5 * symbolRate / kGiga;
    return fmt::format(
        "set arrow 1 from {},graph 0 to {},graph 1 nohead front dashtype 2 linecolor '#b0b0c0' linewidth 1.2\n"
        "set label 1 'half the symbol rate, {:.4g} GHz' at {},graph 0.06 offset 0.6,0 front textcolor '#b0b0c0'\n",
        half, half, half, half);
}

std::string MagnitudePanel(const ChainResponse& response)
{
    const std::ptrdiff_t last = LastBin(response);
    double highest = -std::numeric_limits<double>::infinity();
    response.ForEach([&](const std::string&, const TransferFunction& function) {
        highest = std::max(highest, *std::max_element(function.magnitudeDb.begin(), function.magnitudeDb.end()));
    });
    Range range;
    Lines lines;
    response.ForEach([&](const std::string&, const TransferFunction& function) {
        for (std::ptrdiff_t k = 0; k <= last; ++k)
            range.Take(std::max(Magnitude(function, k), highest - kShownDb));
        lines.Add(function, 0, last, function.Spacing() / kGiga, Magnitude);
    });
    return "set ylabel 'magnitude [dB]'\n" + range.Command("y", 2.0) + lines.Plot(response);
}

std::string DelayPanel(const ChainResponse& response)
{
    const std::ptrdiff_t last = LastBin(response);
    Range range;
    Lines lines;
    response.ForEach([&](const std::string&, const TransferFunction& function) {
        const double floor = *std::max_element(function.magnitudeDb.begin(), function.magnitudeDb.end()) - kDelayDb;
        std::vector<double> delays;
        for (std::ptrdiff_t k = 0; k <= last; ++k)
            if (Magnitude(function, k) > floor && std::isfinite(DelayPs(function, k)))
                delays.push_back(DelayPs(function, k));
        std::sort(delays.begin(), delays.end());
        const auto outside = static_cast<std::size_t>(kDelayOutliers * static_cast<double>(delays.size()));
        if (!delays.empty()) {
            range.Take(delays[outside]);
            range.Take(delays[delays.size() - 1 - outside]);
        }
        lines.Add(function, 0, last, function.Spacing() / kGiga, DelayPs);
    });
    return "set ylabel 'group delay [ps]'\n" + range.Command("y", 2.0) + lines.Plot(response);
}

std::string ImpulsePanel(const ChainResponse& response)
{
    const auto count = static_cast<std::ptrdiff_t>(response.whole.impulse.size());
    const auto value = [&](const TransferFunction& function, std::ptrdiff_t n) {
        return function.impulse[static_cast<std::size_t>((n % count + count) % count)] * response.samplesPerUi;
    };
    const std::ptrdiff_t peak = response.whole.peak;
    const double tallest = std::abs(value(response.whole, peak));
    const double highest = tallest > 0.0 ? kSpike * tallest : std::numeric_limits<double>::infinity();
    const std::ptrdiff_t half = (count - 1) / 2;
    std::ptrdiff_t extent = 0;
    for (std::ptrdiff_t n = 0; n <= half; ++n)
        if (std::max(std::abs(value(response.whole, peak - n)), std::abs(value(response.whole, peak + n))) >
            kTail * tallest)
            extent = n;
    const double shown = std::clamp(1.2 * static_cast<double>(extent), kNarrowestUi * response.samplesPerUi,
                                    kWidestUi * response.samplesPerUi);
    const std::ptrdiff_t reach = std::min(half, static_cast<std::ptrdiff_t>(std::ceil(shown)));

    Range range;
    Lines lines;
    response.ForEach([&](const std::string&, const TransferFunction& function) {
        for (std::ptrdiff_t n = peak - reach; n <= peak + reach; ++n)
            range.Take(std::clamp(value(function, n), -highest, highest));
        lines.Add(function, peak - reach, peak + reach, 1.0 / response.samplesPerUi, value);
    });
    return fmt::format(
               "set xlabel 'time from the impulse [UI]'\nset ylabel 'impulse response [1/UI]'\nunset arrow\n"
               "set xrange [{}:{}]\n",
               static_cast<double>(peak - reach) / response.samplesPerUi,
               static_cast<double>(peak + reach) / response.samplesPerUi) +
           range.Command("y", 0.1) + lines.Plot(response);
}

}  // namespace

void DrawResponse(const fs::path& path, const ChainResponse& response, const std::string& title)
{
    const double end = static_cast<double>(LastBin(response)) * response.whole.Spacing() / kGiga;
    std::string script = Theme() +
                         fmt::format(
                             "set multiplot layout 3,1 title {} textcolor '#e8e8f0' font 'sans,14'\n"
                             "set lmargin 11\nset rmargin 3\nset key above horizontal\n"
                             "set xlabel 'frequency [GHz]'\nset xrange [0:{}]\n",
                             Quoted(title), end) +
                         HalfRateMark(response.symbolRate);
    script += MagnitudePanel(response) + "unset label 1\nunset key\n" + DelayPanel(response) + ImpulsePanel(response);
    DrawPng(path, kWidth, kHeight, script + "unset multiplot\n");
}

void DrawChannel(const fs::path& path, const CorrectedChannel& channel, const std::string& title)
{
    const struct {
        const std::vector<double>& values;
        const char* style;  // the target, thin and dashed, shows on top of the corrected channel
        const char* name;
    } lines[] = {
        {channel.measured, "linewidth 2 linecolor '#f9c74f'", "measured"},
        {channel.correction, "linewidth 2 linecolor '#c77dff'", "correction"},
        {channel.corrected, "linewidth 6 linecolor '#4cc9f0'", "corrected"},
        {channel.target, "linewidth 2 dashtype 2 linecolor '#ffffff'", "target"},
    };
    double highest = 0.0;
    double lowest = 0.0;
    std::string data;
    for (const auto& line : lines) {
        data += fmt::format("$line{} << EOD\n", &line - lines);
        for (std::size_t k = 0; k < channel.frequency.size(); ++k) {
            const double value = line.values[k];
            if (std::isfinite(value)) {
                highest = std::max(highest, value);
                lowest = std::min(lowest, value);
            }
            data += fmt::format("{:.8g} {}\n", channel.frequency[k] / kGiga,
                                std::isfinite(value) ? fmt::format("{:.8g}", value) : "NaN");
        }
        data += "EOD\n";
    }
    const double end = channel.frequency.back() / kGiga;
    std::string script = Theme() + data +
                         fmt::format(
                             "set title {} font 'sans,14'\nset lmargin 11\nset rmargin 3\n"
                             "set key above horizontal maxrows 1 samplen 3\nset xlabel 'frequency [GHz]'\n"
                             "set ylabel 'magnitude relative to DC [dB]'\nset xrange [0:{}]\n"
                             "set yrange [{}:{}]\n",
                             Quoted(title), end > 0.0 ? end : 1.0, std::max(-kShownDb, lowest - 3.0), highest + 3.0) +
                         HalfRateMark(channel.symbolRate) + "plot ";
    for (const auto& line : lines)
        script += fmt::format("{}$line{} with lines {} title {}", &line == lines ? "" : ", ", &line - lines, line.style,
                              Quoted(line.name));
    DrawPng(path, kWidth, kChannelHeight, script + "\n");
}

}  // namespace Tarnwick::App
