// tarnwick sweep: which setting opens the eyes widest.
#include "commands/sweep.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "capture.h"
#include "commands/commands.h"
#include "pictures/eyeplot.h"
#include "progress.h"
#include "workbench/chain.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/run.h"
#include "workbench/symbols.h"

namespace Tarnwick::App {

using namespace DSO::Workbench;

using nlohmann::json;

namespace {

constexpr std::size_t kMostRuns = 10000;
constexpr std::size_t kMostTiles = 64;
constexpr std::size_t kMostAxes = 2;

std::vector<std::string> Split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

std::optional<double> NumberFrom(const std::string& text)
{
    double value = 0.0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ptr != end || result.ec == std::errc::invalid_argument)
        return std::nullopt;
    return result.ec == std::errc() ? value : std::numeric_limits<double>::infinity();
}

// Keys of whole numbers take no others; keys of real numbers take both.
json NumberToJson(double value)
{
    constexpr double kExact = 0x1p53;
    if (value == std::round(value) && std::abs(value) <= kExact)
        return static_cast<std::int64_t>(value);
    return value;
}

[[noreturn]] void Refuse(const std::string& axis, const std::string& what)
{
    throw UsageFailure(fmt::format("--over {}: {}", axis, what));
}

std::vector<json> Steps(const std::string& axis, const std::vector<std::string>& parts)
{
    double numbers[3] = {};
    for (std::size_t k = 0; k < std::size(numbers); ++k) {
        const auto number = NumberFrom(parts[k]);
        if (!number || !std::isfinite(*number))
            Refuse(axis, fmt::format("\"{}\" is no finite number; expected FROM:TO:STEP", parts[k]));
        numbers[k] = *number;
    }
    const auto [from, to, step] = numbers;
    constexpr double kTolerance = 0.5e-6;  // of a step: decimal steps do not meet their end exactly
    const double count = std::floor((to - from) / step + kTolerance) + 1.0;
    if (step == 0.0 || !(count >= 1.0))
        Refuse(axis, fmt::format("step is {}; expected one that leads from {} to {}", parts[2], parts[0], parts[1]));
    if (count > static_cast<double>(kMostRuns))
        Refuse(axis, fmt::format("has {} values; expected at most {}", count, kMostRuns));
    std::vector<json> values;
    for (int k = 0; k < static_cast<int>(count); ++k) {
        const double value = from + k * step;
        values.push_back(NumberToJson(std::abs(value - to) <= kTolerance * std::abs(step) ? to : value));
    }
    return values;
}

json ValueFrom(const std::string& axis, const std::string& part)
{
    if (part.empty())
        Refuse(axis, "a value is missing; expected FROM:TO:STEP or values with commas between");
    if (part == "true" || part == "false")
        return part == "true";
    const auto number = NumberFrom(part);
    if (!number)
        return part;
    if (!std::isfinite(*number))
        Refuse(axis, fmt::format("value is {}; expected a finite number", part));
    return NumberToJson(*number);
}

std::optional<std::size_t> IndexFrom(const std::string& key)
{
    std::size_t index = 0;
    const char* const end = key.data() + key.size();
    const auto result = std::from_chars(key.data(), end, index);
    return result.ec == std::errc() && result.ptr == end ? std::optional(index) : std::nullopt;
}

std::size_t Combinations(const std::vector<SweepAxis>& axes)
{
    return std::accumulate(axes.begin(), axes.end(), std::size_t{1},
                           [](std::size_t count, const SweepAxis& axis) { return count * axis.values.size(); });
}

// The filter that a path changes; none for what lies outside the list of filters.
std::optional<std::size_t> FilterOf(const SweepAxis& axis)
{
    const auto keys = Split(axis.path, '.');
    return keys.size() > 1 && keys[0] == "filters" ? IndexFrom(keys[1]) : std::nullopt;
}

// Keys that the file does not hold yet are added: whether the filter knows them is the chain's to say.
void Put(json& chain, const std::string& chainName, const std::string& path, const json& value)
{
    json* here = &chain;
    std::string place;
    for (const std::string& key : Split(path, '.')) {
        if (here->is_array()) {
            const auto index = IndexFrom(key);
            if (!index || *index >= here->size())
                throw UsageFailure(fmt::format("--over {}: {}: {} has no {}; it holds {}, counted from 0", path,
                                               chainName, place, key, here->size()));
            here = &(*here)[*index];
        } else if (here->is_object() || here->is_null()) {
            here = &(*here)[key];
        } else {
            throw UsageFailure(fmt::format("--over {}: {}: {} is {}, which holds no \"{}\"", path, chainName, place,
                                           here->dump(), key));
        }
        place += (place.empty() ? "" : ".") + key;
    }
    *here = value;
}

class Runner {
public:
    Runner(const SweepInput& input, const SweepObserver& observer)
        : input_(input), observer_(observer), chain_(input.chain), choice_(input.axes.size(), 0)
    {
        runs_.resize(Combinations(input.axes));
        // From the front of the chain to its end, so that what the changed filters have in common runs once.
        order_.resize(input.axes.size());
        std::iota(order_.begin(), order_.end(), std::size_t{0});
        std::stable_sort(order_.begin(), order_.end(), [&](std::size_t a, std::size_t b) {
            return FilterOf(input.axes[a]) < FilterOf(input.axes[b]);  // nothing comes before 0
        });
        for (std::size_t run = 0; run < runs_.size(); ++run) {
            std::size_t rest = run;
            for (std::size_t axis = input.axes.size(); axis-- > 0;) {
                const auto& values = input.axes[axis].values;
                runs_[run].values.insert(runs_[run].values.begin(), values[rest % values.size()]);
                rest /= values.size();
            }
        }
    }

