#include "maths/captures/symbolresponse.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <Eigen/Core>
#include <Eigen/QR>

#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kBlock = 2048;  // [UI] at once: the samples of a block stay in the cache
// Symbols with a smaller share in the matrix cannot be told apart; rounding leaves 1e-15.
constexpr double kSmallestShare = 1e-11;

using Eigen::Index;
using Eigen::MatrixXd;

// Row i holds the levels of the symbols about UI i: consecutive columns are the same levels, one symbol on.
using Neighbours = Eigen::Map<const MatrixXd, 0, Eigen::OuterStride<>>;
// A column a UI.
using Samples = Eigen::Map<const MatrixXd>;

// The UI of a range from block to block, with their neighbours' levels.
class Blocks {
public:
    Blocks(std::span<const double> levels, SymbolSpan span, Wrapping wrapping, SymbolRange range)
        : levels_(levels), span_(span), wrapping_(wrapping), range_(range)
    {
    }

    /// The next block; empty behind the last one.
    SymbolRange Next()
    {
        const SymbolRange block{next_, std::min(kBlock, range_.first + range_.count - next_)};
        next_ += block.count;
        return block;
    }

    Neighbours NeighboursOf(SymbolRange block)
    {
        const std::size_t needed = block.count + span_.Count() - 1;
        const double* from = nullptr;
        if (wrapping_ == Wrapping::Circular &&
            (block.first < span_.before || block.first + block.count + span_.after > levels_.size())) {
            wrapped_.resize(needed);
            for (std::size_t i = 0; i < needed; ++i)
                wrapped_[i] = levels_[WrappedIndex(
                    static_cast<long long>(block.first + i) - static_cast<long long>(span_.before), levels_.size())];
            from = wrapped_.data();
        } else {
            from = levels_.data() + (block.first - span_.before);
        }
        return {from, static_cast<Index>(block.count), static_cast<Index>(span_.Count()), Eigen::OuterStride<>(1)};
    }

private:
    std::span<const double> levels_;
    SymbolSpan span_;
    Wrapping wrapping_;
    SymbolRange range_;
    std::size_t next_ = range_.first;
    std::vector<double> wrapped_;
};

Samples SamplesOf(std::span<const double> samples, std::size_t samplesPerUi, SymbolRange block)
{
    return {samples.data() + block.first * samplesPerUi, static_cast<Index>(samplesPerUi),
            static_cast<Index>(block.count)};
}

// A row a UI: the levels about their middle, in units of scale, and a one.
MatrixXd Rows(const Neighbours& neighbours, double middle, double scale)
{
    MatrixXd rows(neighbours.rows(), neighbours.cols() + 1);
    rows.leftCols(neighbours.cols()) = (neighbours.array() - middle) / scale;
    rows.col(neighbours.cols()).setOnes();
    return rows;
}

// h_k[j] in row k
Eigen::Map<const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>> TapsOf(
    const SymbolResponse& response)
{
    return {response.taps.data(), static_cast<Index>(response.SamplesPerUi()),
            static_cast<Index>(response.span.Count())};
}

MatrixXd Predicted(const SymbolResponse& response, const Neighbours& neighbours)
{
    const Eigen::Map<const Eigen::VectorXd> constants(response.constants.data(),
                                                      static_cast<Index>(response.SamplesPerUi()));
    MatrixXd explained = TapsOf(response) * neighbours.transpose();
    explained.colwise() += constants;
    return explained;
}

// Sums of squares of the rest by phase.
Eigen::VectorXd RestPower(const SymbolResponse& response, std::span<const double> samples, Blocks blocks)
{
    Eigen::VectorXd power = Eigen::VectorXd::Zero(static_cast<Index>(response.SamplesPerUi()));
    for (SymbolRange block = blocks.Next(); block.count > 0; block = blocks.Next())
        power += (SamplesOf(samples, response.SamplesPerUi(), block) - Predicted(response, blocks.NeighboursOf(block)))
                     .rowwise()
                     .squaredNorm();
    return power;
}

}  // namespace

SymbolRange WithWholeSpan(SymbolRange range, std::size_t symbolCount, SymbolSpan span, Wrapping wrapping)
{
    if (wrapping == Wrapping::Circular)
        return range;
    const std::size_t first = std::max(range.first, span.before);
    const std::size_t end = std::min(range.first + range.count, symbolCount - std::min(symbolCount, span.after));
    return {first, end > first ? end - first : 0};
}

struct SymbolFit::Solver {
    Eigen::CompleteOrthogonalDecomposition<MatrixXd> decomposition;
};

SymbolFit::SymbolFit(SymbolFit&&) noexcept = default;
SymbolFit& SymbolFit::operator=(SymbolFit&&) noexcept = default;
SymbolFit::~SymbolFit() = default;

