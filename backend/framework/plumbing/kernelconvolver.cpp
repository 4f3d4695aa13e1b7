#include "framework/plumbing/kernelconvolver.h"

#include <cstring>
#include <vector>

namespace Tarnwick::DSO::SystemFramework {

struct KernelConvolver::Prepared {
    Prepared(std::span<const double> kernel, std::size_t period)
        : taps(kernel.begin(), kernel.end()), convolver(kernel, period)
    {
    }
    bool IsFor(std::span<const double> kernel, std::size_t period) const
    {
        return convolver.Period() == period && taps.size() == kernel.size() &&
               (taps.empty() || std::memcmp(taps.data(), kernel.data(), kernel.size_bytes()) == 0);
    }
    std::vector<double> taps;
    Maths::CircularConvolver convolver;
};

KernelConvolver::~KernelConvolver() = default;

void KernelConvolver::Prepare(std::span<const double> taps, std::size_t period)
{
    if (!prepared_ || !prepared_->IsFor(taps, period))
        prepared_ = std::make_shared<const Prepared>(taps, period);
}

void KernelConvolver::Convolve(std::span<const double> samples, std::span<double> result)
{
    prepared_->convolver.Convolve(samples, result, work_);
}

}  // namespace Tarnwick::DSO::SystemFramework