    std::vector<SweepRun> Run()
    {
        RequireFilters();
        for (const SweepAxis& axis : input_.axes)
            Put(chain_, input_.chainName, axis.path, axis.values.front());
        std::vector<double> samples = input_.samples;
        Descend(0, samples, 0);
        return std::move(runs_);
    }

private:
    // A file without a list of filters has nothing to change; the chain says what is wrong with it.
    void RequireFilters() const
    {
        const json& file = input_.chain;
        if (!file.is_object() || !file.contains("filters") || !file["filters"].is_array())
            (void)Chain(file, input_.chainName, input_.samples.size());
    }

    // The changed filters from `depth` on are yet to be set; `samples` are behind the filters before `from`.
    void Descend(std::size_t depth, std::vector<double>& samples, std::size_t from)
    {
        if (depth == order_.size()) {
            Finish(samples, from);
            return;
        }
        const std::size_t axis = order_[depth];
        const std::size_t to = FilterOf(input_.axes[axis]).value_or(0);
        std::vector<double> reached;
        if (to > from) {
            try {
                reached = RunHead(samples, from, to);
            } catch (const std::runtime_error& failure) {
                // Before the first change it is no value's fault.
                if (depth == 0 || !IsRefusal(failure))
                    throw;
                Spread(depth, failure);
                return;
            }
        }
        for (std::size_t k = 0; k < input_.axes[axis].values.size(); ++k) {
            choice_[axis] = k;
            Put(chain_, input_.chainName, input_.axes[axis].path, input_.axes[axis].values[k]);
            Descend(depth + 1, to > from ? reached : samples, std::max(from, to));
        }
    }

    // The chain cut off behind filter `to` - 1: what follows may be refused, which is another's fault.
    std::vector<double> RunHead(std::vector<double>& samples, std::size_t from, std::size_t to) const
    {
        json head = chain_;
        json& filters = head["filters"];
        filters.erase(filters.begin() + static_cast<std::ptrdiff_t>(to), filters.end());
        Chain chain(head, input_.chainName, samples.size());
        return RunFrom(chain, samples, from);
    }

    std::vector<double> RunFrom(Chain& chain, std::vector<double>& samples, std::size_t from) const
    {
        std::vector<double> behind;
        for (Stage& stage : chain.Stages())
            if (stage.index >= from)
                behind = RunStage(stage, behind.empty() ? samples : behind, input_.chainName, input_.captureName);
        return behind.empty() ? samples : behind;
    }

