#include "maths/equalisers/phasefit.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>
#include <utility>

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include "maths/patterns/alignment.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

// The first one is taken of residuals that differ by less than this share of the levels' power: in an ideal eye, which all
// phases reach, they differ by rounding.
constexpr double kEqualResidual = 1e-12;
// Smaller pivots, of columns scaled to one length, are rounding: the record cannot tell the columns apart.
constexpr double kSmallestPivot = 1e-12;

// One column of the regression: element i is rows[row][i + offset].
struct Column {
    std::size_t row;
    long long offset;
};

// Rows of values one UI apart: the samples by phase, then the levels, then ones. Their products, each computed once.
class Rows {
public:
    /// @param firstUi  of the UI that count, `count` of them
    Rows(const PhaseFitProblem& problem, std::size_t uiCount, long long firstUi, std::size_t count)
        : uiCount_(uiCount),
          samplesPerUi_(problem.samplesPerUi),
          firstUi_(firstUi),
          count_(count),
          values_((problem.samplesPerUi + 2) * uiCount)
    {
        for (std::size_t i = 0; i < uiCount; ++i)
            for (std::size_t p = 0; p < samplesPerUi_; ++p)
                values_[p * uiCount + i] = problem.samples[i * samplesPerUi_ + p];
        std::copy_n(problem.levels.begin(), uiCount,
                    values_.begin() + static_cast<std::ptrdiff_t>(samplesPerUi_ * uiCount));
        std::fill(values_.end() - static_cast<std::ptrdiff_t>(uiCount), values_.end(), 1.0);
    }

    /// Sample `position` + i s of the record.
    Column Samples(long long position) const
    {
        const std::size_t phase = WrappedIndex(position, samplesPerUi_);
        return {phase, (position - static_cast<long long>(phase)) / static_cast<long long>(samplesPerUi_)};
    }
    Column Levels(long long offset) const { return {samplesPerUi_, offset}; }
    Column Ones() const { return {samplesPerUi_ + 1, 0}; }

    /// sum of a[i] b[i] over the UI that count.
    double Product(Column a, Column b)
    {
        if (std::tie(b.row, b.offset) < std::tie(a.row, a.offset))
            std::swap(a, b);
        const auto place = products_.try_emplace({a.row, b.row}, Row(a.row), Row(b.row), count_).first;
        return place->second.At(firstUi_ + a.offset, b.offset - a.offset);
    }

    /// sum of (sum_j weights[j] columns[j][i] - target[i])^2 over the UI that count.
    double SquaredErrors(std::span<const Column> columns, const Eigen::VectorXd& weights, Column target) const
    {
        std::vector<double> errors(count_, 0.0);
        AddRotated(errors, -1.0, Row(target.row), firstUi_ + target.offset);
        for (std::size_t j = 0; j < columns.size(); ++j)
            AddRotated(errors, weights(static_cast<Eigen::Index>(j)), Row(columns[j].row),
                       firstUi_ + columns[j].offset);
        return Maths::Dot(errors.data(), errors.data(), count_);
    }

private:
    std::span<const double> Row(std::size_t row) const { return std::span(values_).subspan(row * uiCount_, uiCount_); }

    std::size_t uiCount_;
    std::size_t samplesPerUi_;
    long long firstUi_;
    std::size_t count_;
    std::vector<double> values_;
    std::map<std::pair<std::size_t, std::size_t>, StretchProducts> products_;
};

// UI that the taps span.
std::size_t SpanOf(const PhaseFitProblem& problem)
{
    return (static_cast<std::size_t>(problem.tapDelays.back()) + problem.samplesPerUi - 1) / problem.samplesPerUi;
}

// The record, of what is not ignored, against the held levels: its peak, and what lies about it.
class LevelCorrelation {
public:
    LevelCorrelation(std::span<const double> record, const PhaseFitProblem& problem)
    {
        const std::size_t s = problem.samplesPerUi;
        const std::size_t ignored = std::min(problem.ignoredUi * s, (record.size() - 1) / 2);
        const std::vector<double> correlation = CircularCorrelationWithHeld(
            WithoutMean(record, ignored), WithoutMean(problem.levels.first(record.size() / s)));
        const CorrelationPeak peak = PeakOfEitherSign(correlation);
        lag_ = static_cast<long long>(peak.lag);
        isInverted_ = !(peak.value > 0.0);
        reach_ = static_cast<long long>(2 * SpanOf(problem) + problem.feedbackTaps + 4) * static_cast<long long>(s);
        for (long long lag = lag_ - reach_; lag <= lag_ + reach_; ++lag)
            nearby_.push_back(correlation[WrappedIndex(lag, correlation.size())]);
    }

