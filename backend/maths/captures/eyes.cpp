#include "maths/captures/eyes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "maths/captures/bandlimited.h"
#include "maths/patterns/alignment.h"
#include "maths/patterns/levels.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kSearchPhases = 16;                 // a UI, at which symbols are looked for; a divisor of kEyePhases
constexpr std::size_t kMostSorted = 4096;         // values a phase that tell the levels well enough to rank the phase
constexpr double kSlack = 1e-9;                   // [UI] of rounding in a record's length
constexpr double kEqual = 1e-9;                   // openings that differ by less than this part are one flat top
constexpr int kFinestSteps = 8;                   // in a phase: how well the measuring phase is told
constexpr double kFlatDecision = 0.9;             // of the largest height: any phase of that stretch decides alike
constexpr double kFlatCorrelation = 0.99;         // of the largest
constexpr double kSmallestCorrelation = 0.3;      // see LocateSymbols
constexpr std::size_t kOffsets = 2 * kEyePhases;  // from a UI before the centre to a UI behind it

SymbolRange Both(SymbolRange a, SymbolRange b)
{
    const std::size_t first = std::max(a.first, b.first);
    const std::size_t end = std::min(a.first + a.count, b.first + b.count);
    return {first, end > first ? end - first : 0};
}

// What a range has in front of and behind another one inside it.
std::vector<SymbolRange> Outside(SymbolRange range, SymbolRange inside)
{
    const std::size_t end = range.first + range.count;
    const std::size_t from = std::clamp(inside.first, range.first, end);
    const std::size_t to = std::clamp(inside.first + inside.count, from, end);
    std::vector<SymbolRange> parts;
    if (from > range.first)
        parts.push_back({range.first, from - range.first});
    if (end > to)
        parts.push_back({to, end - to});
    return parts;
}

// What the values of some UI reach at each of several phases.
struct Reach {
    std::vector<double> low;
    std::vector<double> high;
    std::vector<double> sum;
    double count = 0.0;

    explicit Reach(std::size_t phases) : low(phases, kInfinity), high(phases, -kInfinity), sum(phases, 0.0) {}
    void Take(const double* values)
    {
        Stretch(values);
        for (std::size_t p = 0; p < sum.size(); ++p)
            sum[p] += values[p];
        count += 1.0;
    }
    // Without the sum.
    void Stretch(const double* values)
    {
        double* const lows = low.data();
        double* const highs = high.data();
        for (std::size_t p = 0; p < low.size(); ++p) {
            lows[p] = values[p] < lows[p] ? values[p] : lows[p];
            highs[p] = values[p] > highs[p] ? values[p] : highs[p];
        }
    }
    void TakeAt(std::size_t phase, double value)
    {
        low[phase] = std::min(low[phase], value);
        high[phase] = std::max(high[phase], value);
        sum[phase] += value;
    }
};

constexpr std::size_t kUiTogether = 32;  // their values stay in the first-level cache

// Gathers what the values of UI reach by kinds of UI. The extremes are those of all values, to the bit: most UI cannot move one,
// and are screened out. The sums are the phases of the sum of a kind's samples, since reading is linear; they differ from those
// of the values by rounding.
class Gatherer {
public:
    /// @param record   a UI has whole samples
    /// @param reaches  one of each kind, at all phases
    Gatherer(const BandLimitedPhases& phases, const EyeRecord& record, std::vector<Reach>& reaches)
        : phases_(phases),
          screening_(phases, record.samples),
          stride_(static_cast<std::size_t>(record.samplesPerUi)),
          reaches_(reaches),
          kinds_(reaches.size()),
          limits_(kUiTogether),
          mayReach_(kUiTogether),
          values_(kUiTogether * phases.Pitch())
    {
        for (std::size_t kind = 0; kind < kinds_.size(); ++kind) {
            kinds_[kind].limits.resize(screening_.LimitCount());
            kinds_[kind].sum.assign(phases_.SampleCount(), 0.0);
            SetLimits(kind);
        }
    }