    void Finish(std::vector<double>& samples, std::size_t from)
    {
        const std::size_t index = Index();
        SweepRun& run = runs_[index];
        observer_.begin(index, run.values);
        try {
            Chain chain(chain_, input_.chainName, samples.size());
            RequireEyes(chain, input_.chainName, "sweep");
            const std::vector<double> behind = RunFrom(chain, samples, from);
            run.eye = MeasureEyes(behind, chain.SamplesPerUi(), LevelCount(chain.Device().signalCoding));
            observer_.end(index, run, behind, chain.SamplesPerUi());
        } catch (const std::runtime_error& failure) {
            if (!IsRefusal(failure))
                throw;
            Note(run, failure);
        }
    }

    static bool IsRefusal(const std::runtime_error& failure)
    {
        return dynamic_cast<const UsageFailure*>(&failure) != nullptr ||
               dynamic_cast<const DataFailure*>(&failure) != nullptr;
    }

    static void Note(SweepRun& run, const std::runtime_error& failure)
    {
        run.error = failure.what();
        run.hasUnknownKey = dynamic_cast<const UnknownKeyFailure*>(&failure) != nullptr;
    }

    // All combinations of the values from `depth` on fail in the same way.
    void Spread(std::size_t depth, const std::runtime_error& failure)
    {
        if (depth == order_.size()) {
            observer_.begin(Index(), runs_[Index()].values);
            Note(runs_[Index()], failure);
            return;
        }
        for (std::size_t k = 0; k < input_.axes[order_[depth]].values.size(); ++k) {
            choice_[order_[depth]] = k;
            Spread(depth + 1, failure);
        }
    }

    std::size_t Index() const
    {
        std::size_t index = 0;
        for (std::size_t axis = 0; axis < choice_.size(); ++axis)
            index = index * input_.axes[axis].values.size() + choice_[axis];
        return index;
    }

    const SweepInput& input_;
    const SweepObserver& observer_;
    json chain_;
    std::vector<std::size_t> choice_;  // of each axis
    std::vector<std::size_t> order_;   // axes by the filter they change
    std::vector<SweepRun> runs_;
};

double Smallest(const EyeReport& report, double EyeOpening::*value)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    double smallest = report.eyes.empty() ? -kInfinity : kInfinity;
    for (const EyeOpening& eye : report.eyes)
        smallest = std::min(smallest, eye.*value);
    return smallest;
}

}  // namespace

SweepAxis ReadSweepAxis(const std::string& text)
{
    const std::size_t equals = text.find('=');
    SweepAxis axis{text.substr(0, equals), {}};
    const auto keys = Split(axis.path, '.');
    if (equals == std::string::npos || std::find(keys.begin(), keys.end(), "") != keys.end())
        Refuse(text, "expected PATH=FROM:TO:STEP or PATH=v1,v2,v3, such as filters.1.gain=1:9:0.5");
    const std::string values = text.substr(equals + 1);
    const auto bounds = Split(values, ':');
    if (bounds.size() == 3) {
        axis.values = Steps(text, bounds);
    } else if (bounds.size() == 2 && NumberFrom(bounds[0]) && NumberFrom(bounds[1])) {
        Refuse(text, "the step is missing; expected FROM:TO:STEP");
    } else {
        for (const std::string& part : Split(values, ','))
            axis.values.push_back(ValueFrom(text, part));
        if (axis.values.size() > kMostRuns)
            Refuse(text, fmt::format("has {} values; expected at most {}", axis.values.size(), kMostRuns));
    }
    return axis;
}

double SweepRun::SmallestHeight() const
{
    return Smallest(eye, &EyeOpening::height);
}

double SweepRun::SmallestWidth() const
{
    return Smallest(eye, &EyeOpening::widthUi);
}

bool IsBetter(const SweepRun& one, const SweepRun& other)
{
    return std::pair(one.SmallestHeight(), one.SmallestWidth()) >
           std::pair(other.SmallestHeight(), other.SmallestWidth());
}

