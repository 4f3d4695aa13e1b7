#include "maths/captures/codingdecision.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "maths/patterns/alignment.h"
#include "maths/patterns/codings.h"
#include "maths/patterns/leveldecisions.h"
#include "maths/patterns/levels.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kMostPhases = 8;        // tried over one UI
constexpr std::size_t kJudgedSymbols = 8192;  // a period of the 8191 symbols that PAM4 test patterns have
constexpr std::size_t kStretches = 8;         // of the record, from which they are taken
constexpr std::size_t kFewestSymbols = 16;
constexpr double kScarcePair = 0.1;      // share of what chance would have; codings as sent have 0.68 and more
constexpr double kFewestExpected = 6.0;  // pairs: none of six expected comes by chance once in 400 times
constexpr double kEqualQualities = 1.5;
constexpr double kClearlyLarger = 1.01;  // slow or regular symbols correlate with their neighbours' samples as well
constexpr auto kReach = static_cast<long long>(kEqualiserReachUi);

// One sample a UI less the mean, from `phase` on.
std::vector<double> SampledAt(std::span<const double> samples, std::size_t samplesPerUi, std::size_t phase, double mean)
{
    std::vector<double> values(samples.size() / samplesPerUi);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = samples[i * samplesPerUi + phase] - mean;
    return values;
}

// The symbols by which phases and codings are judged: all of a short record, or stretches from all over a long one. Those at
// the ends of one that does not wrap lack neighbours.
class JudgedSymbols {
public:
    using Stretch = NeighbourColumns::Stretch;

    JudgedSymbols(std::size_t symbols, Wrapping wrapping)
        : wraps_(wrapping == Wrapping::Circular && symbols <= kJudgedSymbols)
    {
        const std::size_t room = symbols - 2 * kEqualiserReachUi;
        if (wraps_ || room <= kJudgedSymbols) {
            first_ = {0};
            stretches_ = {wraps_ ? Stretch{0, symbols} : Stretch{kEqualiserReachUi, room}};
            return;
        }
        constexpr std::size_t kLength = kJudgedSymbols / kStretches;
        constexpr std::size_t kWithNeighbours = kLength + 2 * kEqualiserReachUi;
        for (std::size_t k = 0; k < kStretches; ++k) {
            first_.push_back(k * (room - kLength) / (kStretches - 1));
            stretches_.push_back({k * kWithNeighbours + kEqualiserReachUi, kLength});
        }
    }

    std::span<const Stretch> Stretches() const { return stretches_; }

    NeighbourColumns At(std::span<const double> samples, std::size_t samplesPerUi, std::size_t phase, double mean) const
    {
        std::vector<double> values;
        for (std::size_t k = 0; k < first_.size(); ++k) {
            const auto stretch = SampledAt(StretchOf(samples, samplesPerUi, k), samplesPerUi, phase, mean);
            values.insert(values.end(), stretch.begin(), stretch.end());
        }
        return wraps_ ? NeighbourColumns(values) : NeighbourColumns(values, stretches_);
    }
    double MeanOf(std::span<const double> samples, std::size_t samplesPerUi) const
    {
        double sum = 0.0;
        for (std::size_t k = 0; k < first_.size(); ++k)
            sum += Mean(StretchOf(samples, samplesPerUi, k));
        return sum / static_cast<double>(first_.size());  // all are as long
    }

private:
    // With its neighbours.
    std::span<const double> StretchOf(std::span<const double> samples, std::size_t samplesPerUi, std::size_t k) const
    {
        const std::size_t count = stretches_[k].count + (wraps_ ? 0 : 2 * kEqualiserReachUi);
        return samples.subspan(first_[k] * samplesPerUi, count * samplesPerUi);
    }

    bool wraps_;
    std::vector<std::size_t> first_;  // UI of each stretch, its neighbours included
    std::vector<Stretch> stretches_;  // as they lie behind one another
};

