#include "maths/equalisers/decisionfeedback.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include "maths/patterns/alignment.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::Maths {

namespace {

constexpr double kPsPerNs = 1000.0;  // samples over samples per UI and GBd are nanoseconds
constexpr double kNsPerPs = 0.001;

// Residuals, over the main cursor, that differ by less than this differ by rounding alone: a noise-free record has some
// 1e-15 at every delay.
constexpr double kEqualResiduals = 1e-9;
// A main cursor below this share of the largest sample is nothing but rounding.
constexpr double kSmallestMainCursor = 1e-12;

double Rms(std::span<const double> values)
{
    return std::sqrt(std::inner_product(values.begin(), values.end(), values.begin(), 0.0) /
                     static_cast<double>(values.size()));
}

// By how many samples the record lags behind the held symbols.
std::size_t LagBehind(std::span<const double> samples, std::span<const double> symbols, double samplesPerUi)
{
    std::vector<double> held(samples.size());
    for (std::size_t m = 0; m < held.size(); ++m)
        held[m] = symbols[static_cast<std::size_t>(static_cast<double>(m) / samplesPerUi) % symbols.size()];
    // A sample early: of equal peaks, which a pattern with a shorter period has, the lowest lag is to win, not lag 1.
    std::rotate(held.begin(), held.begin() + 1, held.end());
    return (LargestCorrelation(WithoutMean(samples), held).lag + samples.size() - 1) % samples.size();
}

// One sample of each UI, the first at the delay.
void SampleUis(std::span<const double> samples, double delay, double samplesPerUi, std::span<double> result)
{
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = SampleAt(samples, delay + static_cast<double>(i) * samplesPerUi);
}

// rms of s_i - sum_j h_j v_(i+q-j), both without their means.
double ResidualRms(std::span<const double> sampled, std::span<const double> symbols, long long shift,
                   const Eigen::VectorXd& response)
{
    std::vector<double> residual(sampled.begin(), sampled.end());
    for (Eigen::Index j = 0; j < response.size(); ++j)
        AddRotated(residual, -response[j], symbols, shift - j);
    return Rms(residual);
}

}  // namespace

double SamplesFromDelay(double delayPs, int samplesPerUi, double baudRateGBd)
{
    return std::trunc(delayPs * kNsPerPs * baudRateGBd * samplesPerUi);
}

double DelayFromSamples(int samples, int samplesPerUi, double baudRateGBd)
{
    double delayPs = samples * kPsPerNs / (samplesPerUi * baudRateGBd);
    // The way back drops the fraction, and with it a whole sample where its five roundings fall short of k. A few steps to
    // the next double make up for them, except at rates where the delay or the product leaves the range of normal doubles.
    constexpr int kMostSteps = 8;
    for (int step = 0; step < kMostSteps && SamplesFromDelay(delayPs, samplesPerUi, baudRateGBd) < samples; ++step)
        delayPs = std::nextafter(delayPs, std::numeric_limits<double>::infinity());
    return delayPs;
}

FeedbackSearch FindFeedback(std::span<const double> samples, std::span<const double> symbols, double samplesPerUi,
                            int tapCount)
{
    const std::size_t count = symbols.size();
    const Eigen::Index terms = static_cast<Eigen::Index>(tapCount) + 1;
    const std::vector<double> centred = WithoutMean(symbols);

    // The columns of every fit are rotations of one pattern, so one matrix serves all of them.
    std::vector<double> correlation(static_cast<std::size_t>(terms));
    for (std::size_t j = 0; j < correlation.size(); ++j)
        correlation[j] = CircularDot(centred, centred, static_cast<long long>(j));
    Eigen::MatrixXd normal(terms, terms);
    for (Eigen::Index a = 0; a < terms; ++a)
        for (Eigen::Index b = 0; b < terms; ++b)
            normal(a, b) = correlation[static_cast<std::size_t>(std::abs(a - b))];
    const Eigen::LDLT<Eigen::MatrixXd> solver(normal);
    FeedbackSearch best;
    // Smaller pivots are rounding. The solver's own estimate of the condition overlooks a pivot of zero.
    const double smallestPivot =
        4.0 * static_cast<double>(terms) * std::numeric_limits<double>::epsilon() * correlation[0];
    if (solver.info() != Eigen::Success || !(solver.vectorD().minCoeff() > smallestPivot)) {
        best.outcome = FeedbackSearch::Outcome::SymbolsAlike;
        return best;
    }

    const auto [lowest, highest] = std::minmax_element(samples.begin(), samples.end());
    const double smallestCursor = kSmallestMainCursor * std::max(std::abs(*lowest), std::abs(*highest));
    const auto lag = static_cast<double>(LagBehind(samples, symbols, samplesPerUi));
    double smallest = std::numeric_limits<double>::infinity();
    std::vector<double> uis(count);
    for (int k = 0; k < static_cast<int>(samplesPerUi); ++k) {
        SampleUis(samples, k, samplesPerUi, uis);
        const std::vector<double> sampled = WithoutMean(uis);
        const long long middle = std::llround((k - samplesPerUi / 2.0 - lag) / samplesPerUi);
        for (const long long q : {middle - 1, middle, middle + 1}) {
            Eigen::VectorXd right(terms);
            for (Eigen::Index j = 0; j < terms; ++j)
                right[j] = CircularDot(sampled, centred, q - j);
            const Eigen::VectorXd response = solver.solve(right);
            const double cursor = response[0];
            if (!(cursor > smallestCursor))
                continue;
            const double residual = ResidualRms(sampled, centred, q, response) / cursor;
            if (!(residual < smallest - kEqualResiduals))
                continue;
            smallest = residual;
            best.outcome = FeedbackSearch::Outcome::Found;
            best.delay = k;
            best.taps.assign(response.begin() + 1, response.end());
            for (double& tap : best.taps)
                tap /= cursor;
            best.residual = residual;
        }
    }
    return best;
}

