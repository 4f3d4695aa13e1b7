#include "maths/equalisers/phasefit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <tuple>

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include "maths/patterns/alignment.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

// Of residuals that differ by less than this share of the levels' power the first one wins: that of an ideal eye, which all
// phases reach, is rounding.
constexpr double kEqualResidual = 1e-12;
// Pivots of columns of one length below it are rounding: the record cannot tell the columns apart.
constexpr double kSmallestPivot = 1e-12;

// The correlation says which UI a symbol belongs to, but behind a line of many UI it may be a neighbour of it.
constexpr int kSymbolShifts[] = {0, -1, 1};

// One column of the regression: element i is rows[row][i + offset].
struct Column {
    std::size_t row;
    long long offset;
};

// Rows of values one UI apart: the samples by phase, then the levels, then ones. Their products, each computed once.
class Rows {
public:
    Rows(const PhaseFitProblem& problem, std::size_t uiCount)
        : uiCount_(uiCount), samplesPerUi_(problem.samplesPerUi), values_((problem.samplesPerUi + 2) * uiCount)
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

    /// sum of a[i] b[i] over i = first .. first + count - 1.
    double Dot(Column a, Column b, long long first, std::size_t count)
    {
        if (std::tie(b.row, b.offset) < std::tie(a.row, a.offset))
            std::swap(a, b);
        const long long start = first + a.offset;
        const auto [place, isNew] = sums_.try_emplace({a.row, b.row, b.offset - a.offset});
        Sum& sum = place->second;
        const auto product = [&](long long i) { return At(a.row, i) * At(b.row, i + b.offset - a.offset); };
        if (isNew || count == uiCount_) {
            if (isNew)
                sum = {start, WholeDot(a.row, b.row, start, b.offset - a.offset, count)};
            return sum.value;  // over the whole circle it is the same from any start
        }
        const auto length = static_cast<long long>(count);
        double value = sum.value;
        for (long long s = sum.start; s < start; ++s)
            value += product(s + length) - product(s);
        for (long long s = sum.start; s > start; --s)
            value += product(s - 1) - product(s - 1 + length);
        return value;
    }

private:
    struct Sum {
        long long start = 0;
        double value = 0.0;
    };

    double At(std::size_t row, long long i) const { return values_[row * uiCount_ + WrappedIndex(i, uiCount_)]; }

    double WholeDot(std::size_t a, std::size_t b, long long start, long long lag, std::size_t count) const
    {
        const std::span<const double> values = values_;
        const auto first = values.subspan(a * uiCount_, uiCount_);
        const auto second = values.subspan(b * uiCount_, uiCount_);
        const std::size_t begin = WrappedIndex(start, uiCount_);
        const std::size_t head = std::min(count, uiCount_ - begin);
        return CircularDot(first.subspan(begin, head), second, start + lag) +
               CircularDot(first.first(count - head), second, lag);
    }

    std::size_t uiCount_;
    std::size_t samplesPerUi_;
    std::vector<double> values_;
    std::map<std::tuple<std::size_t, std::size_t, long long>, Sum> sums_;
};

// The sample at which symbol 0 begins, of what is not ignored.
long long LagOf(std::span<const double> record, const PhaseFitProblem& problem)
{
    const std::size_t ignored = std::min(problem.ignoredUi * problem.samplesPerUi, (record.size() - 1) / 2);
    std::vector<double> heard(record.size(), 0.0);
    std::ranges::copy(WithoutMean(record.subspan(ignored, record.size() - 2 * ignored)),
                      heard.begin() + static_cast<std::ptrdiff_t>(ignored));
    std::vector<double> held;
    held.reserve(record.size());
    for (const double level : WithoutMean(problem.levels.first(record.size() / problem.samplesPerUi)))
        held.insert(held.end(), problem.samplesPerUi, level);
    return static_cast<long long>(LargestCorrelationOfEitherSign(heard, held).lag);
}

// The UI that every column has a value for.
struct UiRange {
    long long first;
    std::size_t count;
};

}  // namespace

