#include "maths/patterns/periodicrecord.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace Tarnwick::DSO::Maths {

double Dot(const double* x, const double* y, std::size_t count)
{
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

double StretchProducts::At(long long first, long long lag)
{
    const std::size_t n = x_.size();
    const std::size_t shift = WrappedIndex(lag, n);
    const auto [place, isNew] = sums_.try_emplace(shift);
    Sum& sum = place->second;
    if (isNew && count_ == n) {
        sum.value = CircularDot(x_, y_, lag);
    } else if (isNew) {
        sum.first = WrappedIndex(first, n);
        const std::size_t head = std::min(count_, n - sum.first);
        sum.value = CircularDot(x_.subspan(sum.first, head), y_, static_cast<long long>(sum.first) + lag) +
                    CircularDot(x_.first(count_ - head), y_, lag);
    }
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
