#include "workbench/sweep.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "workbench/chaininput.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/text.h"
#include "workbench/run.h"
#include "workbench/signalquality.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

constexpr std::size_t kMostRuns = 10000;
constexpr std::size_t kMostAxes = 2;

std::optional<double> NumberFrom(const std::string& text)
{
    double value = 0.0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ptr != end || result.ec == std::errc::invalid_argument)
        return std::nullopt;
    return result.ec == std::errc() ? value : std::numeric_limits<double>::infinity();
}

// A key of whole numbers takes no others; a key of real numbers takes both.
std::string NumberText(double value)
{
    constexpr double kLargestExact = 0x1p53;  // whole numbers beyond are not all doubles
    if (value == std::round(value) && std::abs(value) <= kLargestExact)
        return JsonText(json(static_cast<std::int64_t>(value)));
    return JsonText(json(value));
}

[[noreturn]] void Refuse(const std::string& axis, const std::string& reason)
{
    throw UsageFailure(fmt::format("--over {}: {}", axis, reason));
}

std::vector<std::string> RangeValues(const std::string& axis, const std::vector<std::string>& parts)
{
    double numbers[3] = {};
    for (std::size_t k = 0; k < std::size(numbers); ++k) {
        const auto number = NumberFrom(parts[k]);
        if (!number || !std::isfinite(*number))
            Refuse(axis, fmt::format("\"{}\" is no finite number; expected FROM:TO:STEP", parts[k]));
        numbers[k] = *number;
    }
    const auto [from, to, step] = numbers;
    constexpr double kTolerance = 0.5e-6;  // of a step: sums of decimal steps miss the end by rounding
    const double count = std::floor((to - from) / step + kTolerance) + 1.0;
    if (step == 0.0 || !(count >= 1.0))
        Refuse(axis, fmt::format("step is {}; expected one that leads from {} to {}", parts[2], parts[0], parts[1]));
    if (count > static_cast<double>(kMostRuns))
        Refuse(axis, fmt::format("has {} values; expected at most {}", count, kMostRuns));
    std::vector<std::string> values;
    for (int k = 0; k < static_cast<int>(count); ++k) {
        const double value = from + k * step;
        values.push_back(NumberText(std::abs(value - to) <= kTolerance * std::abs(step) ? to : value));
    }
    return values;
}

std::string ListValue(const std::string& axis, const std::string& part)
{
    if (part.empty())
        Refuse(axis, "a value is missing; expected FROM:TO:STEP or values with commas between");
    if (part == "true" || part == "false")
        return part;
    const auto number = NumberFrom(part);
    if (!number)
        return JsonText(json(part));
    if (!std::isfinite(*number))
        Refuse(axis, fmt::format("value is {}; expected a finite number", part));
    return NumberText(*number);
}

std::optional<std::size_t> IndexFrom(const std::string& key)
{
    std::size_t index = 0;
    const char* const end = key.data() + key.size();
    const auto result = std::from_chars(key.data(), end, index);
    return result.ec == std::errc() && result.ptr == end ? std::optional(index) : std::nullopt;
}

// The filter that a path changes; none for a path outside the list of filters.
std::optional<std::size_t> FilterOf(const SweepAxis& axis)
{
    const auto keys = SplitAt(axis.path, '.');
    return keys.size() > 1 && keys[0] == "filters" ? IndexFrom(keys[1]) : std::nullopt;
}

// A key that the file does not hold yet is added: whether the filter knows it is for the chain to say.
void SetKey(json& chain, const std::string& chainName, const std::string& path, const std::string& value)
{
    json* target = &chain;
    std::string place;
    for (const std::string& key : SplitAt(path, '.')) {
        if (target->is_array()) {
            const auto index = IndexFrom(key);
            if (!index || *index >= target->size())
                throw UsageFailure(fmt::format("--over {}: {}: {} has no {}; it holds {}, counted from 0", path,
                                               chainName, place, key, target->size()));
            target = &(*target)[*index];
        } else if (target->is_object() || target->is_null()) {
            target = &(*target)[key];
        } else {
            throw UsageFailure(fmt::format("--over {}: {}: {} is {}, which holds no \"{}\"", path, chainName, place,
                                           JsonText(*target), key));
        }
        place += (place.empty() ? "" : ".") + key;
    }
    *target = JsonFrom(value);
}

// Something in the settings or the data, as opposed to this program's own failures.
bool IsRefusal(const std::runtime_error& failure)
{
    return dynamic_cast<const UsageFailure*>(&failure) != nullptr ||
           dynamic_cast<const DataFailure*>(&failure) != nullptr;
}

