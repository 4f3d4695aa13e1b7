#pragma once

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API Convolution {
public:
    /// Circular convolution of x with h over the period n; h may be longer or shorter than n.
    ///     y[k] = sum_m x[m] h[(k - m) mod n]
    /// @param x  n samples, read only; may be null only when n is 0
    /// @param h  m taps, read only; a kernel longer than n is folded; m = 0 gives zeros
    /// @return   new array of n values; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  n or m is negative, or an array that has values is null
    /// Error below 4 eps log2(n) max|x| sum|h| against the direct sum; O(n log n). NaN and infinity flow through.
    static double* CircularConv(const double* x, int n, const double* h, int m);
};

}  // namespace Tarnwick::DSO::SystemFramework
