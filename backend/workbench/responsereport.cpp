#include "workbench/responsereport.h"

#include <cmath>
#include <iterator>
#include <optional>

#include <fmt/format.h>

#include "workbench/plumbing/json.h"
#include "workbench/plumbing/text.h"
#include "workbench/units.h"

namespace Tarnwick::DSO::Workbench {

namespace {

// A value that is not finite leaves its column empty.
void AppendColumn(std::string& text, double value)
{
    text.push_back(',');
    if (std::isfinite(value))
        text += fmt::format("{}", value);
}

Json InGiga(const std::optional<double>& frequency)
{
    return frequency ? Json(*frequency / kGiga) : Json();
}

Json ToJson(const ResponseFigures& figures)
{
    return {{"dcGainDb", figures.dcGainDb},
            {"halfRateGainDb", figures.halfRateGainDb},
            {"peakGainDb", figures.peakGainDb},
            {"peakFrequencyGHz", figures.peakFrequency / kGiga},
            {"cutoffFrequencyGHz", InGiga(figures.cutoffFrequency)},
            {"noiseGain", figures.noiseGain},
            {"noiseBandwidthGHz", InGiga(figures.noiseBandwidth)},
            {"peakDelayPs", figures.peakDelay * kPicoPerUnit}};
}

Json ToJson(const CorrectedChannel& channel)
{
    return {{"cutoffGHz", channel.cutoff / kGiga},
            {"comparedToGHz", channel.comparedTo / kGiga},
            {"largestDifferenceDb", channel.largestDifference},
            {"largestDifferenceGHz", channel.largestDifferenceAt / kGiga}};
}

std::string GigaText(const std::optional<double>& frequency)
{
    return frequency ? fmt::format("{:.3f}", *frequency / kGiga) : "-";
}

std::string Fixed(double value)
{
    return fmt::format("{:.3f}", WithoutNegativeZero(value));
}

}  // namespace

std::string ResponseAsText(const ChainResponse& response)
{
    std::string text =
        fmt::format("{:<18} {:>9} {:>9} {:>9} {:>9} {:>10} {:>10} {:>12} {:>9}\n", "filter", "DC dB", "fb/2 dB",
                    "peak dB", "at GHz", "-3 dB GHz", "noise gain", "noise BW GHz", "delay ps");
    response.ForEach([&](const std::string& label, const TransferFunction& function) {
        const ResponseFigures figures = FiguresOf(function, response.symbolRate, response.bandEnd);
        text += fmt::format("{:<18} {:>9} {:>9} {:>9} {:>9.3f} {:>10} {:>10.4f} {:>12} {:>9.2f}\n", label,
                            Fixed(figures.dcGainDb), Fixed(figures.halfRateGainDb), Fixed(figures.peakGainDb),
                            figures.peakFrequency / kGiga, GigaText(figures.cutoffFrequency), figures.noiseGain,
                            GigaText(figures.noiseBandwidth), figures.peakDelay * kPicoPerUnit);
    });
    for (const FilterResponse& filter : response.filters)
        if (filter.channel)
            text += fmt::format(
                "{}: corrected channel less target (Bessel-Thomson, {:.3f} GHz): {} dB at {:.3f} GHz, the most up to "
                "{:.3f} GHz\n",
                filter.label, filter.channel->cutoff / kGiga, Fixed(filter.channel->largestDifference),
                filter.channel->largestDifferenceAt / kGiga, filter.channel->comparedTo / kGiga);
    return text;
}

std::string ResponseAsJson(const ChainResponse& response)
{
    Json filters = Json::List();
    for (const FilterResponse& filter : response.filters) {
        Json row = {{"name", filter.label}};
        row.SetAll(ToJson(FiguresOf(filter.function, response.symbolRate, response.bandEnd)));
        if (filter.channel)
            row.Set("correctedChannel", ToJson(*filter.channel));
        filters.Add(std::move(row));
    }
    const Json report = {{"symbolRateGBd", response.symbolRate / kGiga},
                         {"samplesPerUi", response.samplesPerUi},
                         {"samples", response.whole.impulse.size()},
                         {"filters", filters},
                         {"whole", ToJson(FiguresOf(response.whole, response.symbolRate, response.bandEnd))},
                         {"leftOut", response.leftOut}};
    return report.Text(2);
}

std::string FrequencyColumns(const ChainResponse& response)
{
    std::string text = "frequency [Hz]";
    response.ForEach([&](const std::string& label, const TransferFunction&) {
        text += fmt::format(",{0} magnitude [dB],{0} group delay [ps]", label);
    });
    for (std::size_t k = 0; k < response.whole.magnitudeDb.size(); ++k) {
        text += fmt::format("\n{}", static_cast<double>(k) * response.whole.Spacing());
        response.ForEach([&](const std::string&, const TransferFunction& function) {
            AppendColumn(text, function.magnitudeDb[k]);
            AppendColumn(text, function.groupDelay[k] * kPicoPerUnit);
        });
    }
    text.push_back('\n');
    return text;
}

std::string ImpulseColumns(const ChainResponse& response)
{
    const auto count = static_cast<std::ptrdiff_t>(response.whole.impulse.size());
    std::string text = "time [s]";
    response.ForEach(
        [&](const std::string& label, const TransferFunction&) { text += fmt::format(",{} [1/UI]", label); });
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        const std::ptrdiff_t n = response.whole.peak - (count - 1) / 2 + k;
        const auto index = static_cast<std::size_t>((n % count + count) % count);
        text += fmt::format("\n{}", static_cast<double>(n) / response.whole.sampleRate);
        response.ForEach([&](const std::string&, const TransferFunction& function) {
            AppendColumn(text, function.impulse[index] * response.samplesPerUi);
        });
    }
    text.push_back('\n');
    return text;
}

std::string ChannelColumns(const CorrectedChannel& channel)
{
    std::string text("frequency [Hz],measured [dB],target [dB],correction [dB],corrected [dB]\n");
    for (std::size_t k = 0; k < channel.frequency.size(); ++k) {
        text += fmt::format("{}", channel.frequency[k]);
        for (const auto* column : {&channel.measured, &channel.target, &channel.correction, &channel.corrected})
            AppendColumn(text, (*column)[k]);
        text.push_back('\n');
    }
    return text;
}

}  // namespace Tarnwick::DSO::Workbench