    /// @param samples  of the first of the UI, whose kinds are these: at most kUiTogether
    void Take(const double* samples, std::span<const std::size_t> kinds)
    {
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            Kind& kind = kinds_[kinds[i]];
            limits_[i] = kind.limits.data();
            kind.stretches.push_back(samples + i * stride_);
            reaches_[kinds[i]].count += 1.0;
        }
        // First, since it reads the samples one after the other, which brings them into the cache soonest.
        const auto mayReach = std::span(mayReach_).first(kinds.size());
        screening_.Screen(samples, stride_, std::span(limits_).first(kinds.size()), mayReach);
        for (Kind& kind : kinds_) {
            AddStretches(kind.stretches, kind.sum);
            kind.stretches.clear();
        }
        const auto left = static_cast<std::size_t>(std::count(mayReach.begin(), mayReach.end(), 1));
        // Together they are read several times as fast as one by one.
        const bool readAll = left > kUiTogether / 4;
        if (readAll)
            phases_.Read(samples, stride_, kinds.size(), values_.data());
        for (std::size_t i = 0; i < kinds.size() && left > 0; ++i) {
            if (mayReach[i] == 0)
                continue;
            double* const values = values_.data() + i * phases_.Pitch();
            if (!readAll)
                phases_.Read(samples + i * stride_, stride_, 1, values);
            reaches_[kinds[i]].Stretch(values);
            SetLimits(kinds[i]);
        }
    }

    /// Adds the sums.
    void Finish()
    {
        for (std::size_t kind = 0; kind < kinds_.size(); ++kind) {
            phases_.Read(kinds_[kind].sum.data(), stride_, 1, values_.data());
            for (std::size_t p = 0; p < reaches_[kind].sum.size(); ++p)
                reaches_[kind].sum[p] += values_[p];
        }
    }

private:
    struct Kind {
        std::vector<float> limits;
        std::vector<double> sum;  // of the samples
        std::vector<const double*> stretches;
    };

    void SetLimits(std::size_t kind)
    {
        screening_.SetLimits(reaches_[kind].low, reaches_[kind].high, kinds_[kind].limits);
    }

    const BandLimitedPhases& phases_;
    PhaseScreening screening_;
    std::size_t stride_;
    std::vector<Reach>& reaches_;
    std::vector<Kind> kinds_;
    std::vector<const float*> limits_;     // of each UI taken together
    std::vector<unsigned char> mayReach_;  // and whether it has to be read
    std::vector<double> values_;
};

// Reads the same phases of one UI after the other.
class PhaseReader {
public:
    /// @param positions  [samples] of the phases in UI 0, ascending
    PhaseReader(const EyeRecord& record, std::vector<double> positions)
        : record_(record),
          waveform_(record.samples, record.wrapping),
          positions_(std::move(positions)),
          readings_(positions_.size())
    {
        Place(0.0);
        if (record.samplesPerUi == std::floor(record.samplesPerUi))
            phases_.emplace(readings_);
    }

    void ReadOne(std::size_t ui, std::span<double> values)
    {
        if (phases_) {
            waveform_.Read(readings_, static_cast<std::ptrdiff_t>(Stride() * ui), values);
            return;
        }
        Place(static_cast<double>(ui) * record_.samplesPerUi);
        waveform_.Read(readings_, 0, values);
    }
    /// Calls visit(ui, values) for each UI of the range, in order, with a value for each position.
    template <typename Visit>
    void ForEach(SymbolRange range, Visit visit)
    {
        const std::size_t end = range.first + range.count;
        const SymbolRange inside = Inside(range);
        std::vector<double> values(positions_.size());
        const auto readOne = [&](std::size_t ui) {
            ReadOne(ui, values);
            visit(ui, values.data());
        };
        for (std::size_t ui = range.first; ui < inside.first; ++ui)
            readOne(ui);
        std::vector<double> block(inside.count > 0 ? kUiTogether * phases_->Pitch() : 0);
        for (std::size_t done = 0; done < inside.count; done += kUiTogether) {
            const std::size_t first = inside.first + done;
            const std::size_t count = std::min(kUiTogether, inside.count - done);
            phases_->Read(record_.samples.data() + FirstSampleOf(first), Stride(), count, block.data());
            for (std::size_t i = 0; i < count; ++i)
                visit(first + i, block.data() + i * phases_->Pitch());
        }
        for (std::size_t ui = inside.first + inside.count; ui < end; ++ui)
            readOne(ui);
    }

    /// What the values that ForEach gives reach, gathered by kinds of UI; the sums to their rounding.
    /// @param kindOf  the place in reaches of a UI
    template <typename KindOf>
    void Gather(SymbolRange range, KindOf kindOf, std::vector<Reach>& reaches)
    {
        const SymbolRange inside = Inside(range);
        const auto takeOne = [&](std::size_t ui, const double* values) { reaches[kindOf(ui)].Take(values); };
        for (const SymbolRange part : Outside(range, inside))
            ForEach(part, takeOne);
        if (inside.count == 0)
            return;
        std::vector<std::size_t> kinds(kUiTogether);
        Gatherer gatherer(*phases_, record_, reaches);
        for (std::size_t done = 0; done < inside.count; done += kUiTogether) {
            const std::size_t first = inside.first + done;
            kinds.resize(std::min(kUiTogether, inside.count - done));
            for (std::size_t i = 0; i < kinds.size(); ++i)
                kinds[i] = kindOf(first + i);
            gatherer.Take(record_.samples.data() + FirstSampleOf(first), kinds);
        }
        gatherer.Finish();
    }