// As in CodingFit.
double ScarcestPair(std::span<const int> symbols, std::span<const NeighbourColumns::Stretch> stretches, int levelCount)
{
    const auto levels = static_cast<std::size_t>(levelCount);
    std::vector<double> pairs(levels * levels);
    std::vector<double> before(levels);
    std::vector<double> after(levels);
    double count = 0.0;
    std::size_t first = 0;
    for (const NeighbourColumns::Stretch& stretch : stretches) {
        for (std::size_t i = first + 1; i < first + stretch.count; ++i) {
            const auto a = static_cast<std::size_t>(symbols[i - 1]);
            const auto b = static_cast<std::size_t>(symbols[i]);
            pairs[a * levels + b] += 1.0;
            before[a] += 1.0;
            after[b] += 1.0;
            count += 1.0;
        }
        first += stretch.count;
    }
    double scarcest = 1.0;
    for (std::size_t a = 0; a < levels; ++a)
        for (std::size_t b = 0; b < levels; ++b) {
            const double expected = before[a] * after[b] / count;
            if (expected >= kFewestExpected)
                scarcest = std::min(scarcest, pairs[a * levels + b] / expected);
        }
    return scarcest;
}

// A coding at its best phase, with what makes its decisions there.
struct Candidate {
    CodingFit fit;
    std::size_t phase = 0;
    LevelDecisions decisions;
    long long lag = 0;  // [UI] by which the samples lag behind what is decided from their neighbourhood
};

// How many UI after the middle of its neighbourhood the decided symbol is seen best: a closed eye may settle on a symbol
// beside the middle one.
long long LagOf(const NeighbourColumns& columns, const LevelDecisions& decisions)
{
    double mean = 0.0;
    for (const int level : decisions.levels)
        mean += level;
    mean /= static_cast<double>(columns.Rows());
    long long lag = 0;
    double largest = 0.0;
    const auto consider = [&](long long candidate) {
        const std::span<const double> column = columns.Column(static_cast<std::size_t>(kReach + candidate));
        double sum = 0.0;
        for (std::size_t i = 0; i < column.size(); ++i)
            sum += column[i] * (decisions.levels[i] - mean);
        if (sum > kClearlyLarger * largest) {
            largest = sum;
            lag = candidate;
        }
    };
    for (long long distance = 0; distance <= kReach; ++distance) {
        consider(distance);
        consider(-distance);
    }
    return lag;
}

// Among the possible codings those with all pairs, or all possible ones where each lacks some.
const Candidate* Choose(std::span<const Candidate> candidates, bool pairsCount)
{
    double best = std::numeric_limits<double>::infinity();
    const auto stands = [pairsCount](const CodingFit& fit) {
        return fit.IsPossible() && !(pairsCount && fit.LacksPairs());
    };
    for (const Candidate& candidate : candidates)
        if (stands(candidate.fit))
            best = std::min(best, candidate.fit.quality);
    for (const Candidate& candidate : candidates)
        if (stands(candidate.fit) && candidate.fit.quality <= kEqualQualities * best)
            return &candidate;
    return nullptr;
}

// The symbols of all UI, as the candidate decides them.
void DecideAll(const Candidate& chosen, std::span<const double> values, double mean, Wrapping wrapping,
               CodingDecision& decision)
{
    const auto count = static_cast<long long>(values.size());
    const auto& made = chosen.decisions;
    const auto levelCount = made.means.size();
    std::vector<double> sums(levelCount);
    std::vector<double> counts(levelCount);
    double squares = 0.0;
    const auto at = [&](long long i) {
        if (wrapping == Wrapping::Circular)
            return values[WrappedIndex(i, values.size())];
        return values[static_cast<std::size_t>(std::clamp<long long>(i, 0, count - 1))];
    };
    decision.symbols.resize(values.size());
    const long long margin = kReach + std::abs(chosen.lag);
    for (long long i = 0; i < count; ++i) {
        const long long middle = i - chosen.lag;
        double y = made.constant;
        if (i >= margin && i < count - margin)
            for (std::size_t tap = 0; tap < kEqualiserTaps; ++tap)
                y += made.weights[tap] * values[static_cast<std::size_t>(middle - kReach) + tap];
        else
            for (std::size_t tap = 0; tap < kEqualiserTaps; ++tap)
                y += made.weights[tap] * at(middle - kReach + static_cast<long long>(tap));
        const int level = LevelOf(y, made.thresholds);
        const auto place = static_cast<std::size_t>(level);
        decision.symbols[static_cast<std::size_t>(i)] = level;
        sums[place] += values[static_cast<std::size_t>(i)];
        counts[place] += 1.0;
        squares += (y - made.means[place]) * (y - made.means[place]);
    }
    double spacing = std::numeric_limits<double>::infinity();
    for (std::size_t k = 1; k < levelCount; ++k)
        spacing = std::min(spacing, made.means[k] - made.means[k - 1]);
    decision.quality = squares / static_cast<double>(count) / (spacing * spacing);
    for (std::size_t k = 0; k < levelCount; ++k)
        decision.levels.push_back(mean + sums[k] / std::max(counts[k], 1.0));
    decision.uncertainEnds = wrapping == Wrapping::Circular ? 0 : static_cast<std::size_t>(margin);
}

}  // namespace

