#include "maths/equalisers/decisionfeedback.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>
#include <utility>

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

// The instant may leave this much of the largest opening for the middle of the eye.
constexpr double kOpenEnough = 0.05;
// By so much the earlier of two middles has to be more open than the later one.
constexpr double kClearlyMoreOpen = 0.01;

// By how many samples the record, less `ends` samples at each end, lags behind the held symbols.
Alignment AlignmentBehind(std::span<const double> samples, std::span<const double> symbols, double samplesPerUi,
                          std::size_t ends)
{
    std::vector<double> held(samples.size());
    for (std::size_t m = 0; m < held.size(); ++m)
        held[m] = symbols[static_cast<std::size_t>(static_cast<double>(m) / samplesPerUi) % symbols.size()];
    // A sample early: of equal peaks, which a pattern with a shorter period has, the lowest lag is to win, not lag 1.
    std::rotate(held.begin(), held.begin() + 1, held.end());
    Alignment alignment = AlignmentOf(WithoutMean(samples, ends), held);
    alignment.lag = (alignment.lag + samples.size() - 1) % samples.size();
    return alignment;
}

// One sample of each UI, the first at the delay.
void SampleUis(std::span<const double> samples, double delay, double samplesPerUi, std::span<double> result)
{
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = SampleAt(samples, delay + static_cast<double>(i) * samplesPerUi);
}

// s_i - sum_j h_j v_(i+q-j), both without their means.
std::vector<double> Residual(std::span<const double> sampled, std::span<const double> symbols, long long shift,
                             const Eigen::VectorXd& response)
{
    std::vector<double> residual(sampled.begin(), sampled.end());
    for (Eigen::Index j = 0; j < response.size(); ++j)
        AddRotated(residual, -response[j], symbols, shift - j);
    return residual;
}

// The least squares of all delays: their columns are rotations of one pattern of symbols without its mean, so one matrix
// serves all of them. Where the ends do not count, another rotation leaves out other symbols, and columns have a mean.
class FeedbackFits {
public:
    using Solver = Eigen::LDLT<Eigen::MatrixXd>;

    /// @param ends  UI at each end that do not count
    FeedbackFits(std::span<const double> symbols, int tapCount, std::size_t ends)
        : symbols_(symbols.begin(), symbols.end()),
          ones_(ends > 0 ? symbols.size() : 0, 1.0),
          terms_(static_cast<Eigen::Index>(tapCount) + 1),
          ends_(static_cast<long long>(ends)),
          count_(symbols.size() - 2 * ends),
          products_(symbols_, symbols_, count_),
          sums_(symbols_, ones_, count_)
    {
    }
    FeedbackFits(const FeedbackFits&) = delete;
    FeedbackFits& operator=(const FeedbackFits&) = delete;

    /// @return null when the symbols cannot tell the columns v_(i+shift-j) apart
    const Solver* At(long long shift)
    {
        if (ones_.empty())
            shift = 0;
        const auto [place, isNew] = solvers_.try_emplace(shift);
        if (isNew)
            place->second.compute(Matrix(shift));
        const Solver& solver = place->second;
        // Smaller pivots are rounding. The solver's own estimate of the condition overlooks a pivot of zero.
        const double smallestPivot =
            4.0 * static_cast<double>(terms_) * std::numeric_limits<double>::epsilon() * products_.At(ends_ + shift, 0);
        return solver.info() == Eigen::Success && solver.vectorD().minCoeff() > smallestPivot ? &solver : nullptr;
    }

private:
    Eigen::MatrixXd Matrix(long long shift)
    {
        Eigen::MatrixXd normal(terms_, terms_);
        for (Eigen::Index a = 0; a < terms_; ++a)
            for (Eigen::Index b = 0; b <= a; ++b)
                normal(a, b) = normal(b, a) = products_.At(ends_ + shift - a, a - b);
        if (ones_.empty())
            return normal;
        Eigen::VectorXd sums(terms_);
        for (Eigen::Index a = 0; a < terms_; ++a)
            sums[a] = sums_.At(ends_ + shift - a, 0);
        return normal - sums * sums.transpose() / static_cast<double>(count_);
    }