    // The UI of a range all of whose samples lie in the record; none where the phases differ from UI to UI.
    SymbolRange Inside(SymbolRange range) const
    {
        if (!phases_)
            return {range.first, 0};
        const auto isIn = [&](std::size_t ui) {
            const std::ptrdiff_t first = FirstSampleOf(ui);
            return first >= 0 && static_cast<std::size_t>(first) + phases_->SampleCount() <= record_.samples.size();
        };
        std::size_t first = range.first;
        std::size_t end = range.first + range.count;
        while (first < end && !isIn(first))
            ++first;
        while (first < end && !isIn(end - 1))
            --end;
        return {first, end - first};
    }
    /// Whether some of the phases of a UI are read as they would be without the others: where all samples lie in the record, or
    /// phases differ from UI to UI.
    SymbolRange Alike(SymbolRange range) const { return phases_ ? Inside(range) : range; }

private:
    void Place(double shift)
    {
        for (std::size_t k = 0; k < readings_.size(); ++k)
            readings_[k] = ReadingAt(positions_[k] + shift);
    }
    std::size_t Stride() const { return static_cast<std::size_t>(record_.samplesPerUi); }
    // Of all that the values of a UI are made of.
    std::ptrdiff_t FirstSampleOf(std::size_t ui) const
    {
        return phases_->FirstSample() + static_cast<std::ptrdiff_t>(ui * Stride());
    }

    EyeRecord record_;
    BandLimitedRecord waveform_;
    std::vector<double> positions_;
    std::vector<BandLimitedReading> readings_;
    std::optional<BandLimitedPhases> phases_;  // none where no UI has whole samples
};

// What the symbols of one level reach at each offset from the centre.
struct LevelExtent {
    std::array<double, kOffsets> low;
    std::array<double, kOffsets> high;
    std::array<double, kOffsets> sum{};
    std::array<double, 2> count{};  // of symbols, before the centre and from it on

    LevelExtent()
    {
        low.fill(kInfinity);
        high.fill(-kInfinity);
    }
    // @param half  0: the values lie before the centre; 1: from it on
    void Add(const Reach& reach, std::size_t half)
    {
        for (std::size_t p = 0; p < kEyePhases; ++p) {
            const std::size_t q = half * kEyePhases + p;
            low[q] = std::min(low[q], reach.low[p]);
            high[q] = std::max(high[q], reach.high[p]);
            sum[q] += reach.sum[p];
        }
        count[half] += reach.count;
    }
    double MeanAt(std::size_t offset) const { return sum[offset] / count[offset / kEyePhases]; }
};

std::vector<LevelExtent> ExtentsOf(const EyeRecord& record, const AlignedSymbols& symbols)
{
    const auto levels = static_cast<std::size_t>(record.levelCount);
    const double step = record.samplesPerUi / static_cast<double>(kEyePhases);
    const SymbolRange range = ValidUi(record, symbols.centre, step * static_cast<double>(kEyePhases - 1));
    std::vector<double> positions(kEyePhases);
    for (std::size_t k = 0; k < kEyePhases; ++k)
        positions[k] = symbols.centre + step * static_cast<double>(k);
    // The values behind the centre of a symbol lie before that of the next one, if there is one: they are gathered by the
    // levels of both.
    std::vector<Reach> reaches(levels * (levels + 1), Reach(kEyePhases));
    const std::size_t last = range.first + range.count - 1;
    const bool wraps = record.wrapping == Wrapping::Circular;
    const auto levelOf = [&](std::size_t ui) { return static_cast<std::size_t>(symbols.levels[ui]); };
    const auto kindOf = [&](std::size_t ui) {
        const std::size_t next = ui != last ? levelOf(ui + 1) : wraps ? levelOf(0) : levels;
        return levelOf(ui) * (levels + 1) + next;
    };
    PhaseReader(record, positions).Gather(range, kindOf, reaches);
    std::vector<LevelExtent> extents(levels);
    for (std::size_t level = 0; level < levels; ++level) {
        for (std::size_t next = 0; next <= levels; ++next) {
            const Reach& reach = reaches[level * (levels + 1) + next];
            extents[level].Add(reach, 1);
            if (next < levels)
                extents[next].Add(reach, 0);
        }
    }
    return extents;
}