bool CodingFit::IsPossible() const
{
    return quality <= kWorstQuality;
}

bool CodingFit::LacksPairs() const
{
    return scarcestPair < kScarcePair;
}

CodingDecision DecideCoding(std::span<const double> samples, std::size_t samplesPerUi, Wrapping wrapping,
                            E_SIGNAL_CODING given)
{
    std::vector<Candidate> candidates;
    for (const E_SIGNAL_CODING coding : {SIGNAL_CODING_NRZ, SIGNAL_CODING_PAM3, SIGNAL_CODING_PAM4})
        if (given == SIGNAL_CODING_UNKNOWN || LevelCount(given) == LevelCount(coding))
            candidates.emplace_back().fit.coding = given == SIGNAL_CODING_UNKNOWN ? coding : given;

    const std::size_t symbols = samples.size() / samplesPerUi;
    CodingDecision decision;
    if (symbols >= kFewestSymbols) {
        samples = samples.first(symbols * samplesPerUi);
        const JudgedSymbols judged(symbols, wrapping);
        const double mean = judged.MeanOf(samples, samplesPerUi);
        const std::size_t phases = std::min(samplesPerUi, kMostPhases);
        for (std::size_t k = 0; k < phases; ++k) {
            const std::size_t phase = k * samplesPerUi / phases;
            const NeighbourColumns columns = judged.At(samples, samplesPerUi, phase, mean);
            for (Candidate& candidate : candidates) {
                const int levelCount = LevelCount(candidate.fit.coding);
                LevelDecisions made = DecideLevels(columns, levelCount, Decisions::Equalised);
                if (!(made.quality < candidate.fit.quality))
                    continue;
                candidate.fit.quality = made.quality;
                candidate.fit.scarcestPair = ScarcestPair(made.levels, judged.Stretches(), levelCount);
                candidate.phase = phase;
                candidate.lag = LagOf(columns, made);
                candidate.decisions = std::move(made);
            }
        }
        const Candidate* chosen = Choose(candidates, true);
        if (chosen == nullptr) {
            chosen = Choose(candidates, false);
            decision.lacksPairs = chosen != nullptr;
        }
        if (chosen != nullptr) {
            decision.coding = chosen->fit.coding;
            decision.phase = chosen->phase;
            DecideAll(*chosen, SampledAt(samples, samplesPerUi, chosen->phase, mean), mean, wrapping, decision);
        }
    }
    for (const Candidate& candidate : candidates)
        decision.fits.push_back(candidate.fit);
    return decision;
}

SymbolAgreement CompareSymbols(std::span<const int> found, std::span<const int> given, int levelCount)
{
    // The symbols found, laid over each other as the pattern repeats: their correlation with it peaks where they agree.
    std::vector<double> folded(given.size());
    const double middle = 0.5 * (levelCount - 1);
    for (std::size_t i = 0, place = 0; i < found.size(); ++i, place = place + 1 < given.size() ? place + 1 : 0)
        folded[place] += found[i] - middle;
    std::vector<double> pattern(given.size());
    std::transform(given.begin(), given.end(), pattern.begin(), [middle](int level) { return level - middle; });
    SymbolAgreement best;
    for (const bool inverted : {false, true}) {
        const std::size_t lag = LargestCorrelation(folded, pattern).lag;
        const std::size_t shift = (given.size() - lag) % given.size();
        std::size_t same = 0;
        std::size_t place = shift;
        for (const int level : found) {
            same += level == (inverted ? levelCount - 1 - given[place] : given[place]) ? 1 : 0;
            place = place + 1 < given.size() ? place + 1 : 0;
        }
        const double share = static_cast<double>(same) / static_cast<double>(found.size());
        if (share > best.share)
            best = {share, shift, inverted};
        for (double& value : pattern)
            value = -value;
    }
    return best;
}

}  // namespace Tarnwick::DSO::Maths