    /// The sample at which symbol 0 begins.
    long long Lag() const { return lag_; }
    /// The levels are inverted.
    bool IsInverted() const { return isInverted_; }
    /// @param lag  no farther from the peak than the taps and the feedback twice over
    double At(long long lag) const { return nearby_[static_cast<std::size_t>(lag - lag_ + reach_)]; }

private:
    long long lag_ = 0;
    long long reach_ = 0;
    bool isInverted_ = false;
    std::vector<double> nearby_;
};

// The delays [samples] that are tried with each phase. The correlation says which UI a symbol belongs to, but behind a line
// of many UI it may be a neighbour of it: those are tried last.
std::vector<long long> DelaysOf(const PhaseFitProblem& problem)
{
    const auto s = static_cast<long long>(problem.samplesPerUi);
    if (problem.mainCursor) {
        const long long delay = problem.tapDelays[*problem.mainCursor];
        return {delay, delay - s, delay + s};
    }
    const auto span = static_cast<long long>(SpanOf(problem));
    std::vector<long long> delays;
    for (long long d = 0; d <= span; ++d)
        delays.push_back(d * s);
    delays.insert(delays.end(), {-s, (span + 1) * s});
    return delays;
}

// Columns of one length are fitted: a gain of the record changes neither the condition nor what a ridge does.
struct Solution {
    Eigen::VectorXd weights;
    double condition;
};

// The best so far.
struct Choice {
    Solution solution;
    std::vector<Column> columns;
    bool suitsFeedback;
    double residual;
    std::size_t phase;
    long long first;  // q
};

std::optional<Solution> Solve(const Eigen::MatrixXd& normal, const Eigen::VectorXd& right, double ridge)
{
    const Eigen::VectorXd scale =
        normal.diagonal().cwiseMax(std::numeric_limits<double>::min()).cwiseSqrt().cwiseInverse();
    Eigen::MatrixXd scaled = scale.asDiagonal() * normal * scale.asDiagonal();
    scaled.diagonal().array() += ridge;
    const Eigen::LDLT<Eigen::MatrixXd> solver(scaled);
    const auto pivots = solver.vectorD();
    if (!(pivots.minCoeff() > kSmallestPivot * pivots.maxCoeff()))
        return std::nullopt;
    Eigen::VectorXd weights = scale.asDiagonal() * solver.solve(scale.asDiagonal() * right).eval();
    if (!weights.allFinite())
        return std::nullopt;
    return Solution{std::move(weights), pivots.maxCoeff() / pivots.minCoeff()};
}

// Whether a decision feedback behind the fit finds what the fit leaves to it. It puts its main cursor where no later one is
// larger, and takes the levels for inverted when their correlation with the equalised record, which is that of the record
// through the taps, peaks below 0.
bool SuitsFeedback(const Eigen::VectorXd& weights, const PhaseFitProblem& problem, const LevelCorrelation& correlation,
                   long long first)
{
    if (problem.feedbackTaps == 0)
        return true;
    const auto taps = static_cast<Eigen::Index>(problem.tapDelays.size());
    const auto feedback = static_cast<Eigen::Index>(problem.feedbackTaps);
    if ((weights.segment(taps, feedback).array().abs() > 1.0).any())
        return false;
    const auto s = static_cast<long long>(problem.samplesPerUi);
    double smallest = 0.0;
    double largest = 0.0;
    for (long long lag = first - 2 * s; lag <= first + (static_cast<long long>(feedback) + 2) * s; ++lag) {
        double value = 0.0;
        for (std::size_t j = 0; j < problem.tapDelays.size(); ++j)
            value += weights(static_cast<Eigen::Index>(j)) * correlation.At(lag - problem.tapDelays[j]);
        smallest = std::min(smallest, value);
        largest = std::max(largest, value);
    }
    return largest > -smallest;
}

