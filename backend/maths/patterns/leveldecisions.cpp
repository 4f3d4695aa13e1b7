#include "maths/patterns/leveldecisions.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include "maths/patterns/levels.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr int kMostFits = 20;  // of the equaliser
constexpr int kUnknowns = static_cast<int>(kEqualiserTaps) + 1;
constexpr double kDiagonalLoading = 1e-9;  // share of each diagonal element; makes patterns of few symbols solvable

// Levels that values lie about, and how tightly they do: quality as in LevelDecisions.
struct RatedPartition {
    std::vector<double> means;
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
    const double quality = squares / static_cast<double>(sorted.size()) / (spacing * spacing);
    return RatedPartition{std::move(partition->means), std::move(partition->thresholds), quality};
}

std::vector<int> Decide(std::span<const double> values, std::span<const double> thresholds)
{
    std::vector<int> levels(values.size());
    std::transform(values.begin(), values.end(), levels.begin(),
                   [thresholds](double value) { return LevelOf(value, thresholds); });
    return levels;
}

// Least squares over the neighbouring symbols and a constant. The matrix does not depend on the decisions: one
// factorisation serves all fits.
class LinearEqualiser {
public:
    using Column = Eigen::Matrix<double, kUnknowns, 1>;

    explicit LinearEqualiser(const NeighbourColumns& neighbours)
        : columns_(static_cast<Eigen::Index>(neighbours.Rows()), kUnknowns)
    {
        columns_.leftCols(kUnknowns - 1) = Eigen::Map<const Eigen::Matrix<double, Eigen::Dynamic, kUnknowns - 1>>(
            neighbours.Data(), columns_.rows(), kUnknowns - 1);
        columns_.col(kUnknowns - 1).setOnes();
        Square normal = columns_.transpose() * columns_;
        normal.diagonal() *= 1.0 + kDiagonalLoading;
        factors_.compute(normal);
    }

    /// The weights that come nearest to the decided levels, which are spaced by 1 about 0.
    Column Fit(const std::vector<int>& levels, int levelCount) const
    {
        const Eigen::Map<const Eigen::VectorXi> decided(levels.data(), static_cast<Eigen::Index>(levels.size()));
        const Eigen::VectorXd targets = decided.cast<double>().array() - 0.5 * (levelCount - 1);
        return factors_.solve(columns_.transpose() * targets);
    }

    std::vector<double> Equalised(const Column& weights) const
    {
        std::vector<double> equalised(static_cast<std::size_t>(columns_.rows()));
        Eigen::Map<Eigen::VectorXd>(equalised.data(), columns_.rows()).noalias() = columns_ * weights;
        return equalised;
    }

private:
    using Square = Eigen::Matrix<double, kUnknowns, kUnknowns>;
    Eigen::Matrix<double, Eigen::Dynamic, kUnknowns> columns_;
    Eigen::LDLT<Square> factors_;
};

}  // namespace

NeighbourColumns::NeighbourColumns(std::span<const double> period)
    : rows_(period.size()), columns_(period.size() * kEqualiserTaps)
{
    for (std::size_t tap = 0; tap < kEqualiserTaps; ++tap)
        for (std::size_t j = 0; j < rows_; ++j)
            columns_[tap * rows_ + j] = period[WrappedIndex(
                static_cast<long long>(j + tap) - static_cast<long long>(kEqualiserReachUi), rows_)];
}

NeighbourColumns::NeighbourColumns(std::span<const double> values, std::span<const Stretch> stretches) : rows_(0)
{
    for (const Stretch& stretch : stretches)
        rows_ += stretch.count;
    columns_.reserve(rows_ * kEqualiserTaps);
    for (std::size_t tap = 0; tap < kEqualiserTaps; ++tap)
        for (const Stretch& stretch : stretches) {
            const auto rows = values.subspan(stretch.first + tap - kEqualiserReachUi, stretch.count);
            columns_.insert(columns_.end(), rows.begin(), rows.end());
        }
}

LevelDecisions DecideLevels(const NeighbourColumns& columns, int levelCount, Decisions decisions)
{
    std::optional<RatedPartition> partition = RatedPartitionOf(columns.Samples(), levelCount);
    if (!partition)
        return {};
    LevelDecisions made;
    made.weights[kEqualiserReachUi] = 1.0;
    made.levels = Decide(columns.Samples(), partition->thresholds);
    if (decisions == Decisions::Equalised) {
        // From equal decisions too: of a pattern that is nearly always high, the equaliser may still find the levels.
        const LinearEqualiser equaliser(columns);
        bool settled = false;
        for (int fit = 0; fit < kMostFits && !settled; ++fit) {
            const LinearEqualiser::Column weights = equaliser.Fit(made.levels, levelCount);
            const std::vector<double> equalised = equaliser.Equalised(weights);
            partition = RatedPartitionOf(equalised, levelCount);
            if (!partition)
                return {};
            std::copy_n(weights.data(), kEqualiserTaps, made.weights.begin());
            made.constant = weights[kUnknowns - 1];
            std::vector<int> decided = Decide(equalised, partition->thresholds);
            settled = decided == made.levels;
            made.levels = std::move(decided);
        }
    }
    made.quality = partition->quality;
    made.means = std::move(partition->means);
    made.thresholds = std::move(partition->thresholds);
    return made;
}

}  // namespace Tarnwick::DSO::Maths