// The sides of one eye at each offset.
struct Sides {
    std::array<double, kOffsets> above;  // the lowest value above the eye
    std::array<double, kOffsets> below;  // the highest below it
};

Sides SidesOf(const std::vector<LevelExtent>& extents, std::size_t eye)
{
    Sides sides{};
    sides.above.fill(kInfinity);
    sides.below.fill(-kInfinity);
    for (std::size_t level = 0; level < extents.size(); ++level) {
        for (std::size_t q = 0; q < kOffsets; ++q) {
            if (level > eye)
                sides.above[q] = std::min(sides.above[q], extents[level].low[q]);
            else
                sides.below[q] = std::max(sides.below[q], extents[level].high[q]);
        }
    }
    return sides;
}

// How far from the offset `from`, in offsets, both sides stay off the threshold in one direction.
double OpenSpan(const Sides& sides, std::size_t from, int direction, double threshold)
{
    const auto margins = [&](int step) {
        const int place = static_cast<int>(from) + direction * step;
        const auto q = static_cast<std::size_t>(place);
        return std::array{sides.above[q] - threshold, threshold - sides.below[q]};
    };
    const int reach = direction < 0 ? static_cast<int>(from) : static_cast<int>(kOffsets - 1 - from);
    std::array<double, 2> here = margins(0);
    if (here[0] < 0.0 || here[1] < 0.0)
        return 0.0;
    for (int step = 1; step <= reach; ++step) {
        const std::array<double, 2> next = margins(step);
        double part = 1.0;  // of the step, until the first side crosses
        for (std::size_t side = 0; side < next.size(); ++side)
            if (next[side] < 0.0)
                part = std::min(part, here[side] / (here[side] - next[side]));
        if (part < 1.0 || next[0] < 0.0 || next[1] < 0.0)
            return step - 1 + part;
        here = next;
    }
    return reach;
}

// The sides of all eyes at one position.
struct Slice {
    std::vector<double> levels;  // means
    std::vector<double> above;   // of each eye the lowest value above it
    std::vector<double> below;   // and the highest below

    double OpeningOf(std::size_t eye) const
    {
        const double distance = levels[eye + 1] - levels[eye];
        return distance > 0.0 ? (above[eye] - below[eye]) / distance : -kInfinity;
    }
    /// Without its width, which no single phase tells.
    Eye EyeOf(std::size_t eye) const
    {
        return {above[eye] - below[eye], OpeningOf(eye), 0.5 * (above[eye] + below[eye]), 0.0, 0.0, 0.0};
    }
    double SmallestOpening() const
    {
        double smallest = kInfinity;
        for (std::size_t eye = 0; eye < above.size(); ++eye)
            smallest = std::min(smallest, OpeningOf(eye));
        return smallest;
    }
};

struct Slices {
    std::vector<Slice> slices;  // the levels but for the rounding of their sums
    SymbolRange common;         // the UI that all positions have
    SymbolRange alike;          // of these, the UI that are read as at one position alone
};

// One for each position, in one pass over the record.
// @param positions  [samples] of symbol 0, ascending
Slices SlicesAt(const EyeRecord& record, const AlignedSymbols& symbols, const std::vector<double>& positions)
{
    const auto levels = static_cast<std::size_t>(record.levelCount);
    std::vector<SymbolRange> ranges;
    SymbolRange common{0, record.UiCount()};
    for (const double position : positions) {
        ranges.push_back(Both(ValidUi(record, position, 0.0), symbols.known));
        common = Both(common, ranges.back());
    }
    std::vector<Reach> reaches(levels, Reach(positions.size()));
    PhaseReader reader(record, positions);
    reader.Gather(
        common, [&](std::size_t ui) { return static_cast<std::size_t>(symbols.levels[ui]); }, reaches);
    std::vector<Slice> slices;
    for (std::size_t p = 0; p < positions.size(); ++p) {
        std::vector<double> counts;
        counts.reserve(reaches.size());
        for (const Reach& reach : reaches)
            counts.push_back(reach.count);
        // At the ends of a record that does not wrap a position may have a UI that others have not.
        for (const SymbolRange own : Outside(ranges[p], common))
            PhaseReader(record, {positions[p]}).ForEach(own, [&](std::size_t ui, const double* value) {
                const auto level = static_cast<std::size_t>(symbols.levels[ui]);
                reaches[level].TakeAt(p, *value);
                counts[level] += 1.0;
            });
        Slice slice{std::vector<double>(levels), {}, {}};
        for (std::size_t level = 0; level < levels; ++level)
            slice.levels[level] = reaches[level].sum[p] / counts[level];
        double below = -kInfinity;
        for (std::size_t eye = 0; eye + 1 < levels; ++eye) {
            below = std::max(below, reaches[eye].high[p]);
            double above = kInfinity;
            for (std::size_t level = eye + 1; level < levels; ++level)
                above = std::min(above, reaches[level].low[p]);
            slice.above.push_back(above);
            slice.below.push_back(below);
        }
        slices.push_back(std::move(slice));
    }
    return {std::move(slices), common, reader.Alike(common)};
}

