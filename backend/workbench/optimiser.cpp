#include "workbench/optimiser.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "framework/filenames.h"
#include "workbench/chaininput.h"
#include "workbench/chainkeys.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/text.h"
#include "workbench/plumbing/workers.h"
#include "workbench/run.h"
#include "workbench/signalquality.h"
#include "workbench/symbols.h"

namespace Tarnwick::DSO::Workbench {

using nlohmann::json;

namespace {

struct GainRange {
    const char* ctle;
    double lowest;
    double highest;
    double finest;  // step
};

// Gains in dB, levels of HDMI and presets of IEEE 802.3bs, as the chain file has them.
constexpr GainRange kGainRanges[] = {{"peaking", 0.5, 14.0, 0.25},
                                     {"hdmi", 1.0, 8.0, 1.0},
                                     {"hdmi2.0", 0.5, 14.0, 0.25},
                                     {"ieee802.3bs", 1.0, 9.0, 0.5}};
constexpr int kCoarseGains = 4;

const GainRange* RangeOf(const std::string& ctle)
{
    const auto* const range = std::find_if(std::begin(kGainRanges), std::end(kGainRanges),
                                           [&](const GainRange& one) { return ctle == one.ctle; });
    return range == std::end(kGainRanges) ? nullptr : range;
}

double OnGrid(double gain, const GainRange& range)
{
    const double steps = std::round((gain - range.lowest) / range.finest);
    return std::clamp(range.lowest + steps * range.finest, range.lowest, range.highest);
}

bool IsEqualiser(const json& filter)
{
    const std::string type = filter.value("type", "");
    return type == "ctle" || type == "ffe" || type == "dfe";
}

// The filters of a chain file that stay, and the equalisers whose other settings are kept.
class FilterPlan {
public:
    explicit FilterPlan(const ChainFile& file)
    {
        const json& content = JsonOf(file);
        if (!content.is_object() || !content.contains("filters") || !content["filters"].is_array())
            (void)Chain(file, 1);  // says what is wrong with it
        for (const json& filter : content["filters"]) {
            if (!filter.is_object() || !IsEqualiser(filter)) {
                (templates_.empty() ? front_ : behindCtle_).push_back(filter);
                continue;
            }
            templates_.emplace(filter["type"].get<std::string>(), filter);
        }
    }

    std::size_t FrontCount() const { return front_.size(); }
    /// Filters in front of the FFE.
    std::size_t CountBeforeFfe(const EqualiserPoint& point) const
    {
        return front_.size() + (point.ctle.empty() ? 0 : 1) + behindCtle_.size();
    }

    json FiltersFor(const EqualiserPoint& point) const
    {
        json filters = front_;
        if (!point.ctle.empty())
            filters.push_back(With("ctle", {{"ctleType", point.ctle}, {"gain", point.gain}}));
        for (const json& filter : behindCtle_)
            filters.push_back(filter);
        if (point.ffeTaps > 0)
            filters.push_back(With(
                "ffe", {{"numberOfTaps", point.ffeTaps}, {"fitAtSamplingPhase", true}, {"dfeTaps", point.dfeTaps}}));
        if (point.dfeTaps > 0)
            filters.push_back(With("dfe", {{"numberOfTaps", point.dfeTaps}}));
        return filters;
    }

private:
    json With(const char* type, const json& settings) const
    {
        const auto row = templates_.find(type);
        json filter = row == templates_.end() ? json{{"type", type}} : row->second;
        for (const char* const key : {"enabled", "taps", "useManualTaps", "useTdecqEqualizer", "samplingDelayPs"})
            filter.erase(key);
        filter.update(settings);
        return filter;
    }

    json front_ = json::array();
    json behindCtle_ = json::array();
    std::map<std::string, json> templates_;
};

// A DFE could not find the symbols by itself in what a joint fit leaves to it.
void UsePattern(json& device)
{
    if (device.contains("patternSymbols"))
        device["useUserPattern"] = true;
}

// A capture with what the points have in common.
class Bench {
public:
    Bench(const OptimiserInput& input, const NamedCapture& capture, const FilterPlan& plan,
          const OptimiserObserver& observer)
        : input_(input), plan_(plan), name_(capture.name)
    {
        ChainInput record = InputFor(input_.chain, capture.waveform, input_.facts, name_);
        for (const std::string& note : record.notes)
            if (observer.note)
                observer.note(note);
        RequireEyes(record, name_, "optimise");
        content_ = JsonOf(record.chain);
        UsePattern(content_["device"]);
        eyes_ = std::move(record.eyes);
        front_ = RecordOf(std::move(record.samples), eyes_);
        // The filters in front of the CTLE are the same for all points.
        json head = content_;
        json& filters = head["filters"] = plan_.FiltersFor({});
        filters.erase(filters.begin() + static_cast<std::ptrdiff_t>(plan_.FrontCount()), filters.end());
        Chain chain(ChainFileOf(std::move(head), input_.chain.Name()), front_.samples.size());
        for (Stage& stage : chain.Stages())
            PassStage(stage, front_, chain, name_);
    }