SymbolFit::SymbolFit(std::span<const double> symbolLevels, SymbolSpan span, Wrapping wrapping, SymbolRange range)
    : levels_(symbolLevels),
      span_(span),
      wrapping_(wrapping),
      range_(WithWholeSpan(range, symbolLevels.size(), span, wrapping))
{
    if (range_.count == 0)
        return;
    // About their middles and in units of the largest level, so that no offset or scale takes digits.
    const auto [lowest, highest] = std::minmax_element(symbolLevels.begin(), symbolLevels.end());
    middle_ = 0.5 * (*lowest + *highest);
    scale_ = *highest > *lowest ? 0.5 * (*highest - *lowest) : 1.0;
    const auto columns = static_cast<Index>(span.Count());
    MatrixXd normal = MatrixXd::Zero(columns + 1, columns + 1);
    Blocks blocks(levels_, span_, wrapping_, range_);
    for (SymbolRange block = blocks.Next(); block.count > 0; block = blocks.Next()) {
        const MatrixXd rows = Rows(blocks.NeighboursOf(block), middle_, scale_);
        normal.noalias() += rows.transpose() * rows;
    }
    auto solver = std::make_unique<Solver>();
    solver->decomposition.setThreshold(kSmallestShare);
    solver->decomposition.compute(normal);
    solver_ = std::move(solver);
}

SymbolResponse SymbolFit::Of(std::span<const double> samples, std::size_t samplesPerUi) const
{
    SymbolResponse response{span_, std::vector<double>(samplesPerUi * span_.Count()), std::vector<double>(samplesPerUi),
                            std::vector<double>(samplesPerUi)};
    if (range_.count == 0)
        return response;
    const double offset = Mean(samples.subspan(range_.first * samplesPerUi, range_.count * samplesPerUi));
    const auto columns = static_cast<Index>(span_.Count());
    const auto phases = static_cast<Index>(samplesPerUi);
    MatrixXd right = MatrixXd::Zero(columns + 1, phases);
    Blocks blocks(levels_, span_, wrapping_, range_);
    for (SymbolRange block = blocks.Next(); block.count > 0; block = blocks.Next()) {
        const MatrixXd rows = Rows(blocks.NeighboursOf(block), middle_, scale_);
        const MatrixXd centred = SamplesOf(samples, samplesPerUi, block).array() - offset;
        right.noalias() += rows.transpose() * centred.transpose();
    }
    const MatrixXd solution = solver_->decomposition.solve(right);
    response.unknowns = static_cast<std::size_t>(solver_->decomposition.rank());
    for (Index k = 0; k < phases; ++k) {
        double sum = 0.0;
        for (Index j = 0; j < columns; ++j) {
            const double tap = solution(j, k) / scale_;
            response.taps[static_cast<std::size_t>(k * columns + j)] = tap;
            sum += tap;
        }
        response.constants[static_cast<std::size_t>(k)] = solution(columns, k) + offset - middle_ * sum;
    }
    const Eigen::VectorXd power = RestPower(response, samples, Blocks(levels_, span_, wrapping_, range_));
    for (Index k = 0; k < phases; ++k)
        response.residualRms[static_cast<std::size_t>(k)] = std::sqrt(power[k] / static_cast<double>(range_.count));
    return response;
}

SymbolResponse FitSymbolResponse(std::span<const double> samples, std::size_t samplesPerUi,
                                 std::span<const double> symbolLevels, SymbolSpan span, Wrapping wrapping,
                                 SymbolRange range)
{
    return SymbolFit(symbolLevels, span, wrapping, range).Of(samples, samplesPerUi);
}

std::vector<double> ExplainedSamples(const SymbolResponse& response, std::span<const double> symbolLevels,
                                     Wrapping wrapping, SymbolRange range)
{
    const std::size_t samplesPerUi = response.SamplesPerUi();
    std::vector<double> explained(range.count * samplesPerUi);
    Blocks blocks(symbolLevels, response.span, wrapping, range);
    for (SymbolRange block = blocks.Next(); block.count > 0; block = blocks.Next())
        Eigen::Map<MatrixXd>(explained.data() + (block.first - range.first) * samplesPerUi,
                             static_cast<Index>(samplesPerUi), static_cast<Index>(block.count)) =
            Predicted(response, blocks.NeighboursOf(block));
    return explained;
}

double UnexplainedRms(const SymbolResponse& response, std::span<const double> samples,
                      std::span<const double> symbolLevels, Wrapping wrapping, SymbolRange range)
{
    const double power = RestPower(response, samples, Blocks(symbolLevels, response.span, wrapping, range)).sum();
    return std::sqrt(power / static_cast<double>(range.count * response.SamplesPerUi()));
}

}  // namespace Tarnwick::DSO::Maths