// The means of the levels at one of the positions, summed value by value in the order of the record.
// @param values  at that position
std::vector<double> LevelsAt(const EyeRecord& record, const AlignedSymbols& symbols, const Slices& slices,
                             double position, const PhaseValues& values)
{
    std::vector<double> sums(static_cast<std::size_t>(record.levelCount), 0.0);
    std::vector<double> counts(sums.size(), 0.0);
    const auto take = [&](std::size_t ui, double value) {
        const auto level = static_cast<std::size_t>(symbols.levels[ui]);
        sums[level] += value;
        counts[level] += 1.0;
    };
    PhaseReader reader(record, {position});
    const auto takeAgain = [&](SymbolRange range) {
        std::array<double, 1> value{};
        for (std::size_t ui = range.first; ui < range.first + range.count; ++ui) {
            reader.ReadOne(ui, value);
            take(ui, value.front());
        }
    };
    const auto takeRead = [&](SymbolRange range) {
        for (std::size_t ui = range.first; ui < range.first + range.count; ++ui)
            take(ui, values.values[ui]);
    };
    const std::size_t end = slices.alike.first + slices.alike.count;
    takeAgain({slices.common.first, slices.alike.first - slices.common.first});
    takeRead(slices.alike);
    takeAgain({end, slices.common.first + slices.common.count - end});
    for (const SymbolRange part : Outside(values.range, slices.common))
        takeRead(part);
    for (std::size_t level = 0; level < sums.size(); ++level)
        sums[level] /= counts[level];
    return sums;
}

// The middle of the longest stretch of values of at least `least`, of several the first.
std::size_t MiddleOfLongestRun(std::span<const double> values, double least, Wrapping wrapping)
{
    const std::size_t count = values.size();
    if (count == 0)
        return 0;
    std::size_t best = 0;
    std::size_t longest = 0;
    for (std::size_t start = 0; start < count; ++start) {
        const std::size_t most = wrapping == Wrapping::Circular ? count : count - start;
        std::size_t length = 0;
        while (length < most && values[(start + length) % count] >= least)
            ++length;
        if (length > longest) {
            longest = length;
            best = start;
        }
    }
    return (best + longest / 2) % count;
}

std::vector<double> ValidOnly(const PhaseValues& phase)
{
    const auto begin = phase.values.begin() + static_cast<std::ptrdiff_t>(phase.range.first);
    return {begin, begin + static_cast<std::ptrdiff_t>(phase.range.count)};
}

std::optional<LevelPartition> Levels(std::vector<double> values, int levelCount)
{
    if (values.size() < static_cast<std::size_t>(levelCount))
        return std::nullopt;
    std::sort(values.begin(), values.end());
    auto partition = PartitionIntoLevels(values, levelCount);
    return partition && !partition->IsOfOneLevel() ? std::move(partition) : std::nullopt;
}

// The smallest distance of neighbouring levels' values, when the thresholds decide.
double SmallestGap(std::span<const double> values, std::span<const double> thresholds)
{
    std::vector<double> low(thresholds.size() + 1, kInfinity);
    std::vector<double> high(thresholds.size() + 1, -kInfinity);
    for (const double value : values) {
        const auto level = static_cast<std::size_t>(LevelOf(value, thresholds));
        low[level] = std::min(low[level], value);
        high[level] = std::max(high[level], value);
    }
    double gap = kInfinity;
    for (std::size_t k = 0; k < thresholds.size(); ++k)
        gap = std::min(gap, low[k + 1] - high[k]);
    return gap;
}

std::vector<double> Subsampled(std::span<const double> values)
{
    const std::size_t stride = (values.size() + kMostSorted - 1) / kMostSorted;
    std::vector<double> subsample;
    for (std::size_t i = 0; i < values.size(); i += stride)
        subsample.push_back(values[i]);
    return subsample;
}