    const std::string& Name() const { return name_; }

    /// Fills in the figures of the trial's point.
    void Measure(EqualiserTrial& trial, const OptimiserObserver& observer)
    {
        const PassingRecord record = Pass(trial.point, *InFrontOfFfe(trial.point), plan_.CountBeforeFfe(trial.point));
        EyeSettings eyes = eyes_;
        eyes.valid = record.Valid(eyes.samplesPerUi);
        const EyeReport report = MeasureEyes(record.samples, eyes);
        std::optional<double> tdecqDb;
        if (input_.rank == RankBy::Tdecq)
            tdecqDb = TdecqDbOf(record.samples, eyes);
        trial.figure = FigureOf(report, tdecqDb, input_.rank);
        if (report.eyes.empty())
            return;
        trial.openingPercent = SmallestOf(report, &EyeOpening::openingPercent);
        trial.heightV = SmallestOf(report, &EyeOpening::height);
        trial.widthUi = SmallestOf(report, &EyeOpening::widthUi);
        trial.ber = report.ber;
        if (observer.measured)
            observer.measured(trial, report, eyes.valid->Of(record.samples), eyes.samplesPerUi);
    }

    /// One record is kept: that in front of the point's FFE.
    void KeepOnly(const EqualiserPoint& point)
    {
        std::erase_if(beforeFfe_, [&](const auto& one) { return one.first != std::pair(point.ctle, point.gain); });
    }

private:
    // The filters that have run already are disabled, which leaves the others their places and opens no file.
    Chain ChainFrom(const EqualiserPoint& point, std::size_t from) const
    {
        json content = content_;
        content["filters"] = plan_.FiltersFor(point);
        for (std::size_t k = 0; k < from; ++k)
            content["filters"][k]["enabled"] = false;
        return {ChainFileOf(std::move(content), input_.chain.Name()), front_.samples.size()};
    }

    PassingRecord Pass(const EqualiserPoint& point, PassingRecord record, std::size_t from) const
    {
        Chain chain = ChainFrom(point, from);
        for (Stage& stage : chain.Stages())
            PassStage(stage, record, chain, name_);
        return record;
    }

    // Behind the CTLE and what follows it, which points with other taps have in common.
    std::shared_ptr<const PassingRecord> InFrontOfFfe(const EqualiserPoint& point)
    {
        const auto key = std::pair(point.ctle, point.gain);
        {
            const std::lock_guard lock(mutex_);
            if (const auto cached = beforeFfe_.find(key); cached != beforeFfe_.end())
                return cached->second;
        }
        EqualiserPoint linear = point;
        linear.ffeTaps = 0;
        linear.dfeTaps = 0;
        auto record = std::make_shared<const PassingRecord>(Pass(linear, front_, plan_.FrontCount()));
        const std::lock_guard lock(mutex_);
        return beforeFfe_.emplace(key, std::move(record)).first->second;
    }

    const OptimiserInput& input_;
    const FilterPlan& plan_;
    std::string name_;
    json content_;  // the chain, its device completed
    EyeSettings eyes_;
    PassingRecord front_;  // in front of the CTLE
    std::map<std::pair<std::string, double>, std::shared_ptr<const PassingRecord>> beforeFfe_;
    std::mutex mutex_;
};

class Search {
public:
    Search(const OptimiserInput& input, const OptimiserObserver& observer)
        : input_(input), observer_(observer), plan_(input.chain)
    {
        for (const NamedCapture& capture : input.captures)
            benches_.emplace_back(input, capture, plan_, observer);
        threads_ = ThreadCount(input.threads);
    }

