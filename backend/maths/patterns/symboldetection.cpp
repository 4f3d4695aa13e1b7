#include "maths/patterns/symboldetection.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <utility>

#include <Eigen/Dense>

#include "maths/patterns/levels.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kMostPhases = 8;  // tried over one UI
constexpr int kMostFits = 20;           // of the equaliser at one phase
constexpr int kReachUi = 3;             // taps from -3 to +3 UI
constexpr int kTaps = 2 * kReachUi + 1;
constexpr double kDiagonalLoading = 1e-9;  // share of each diagonal element; makes patterns of few symbols solvable

// Levels that values lie about, and how tightly they do: quality as in SymbolDetection.
struct RatedPartition {
    std::vector<double> thresholds;
    double quality;
};

std::optional<RatedPartition> RatedPartitionOf(std::span<const double> values, int levelCount)
{
    std::vector<double> sorted(values.begin(), values.end());
    std::sort(sorted.begin(), sorted.end());
    std::optional<LevelPartition> partition = PartitionIntoLevels(sorted, levelCount);
    if (!partition)
        return std::nullopt;
    const std::vector<double>& means = partition->means;
    double spacing = means[1] - means[0];
    for (std::size_t k = 2; k < means.size(); ++k)
        spacing = std::min(spacing, means[k] - means[k - 1]);
    double squares = 0.0;
    for (std::size_t k = 0; k < means.size(); ++k)
        for (std::size_t j = partition->bounds[k]; j < partition->bounds[k + 1]; ++j)
            squares += (sorted[j] - means[k]) * (sorted[j] - means[k]);
    return RatedPartition{std::move(partition->thresholds),
                          squares / static_cast<double>(sorted.size()) / (spacing * spacing)};
}

std::vector<int> Decide(std::span<const double> values, std::span<const double> thresholds)
{
    std::vector<int> levels(values.size());
    std::transform(values.begin(), values.end(), levels.begin(),
                   [thresholds](double value) { return LevelOf(value, thresholds); });
    return levels;
}

// Least squares over the neighbouring symbols and a constant. The matrix does not depend on the decisions: one
// factorisation serves all fits at a phase.
class LinearEqualiser {
public:
    explicit LinearEqualiser(std::span<const double> values)
        : columns_(static_cast<Eigen::Index>(values.size()), kTaps + 1)
    {
        const auto count = static_cast<Eigen::Index>(values.size());
        for (int tap = 0; tap < kTaps; ++tap)
            for (Eigen::Index j = 0; j < count; ++j)
                columns_(j, tap) = values[WrappedIndex(j + tap - kReachUi, values.size())];
        columns_.col(kTaps).setOnes();
        Square normal = columns_.transpose() * columns_;
        normal.diagonal() *= 1.0 + kDiagonalLoading;
        factors_.compute(normal);
    }

    /// The values behind the equaliser that comes nearest to the decided levels, which are spaced by 1 about 0.
    std::vector<double> Fit(const std::vector<int>& levels, int levelCount) const
    {
        const Eigen::Map<const Eigen::VectorXi> decided(levels.data(), static_cast<Eigen::Index>(levels.size()));
        const Eigen::VectorXd targets = decided.cast<double>().array() - 0.5 * (levelCount - 1);
        const Column weights = factors_.solve(columns_.transpose() * targets);
        std::vector<double> equalised(levels.size());
        Eigen::Map<Eigen::VectorXd>(equalised.data(), columns_.rows()).noalias() = columns_ * weights;
        return equalised;
    }

private:
    using Square = Eigen::Matrix<double, kTaps + 1, kTaps + 1>;
    using Column = Eigen::Matrix<double, kTaps + 1, 1>;
    Eigen::Matrix<double, Eigen::Dynamic, kTaps + 1> columns_;
    Eigen::LDLT<Square> factors_;
};

// One sample a UI, from `phaseUi` on, with linear interpolation round the period.
std::vector<double> SampledAt(std::span<const double> samples, std::size_t symbolCount, double phaseUi)
{
    const double samplesPerUi = static_cast<double>(samples.size()) / static_cast<double>(symbolCount);
    std::vector<double> values(symbolCount);
    for (std::size_t j = 0; j < symbolCount; ++j)
        values[j] = SampleAt(samples, (static_cast<double>(j) + phaseUi) * samplesPerUi);
    return values;
}

std::vector<double> MeanOfEachLevel(std::span<const double> values, const std::vector<int>& levels, int levelCount)
{
    std::vector<double> means(static_cast<std::size_t>(levelCount));
    std::vector<double> counts(means.size());
    for (std::size_t j = 0; j < values.size(); ++j) {
        means[static_cast<std::size_t>(levels[j])] += values[j];
        counts[static_cast<std::size_t>(levels[j])] += 1.0;
    }
    std::transform(means.begin(), means.end(), counts.begin(), means.begin(), std::divides<>());
    return means;
}

SymbolDetection DetectAt(std::span<const double> values, int levelCount, Decisions decisions)
{
    std::optional<RatedPartition> partition = RatedPartitionOf(values, levelCount);
    if (!partition)
        return {};
    std::vector<int> levels = Decide(values, partition->thresholds);
    if (decisions == Decisions::Equalised) {
        // From equal decisions too: of a pattern that is nearly always high, the equaliser may still find the levels.
        const LinearEqualiser equaliser(values);
        bool settled = false;
        for (int fit = 0; fit < kMostFits && !settled; ++fit) {
            const std::vector<double> equalised = equaliser.Fit(levels, levelCount);
            partition = RatedPartitionOf(equalised, levelCount);
            if (!partition)
                return {};
            std::vector<int> decided = Decide(equalised, partition->thresholds);
            settled = decided == levels;
            levels = std::move(decided);
        }
    }
    return {std::move(levels), partition->quality, 0.0, {}};
}

}  // namespace

SymbolDetection DetectSymbols(std::span<const double> samples, std::size_t symbolCount, int levelCount,
                              Decisions decisions)
{
    // Without their mean, so that a large offset does not swamp the equaliser's other columns.
    const std::vector<double> centred = WithoutMean(samples);

    const std::size_t phases = std::clamp<std::size_t>(samples.size() / symbolCount, 1, kMostPhases);
    SymbolDetection best;
    for (std::size_t phase = 0; phase < phases; ++phase) {
        const double phaseUi = static_cast<double>(phase) / static_cast<double>(phases);
        SymbolDetection found = DetectAt(SampledAt(centred, symbolCount, phaseUi), levelCount, decisions);
        if (found.quality < best.quality) {
            best = std::move(found);
            best.phaseUi = phaseUi;
        }
    }
    if (!best.levels.empty())
        best.voltages = MeanOfEachLevel(SampledAt(samples, symbolCount, best.phaseUi), best.levels, levelCount);
    return best;
}

}  // namespace Tarnwick::DSO::Maths