// One value a UI at a phase of the search, less their mean and summed over the repetitions of the pattern.
std::vector<double> Folded(const EyeRecord& record, int phase, std::size_t period)
{
    const PhaseValues at = ValuesAt(record, record.samplesPerUi * phase / kSearchPhases);
    std::vector<double> folded(period, 0.0);
    if (at.range.count == 0 || period == 0)
        return folded;
    const double mean = Mean(std::span(at.values).subspan(at.range.first, at.range.count));
    std::size_t place = at.range.first % period;
    for (std::size_t i = at.range.first; i < at.range.first + at.range.count; ++i) {
        folded[place] += at.values[i] - mean;
        place = place + 1 < period ? place + 1 : 0;
    }
    return folded;
}

// The sum of the repetitions of a pattern in a record of whole ones, where a UI has whole samples: reading between the
// samples is linear, so that it serves as well as they do one by one. Empty otherwise.
std::vector<double> SumOfRepetitions(const EyeRecord& record, std::size_t periodUi)
{
    const double length = static_cast<double>(periodUi) * record.samplesPerUi;
    const std::size_t repetitions = record.UiCount() / periodUi;
    if (record.samplesPerUi != std::floor(record.samplesPerUi) || repetitions < 2 ||
        length * static_cast<double>(repetitions) != static_cast<double>(record.samples.size()))
        return {};
    const std::size_t period = record.samples.size() / repetitions;
    std::vector<double> sum(record.samples.begin(), record.samples.begin() + static_cast<std::ptrdiff_t>(period));
    constexpr std::size_t kBlock = 32768;  // of the sum, which stays in the second-level cache
    for (std::size_t begin = 0; begin < period; begin += kBlock) {
        const std::size_t end = std::min(begin + kBlock, period);
        for (std::size_t r = 1; r < repetitions; ++r) {
            const double* const from = record.samples.data() + r * period;
            for (std::size_t k = begin; k < end; ++k)
                sum[k] += from[k];
        }
    }
    return sum;
}

}  // namespace

std::size_t EyeRecord::UiCount() const
{
    return static_cast<std::size_t>(static_cast<double>(samples.size()) / samplesPerUi + kSlack);
}

EyeRecord WholePeriods(std::span<const double> samples, double samplesPerUi, int levelCount)
{
    return {samples, samplesPerUi, levelCount, 0, samples.size(), Wrapping::Circular};
}

SymbolRange ValidUi(const EyeRecord& record, double position, double span)
{
    const std::size_t count = record.UiCount();
    if (record.wrapping == Wrapping::Circular)
        return {0, count};
    const BandLimitedRecord waveform(record.samples, record.wrapping);
    const auto isValid = [&](std::size_t i) {
        const double low = position + static_cast<double>(i) * record.samplesPerUi;
        const double high = low + span;
        return low >= static_cast<double>(record.first) &&
               high <= static_cast<double>(record.first + record.count) - 1.0 && waveform.Covers(low, high);
    };
    std::size_t first = 0;
    while (first < count && !isValid(first))
        ++first;
    std::size_t end = count;
    while (end > first && !isValid(end - 1))
        --end;
    return {first, end - first};
}

PhaseValues ValuesAt(const EyeRecord& record, double position)
{
    PhaseValues phase{std::vector<double>(record.UiCount(), 0.0), ValidUi(record, position, 0.0)};
    PhaseReader(record, {position}).ForEach(phase.range, [&](std::size_t ui, const double* value) {
        phase.values[ui] = *value;
    });
    return phase;
}

std::vector<PhaseValues> ValuesAt(const EyeRecord& record, const AlignedSymbols& symbols,
                                  std::span<const double> positions)
{
    std::vector<PhaseValues> phases;
    std::vector<SymbolRange> ranges;
    SymbolRange common{0, record.UiCount()};
    for (const double position : positions) {
        ranges.push_back(ValidUi(record, position, 0.0));
        phases.push_back({std::vector<double>(record.UiCount(), 0.0), Both(ranges.back(), symbols.known)});
        common = Both(common, ranges.back());
    }
    PhaseReader(record, {positions.begin(), positions.end()})
        .ForEach(common, [&](std::size_t ui, const double* values) {
            for (std::size_t p = 0; p < phases.size(); ++p)
                phases[p].values[ui] = values[p];
        });
    // At the ends of a record that does not wrap a position may have a UI that others have not.
    for (std::size_t p = 0; p < phases.size(); ++p)
        for (const SymbolRange own : Outside(ranges[p], common))
            PhaseReader(record, {positions[p]}).ForEach(own, [&](std::size_t ui, const double* value) {
                phases[p].values[ui] = *value;
            });
    return phases;
}