DecisionFeedback::DecisionFeedback(std::span<const double> taps, int levelCount, UiGrid grid)
    : grid_(grid),
      taps_(taps.rbegin(), taps.rend()),
      tapPower_(std::inner_product(taps.begin(), taps.end(), taps.begin(), 0.0)),
      levels_(static_cast<std::size_t>(levelCount)),
      sampled_(grid.symbols),
      feedback_(grid.symbols),
      past_(taps.size() + grid.symbols),
      decided_(grid.symbols)
{
}

void DecisionFeedback::Equalise(std::span<const double> samples, double delay, std::span<double> result)
{
    SampleUis(samples, delay, grid_.samplesPerUi, sampled_);
    StartLevels();
    passes_ = 0;
    while (passes_ < kMostPasses && Pass()) {
    }

    // UI i begins half a UI before its decision.
    const auto begin = [&](long long ui) {
        const double edge = std::ceil(delay + (static_cast<double>(ui) - 0.5) * grid_.samplesPerUi);
        return static_cast<std::size_t>(std::clamp(edge, 0.0, static_cast<double>(samples.size())));
    };
    auto ui = static_cast<long long>(std::floor(0.5 - delay / grid_.samplesPerUi));
    for (std::size_t from = 0; from < samples.size(); ++ui) {
        const std::size_t to = begin(ui + 1);
        const double feedback = feedback_[WrappedIndex(ui, grid_.symbols)];
        for (; from < to; ++from)
            result[from] = samples[from] - feedback;
    }
}

void DecisionFeedback::StartLevels()
{
    // The variance of the samples is that of the symbols times one plus the sum of the taps' squares: the start is right
    // even where the eye is closed.
    const double mean = Mean(sampled_);
    double power = 0.0;
    for (const double sample : sampled_)
        power += (sample - mean) * (sample - mean);
    const double spread = std::sqrt(power / static_cast<double>(sampled_.size()));
    const auto steps = static_cast<double>(levels_.size() - 1);
    const double evenRms = std::sqrt((steps + 2.0) / (3.0 * steps));  // of steps + 1 values from -1 to 1
    const double gain = spread / std::sqrt(1.0 + tapPower_) / evenRms;
    for (std::size_t level = 0; level < levels_.size(); ++level)
        levels_[level] = mean + gain * (2.0 * static_cast<double>(level) / steps - 1.0);
}

bool DecisionFeedback::Pass()
{
    const std::size_t tapCount = taps_.size();
    const bool first = passes_ == 0;
    const double middle = (levels_.front() + levels_.back()) / 2.0;
    std::array<double, kMostLevels> values{};
    std::array<double, kMostLevels - 1> thresholds;
    thresholds.fill(std::numeric_limits<double>::infinity());
    for (std::size_t level = 0; level < levels_.size(); ++level) {
        values[level] = levels_[level] - middle;
        if (level > 0)
            thresholds[level - 1] = (levels_[level - 1] + levels_[level]) / 2.0;
    }
    for (std::size_t k = 0; k < tapCount; ++k) {
        const long long place = static_cast<long long>(k) - static_cast<long long>(tapCount);
        past_[k] = first ? 0.0 : values[static_cast<std::size_t>(decided_[WrappedIndex(place, grid_.symbols)])];
    }

    bool changed = first;
    for (std::size_t i = 0; i < grid_.symbols; ++i) {
        double feedback = 0.0;
        for (std::size_t k = 0; k < tapCount; ++k)
            feedback += taps_[k] * past_[i + k];
        const double y = sampled_[i] - feedback;
        int level = 0;
        for (const double threshold : thresholds)
            level += static_cast<int>(y > threshold);
        changed |= level != decided_[i];
        decided_[i] = level;
        feedback_[i] = feedback;
        past_[tapCount + i] = values[static_cast<std::size_t>(level)];
    }
    RefreshLevels();
    ++passes_;
    return changed;
}

void DecisionFeedback::RefreshLevels()
{
    std::array<double, kMostLevels> sums{};
    std::array<std::size_t, kMostLevels> counts{};
    for (std::size_t i = 0; i < grid_.symbols; ++i) {
        const auto level = static_cast<std::size_t>(decided_[i]);
        sums[level] += sampled_[i] - feedback_[i];
        ++counts[level];
    }
    for (std::size_t level = 0; level < levels_.size(); ++level)
        if (counts[level] > 0)
            levels_[level] = sums[level] / static_cast<double>(counts[level]);
}

}  // namespace Tarnwick::DSO::Maths