bool IsLargest(const Eigen::VectorXd& taps, std::size_t place)
{
    return taps.cwiseAbs().maxCoeff() <= std::abs(taps(static_cast<Eigen::Index>(place)));
}

}  // namespace

std::size_t PhaseFitReach(const PhaseFitProblem& problem)
{
    return SpanOf(problem) + problem.feedbackTaps + 2;
}

std::optional<PhaseFit> FitAtSamplingPhase(const PhaseFitProblem& problem)
{
    const std::size_t s = problem.samplesPerUi;
    const std::size_t uiCount = problem.samples.size() / s;
    const auto taps = static_cast<Eigen::Index>(problem.tapDelays.size());
    const auto feedback = static_cast<Eigen::Index>(problem.feedbackTaps);

    const auto record = problem.samples.first(uiCount * s);
    const LevelCorrelation correlation(record, problem);
    const long long lag = correlation.Lag();
    long long firstUi = 0;
    std::size_t count = uiCount;
    if (problem.ignoredUi > 0) {
        const std::size_t ends = problem.ignoredUi + PhaseFitReach(problem);
        if (uiCount <= 2 * ends)
            return std::nullopt;
        // Counted from the UI that the record begins with, which need not be that of symbol 0.
        firstUi = static_cast<long long>(ends) - lag / static_cast<long long>(s);
        count = uiCount - 2 * ends;
    }

    Rows rows(problem, uiCount, firstUi, count);
    const Eigen::Index size = taps + feedback + 1;
    std::vector<Column> columns(static_cast<std::size_t>(size));
    Eigen::MatrixXd normal(size, size);
    Eigen::VectorXd right(size);
    std::optional<Choice> best;
    const std::vector<long long> delays = DelaysOf(problem);
    const Column target = rows.Levels(0);
    const double mean = rows.Product(target, rows.Ones()) / static_cast<double>(count);
    const double power = rows.Product(target, target);
    const double levelPower = power - mean * mean * static_cast<double>(count);
    for (Eigen::Index k = 0; k < feedback; ++k)
        columns[static_cast<std::size_t>(taps + k)] = rows.Levels(-1 - k);
    columns.back() = rows.Ones();
    for (std::size_t phase = 0; phase < s; ++phase) {
        for (const long long delay : delays) {
            const long long q = lag + static_cast<long long>(phase) + delay;
            for (std::size_t j = 0; j < problem.tapDelays.size(); ++j)
                columns[j] = rows.Samples(q - problem.tapDelays[j]);
            for (Eigen::Index j = 0; j < size; ++j) {
                const Column column = columns[static_cast<std::size_t>(j)];
                for (Eigen::Index l = 0; l <= j; ++l)
                    normal(j, l) = normal(l, j) = rows.Product(column, columns[static_cast<std::size_t>(l)]);
                right(j) = rows.Product(column, target);
            }
            auto solution = Solve(normal, right, problem.ridge);
            if (!solution || (problem.mainCursor && !IsLargest(solution->weights.head(taps), *problem.mainCursor)))
                continue;
            const Eigen::VectorXd& weights = solution->weights;
            const double residual =
                std::max(power - 2.0 * right.dot(weights) + weights.dot(normal * weights), 0.0) / levelPower;
            const bool suits = SuitsFeedback(weights, problem, correlation, q);
            const bool isBetter =
                !best || (suits != best->suitsFeedback ? suits : residual < best->residual - kEqualResidual);
            if (isBetter)
                best = Choice{*std::move(solution), columns, suits, residual, phase, q};
        }
    }
    if (!best)
        return std::nullopt;
    const Eigen::VectorXd& weights = best->solution.weights;
    PhaseFit fit;
    fit.taps.assign(weights.begin(), weights.begin() + taps);
    fit.feedback.assign(weights.begin() + taps, weights.begin() + taps + feedback);
    fit.constant = weights(size - 1);
    // From the products it would be the difference of large numbers, no better than their rounding.
    fit.residual = rows.SquaredErrors(best->columns, weights, target) / levelPower;
    fit.phase = best->phase;
    fit.instant = WrappedIndex(best->first, s);
    fit.isInverted = correlation.IsInverted();
    fit.condition = best->solution.condition;
    return fit;
}

}  // namespace Tarnwick::DSO::Maths