    std::vector<double> symbols_, ones_;
    Eigen::Index terms_;
    long long ends_;
    std::size_t count_;
    StretchProducts products_, sums_;
    std::map<long long, Solver> solvers_;
};

// The smallest of the openings between neighbouring levels behind the feedback of the known symbols, over the levels'
// spacing in the symbols. Behind the feedback a sample is h_0 v_(i+q) and the residual.
class Opening {
public:
    explicit Opening(std::span<const double> symbols) : values_(symbols.begin(), symbols.end())
    {
        std::sort(values_.begin(), values_.end());
        values_.erase(std::unique(values_.begin(), values_.end()), values_.end());
        for (const double symbol : symbols)
            levels_.push_back(
                static_cast<std::size_t>(std::lower_bound(values_.begin(), values_.end(), symbol) - values_.begin()));
    }
    double Of(std::span<const double> residual, long long shift, double cursor) const
    {
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        std::vector<double> lowest(values_.size(), kInfinity);
        std::vector<double> highest(values_.size(), -kInfinity);
        std::size_t place = WrappedIndex(shift, levels_.size());
        for (const double rest : residual) {
            const std::size_t level = levels_[place];
            lowest[level] = std::min(lowest[level], rest);
            highest[level] = std::max(highest[level], rest);
            place = place + 1 < levels_.size() ? place + 1 : 0;
        }
        double smallest = kInfinity;
        for (std::size_t level = 1; level < values_.size(); ++level)
            smallest = std::min(smallest,
                                cursor + (lowest[level] - highest[level - 1]) / (values_[level] - values_[level - 1]));
        return smallest;
    }

private:
    std::vector<double> values_;       // the symbols' values, ascending
    std::vector<std::size_t> levels_;  // of each symbol, the place of its value among them
};

// The fit at one delay, over its main cursor.
struct Fit {
    std::vector<double> taps;
    double cursor = 0.0;
    double residual = std::numeric_limits<double>::infinity();
    double opening = -std::numeric_limits<double>::infinity();
};