std::vector<std::size_t> Ranking(std::span<const SweepRun> runs)
{
    std::vector<std::size_t> ranking;
    for (std::size_t run = 0; run < runs.size(); ++run)
        if (runs[run].error.empty())
            ranking.push_back(run);
    std::stable_sort(ranking.begin(), ranking.end(),
                     [&](std::size_t a, std::size_t b) { return IsBetter(runs[a], runs[b]); });
    return ranking;
}

std::vector<SweepRun> Sweep(const SweepInput& input, const SweepObserver& observer)
{
    return Runner(input, observer).Run();
}

namespace {

struct Options {
    std::string chain;
    CaptureOptions capture;
    std::vector<std::string> over;
    std::string prefix = "sweep";
    bool json = false;
};

std::string Text(const json& value)
{
    if (value.is_string())
        return value.get<std::string>();
    return value.is_number_float() ? fmt::format("{:.10g}", value.get<double>()) : value.dump();
}

// What tells the axes apart in little room: their last keys, or the whole paths where those are the same.
std::vector<std::string> ShortNames(const std::vector<SweepAxis>& axes)
{
    std::vector<std::string> names;
    names.reserve(axes.size());
    for (const SweepAxis& axis : axes)
        names.push_back(Split(axis.path, '.').back());
    if (names.size() == 2 && names[0] == names[1])
        for (std::size_t k = 0; k < names.size(); ++k)
            names[k] = axes[k].path;
    return names;
}

// Without names: the values alone.
std::string Caption(const std::vector<std::string>& names, const std::vector<json>& values)
{
    std::string caption;
    for (std::size_t k = 0; k < values.size(); ++k)
        caption += fmt::format("{}{}{}{}", k == 0 ? "" : ", ", names[k], names[k].empty() ? "" : " ", Text(values[k]));
    return caption;
}

// The images of the best runs so far, or of all when there are no more than a sheet takes.
class Tiles {
public:
    explicit Tiles(const std::vector<SweepAxis>& axes)
    {
        const std::size_t count = Combinations(axes);
        isRanked_ = count > kMostTiles;
        // Values of two axes make a matrix, if not one that is all length.
        constexpr std::size_t kWidest = 12;
        const bool isMatrix =
            !isRanked_ && axes.size() == 2 && axes[1].values.size() <= kWidest && axes[0].values.size() <= kWidest;
        grid_ = GridFor(std::min(count, kMostTiles), isMatrix ? axes[1].values.size() : 0);
    }

    void Keep(std::size_t run, const SweepRun& result, std::span<const double> samples, double samplesPerUi)
    {
        if (kept_.size() == kMostTiles) {
            const auto worst = std::max_element(kept_.begin(), kept_.end(), IsBefore);
            if (IsBefore(*worst, Kept{run, result, {}}))
                return;
            kept_.erase(worst);
        }
        kept_.push_back({run, result, ShadeTile(samples, samplesPerUi, result.eye.phaseUi, grid_)});
    }

