// tarnwick response: what the filters of a chain do to a spectrum.
#include "commands/response.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "pictures/responseplot.h"
#include "progress.h"
#include "workbench/failure.h"
#include "workbench/run.h"
#include "workbench/waveform.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

constexpr double kGiga = 1e9;
constexpr double kPicoPerUnit = 1e12;
constexpr const char* kWhole = "whole";

struct Options {
    std::string chain;
    std::string prefix;
    bool json = false;
};

// What the device says under a key, for a value that is of no use.
[[noreturn]] void Fail(const json& device, const std::string& name, const std::string& key, const char* expected)
{
    if (!device.contains(key))
        throw UsageFailure(fmt::format("{}: device.{}: is missing; response needs it", name, key));
    throw UsageFailure(fmt::format("{}: device.{}: is {}; expected {}", name, key, device[key].dump(), expected));
}

// The first repetition with the impulse's instant, which lies in its middle, moved to sample 0.
std::vector<double> FirstRepetition(const std::vector<double>& samples, const ImpulseRecord& record)
{
    std::vector<double> first(samples.begin(),
                              samples.begin() + static_cast<std::ptrdiff_t>(record.RepetitionLength()));
    std::rotate(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(first.size() / 2), first.end());
    return first;
}

std::vector<double> RunOnImpulse(Stage& stage, std::vector<double>& samples, const std::string& name)
{
    std::vector<double> result = RunStage(stage, samples, name, name);
    if (!std::all_of(result.begin(), result.end(), [](double value) { return std::isfinite(value); }))
        throw UsageFailure(fmt::format("{}: {}: its response to an impulse is not finite", name, stage.place));
    return result;
}

// The filters and the whole as one list, for what is written of each.
template <typename Visit>
void ForEachFunction(const ChainResponse& response, Visit visit)
{
    for (const FilterResponse& filter : response.filters)
        visit(filter.label, filter.function);
    visit(std::string(kWhole), response.whole);
}

// A value that is none leaves its column empty.
void AppendColumn(fmt::memory_buffer& text, double value)
{
    text.push_back(',');
    if (std::isfinite(value))
        fmt::format_to(std::back_inserter(text), "{}", value);
}

std::string FrequencyCsv(const ChainResponse& response)
{
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), "frequencyHz");
    ForEachFunction(response, [&](const std::string& label, const TransferFunction&) {
        fmt::format_to(std::back_inserter(text), ",{0} magnitude [dB],{0} group delay [ps]", label);
    });
    for (std::size_t k = 0; k < response.whole.magnitudeDb.size(); ++k) {
        fmt::format_to(std::back_inserter(text), "\n{}", static_cast<double>(k) * response.whole.Spacing());
        ForEachFunction(response, [&](const std::string&, const TransferFunction& function) {
            AppendColumn(text, function.magnitudeDb[k]);
            AppendColumn(text, function.groupDelay[k] * kPicoPerUnit);
        });
    }
    text.push_back('\n');
    return fmt::to_string(text);
}

// From half a repetition before the peak of the whole to half a repetition behind it; time 0 is the impulse.
std::string ImpulseCsv(const ChainResponse& response)
{
    const auto count = static_cast<std::ptrdiff_t>(response.whole.impulse.size());
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), "timeS");
    ForEachFunction(response, [&](const std::string& label, const TransferFunction&) {
        fmt::format_to(std::back_inserter(text), ",{} [1/UI]", label);
    });
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        const std::ptrdiff_t n = response.whole.peak - (count - 1) / 2 + k;
        fmt::format_to(std::back_inserter(text), "\n{}", static_cast<double>(n) / response.whole.sampleRate);
        ForEachFunction(response, [&](const std::string&, const TransferFunction& function) {
            AppendColumn(
                text, function.impulse[static_cast<std::size_t>((n % count + count) % count)] * response.samplesPerUi);
        });
    }
    text.push_back('\n');
    return fmt::to_string(text);
}

std::string ChannelCsv(const CorrectedChannel& channel)
{
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), "frequencyHz,measured [dB],target [dB],correction [dB],corrected [dB]\n");
    for (std::size_t k = 0; k < channel.frequency.size(); ++k) {
        fmt::format_to(std::back_inserter(text), "{}", channel.frequency[k]);
        for (const auto* column : {&channel.measured, &channel.target, &channel.correction, &channel.corrected})
            AppendColumn(text, (*column)[k]);
        text.push_back('\n');
    }
    return fmt::to_string(text);
}

ordered_json InGiga(const std::optional<double>& frequency)
{
    return frequency ? ordered_json(*frequency / kGiga) : ordered_json();
}