// The middle of the longest circular run of delays at which the eye is as good as open as anywhere.
// @param boundary  the delay with which a UI begins, and so a run of all
std::size_t MiddleOfEye(std::span<const Fit> fits, std::size_t boundary)
{
    const std::size_t count = std::max<std::size_t>(fits.size(), 1);  // a UI has one sample at least
    double largest = fits.front().opening;
    for (const Fit& fit : fits)
        largest = std::max(largest, fit.opening);
    const auto isOpen = [&](std::size_t k) { return fits[k % count].opening >= largest - kOpenEnough; };

    std::size_t start = boundary;
    std::size_t length = 0;
    for (std::size_t k = 0; k < count; ++k) {
        if (!isOpen(k) || isOpen(k + count - 1))
            continue;
        std::size_t run = 1;
        while (isOpen(k + run))
            ++run;
        if (run > length) {
            start = k;
            length = run;
        }
    }
    if (length == 0)
        length = count;
    const std::size_t later = (start + length / 2) % count;
    const std::size_t earlier = (start + (length - 1) / 2) % count;
    return fits[earlier].opening > fits[later].opening + kClearlyMoreOpen ? earlier : later;
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
                            int tapCount, std::size_t ignoredUi)
{
    const std::size_t count = symbols.size();
    FeedbackSearch best;
    // UI at each end that do not count.
    const std::size_t ends = ignoredUi == 0 ? 0 : ignoredUi + FeedbackReach(tapCount);
    if (2 * ends >= count)
        return best;
    const Eigen::Index terms = static_cast<Eigen::Index>(tapCount) + 1;
    std::vector<double> centred = WithoutMean(symbols);
    FeedbackFits solvers(centred, tapCount, ends);
    if (solvers.At(0) == nullptr) {
        best.outcome = FeedbackSearch::Outcome::SymbolsAlike;
        return best;
    }

    const auto endSamples = static_cast<std::size_t>(std::ceil(static_cast<double>(ignoredUi) * samplesPerUi));
    const auto inner = samples.subspan(endSamples, samples.size() - 2 * endSamples);
    const auto [lowest, highest] = std::minmax_element(inner.begin(), inner.end());
    const double smallestCursor = kSmallestMainCursor * std::max(std::abs(*lowest), std::abs(*highest));
    const Alignment alignment = AlignmentBehind(samples, symbols, samplesPerUi, endSamples);
    const auto lag = static_cast<double>(alignment.lag);
    if (alignment.isInverted)
        for (double& symbol : centred)
            symbol = -symbol;
    const Opening opening(centred);
    std::vector<Fit> fits(static_cast<std::size_t>(samplesPerUi));
    std::vector<double> uis(count);
    best.largestTap = std::numeric_limits<double>::infinity();
    for (std::size_t k = 0; k < fits.size(); ++k) {
        const auto delay = static_cast<double>(k);
        SampleUis(samples, delay, samplesPerUi, uis);
        const std::vector<double> sampled = WithoutMean(uis, ends);
        const long long middle = std::llround((delay - samplesPerUi / 2.0 - lag) / samplesPerUi);
        for (const long long q : {middle - 1, middle, middle + 1}) {
            Eigen::VectorXd right(terms);
            for (Eigen::Index j = 0; j < terms; ++j)
                right[j] = CircularDot(sampled, centred, q - j);
            const FeedbackFits::Solver* const solver = solvers.At(q);
            if (solver == nullptr)
                continue;
            const Eigen::VectorXd response = solver->solve(right);
            const double cursor = response[0];
            if (!(cursor > smallestCursor))
                continue;
            // A main cursor that is smaller than what comes behind it is a pre-cursor.
            const double largestTap = tapCount > 0 ? response.tail(tapCount).cwiseAbs().maxCoeff() / cursor : 0.0;
            best.largestTap = std::min(best.largestTap, largestTap);
            if (!(largestTap <= 1.0))
                continue;
            std::vector<double> residual = Residual(sampled, centred, q, response);
            if (ends > 0)
                residual = WithoutMean(std::span(residual).subspan(ends, count - 2 * ends));
            const double relative = Rms(residual) / cursor;
            if (!(relative < fits[k].residual - kEqualResiduals))
                continue;
            fits[k] = {{response.begin() + 1, response.end()},
                       cursor,
                       relative,
                       opening.Of(residual, q + static_cast<long long>(ends), cursor)};
            for (double& tap : fits[k].taps)
                tap /= cursor;
        }
    }
    if (std::none_of(fits.begin(), fits.end(), [](const Fit& fit) { return std::isfinite(fit.residual); })) {
        if (best.largestTap > 1.0 && std::isfinite(best.largestTap))
            best.outcome = FeedbackSearch::Outcome::TapsAboveCursor;
        return best;
    }
    // An ideal eye is as open as the largest main cursor is high.
    const double ideal = std::max_element(fits.begin(), fits.end(), [](const Fit& a, const Fit& b) {
                             return a.cursor < b.cursor;
                         })->cursor;
    for (Fit& fit : fits)
        fit.opening /= ideal;
    const auto boundary = static_cast<std::size_t>(std::fmod(lag, samplesPerUi)) % fits.size();
    const std::size_t delay = MiddleOfEye(fits, boundary);
    best.outcome = FeedbackSearch::Outcome::Found;
    best.delay = static_cast<int>(delay);
    best.taps = std::move(fits[delay].taps);
    best.residual = fits[delay].residual;
    best.opening = fits[delay].opening;
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
    const double rms = std::sqrt(power / static_cast<double>(sampled_.size()));
    const auto steps = static_cast<double>(levels_.size() - 1);
    const double evenRms = std::sqrt((steps + 2.0) / (3.0 * steps));  // of steps + 1 values from -1 to 1
    const double gain = rms / std::sqrt(1.0 + tapPower_) / evenRms;
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
