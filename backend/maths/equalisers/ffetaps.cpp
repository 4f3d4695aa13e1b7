#include "maths/equalisers/ffetaps.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr int kCandidatesPerTap = 4;
constexpr int kNarrowCandidates = 7;

std::vector<long long> Distinct(std::vector<long long> lags)
{
    std::sort(lags.begin(), lags.end());
    lags.erase(std::unique(lags.begin(), lags.end()), lags.end());
    return lags;
}

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

std::optional<TapSolution> SolveTaps(std::span<const double> capture, std::span<const double> reference,
                                     std::span<const int> tapDelays, std::span<const int> referenceDelays,
                                     std::optional<RowStretch> rows)
{
    const auto [first, count] = rows.value_or(RowStretch{0, capture.size()});
    const auto taps = static_cast<Eigen::Index>(tapDelays.size());
    const auto candidates = static_cast<Eigen::Index>(referenceDelays.size());
    const auto at = [](std::span<const int> delays, Eigen::Index k) -> long long {
        return delays[static_cast<std::size_t>(k)];
    };
    std::vector<long long> lags;
    for (Eigen::Index j = 0; j < taps; ++j)
        for (Eigen::Index l = 0; l <= j; ++l)
            lags.push_back(std::abs(at(tapDelays, j) - at(tapDelays, l)));
    StretchProducts itself(capture, capture, count);
    itself.MakeReady(first, Distinct(lags));
    Eigen::MatrixXd normal(taps, taps);
    for (Eigen::Index j = 0; j < taps; ++j) {
        for (Eigen::Index l = 0; l <= j; ++l) {
            const auto [earlier, later] = std::minmax({at(tapDelays, j), at(tapDelays, l)});
            normal(j, l) = normal(l, j) = itself.At(first - later, later - earlier);
        }
    }
    const Eigen::LDLT<Eigen::MatrixXd> solver(normal);
    // The pivots fall from the largest to the smallest. Below this share the last ones are rounding; those of a pattern
    // that does tell the taps apart stay above 1e-10.
    const double smallestShare = 16.0 * static_cast<double>(taps) * std::numeric_limits<double>::epsilon();
    const auto pivots = solver.vectorD();
    if (!(pivots.minCoeff() > smallestShare * pivots.maxCoeff()))
        return std::nullopt;

    lags.clear();
    for (Eigen::Index k = 0; k < candidates; ++k)
        for (Eigen::Index j = 0; j < taps; ++j)
            lags.push_back(at(tapDelays, j) - at(referenceDelays, k));
    StretchProducts across(capture, reference, count);
    across.MakeReady(first, Distinct(lags));
    Eigen::MatrixXd right(taps, candidates);
    for (Eigen::Index k = 0; k < candidates; ++k)
        for (Eigen::Index j = 0; j < taps; ++j)
            right(j, k) = across.At(first - at(tapDelays, j), at(tapDelays, j) - at(referenceDelays, k));
    const Eigen::MatrixXd solution = solver.solve(right);
    StretchProducts target(reference, reference, count);

    TapSolution best;
    double power = 0.0;
    double smallest = std::numeric_limits<double>::infinity();
    for (Eigen::Index k = 0; k < candidates; ++k) {
        const double candidatePower = target.At(first - at(referenceDelays, k), 0);
        const double residual = std::abs(candidatePower - right.col(k).dot(solution.col(k)));
        // Shares of the power, which is one and the same where all rows count.
        if (candidatePower == power ? residual < smallest : residual * power < smallest * candidatePower) {
            smallest = residual;
            power = candidatePower;
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