PhaseValues ValuesAt(const EyeRecord& record, const AlignedSymbols& symbols, double position)
{
    PhaseValues phase = ValuesAt(record, position);
    phase.range = Both(phase.range, symbols.known);
    return phase;
}

std::optional<AlignedSymbols> DecideSymbols(const EyeRecord& record)
{
    std::array<double, kSearchPhases> gaps{};
    gaps.fill(-kInfinity);
    for (int p = 0; p < kSearchPhases; ++p) {
        const std::vector<double> values = ValidOnly(ValuesAt(record, record.samplesPerUi * p / kSearchPhases));
        if (const auto levels = Levels(Subsampled(values), record.levelCount))
            gaps[static_cast<std::size_t>(p)] = SmallestGap(values, levels->thresholds);
    }
    const double largest = *std::max_element(gaps.begin(), gaps.end());
    if (!(largest > 0.0) || !std::isfinite(largest))
        return std::nullopt;
    const std::size_t chosen = MiddleOfLongestRun(gaps, kFlatDecision * largest, Wrapping::Circular);
    const double centre = record.samplesPerUi * static_cast<double>(chosen) / kSearchPhases;
    const PhaseValues phase = ValuesAt(record, centre);
    const auto levels = Levels(ValidOnly(phase), record.levelCount);
    if (!levels)
        return std::nullopt;
    AlignedSymbols symbols{std::vector<int>(phase.values.size()), centre, phase.range};
    std::transform(phase.values.begin(), phase.values.end(), symbols.levels.begin(),
                   [&](double value) { return LevelOf(value, levels->thresholds); });
    return symbols;
}

std::optional<AlignedSymbols> LocateSymbols(const EyeRecord& record, std::span<const int> pattern)
{
    const std::size_t count = record.UiCount();
    if (pattern.empty() || count < pattern.size())
        return std::nullopt;
    const bool isWhole = record.wrapping == Wrapping::Circular && count % pattern.size() == 0;
    const std::size_t period = isWhole ? pattern.size() : count;
    if (period == 0)
        return std::nullopt;
    std::vector<double> sent(period);
    for (std::size_t i = 0; i < period; ++i)
        sent[i] = pattern[i % pattern.size()];
    sent = WithoutMean(sent);
    const double power = CircularDot(sent, sent, 0);
    const auto correlation = [&](const std::vector<double>& seen, long long lag) {
        const double both = power * CircularDot(seen, seen, 0);
        return both > 0.0 ? CircularDot(sent, seen, lag) / std::sqrt(both) : 0.0;
    };

    const std::vector<double> summed = isWhole ? SumOfRepetitions(record, period) : std::vector<double>();
    const EyeRecord searched = summed.empty() ? record : WholePeriods(summed, record.samplesPerUi, record.levelCount);

    // Two phases half a UI apart: one of them at least lies well inside the eye. From there, phase by phase.
    int start = 0;
    long long lag = 0;
    double largest = -kInfinity;
    for (const int phase : {0, kSearchPhases / 2}) {
        const std::vector<double> seen = Folded(searched, phase, period);
        const auto peak = static_cast<long long>(LargestCorrelation(seen, sent).lag);
        if (const double value = correlation(seen, peak); value > largest) {
            largest = value;
            start = phase;
            lag = peak;
        }
    }
    std::array<double, kSearchPhases + 1> correlations{};
    constexpr int kHalf = kSearchPhases / 2;
    const auto carryOf = [&](int phase) { return phase < 0 ? -1LL : phase >= kSearchPhases ? 1LL : 0LL; };
    int step = -kHalf;
    for (auto& value : correlations) {
        const long long carry = carryOf(start + step);
        const int phase = start + step - static_cast<int>(carry) * kSearchPhases;
        value = correlation(Folded(searched, phase, period), lag + carry);
        ++step;
    }
    largest = *std::max_element(correlations.begin(), correlations.end());
    if (!(largest >= kSmallestCorrelation))
        return std::nullopt;
    const int chosen =
        start - kHalf + static_cast<int>(MiddleOfLongestRun(correlations, kFlatCorrelation * largest, Wrapping::None));
    const long long carry = carryOf(chosen);
    const auto phase = static_cast<double>(chosen - static_cast<int>(carry) * kSearchPhases);
    AlignedSymbols symbols{std::vector<int>(count), record.samplesPerUi * phase / kSearchPhases, {0, count}};
    const std::size_t shift = WrappedIndex(lag + carry, period);
    std::size_t place = (period - shift) % period;
    for (int& level : symbols.levels) {
        level = pattern[place % pattern.size()];
        place = place + 1 < period ? place + 1 : 0;
    }
    return symbols;
}