ordered_json ToJson(const ResponseFigures& figures)
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

ordered_json ToJson(const CorrectedChannel& channel)
{
    return {{"cutoffGHz", channel.cutoff / kGiga},
            {"comparedToGHz", channel.comparedTo / kGiga},
            {"largestDifferenceDb", channel.largestDifference},
            {"largestDifferenceGHz", channel.largestDifferenceAt / kGiga}};
}

ordered_json ToJson(const ChainResponse& response)
{
    ordered_json filters = ordered_json::array();
    for (const FilterResponse& filter : response.filters) {
        ordered_json row = {{"name", filter.label}};
        row.update(ToJson(FiguresOf(filter.function, response.symbolRate)));
        if (filter.channel)
            row["correctedChannel"] = ToJson(*filter.channel);
        filters.push_back(std::move(row));
    }
    return {{"symbolRateGBd", response.symbolRate / kGiga},
            {"samplesPerUi", response.samplesPerUi},
            {"samples", response.whole.impulse.size()},
            {"filters", filters},
            {"whole", ToJson(FiguresOf(response.whole, response.symbolRate))},
            {"leftOut", response.leftOut}};
}

std::string GigaText(const std::optional<double>& frequency)
{
    return frequency ? fmt::format("{:.3f}", *frequency / kGiga) : "-";
}

// Never "-0.000": the sign of what rounds to zero is that of the last bit.
std::string Fixed(double value)
{
    return fmt::format("{:.3f}", std::abs(value) < 0.0005 ? 0.0 : value);
}

void PrintTable(const ChainResponse& response)
{
    fmt::print("{:<18} {:>9} {:>9} {:>9} {:>9} {:>10} {:>10} {:>12} {:>9}\n", "filter", "DC dB", "fb/2 dB", "peak dB",
               "at GHz", "-3 dB GHz", "noise gain", "noise BW GHz", "delay ps");
    ForEachFunction(response, [&](const std::string& label, const TransferFunction& function) {
        const ResponseFigures figures = FiguresOf(function, response.symbolRate);
        fmt::print("{:<18} {:>9} {:>9} {:>9} {:>9.3f} {:>10} {:>10.4f} {:>12} {:>9.2f}\n", label,
                   Fixed(figures.dcGainDb), Fixed(figures.halfRateGainDb), Fixed(figures.peakGainDb),
                   figures.peakFrequency / kGiga, GigaText(figures.cutoffFrequency), figures.noiseGain,
                   GigaText(figures.noiseBandwidth), figures.peakDelay * kPicoPerUnit);
    });
    for (const FilterResponse& filter : response.filters)
        if (filter.channel)
            fmt::print(
                "{}: corrected channel less target (Bessel-Thomson, {:.3f} GHz): {} dB at {:.3f} GHz, the most up to "
                "{:.3f} GHz\n",
                filter.label, filter.channel->cutoff / kGiga, Fixed(filter.channel->largestDifference),
                filter.channel->largestDifferenceAt / kGiga, filter.channel->comparedTo / kGiga);
}

void Respond(const Options& options)
{
    const json file = ReadChainFile(options.chain);
    const ImpulseRecord record = RecordFor(file, options.chain);
    Chain chain(file, options.chain, record.sampleCount);
    for (const Stage& stage : chain.Stages())
        for (const std::string& note : stage.notes)
            fmt::print(stderr, "tarnwick: {}\n", note);
    const ChainResponse response =
        MeasureResponse(chain.Stages(), record, chain.Device().baudRateGBd * kGiga, options.chain);
    for (const std::string& label : response.leftOut)
        fmt::print(stderr,
                   "tarnwick: {}: filter {} has no response of its own: it decides, or fits itself to a capture; the "
                   "whole is without it\n",
                   options.chain, label);
    if (!options.prefix.empty()) {
        WriteWhole(options.prefix + "-frequency.csv", FrequencyCsv(response));
        WriteWhole(options.prefix + "-impulse.csv", ImpulseCsv(response));
        DrawResponse(options.prefix + ".png", response,
                     "Response of " + std::filesystem::path(options.chain).filename().string());
        for (const FilterResponse& filter : response.filters) {
            if (!filter.channel)
                continue;
            const std::string name = fmt::format("{}-sirc-{}", options.prefix, filter.index);
            WriteWhole(name + ".csv", ChannelCsv(*filter.channel));
            DrawChannel(name + ".png", *filter.channel,
                        fmt::format("Channel corrected to a Bessel-Thomson response of {:.4g} GHz: filter {} of {}",
                                    filter.channel->cutoff / kGiga, filter.index,
                                    std::filesystem::path(options.chain).filename().string()));
        }
    }
    if (options.json)
        fmt::print("{}\n", ToJson(response).dump(2));
    else
        PrintTable(response);
}

}  // namespace

