#include "maths/equalisers/ffetaps.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>

#include <Eigen/Cholesky>
#include <Eigen/Core>

namespace Tarnwick::DSO::Maths {

namespace {

constexpr int kCandidatesPerTap = 4;
constexpr int kNarrowCandidates = 7;

double Dot(const double* x, const double* y, std::size_t count)
{
    // The best and the second-best candidate can lie 3.5e-8 apart: a single running sum over a million samples is only
    // just good enough, and slower.
    constexpr std::size_t kSums = 16;
    std::array<double, kSums> sums{};
    std::size_t i = 0;
    for (; i + kSums <= count; i += kSums)
        for (std::size_t s = 0; s < kSums; ++s)
            sums[s] += x[i + s] * y[i + s];
    for (std::size_t s = 0; i < count; ++i, ++s)
        sums[s] += x[i] * y[i];
    for (std::size_t half = kSums / 2; half > 0; half /= 2)
        for (std::size_t s = 0; s < half; ++s)
            sums[s] += sums[s + half];
    return sums[0];
}

// Correlations at the lags asked for, each computed once.
class Correlation {
public:
    Correlation(std::span<const double> x, std::span<const double> y) : x_(x), y_(y) {}
    double At(long long lag)
    {
        const auto n = static_cast<long long>(x_.size());
        const long long wrapped = ((lag % n) + n) % n;
        const auto [place, fresh] = values_.try_emplace(wrapped);
        if (fresh)
            place->second = CircularDot(x_, y_, wrapped);
        return place->second;
    }

private:
    std::span<const double> x_;
    std::span<const double> y_;
    std::map<long long, double> values_;
};

}  // namespace

std::vector<int> TapDelays(int numberOfTaps, int samplesPerUi, int tapsPerUi)
{
    std::vector<int> delays(static_cast<std::size_t>(numberOfTaps));
    for (int j = 0; j < numberOfTaps; ++j)
        delays[static_cast<std::size_t>(j)] = j * samplesPerUi / tapsPerUi;
    return delays;
}

std::vector<int> CandidateDelays(int numberOfTaps, int samplesPerUi, int tapsPerUi, bool narrow)
{
    const int centre = (numberOfTaps * samplesPerUi / tapsPerUi) / 2;
    const int count = narrow ? kNarrowCandidates : kCandidatesPerTap * numberOfTaps + 1;
    std::vector<int> delays(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        const int offset = k % 2 == 0 ? k / 2 : -(k + 1) / 2;
        delays[static_cast<std::size_t>(k)] = offset * samplesPerUi / (kCandidatesPerTap * tapsPerUi) + centre;
    }
    return delays;
}

double CircularDot(std::span<const double> x, std::span<const double> y, long long lag)
{
    const auto n = static_cast<long long>(x.size());
    if (n == 0)
        return 0.0;
    const auto start = static_cast<std::size_t>(((lag % n) + n) % n);
    const std::size_t head = x.size() - start;
    return Dot(x.data(), y.data() + start, head) + Dot(x.data() + head, y.data(), start);
}

std::optional<TapSolution> SolveTaps(std::span<const double> capture, std::span<const double> reference,
                                     std::span<const int> tapDelays, std::span<const int> referenceDelays)
{
    const auto taps = static_cast<Eigen::Index>(tapDelays.size());
    const auto candidates = static_cast<Eigen::Index>(referenceDelays.size());
    const auto at = [](std::span<const int> delays, Eigen::Index k) -> long long {
        return delays[static_cast<std::size_t>(k)];
    };
    Correlation itself(capture, capture);
    Eigen::MatrixXd normal(taps, taps);
    for (Eigen::Index j = 0; j < taps; ++j)
        for (Eigen::Index l = 0; l <= j; ++l)
            normal(j, l) = normal(l, j) = itself.At(std::abs(at(tapDelays, j) - at(tapDelays, l)));
    const Eigen::LDLT<Eigen::MatrixXd> solver(normal);
    // The pivots fall from the largest to the smallest. Below this share the last ones are rounding; those of a pattern
    // that does tell the taps apart stay above 1e-10.
    const double smallestShare = 16.0 * static_cast<double>(taps) * std::numeric_limits<double>::epsilon();
    const auto pivots = solver.vectorD();
    if (!(pivots.minCoeff() > smallestShare * pivots.maxCoeff()))
        return std::nullopt;

    Correlation across(capture, reference);
    Eigen::MatrixXd right(taps, candidates);
    for (Eigen::Index k = 0; k < candidates; ++k)
        for (Eigen::Index j = 0; j < taps; ++j)
            right(j, k) = across.At(at(tapDelays, j) - at(referenceDelays, k));
    const Eigen::MatrixXd solution = solver.solve(right);
    const double power = Dot(reference.data(), reference.data(), reference.size());

    TapSolution best;
    double smallest = std::numeric_limits<double>::infinity();
    for (Eigen::Index k = 0; k < candidates; ++k) {
        const double residual = std::abs(power - right.col(k).dot(solution.col(k)));
        if (residual < smallest) {
            smallest = residual;
            best.candidate = static_cast<std::size_t>(k);
        }
    }
    const auto chosen = solution.col(static_cast<Eigen::Index>(best.candidate));
    if (!chosen.allFinite())
        return std::nullopt;
    best.taps.assign(chosen.begin(), chosen.end());
    best.residual = power > 0.0 ? smallest / power : 0.0;
    return best;
}

}  // namespace Tarnwick::DSO::Maths
