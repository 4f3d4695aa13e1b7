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
constexpr double kFinestStep = 1.0 / 8.0;         // of a phase: how well the measuring phase is told
constexpr double kFlatDecision = 0.9;             // of the largest height: any phase of that stretch decides alike
constexpr double kFlatCorrelation = 0.99;         // of the largest
constexpr double kSmallestCorrelation = 0.3;      // see LocateSymbols
constexpr std::size_t kOffsets = 2 * kEyePhases;  // from a UI before the centre to a UI behind it

// Reads the same phases of one UI after the other.
class PhaseReader {
public:
    /// @param position  [samples] of the first phase in UI 0
    /// @param step      [samples] from phase to phase
    PhaseReader(const EyeRecord& record, double position, double step, std::size_t count)
        : waveform_(record.samples, record.wrapping),
          position_(position),
          step_(step),
          samplesPerUi_(record.samplesPerUi),
          isWhole_(record.samplesPerUi == std::floor(record.samplesPerUi)),
          readings_(count)
    {
        Place(position);
    }
    void Read(std::size_t ui, std::span<double> values)
    {
        if (isWhole_) {
            waveform_.Read(readings_, static_cast<std::ptrdiff_t>(samplesPerUi_) * static_cast<std::ptrdiff_t>(ui),
                           values);
            return;
        }
        Place(position_ + static_cast<double>(ui) * samplesPerUi_);
        waveform_.Read(readings_, 0, values);
    }

private:
    void Place(double position)
    {
        for (std::size_t k = 0; k < readings_.size(); ++k)
            readings_[k] = ReadingAt(position + step_ * static_cast<double>(k));
    }
    BandLimitedRecord waveform_;
    double position_;
    double step_;
    double samplesPerUi_;
    bool isWhole_;
    std::vector<BandLimitedReading> readings_;
};

// What the symbols of one level reach at each offset from the centre.
struct LevelExtent {
    std::array<double, kOffsets> low;
    std::array<double, kOffsets> high;
    std::array<double, kOffsets> sum{};
    std::array<std::size_t, 2> count{};  // of symbols, before the centre and from it on

    LevelExtent()
    {
        low.fill(kInfinity);
        high.fill(-kInfinity);
    }
    // @param values  one UI's: at the offsets before the centre (half 0) or from it on (half 1)
    void Take(const std::array<double, kEyePhases>& values, std::size_t half)
    {
        double* const lows = low.data() + half * kEyePhases;
        double* const highs = high.data() + half * kEyePhases;
        double* const sums = sum.data() + half * kEyePhases;
        for (std::size_t p = 0; p < kEyePhases; ++p) {
            lows[p] = values[p] < lows[p] ? values[p] : lows[p];
            highs[p] = values[p] > highs[p] ? values[p] : highs[p];
            sums[p] += values[p];
        }
        ++count[half];
    }
    double MeanAt(std::size_t offset) const { return sum[offset] / static_cast<double>(count[offset / kEyePhases]); }
};