class Runner {
public:
    Runner(const SweepInput& input, const NamedCapture& capture, const SweepObserver& observer)
        : input_(input),
          capture_(capture),
          observer_(observer),
          chainName_(input.chain.Name()),
          chain_(JsonOf(input.chain)),
          choice_(input.axes.size(), 0)
    {
        runs_.resize(CombinationsOf(input.axes));
        // From the front of the chain to its end, so that the filters common to several combinations run once.
        order_.resize(input.axes.size());
        std::iota(order_.begin(), order_.end(), std::size_t{0});
        std::stable_sort(order_.begin(), order_.end(), [&](std::size_t a, std::size_t b) {
            return FilterOf(input.axes[a]) < FilterOf(input.axes[b]);  // no filter sorts before filter 0
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
            SetKey(chain_, chainName_, axis.path, axis.values.front());
        Descend(0, {}, 0);
        return std::move(runs_);
    }

private:
    // A file without a list of filters has nothing to change; reading it as a chain says what is wrong with it.
    void RequireFilters() const
    {
        if (!chain_.is_object() || !chain_.contains("filters") || !chain_["filters"].is_array())
            (void)Chain(input_.chain, capture_.waveform.samples.size());
    }

    bool IsOfFilter(std::size_t depth) const
    {
        return depth == order_.size() || FilterOf(input_.axes[order_[depth]]).has_value();
    }

    // With the device as the axes have it by now.
    PassingRecord Acquire()
    {
        ChainInput input = InputFor(ChainFileOf(chain_, chainName_), capture_.waveform, input_.facts, capture_.name);
        for (const std::string& note : input.notes)
            if (observer_.note && told_.insert(note).second)
                observer_.note(note);
        RequireEyes(input, capture_.name, "sweep");
        device_ = JsonOf(input.chain)["device"];
        eyes_ = std::move(input.eyes);
        return RecordOf(std::move(input.samples), eyes_);
    }

    json WithDevice() const
    {
        json chain = chain_;
        chain["device"] = device_;
        return chain;
    }

    // The axes from `depth` on have no value yet; the record is that behind the filters before `from`, and empty as long as an
    // axis of the device is among them.
    void Descend(std::size_t depth, const PassingRecord& before, std::size_t from)
    {
        PassingRecord acquired;
        if (before.samples.empty() && IsOfFilter(depth)) {
            try {
                acquired = Acquire();
            } catch (const std::runtime_error& failure) {
                if (depth == 0 || !IsRefusal(failure))
                    throw;
                RefuseFrom(depth, failure);
                return;
            }
        }
        const PassingRecord& record = acquired.samples.empty() ? before : acquired;
        if (depth == order_.size()) {
            RunRest(record, from);
            return;
        }
        const std::size_t axis = order_[depth];
        const std::size_t to = FilterOf(input_.axes[axis]).value_or(0);
        PassingRecord reached;
        if (to > from) {
            try {
                reached = RunUpTo(record, from, to);
            } catch (const std::runtime_error& failure) {
                // Before the first change the failure has nothing to do with any value.
                if (depth == 0 || !IsRefusal(failure))
                    throw;
                RefuseFrom(depth, failure);
                return;
            }
        }
        for (std::size_t k = 0; k < input_.axes[axis].values.size(); ++k) {
            choice_[axis] = k;
            SetKey(chain_, chainName_, input_.axes[axis].path, input_.axes[axis].values[k]);
            Descend(depth + 1, to > from ? reached : record, std::max(from, to));
        }
    }

    // With the chain cut off behind filter `to` - 1: a refusal further down concerns other values.
    PassingRecord RunUpTo(const PassingRecord& record, std::size_t from, std::size_t to) const
    {
        json head = WithDevice();
        json& filters = head["filters"];
        filters.erase(filters.begin() + static_cast<std::ptrdiff_t>(to), filters.end());
        Chain chain(ChainFileOf(std::move(head), chainName_), record.samples.size());
        return RunFrom(chain, record, from);
    }

    PassingRecord RunFrom(Chain& chain, PassingRecord record, std::size_t from) const
    {
        for (Stage& stage : chain.Stages())
            if (stage.index >= from)
                PassStage(stage, record, chain, capture_.name);
        return record;
    }

    void RunRest(const PassingRecord& record, std::size_t from)
    {
        const std::size_t index = RunIndex();
        SweepRun& run = runs_[index];
        observer_.begin(index, run.values);
        try {
            Chain chain(ChainFileOf(WithDevice(), chainName_), record.samples.size());
            const PassingRecord filtered = RunFrom(chain, record, from);
            EyeSettings eyes = eyes_;
            eyes.valid = filtered.Valid(eyes.samplesPerUi);
            run.eye = MeasureEyes(filtered.samples, eyes);
            if (input_.rank == RankBy::Tdecq)
                run.tdecqDb = TdecqDbOf(filtered.samples, eyes);
            run.figure = FigureOf(run.eye, run.tdecqDb, input_.rank);
            observer_.end(index, run, eyes.valid->Of(filtered.samples), eyes.samplesPerUi);
        } catch (const std::runtime_error& failure) {
            if (!IsRefusal(failure))
                throw;
            Refuse(run, failure);
        }
    }

    static void Refuse(SweepRun& run, const std::runtime_error& failure)
    {
        run.error = failure.what();
        run.hasUnknownKey = dynamic_cast<const UnknownKeyFailure*>(&failure) != nullptr;
    }

    // All combinations of the values from `depth` on fail in the same way.
    void RefuseFrom(std::size_t depth, const std::runtime_error& failure)
    {
        if (depth == order_.size()) {
            observer_.begin(RunIndex(), runs_[RunIndex()].values);
            Refuse(runs_[RunIndex()], failure);
            return;
        }
        for (std::size_t k = 0; k < input_.axes[order_[depth]].values.size(); ++k) {
            choice_[order_[depth]] = k;
            RefuseFrom(depth + 1, failure);
        }
    }

    std::size_t RunIndex() const
    {
        std::size_t index = 0;
        for (std::size_t axis = 0; axis < choice_.size(); ++axis)
            index = index * input_.axes[axis].values.size() + choice_[axis];
        return index;
    }

    const SweepInput& input_;
    const NamedCapture& capture_;
    const SweepObserver& observer_;
    std::string chainName_;
    json chain_;
    json device_;                      // completed for the record
    EyeSettings eyes_;                 // of the record
    std::set<std::string> told_;       // notes
    std::vector<std::size_t> choice_;  // of each axis
    std::vector<std::size_t> order_;   // axes by the filter they change
    std::vector<SweepRun> runs_;
};

}  // namespace

SweepAxis ReadSweepAxis(const std::string& text)
{
    const std::size_t equals = text.find('=');
    SweepAxis axis{text.substr(0, equals), {}};
    const auto keys = SplitAt(axis.path, '.');
    if (equals == std::string::npos || std::find(keys.begin(), keys.end(), "") != keys.end())
        Refuse(text, "expected PATH=FROM:TO:STEP or PATH=v1,v2,v3, such as filters.1.gain=1:9:0.5");
    const std::string values = text.substr(equals + 1);
    const auto bounds = SplitAt(values, ':');
    if (bounds.size() == 3) {
        axis.values = RangeValues(text, bounds);
    } else if (bounds.size() == 2 && NumberFrom(bounds[0]) && NumberFrom(bounds[1])) {
        Refuse(text, "the step is missing; expected FROM:TO:STEP");
    } else {
        for (const std::string& part : SplitAt(values, ','))
            axis.values.push_back(ListValue(text, part));
        if (axis.values.size() > kMostRuns)
            Refuse(text, fmt::format("has {} values; expected at most {}", axis.values.size(), kMostRuns));
    }
    return axis;
}

std::vector<SweepAxis> ReadSweepAxes(const std::vector<std::string>& texts)
{
    if (texts.size() > kMostAxes)
        throw UsageFailure(fmt::format("--over: is given {} times; expected once or twice", texts.size()));
    std::vector<SweepAxis> axes;
    axes.reserve(texts.size());
    for (const std::string& text : texts)
        axes.push_back(ReadSweepAxis(text));
    if (axes.size() == 2 && axes[0].path == axes[1].path)
        throw UsageFailure(fmt::format("--over {}: is given twice; expected two paths", axes[0].path));
    const std::size_t count = CombinationsOf(axes);
    if (count > kMostRuns)
        throw UsageFailure(fmt::format("--over: gives {} combinations; expected at most {}", count, kMostRuns));
    return axes;
}

std::size_t CombinationsOf(std::span<const SweepAxis> axes)
{
    return std::accumulate(axes.begin(), axes.end(), std::size_t{1},
                           [](std::size_t count, const SweepAxis& axis) { return count * axis.values.size(); });
}

bool IsBetter(const SweepRun& one, const SweepRun& other)
{
    return std::pair(one.figure, SmallestOf(one.eye, &EyeOpening::widthUi)) >
           std::pair(other.figure, SmallestOf(other.eye, &EyeOpening::widthUi));
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
    std::vector<SweepRun> worst;
    for (const NamedCapture& capture : input.captures) {
        std::vector<SweepRun> runs = Runner(input, capture, observer).Run();
        if (input.captures.size() > 1)
            for (SweepRun& run : runs)
                run.capture = capture.name;
        if (worst.empty())
            worst = std::move(runs);
        else
            for (std::size_t k = 0; k < runs.size(); ++k)
                if (worst[k].error.empty() && (!runs[k].error.empty() || IsBetter(worst[k], runs[k])))
                    worst[k] = std::move(runs[k]);
    }
    return worst;
}

}  // namespace Tarnwick::DSO::Workbench
