// Records that repeat: the sample after the last one is the first one again. Indices, rotations, products, and samples
// between samples.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// index mod count from 0 to count - 1, for negative indices too.
/// @param count  at least 1
constexpr std::size_t WrappedIndex(long long index, std::size_t count)
{
    const auto period = static_cast<long long>(count);
    const long long rest = index % period;
    return static_cast<std::size_t>(rest < 0 ? rest + period : rest);
}

/// The sample a fraction of an interval after samples[index], on the straight line to the next one; exactly
/// samples[index] at fraction 0.
/// @param index     below samples.size()
/// @param fraction  0 to below 1
inline double SampleBetween(std::span<const double> samples, std::size_t index, double fraction)
{
    const double here = samples[index];
    if (fraction == 0.0)
        return here;
    const double next = samples[index + 1 < samples.size() ? index + 1 : 0];
    return here + fraction * (next - here);
}

/// The sample at any position, in samples, on the straight line between its neighbours.
/// @param position  of a magnitude below 2^53, beyond which a double has no fraction
TARNWICK_FRAMEWORK_API double SampleAt(std::span<const double> samples, double position);

/// sum[i] += factor x[(i + lag) mod n]
/// @param sum  at most n values, as many as x has
TARNWICK_FRAMEWORK_API void AddRotated(std::span<double> sum, double factor, std::span<const double> x, long long lag);

/// sum_i x[i] y[i] in a fixed order of 16 running sums.
TARNWICK_FRAMEWORK_API double Dot(const double* x, const double* y, std::size_t count);

/// sum_i x[i] y[(i + lag) mod n] for any lag, in a fixed order of 16 running sums for each of the two stretches of y: the
/// rounding of a single running sum over a million samples would be just about too much. 0 for empty records.
/// @param x  at most as many values as y, n
TARNWICK_FRAMEWORK_API double CircularDot(std::span<const double> x, std::span<const double> y, long long lag);

/// CircularDot for each lag, to the same bits, in one pass over the records: for lags that lie close together or close to 0.
TARNWICK_FRAMEWORK_API std::vector<double> CircularDots(std::span<const double> x, std::span<const double> y,
                                                        std::span<const long long> lags);

/// CircularDot in one running sum in the order of x, for records of a sample a UI. The last bits differ from CircularDot's.
TARNWICK_FRAMEWORK_API double CircularDotInOrder(std::span<const double> x, std::span<const double> y, long long lag);

/// The arithmetic mean, summed in order.
/// @param values  at least one
TARNWICK_FRAMEWORK_API double Mean(std::span<const double> values);

/// The values less their mean.
/// @param values  at least one
TARNWICK_FRAMEWORK_API std::vector<double> WithoutMean(std::span<const double> values);

/// The values less the mean of those that lie at least `ends` from both ends; the others are zero.
/// @param ends  fewer than half of the values; 0: as above
TARNWICK_FRAMEWORK_API std::vector<double> WithoutMean(std::span<const double> values, std::size_t ends);

/// Products of two records over a stretch of rows,
///     sum_{i = first .. first + count - 1} x[i] y[i + lag],   indices mod n
/// each lag once: from another first row the few products are added and taken off by which the two stretches differ.
class TARNWICK_FRAMEWORK_API StretchProducts {
public:
    /// @param x      n values, which are not copied; y as many
    /// @param count  rows, at most n; with n every first row gives CircularDot(x, y, lag)
    StretchProducts(std::span<const double> x, std::span<const double> y, std::size_t count)
        : x_(x), y_(y), count_(count)
    {
    }
    double At(long long first, long long lag);

    /// Makes the products of all these lags ready in one pass over the records.
    void MakeReady(long long first, std::span<const long long> lags);

private:
    struct Sum {
        std::size_t first = 0;
        double value = 0.0;
    };
    std::span<const double> x_;
    std::span<const double> y_;
    std::size_t count_;
    std::map<std::size_t, Sum> sums_;  // by lag
};

}  // namespace Tarnwick::DSO::Maths