std::vector<LevelExtent> ExtentsOf(const EyeRecord& record, const AlignedSymbols& symbols)
{
    std::vector<LevelExtent> extents(static_cast<std::size_t>(record.levelCount));
    const double step = record.samplesPerUi / static_cast<double>(kEyePhases);
    const SymbolRange range = ValidUi(record, symbols.centre, step * static_cast<double>(kEyePhases - 1));
    PhaseReader reader(record, symbols.centre, step, kEyePhases);
    std::array<double, kEyePhases> values{};
    for (std::size_t i = range.first; i < range.first + range.count; ++i) {
        reader.Read(i, values);
        extents[static_cast<std::size_t>(symbols.levels[i])].Take(values, 1);
        // The same values lie before the centre of the next symbol.
        const bool isLast = i + 1 == range.first + range.count;
        if (!isLast || record.wrapping == Wrapping::Circular)
            extents[static_cast<std::size_t>(symbols.levels[isLast ? 0 : i + 1])].Take(values, 0);
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

Slice SliceAt(const EyeRecord& record, const AlignedSymbols& symbols, double position)
{
    const PhaseValues phase = ValuesAt(record, symbols, position);
    const auto levels = static_cast<std::size_t>(record.levelCount);
    std::vector<double> low(levels, kInfinity);
    std::vector<double> high(levels, -kInfinity);
    std::vector<double> counts(levels, 0.0);
    Slice slice{std::vector<double>(levels, 0.0), {}, {}};
    for (std::size_t i = phase.range.first; i < phase.range.first + phase.range.count; ++i) {
        const auto level = static_cast<std::size_t>(symbols.levels[i]);
        low[level] = std::min(low[level], phase.values[i]);
        high[level] = std::max(high[level], phase.values[i]);
        slice.levels[level] += phase.values[i];
        counts[level] += 1.0;
    }
    for (std::size_t level = 0; level < levels; ++level)
        slice.levels[level] /= counts[level];
    for (std::size_t eye = 0; eye + 1 < levels; ++eye) {
        const auto split = static_cast<std::ptrdiff_t>(eye) + 1;
        slice.above.push_back(*std::min_element(low.begin() + split, low.end()));
        slice.below.push_back(*std::max_element(high.begin(), high.begin() + split));
    }
    return slice;
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
    for (std::size_t i = at.range.first; i < at.range.first + at.range.count; ++i)
        folded[i % period] += at.values[i] - mean;
    return folded;
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
    PhaseReader reader(record, position, 0.0, 1);
    for (std::size_t i = phase.range.first; i < phase.range.first + phase.range.count; ++i)
        reader.Read(i, {&phase.values[i], 1});
    return phase;
}

PhaseValues ValuesAt(const EyeRecord& record, const AlignedSymbols& symbols, double position)
{
    PhaseValues phase = ValuesAt(record, position);
    const std::size_t first = std::max(phase.range.first, symbols.known.first);
    const std::size_t end = std::min(phase.range.first + phase.range.count, symbols.known.first + symbols.known.count);
    phase.range = {first, end > first ? end - first : 0};
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

    // Two phases half a UI apart: one of them at least lies well inside the eye. From there, phase by phase.
    int start = 0;
    long long lag = 0;
    double largest = -kInfinity;
    for (const int phase : {0, kSearchPhases / 2}) {
        const std::vector<double> seen = Folded(record, phase, period);
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
        value = correlation(Folded(record, phase, period), lag + carry);
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
    for (std::size_t i = 0; i < count; ++i)
        symbols.levels[i] = pattern[(i % period + period - shift) % period % pattern.size()];
    return symbols;
}

namespace {

// One sample a UI says nothing of what lies between the samples: eyes are measured where they are.
std::optional<EyeFigures> MeasureAtSamples(const EyeRecord& record, const AlignedSymbols& symbols)
{
    const double position = std::round(symbols.centre);
    const Slice slice = SliceAt(record, symbols, position);
    if (!std::isfinite(slice.SmallestOpening()))
        return std::nullopt;
    EyeFigures figures{slice.levels, {}, position};
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
                    [](const LevelExtent& extent) { return extent.count[0] == 0 || extent.count[1] == 0; }))
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
    double position = coarse;
    Slice slice = SliceAt(record, symbols, position);
    double step = 0.5;
    while (step >= kFinestStep) {
        for (const double direction : {-1.0, 1.0}) {
            const double tried = position + direction * step / kUi * record.samplesPerUi;
            Slice there = SliceAt(record, symbols, tried);
            if (there.SmallestOpening() > slice.SmallestOpening() + kEqual * std::abs(slice.SmallestOpening())) {
                slice = std::move(there);
                position = tried;
                break;
            }
        }
        step *= 0.5;
    }

    EyeFigures figures{slice.levels, {}, position};
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