namespace {

// One sample a UI says nothing of what lies between the samples: eyes are measured where they are.
std::optional<EyeFigures> MeasureAtSamples(const EyeRecord& record, const AlignedSymbols& symbols)
{
    const double position = std::round(symbols.centre);
    const Slices slices = SlicesAt(record, symbols, {position});
    Slice slice = slices.slices.front();
    if (!std::isfinite(slice.SmallestOpening()))
        return std::nullopt;
    EyeFigures figures{{}, {}, position, ValuesAt(record, symbols, position)};
    figures.levels = slice.levels = LevelsAt(record, symbols, slices, position, figures.values);
    for (std::size_t eye = 0; eye < slice.above.size(); ++eye)
        figures.eyes.push_back(slice.EyeOf(eye));
    return figures;
}

}  // namespace

std::optional<EyeFigures> MeasureEyes(const EyeRecord& record, const AlignedSymbols& symbols)
{
    if (record.samplesPerUi == 1.0)
        return MeasureAtSamples(record, symbols);
    const std::vector<LevelExtent> extents = ExtentsOf(record, symbols);
    if (std::any_of(extents.begin(), extents.end(),
                    [](const LevelExtent& extent) { return extent.count[0] == 0.0 || extent.count[1] == 0.0; }))
        return std::nullopt;
    const auto eyes = static_cast<std::size_t>(record.levelCount - 1);
    std::vector<Sides> sides;
    for (std::size_t eye = 0; eye < eyes; ++eye)
        sides.push_back(SidesOf(extents, eye));

    std::array<double, kOffsets> smallest{};
    for (std::size_t q = 0; q < kOffsets; ++q) {
        smallest[q] = kInfinity;
        for (std::size_t eye = 0; eye < eyes; ++eye) {
            const double distance = extents[eye + 1].MeanAt(q) - extents[eye].MeanAt(q);
            const double height = sides[eye].above[q] - sides[eye].below[q];
            const double opening = distance > 0.0 ? height / distance : -kInfinity;
            smallest[q] = std::min(smallest[q], opening);
        }
    }
    // Of phases that are equally good the one in the middle.
    const double largest = *std::max_element(smallest.begin(), smallest.end());
    if (!std::isfinite(largest))
        return std::nullopt;
    std::vector<std::size_t> best;
    for (std::size_t q = 0; q < kOffsets; ++q)
        if (smallest[q] >= largest - kEqual * std::abs(largest))
            best.push_back(q);
    const std::size_t at = best[best.size() / 2];

    constexpr auto kUi = static_cast<double>(kEyePhases);
    const double coarse = symbols.centre + (static_cast<double>(at) / kUi - 1.0) * record.samplesPerUi;
    // Finer steps about it: halves, then quarters, then eighths of a phase, from the best so far.
    constexpr int kReach = kFinestSteps - 1;
    std::vector<double> positions;
    for (int n = -kReach; n <= kReach; ++n)
        positions.push_back(coarse + static_cast<double>(n) / kFinestSteps / kUi * record.samplesPerUi);
    Slices slices = SlicesAt(record, symbols, positions);
    int chosen = kReach;
    for (int step = kFinestSteps / 2; step >= 1; step /= 2) {
        const double here = slices.slices[static_cast<std::size_t>(chosen)].SmallestOpening();
        for (const int tried : {chosen - step, chosen + step}) {
            if (slices.slices[static_cast<std::size_t>(tried)].SmallestOpening() > here + kEqual * std::abs(here)) {
                chosen = tried;
                break;
            }
        }
    }
    const double position = positions[static_cast<std::size_t>(chosen)];
    Slice& slice = slices.slices[static_cast<std::size_t>(chosen)];

    EyeFigures figures{{}, {}, position, ValuesAt(record, symbols, position)};
    figures.levels = slice.levels = LevelsAt(record, symbols, slices, position, figures.values);
    const double shift = (coarse - position) / record.samplesPerUi;  // [UI] of the phase that the spans start from
    for (std::size_t eye = 0; eye < eyes; ++eye) {
        Eye figure = slice.EyeOf(eye);
        if (figure.height > 0.0) {
            const double left = OpenSpan(sides[eye], at, -1, figure.threshold) / kUi;
            const double right = OpenSpan(sides[eye], at, 1, figure.threshold) / kUi;
            figure.widthUi = std::min(1.0, left + right);
            figure.leftUi = shift - left;
            figure.rightUi = shift + right;
        }
        figures.eyes.push_back(figure);
    }
    return figures;
}

}  // namespace Tarnwick::DSO::Maths