    void Draw(const std::string& path, const std::vector<SweepRun>& runs, const std::string& capture,
              const std::vector<SweepAxis>& axes)
    {
        if (!isRanked_)  // what was refused has its place, and nothing in it
            for (std::size_t run = 0; run < runs.size(); ++run)
                if (!runs[run].error.empty())
                    kept_.push_back({run, runs[run], {}});
        const std::size_t best = std::min_element(kept_.begin(), kept_.end(), IsBefore)->run;
        std::sort(kept_.begin(), kept_.end(),
                  [this](const Kept& a, const Kept& b) { return isRanked_ ? IsBefore(a, b) : a.run < b.run; });
        std::string title = fmt::format("{}: {}", capture, axes[0].path);
        if (axes.size() == 2)
            title += " and " + axes[1].path;
        if (isRanked_)
            title += fmt::format(", the best {} of {}, best first", kept_.size(), runs.size());
        constexpr int kLetterWidth = 9;  // [pixels]
        const auto room = static_cast<std::size_t>(grid_.tileWidth / kLetterWidth);
        std::vector<std::string> names = ShortNames(axes);
        if (std::any_of(kept_.begin(), kept_.end(),
                        [&](const Kept& kept) { return Caption(names, kept.result.values).size() > room; }))
            names.assign(names.size(), "");
        std::vector<EyeTile> tiles;
        for (Kept& kept : kept_) {
            EyeTile tile{Caption(names, kept.result.values), std::nullopt, std::move(kept.image), false};
            if (!kept.result.eye.eyes.empty()) {
                tile.smallestHeight = kept.result.SmallestHeight();
                tile.isBest = kept.run == best;
            }
            tiles.push_back(std::move(tile));
        }
        DrawEyeSheet(path, grid_, tiles, title);
    }

private:
    struct Kept {
        std::size_t run;
        SweepRun result;
        EyeImage image;
    };
    static bool IsBefore(const Kept& a, const Kept& b)
    {
        return IsBetter(a.result, b.result) || (!IsBetter(b.result, a.result) && a.run < b.run);
    }
    bool isRanked_;
    SheetGrid grid_{};
    std::vector<Kept> kept_;
};

nlohmann::ordered_json ToJson(const SweepInput& input, const std::vector<SweepRun>& runs,
                              const std::vector<std::size_t>& ranking)
{
    const auto valuesOf = [&](const SweepRun& run) {
        nlohmann::ordered_json values;
        for (std::size_t k = 0; k < run.values.size(); ++k)
            values[input.axes[k].path] = run.values[k];
        return values;
    };
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (std::size_t rank = 0; rank < ranking.size(); ++rank) {
        const SweepRun& run = runs[ranking[rank]];
        nlohmann::ordered_json entry = {
            {"rank", rank + 1},          {"values", valuesOf(run)},    {"eyes", EyesToJson(run.eye)},
            {"levels", run.eye.levels},  {"phaseUi", run.eye.phaseUi}, {"smallestHeight", nullptr},
            {"smallestWidthUi", nullptr}};
        if (!run.eye.eyes.empty()) {
            entry["smallestHeight"] = run.SmallestHeight();
            entry["smallestWidthUi"] = run.SmallestWidth();
        }
        list.push_back(entry);
    }
    for (const SweepRun& run : runs)
        if (!run.error.empty())
            list.push_back({{"values", valuesOf(run)}, {"error", run.error}});
    nlohmann::ordered_json paths = nlohmann::ordered_json::array();
    for (const SweepAxis& axis : input.axes)
        paths.push_back(axis.path);
    return {{"over", paths}, {"runs", list}};
}

void PrintTable(const SweepInput& input, const std::vector<SweepRun>& runs, const std::vector<std::size_t>& ranking)
{
    std::vector<std::size_t> widths;
    std::string head = fmt::format("{:>5}", "rank");
    for (const SweepAxis& axis : input.axes) {
        std::size_t width = axis.path.size();
        for (const json& value : axis.values)
            width = std::max(width, Text(value).size());
        widths.push_back(width);
        head += fmt::format("  {:>{}}", axis.path, width);
    }
    fmt::print("{}  {:>10}  {:>8}  {}\n", head, "smallest V", "width UI", "eye heights V");
    const auto valuesOf = [&](const SweepRun& run) {
        std::string text;
        for (std::size_t k = 0; k < widths.size(); ++k)
            text += fmt::format("  {:>{}}", Text(run.values[k]), widths[k]);
        return text;
    };
    for (std::size_t rank = 0; rank < ranking.size(); ++rank) {
        const SweepRun& run = runs[ranking[rank]];
        const bool hasEyes = !run.eye.eyes.empty();
        fmt::print("{:>5}{}  {:>10}  {:>8}  {}\n", rank + 1, valuesOf(run),
                   hasEyes ? fmt::format("{:.4g}", run.SmallestHeight()) : "-",
                   hasEyes ? fmt::format("{:.4g}", run.SmallestWidth()) : "-", HeightsText(run.eye));
    }
    for (const SweepRun& run : runs)
        if (!run.error.empty())
            fmt::print("{:>5}{}  {}\n", "-", valuesOf(run), run.error);
}

std::vector<SweepAxis> ReadAxes(const std::vector<std::string>& texts)
{
    if (texts.size() > kMostAxes)
        throw UsageFailure(fmt::format("--over: is given {} times; expected once or twice", texts.size()));
    std::vector<SweepAxis> axes;
    std::size_t count = 1;
    for (const std::string& text : texts) {
        axes.push_back(ReadSweepAxis(text));
        count *= axes.back().values.size();
    }
    if (axes.size() == 2 && axes[0].path == axes[1].path)
        throw UsageFailure(fmt::format("--over {}: is given twice; expected two paths", axes[0].path));
    if (count > kMostRuns)
        throw UsageFailure(fmt::format("--over: gives {} combinations; expected at most {}", count, kMostRuns));
    return axes;
}

// What the chain says of the device is checked before anything runs, unless the device is what changes; the capture is cut
// to its repetitions.
void CheckDevice(SweepInput& input, const Waveform& capture, const Options& options)
{
    if (!std::all_of(input.axes.begin(), input.axes.end(),
                     [](const SweepAxis& axis) { return FilterOf(axis).has_value(); }))
        return;
    json device = input.chain;
    if (!device.is_object())
        return;
    device["filters"] = json::array();
    const Chain chain(device, input.chainName, input.samples.size());
    RequireEyes(chain, input.chainName, "sweep");
    WarnOfInterval(capture, chain, options.capture, options.chain);
    KeepWholeRepetitions(input.samples, chain, options.capture);
}

void RunSweep(const Options& options)
{
    SweepInput input;
    input.axes = ReadAxes(options.over);
    input.chain = ReadChainFile(options.chain);
    input.chainName = options.chain;
    input.captureName = options.capture.name;
    const Waveform capture = ReadCapture(options.capture);
    input.samples = capture.samples;
    CheckDevice(input, capture, options);
    try {
        input.chain = WithSymbols(input.chain, input.chainName, input.samples, input.captureName);
    } catch (const UsageFailure&) {
        // A chain that the values complete, or one that no value mends: its runs tell.
    }

    Tiles tiles(input.axes);
    std::vector<SweepRun> runs;
    {
        Progress progress(Combinations(input.axes));
        SweepObserver observer;
        observer.begin = [&](std::size_t, const std::vector<json>& values) {
            progress.Begin(Caption(ShortNames(input.axes), values));
        };
        observer.end = [&](std::size_t run, const SweepRun& result, std::span<const double> samples,
                           double samplesPerUi) { tiles.Keep(run, result, samples, samplesPerUi); };
        runs = Sweep(input, observer);
    }
    const std::vector<std::size_t> ranking = Ranking(runs);
    if (ranking.empty()) {
        if (runs.front().hasUnknownKey)
            throw UnknownKeyFailure(runs.front().error);
        throw DataFailure(runs.front().error);
    }
    if (options.json)
        fmt::print("{}\n", ToJson(input, runs, ranking).dump(2));
    else
        PrintTable(input, runs, ranking);
    (void)std::fflush(stdout);  // before the picture, which can fail
    tiles.Draw(options.prefix + ".png", runs, input.captureName, input.axes);
}

}  // namespace

void AddSweep(CLI::App& program)
{
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("sweep", "Rank settings of a chain by the eyes behind it");
    command->add_option("chain", options->chain, "Chain file (JSON): the device and the filters")->required();
    AddCaptureOptions(*command, options->capture);
    AddMinusOption(*command, options->capture);
    command
        ->add_option(
            "--over", options->over,
            "Key of the chain file with dots between, lists counted from 0, and its values: from, to (with it) "
            "and step, or a list. Given twice: every pair")
        ->type_name("PATH=FROM:TO:STEP | PATH=VALUE,VALUE...")
        ->allow_extra_args(false)
        ->required();
    command->add_option("-o,--output", options->prefix, "Draw the eyes, at most 64, into PREFIX.png")
        ->type_name("PREFIX")
        ->capture_default_str();
    command->add_flag("--json", options->json, "Print the runs as JSON, best first");
    command->footer("Example: tarnwick sweep chain.json capture.csv --over filters.1.cutoffPercent=50:100:5");
    command->callback([options] { RunSweep(*options); });
}

}  // namespace Tarnwick::App