    OptimiserResult Run()
    {
        TryAll(CoarsePoints());
        if (result_.trials.empty() || !std::isfinite(Best().figure))
            throw DataFailure(result_.trials.empty() ? Names() + ": the search was stopped before a trial"
                                                     : WhyNothing());
        // Along one coordinate after the other, until no neighbour is better at the finest step.
        double step = CoarseStep() / 2.0;
        while (!IsOver()) {
            const std::size_t before = result_.best;
            TryAll(NeighboursOfGain(step));
            TryAll(NeighboursOfTaps());
            if (result_.best != before)
                continue;
            const GainRange* const range = RangeOf(Best().point.ctle);
            if (range == nullptr || step <= range->finest)
                break;
            step = std::max(step / 2.0, range->finest);
        }
        return std::move(result_);
    }

private:
    const EqualiserTrial& Best() const { return result_.trials[result_.best]; }

    std::string Names() const
    {
        return benches_.size() == 1 ? benches_.front().Name() : fmt::format("{} captures", benches_.size());
    }

    std::string WhyNothing() const
    {
        const auto refused = std::find_if(result_.trials.begin(), result_.trials.end(),
                                          [](const EqualiserTrial& trial) { return !trial.error.empty(); });
        return refused != result_.trials.end() ? refused->error
                                               : Names() + ": no setting opens eyes that can be ranked";
    }

    bool IsOver() { return IsStopped() || result_.trials.size() >= kMostTrials; }

    std::vector<EqualiserPoint> CoarsePoints() const
    {
        std::vector<EqualiserPoint> points = {{"", 0.0, input_.ffeTaps, input_.dfeTaps}};
        for (const std::string& ctle : input_.ctleTypes) {
            const GainRange& range = *RangeOf(ctle);
            for (int k = 0; k < kCoarseGains; ++k) {
                const double share = (static_cast<double>(k) + 0.5) / kCoarseGains;
                points.push_back({ctle, OnGrid(range.lowest + share * (range.highest - range.lowest), range),
                                  input_.ffeTaps, input_.dfeTaps});
            }
        }
        return points;
    }

    double CoarseStep() const
    {
        const GainRange* const range = RangeOf(Best().point.ctle);
        return range == nullptr ? 0.0 : (range->highest - range->lowest) / kCoarseGains;
    }

    std::vector<EqualiserPoint> NeighboursOfGain(double step) const
    {
        std::vector<EqualiserPoint> points;
        const EqualiserPoint& best = Best().point;
        if (const GainRange* const range = RangeOf(best.ctle)) {
            for (const double gain : {best.gain - step, best.gain + step}) {
                points.push_back(best);
                points.back().gain = OnGrid(gain, *range);
            }
        }
        return points;
    }

    std::vector<EqualiserPoint> NeighboursOfTaps() const
    {
        std::vector<EqualiserPoint> points;
        for (const auto& [ffe, dfe] : {std::pair(-1, 0), std::pair(0, -1), std::pair(1, 0), std::pair(0, 1)}) {
            EqualiserPoint point = Best().point;
            point.ffeTaps += ffe;
            point.dfeTaps += dfe;
            const int fewest = std::min(input_.ffeTaps, 1);
            if (point.ffeTaps >= fewest && point.ffeTaps <= input_.ffeTaps && point.dfeTaps >= 0 &&
                point.dfeTaps <= input_.dfeTaps)
                points.push_back(std::move(point));
        }
        return points;
    }

    // Those that were not tried yet, side by side. What they are does not depend on how they end.
    void TryAll(const std::vector<EqualiserPoint>& points)
    {
        const std::size_t first = result_.trials.size();
        for (const EqualiserPoint& point : points) {
            const auto isPoint = [&](const EqualiserTrial& trial) { return trial.point == point; };
            if (result_.trials.size() < kMostTrials &&
                std::none_of(result_.trials.begin(), result_.trials.end(), isPoint))
                result_.trials.push_back({point});
        }
        std::vector<char> isDone(result_.trials.size() - first, 0);
        const auto isStopped = [&] {
            bool stops = true;
            calls_.Tell([&] { stops = IsStopped(); });
            return stops;
        };
        RunOnThreads(
            isDone.size(), threads_,
            [&](std::size_t k) {
                Try(result_.trials[first + k]);
                isDone[k] = 1;
            },
            isStopped);
        // A search that was stopped keeps what has ended.
        std::size_t ended = first;
        for (std::size_t k = 0; k < isDone.size(); ++k)
            if (isDone[k] != 0)
                std::swap(result_.trials[ended++], result_.trials[first + k]);
        result_.trials.resize(ended);
        if (result_.trials.empty())
            return;
        for (std::size_t k = first; k < ended; ++k)
            if (result_.trials[k].figure > Best().figure)
                result_.best = k;
        for (Bench& bench : benches_)
            bench.KeepOnly(Best().point);
    }