std::optional<PhaseFit> FitAtSamplingPhase(const PhaseFitProblem& problem)
{
    const std::size_t s = problem.samplesPerUi;
    const std::size_t uiCount = problem.samples.size() / s;
    const auto taps = static_cast<Eigen::Index>(problem.tapDelays.size());
    const auto feedback = static_cast<Eigen::Index>(problem.feedbackTaps);
    const int span = (problem.tapDelays.back() + static_cast<int>(s) - 1) / static_cast<int>(s);

    const auto record = problem.samples.first(uiCount * s);
    const long long lag = LagOf(record, problem);
    UiRange range{0, uiCount};
    if (problem.ignoredUi > 0) {
        const auto reach = static_cast<std::size_t>(span) + problem.feedbackTaps + 2;
        if (uiCount <= 2 * (problem.ignoredUi + reach))
            return std::nullopt;
        // Counted from the UI that the record begins with, which need not be that of symbol 0.
        const long long shift = lag / static_cast<long long>(s);
        range = {static_cast<long long>(problem.ignoredUi + reach) - shift, uiCount - 2 * (problem.ignoredUi + reach)};
    }

    Rows rows(problem, uiCount);
    const Eigen::Index size = taps + feedback + 1;
    std::vector<Column> columns(static_cast<std::size_t>(size));
    Eigen::MatrixXd normal(size, size);
    Eigen::VectorXd right(size);
    std::optional<PhaseFit> best;
    const int firstDelay = problem.delayUi.value_or(0);
    const int lastDelay = problem.delayUi.value_or(span);
    for (std::size_t phase = 0; phase < s; ++phase) {
        for (int delay = firstDelay; delay <= lastDelay; ++delay) {
            const long long q =
                lag + static_cast<long long>(phase) + static_cast<long long>(delay) * static_cast<long long>(s);
            for (const int shift : kSymbolShifts) {
                const Column target = rows.Levels(shift);
                for (Eigen::Index j = 0; j < taps; ++j)
                    columns[static_cast<std::size_t>(j)] =
                        rows.Samples(q - problem.tapDelays[static_cast<std::size_t>(j)]);
                for (Eigen::Index k = 0; k < feedback; ++k)
                    columns[static_cast<std::size_t>(taps + k)] = rows.Levels(shift - 1 - k);
                columns.back() = rows.Ones();
                for (Eigen::Index j = 0; j < size; ++j) {
                    const Column column = columns[static_cast<std::size_t>(j)];
                    for (Eigen::Index l = 0; l <= j; ++l)
                        normal(j, l) = normal(l, j) =
                            rows.Dot(column, columns[static_cast<std::size_t>(l)], range.first, range.count);
                    right(j) = rows.Dot(column, target, range.first, range.count);
                }
                const double mean = right(size - 1) / static_cast<double>(range.count);
                const double power = rows.Dot(target, target, range.first, range.count);
                const double spread = power - mean * right(size - 1);
                // Columns of one length: a gain of the record changes neither the condition nor what a ridge does.
                const Eigen::VectorXd scale =
                    normal.diagonal().cwiseMax(std::numeric_limits<double>::min()).cwiseSqrt().cwiseInverse();
                Eigen::MatrixXd scaled = scale.asDiagonal() * normal * scale.asDiagonal();
                scaled.diagonal().array() += problem.ridge;
                const Eigen::LDLT<Eigen::MatrixXd> solver(scaled);
                const auto pivots = solver.vectorD();
                if (!(pivots.minCoeff() > kSmallestPivot * pivots.maxCoeff()))
                    continue;
                const Eigen::VectorXd solution = scale.asDiagonal() * solver.solve(scale.asDiagonal() * right).eval();
                const double residual =
                    std::max(power - 2.0 * right.dot(solution) + solution.dot(normal * solution), 0.0) / spread;
                if (!solution.allFinite() || !(residual < (best ? best->residual - kEqualResidual : HUGE_VAL)))
                    continue;
                best.emplace();
                best->taps.assign(solution.begin(), solution.begin() + taps);
                best->feedback.assign(solution.begin() + taps, solution.begin() + taps + feedback);
                best->constant = solution(size - 1);
                best->residual = residual;
                best->phase = phase;
                best->delayUi = delay;
                best->condition = pivots.maxCoeff() / pivots.minCoeff();
            }
        }
    }
    return best;
}

}  // namespace Tarnwick::DSO::Maths
