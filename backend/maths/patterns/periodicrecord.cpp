#include "maths/patterns/periodicrecord.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace Tarnwick::DSO::Maths {

namespace {

constexpr std::size_t kSums = 16;
constexpr std::size_t kTogether =
    1024;  // products of one lag before the next has its turn: both records stay in the cache

/// A dot product that may be taken piece by piece, each but the last of a multiple of kSums values.
class RunningDot {
public:
    void Add(const double* x, const double* y, std::size_t count)
    {
        // A copy is kept in registers.
        std::array<double, kSums> sums = sums_;
        std::size_t i = 0;
        for (; i + kSums <= count; i += kSums)
            for (std::size_t s = 0; s < kSums; ++s)
                sums[s] += x[i + s] * y[i + s];
        for (std::size_t s = 0; i < count; ++i, ++s)
            sums[s] += x[i] * y[i];
        sums_ = sums;
    }
    double Value() const
    {
        std::array<double, kSums> sums = sums_;
        for (std::size_t half = kSums / 2; half > 0; half /= 2)
            for (std::size_t s = 0; s < half; ++s)
                sums[s] += sums[s + half];
        return sums[0];
    }

private:
    std::array<double, kSums> sums_{};
};

}  // namespace

double Dot(const double* x, const double* y, std::size_t count)
{
    RunningDot dot;
    dot.Add(x, y, count);
    return dot.Value();
}

double SampleAt(std::span<const double> samples, double position)
{
    const double whole = std::floor(position);
    return SampleBetween(samples, WrappedIndex(static_cast<long long>(whole), samples.size()), position - whole);
}

void AddRotated(std::span<double> sum, double factor, std::span<const double> x, long long lag)
{
    const std::size_t start = WrappedIndex(lag, x.size());
    const std::size_t head = std::min(sum.size(), x.size() - start);
    for (std::size_t i = 0; i < head; ++i)
        sum[i] += factor * x[start + i];
    for (std::size_t i = head; i < sum.size(); ++i)
        sum[i] += factor * x[i - head];
}

double CircularDot(std::span<const double> x, std::span<const double> y, long long lag)
{
    if (x.empty())
        return 0.0;
    const std::size_t start = WrappedIndex(lag, y.size());
    const std::size_t head = std::min(x.size(), y.size() - start);
    return Dot(x.data(), y.data() + start, head) + Dot(x.data() + head, y.data(), x.size() - head);
}

std::vector<double> CircularDots(std::span<const double> x, std::span<const double> y, std::span<const long long> lags)
{
    // The two stretches of y, and how much of x lies beside the first.
    struct Lag {
        std::size_t start;
        std::size_t head;
        std::array<RunningDot, 2> dots;
    };
    std::vector<Lag> sums;
    sums.reserve(lags.size());
    for (const long long lag : lags) {
        const std::size_t start = x.empty() ? 0 : WrappedIndex(lag, y.size());
        sums.push_back({start, std::min(x.size(), y.size() - start), {}});
    }
    for (std::size_t begin = 0; begin < x.size(); begin += kTogether)
        for (Lag& lag : sums) {
            // Pieces are counted from where their stretch begins, so that its sums are those of CircularDot.
            if (begin < lag.head)
                lag.dots[0].Add(&x[begin], &y[lag.start + begin], std::min(kTogether, lag.head - begin));
            if (begin < x.size() - lag.head)
                lag.dots[1].Add(&x[lag.head + begin], &y[begin], std::min(kTogether, x.size() - lag.head - begin));
        }
    std::vector<double> values;
    values.reserve(sums.size());
    for (const Lag& lag : sums)
        values.push_back(lag.dots[0].Value() + lag.dots[1].Value());
    return values;
}

double CircularDotInOrder(std::span<const double> x, std::span<const double> y, long long lag)
{
    if (x.empty())
        return 0.0;
    const std::size_t start = WrappedIndex(lag, x.size());
    const std::size_t head = x.size() - start;
    const double stretch = std::inner_product(x.data(), x.data() + head, y.data() + start, 0.0);
    return std::inner_product(x.data() + head, x.data() + x.size(), y.data(), stretch);
}

double Mean(std::span<const double> values)
{
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

std::vector<double> WithoutMean(std::span<const double> values)
{
    const double mean = Mean(values);
    std::vector<double> result(values.begin(), values.end());
    for (double& value : result)
        value -= mean;
    return result;
}

std::vector<double> WithoutMean(std::span<const double> values, std::size_t ends)
{
    if (ends == 0)
        return WithoutMean(values);
    std::vector<double> result(values.size(), 0.0);
    std::ranges::copy(WithoutMean(values.subspan(ends, values.size() - 2 * ends)),
                      result.begin() + static_cast<std::ptrdiff_t>(ends));
    return result;
}

void StretchProducts::MakeReady(long long first, std::span<const long long> lags)
{
    const std::size_t n = x_.size();
    const std::size_t start = count_ == n ? 0 : WrappedIndex(first, n);
    const std::size_t head = std::min(count_, n - start);
    std::vector<long long> fromStart(lags.begin(), lags.end());
    for (long long& lag : fromStart)
        lag += static_cast<long long>(start);
    const std::vector<double> before = CircularDots(x_.subspan(start, head), y_, fromStart);
    const std::vector<double> behind = CircularDots(x_.first(count_ - head), y_, lags);
    for (std::size_t k = 0; k < lags.size(); ++k)
        sums_[WrappedIndex(lags[k], n)] = {start, before[k] + behind[k]};
}

double StretchProducts::At(long long first, long long lag)
{
    const std::size_t n = x_.size();
    const std::size_t shift = WrappedIndex(lag, n);
    auto place = sums_.find(shift);
    if (place == sums_.end()) {
        MakeReady(first, {&lag, 1});
        place = sums_.find(shift);
    }
    const Sum& sum = place->second;
    if (count_ == n)
        return sum.value;

    const auto product = [&](std::size_t i) { return x_[i % n] * y_[(i + shift) % n]; };
    const std::size_t ahead = WrappedIndex(first - static_cast<long long>(sum.first), n);
    double value = sum.value;
    if (ahead <= n / 2) {
        for (std::size_t i = sum.first; i < sum.first + ahead; ++i)
            value += product(i + count_) - product(i);
    } else {
        for (std::size_t i = sum.first + n; i > sum.first + ahead; --i)
            value += product(i - 1) - product(i - 1 + count_);
    }
    return value;
}

}  // namespace Tarnwick::DSO::Maths