    bool IsStopped()
    {
        result_.stopped |= observer_.stop && observer_.stop();
        return result_.stopped;
    }

    void Try(EqualiserTrial& trial)
    {
        const auto known = std::find_if(input_.known.begin(), input_.known.end(),
                                        [&](const EqualiserTrial& one) { return one.point == trial.point; });
        if (known != input_.known.end()) {
            trial = *known;
            return;
        }
        if (observer_.begin)
            calls_.Tell([&] { observer_.begin(trial.point); });
        try {
            Measure(trial);
        } catch (const UsageFailure& failure) {
            trial.error = failure.what();
        } catch (const DataFailure& failure) {
            trial.error = failure.what();
        }
        if (observer_.end)
            calls_.Tell([&] { observer_.end(trial); });
    }

    // Of several captures each figure is that of the capture where it is worst.
    void Measure(EqualiserTrial& trial)
    {
        std::optional<EqualiserTrial> worst;
        for (Bench& bench : benches_) {
            EqualiserTrial one{trial.point};
            bench.Measure(one, observer_);
            if (benches_.size() > 1)
                one.capture = bench.Name();
            if (!worst) {
                worst = std::move(one);
                continue;
            }
            if (one.figure < worst->figure) {
                worst->figure = one.figure;
                worst->capture = one.capture;
            }
            worst->openingPercent = std::min(worst->openingPercent, one.openingPercent);
            worst->heightV = std::min(worst->heightV, one.heightV);
            worst->widthUi = worst->widthUi && one.widthUi ? std::min(worst->widthUi, one.widthUi) : std::nullopt;
            worst->ber = worst->ber && one.ber ? std::max(worst->ber, one.ber) : std::nullopt;
        }
        trial = std::move(worst).value();
    }

    const OptimiserInput& input_;
    const OptimiserObserver& observer_;
    FilterPlan plan_;
    std::deque<Bench> benches_;  // one a capture
    unsigned threads_ = 1;
    CallsInTurn calls_;
    OptimiserResult result_;
};

}  // namespace

std::vector<std::string> OptimisedCtleTypes()
{
    std::vector<std::string> names;
    for (const GainRange& range : kGainRanges)
        names.emplace_back(range.ctle);
    return names;
}

OptimiserResult Optimise(const OptimiserInput& input, const OptimiserObserver& observer)
{
    for (const std::string& ctle : input.ctleTypes)
        if (RangeOf(ctle) == nullptr)
            throw UsageFailure(fmt::format("optimise: the type of CTLE is \"{}\"; expected {}", ctle,
                                           Joined(OptimisedCtleTypes(), ", ")));
    return Search(input, observer).Run();
}

std::string OptimisedChain(const OptimiserInput& input, const EqualiserPoint& point,
                           const std::filesystem::path& folder)
{
    namespace fs = std::filesystem;
    json content = JsonOf(input.chain);
    content["filters"] = FilterPlan(input.chain).FiltersFor(point);
    const fs::path from = fs::absolute(PathOf(input.chain.Name())).parent_path();
    for (json& filter : content["filters"])
        for (const std::string& key : FileKeysOf(filter.value("type", "")))
            if (filter.contains(key) && filter[key].is_string()) {
                const fs::path file = PathOf(filter[key].get<std::string>());
                if (file.is_relative())
                    filter[key] = fs::relative(from / file, fs::absolute(folder)).generic_string();
            }
    // What was given with the command is given to who runs the file, too.
    json device = content.value("device", json::object());
    const CaptureFacts& facts = input.facts;
    if (facts.symbolRateGBd > 0.0)
        device["baudRateGBd"] = facts.symbolRateGBd;
    if (facts.coding != SIGNAL_CODING_UNKNOWN)
        device["signalCoding"] = NameOf(facts.coding);
    if (facts.patternLengthUi > 0)
        device["patternLengthUi"] = facts.patternLengthUi;
    if (facts.samplesPerUi > 0.0) {
        const bool isWhole = facts.samplesPerUi == std::round(facts.samplesPerUi);
        device["useFractionalSampling"] = !isWhole;
        if (isWhole)
            device["samplesPerUi"] = static_cast<std::int64_t>(facts.samplesPerUi);
        else
            device.update({{"uiDuration", facts.samplesPerUi}, {"sampleSpacing", 1.0}});
    }
    UsePattern(device);
    if (!device.empty())
        content["device"] = std::move(device);
    return JsonText(content, 4) + "\n";
}

}  // namespace Tarnwick::DSO::Workbench
