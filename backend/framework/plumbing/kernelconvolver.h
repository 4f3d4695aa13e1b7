// A convolver for a kernel that the host may change at any time.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "framework/export.h"
#include "maths/convolution/circularconvolver.h"

namespace Tarnwick::DSO::SystemFramework {

/// Convolves with the taps it is given and keeps what it prepared for them, such as a spectrum. Before each use the taps
/// are compared, bit by bit, with those that it was prepared for: a kernel is public, and a host may write into it. Copies
/// share what is prepared, which never changes, and have buffers of their own.
class TARNWICK_FRAMEWORK_API KernelConvolver {
public:
    KernelConvolver() = default;
    KernelConvolver(const KernelConvolver& other) : prepared_(other.prepared_) {}
    KernelConvolver& operator=(const KernelConvolver& other)
    {
        prepared_ = other.prepared_;
        return *this;
    }
    ~KernelConvolver();

    /// Prepares for these taps and this period, unless that is done already.
    void Prepare(std::span<const double> taps, std::size_t period);
    /// @param samples  one period
    /// @param result   one period, every value of which is written
    void Convolve(std::span<const double> samples, std::span<double> result);

private:
    struct Prepared;
    std::shared_ptr<const Prepared> prepared_;
    Maths::ConvolutionWork work_;
};

}  // namespace Tarnwick::DSO::SystemFramework