ImpulseRecord RecordFor(const json& file, const std::string& name)
{
    // Without filters: what the device lacks is to be named before what a filter lacks for it.
    json bare = file;
    if (bare.is_object() && bare.contains("filters"))
        bare["filters"] = json::array();
    const Chain chain(bare, name, 0);
    const DSO::DeviceConfiguration& device = chain.Device();
    const json given = file.value("device", json::object());
    if (!(device.baudRateGBd > 0.0))
        Fail(given, name, "baudRateGBd", "a positive symbol rate");
    if (device.useFractionalSampling) {
        if (!(device.uiDuration > 0.0))
            Fail(given, name, "uiDuration", "a positive time");
        if (!(device.sampleSpacing > 0.0 && device.sampleSpacing <= device.uiDuration))
            Fail(given, name, "sampleSpacing", "a positive time of at most uiDuration");
    } else if (device.samplesPerUi < 1) {
        Fail(given, name, "samplesPerUi", "at least 1");
    }
    if (device.patternLengthUi < 1)
        Fail(given, name, "patternLengthUi", "at least 1");
    const bool repeats = given.contains("patternRepeats");
    if (repeats && device.patternRepeats < 1)
        Fail(given, name, "patternRepeats", "at least 1");

    const double period = device.useFractionalSampling || !given.contains("samplesPerPattern")
                              ? chain.SamplesPerUi() * device.patternLengthUi
                              : device.samplesPerPattern;
    if (period < 1.0)
        Fail(given, name, "samplesPerPattern", "at least 1");
    const int repetitions = repeats ? device.patternRepeats : 1;
    const double count = std::ceil(period * repetitions);
    // Half a gigabyte an array: more is no pattern but a mistake, or a file that means ill.
    constexpr std::int32_t kMostSamples = 1 << 26;
    if (count > kMostSamples)
        throw UsageFailure(
            fmt::format("{}: device: patternLengthUi * samplesPerUi * patternRepeats is {}; expected at most {}", name,
                        count, kMostSamples));
    return {static_cast<std::size_t>(count), static_cast<std::size_t>(repetitions),
            device.baudRateGBd * kGiga * chain.SamplesPerUi()};
}

ChainResponse MeasureResponse(std::span<Stage> stages, const ImpulseRecord& record, double symbolRate,
                              const std::string& name)
{
    // In the middle, so that what a filter puts before the impulse stays in this repetition.
    std::vector<double> impulse(record.sampleCount, 0.0);
    impulse[record.RepetitionLength() / 2] = 1.0;

    ChainResponse response;
    response.symbolRate = symbolRate;
    response.samplesPerUi = record.sampleRate / symbolRate;
    Progress progress(stages.size() + 1);
    std::vector<double> whole = impulse;
    for (Stage& stage : stages) {
        progress.Begin(stage.name);
        const std::string label = fmt::format("{} {}", stage.index, stage.name);
        if (!stage.linear || stage.adaptive) {
            response.leftOut.push_back(label);
            continue;
        }
        const std::vector<double> alone = RunOnImpulse(stage, impulse, name);
        whole = response.filters.empty() ? alone : RunOnImpulse(stage, whole, name);
        FilterResponse& filter = response.filters.emplace_back();
        filter.label = label;
        filter.index = stage.index;
        filter.function = Transform(FirstRepetition(alone, record), record.sampleRate);
        if (stage.channel)
            filter.channel = CorrectChannel(*stage.channel, filter.function, symbolRate);
    }
    progress.Begin(kWhole);
    response.whole = Transform(FirstRepetition(whole, record), record.sampleRate);
    return response;
}

void AddResponse(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("response", "Show what the filters of a chain do to a spectrum");
    command->add_option("chain", options->chain, "Chain file (JSON): the device and the filters")->required();
    command
        ->add_option("-o,--output", options->prefix,
                     "Write PREFIX.png, PREFIX-frequency.csv and PREFIX-impulse.csv, for SiRC filter N also "
                     "PREFIX-sirc-N.png and .csv")
        ->type_name("PREFIX");
    command->add_flag("--json", options->json, "Print the figures as JSON");
    command->footer("Filters are numbered as in the file, from 0. Example: tarnwick response chain.json -o response");
    command->callback([options] { Respond(*options); });
}

}  // namespace Tarnwick::App
