#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "framework/basefilterparameters.h"
#include "framework/export.h"
#include "framework/signaldata.h"

namespace Tarnwick::DSO::SystemFramework {

class KernelConvolver;

/// A filter: parameters in, a prepared kernel, a new buffer out.
///
/// Construct the parameters, then the filter, call Apply once per waveform, destroy the filter before its parameters.
/// One filter and its parameters are used by one thread at a time.
///
/// Lifetime of `kernel`: the filter owns it and copies share it; it is released with its last holder, at the latest
/// when that holder prepares again or is destroyed. A host may assign an array made with ::operator new; the filter
/// then owns that one too, and releases its own.
class TARNWICK_FRAMEWORK_API BaseFilter {
public:
    BaseFilter();
    BaseFilter(const BaseFilter& other);
    BaseFilter& operator=(const BaseFilter& other);
    virtual ~BaseFilter();

    /// Computes what the filter needs before it can filter. Apply calls it while the parameters are dirty.
    virtual void Prepare(SignalData* signal);

    /// Filters signal->samples, which stay as they are.
    /// @return new array of signal->sampleCount values; the caller releases it with ::operator delete. Null where the
    ///         filter says so.
    virtual double* Apply(SignalData* signal) = 0;

    BaseFilterParameters* parameters = nullptr;  ///< not owned, must outlive the filter
    bool notPrepared = true;                     ///< set by construction, cleared by Prepare
    bool flag2 = false;                          ///< carried
    bool flag3 = false;                          ///< cleared by Prepare
    bool flag4 = false;                          ///< carried
    double* kernel = nullptr;                    ///< impulse response; null until the first Prepare

protected:
    /// Stores a copy of `taps` as the new kernel and releases this filter's share in the old one.
    void SetKernel(std::span<const double> taps);
    /// Releases this filter's share in the kernel; `kernel` is null afterwards.
    void ReleaseKernel() noexcept;
    /// The first `count` taps of the public kernel.
    /// @throws std::invalid_argument  there is no kernel, or one that Prepare made is shorter than `count`
    std::span<const double> KernelTaps(const char* filter, std::size_t count);
    /// The convolver prepared for the kernel; it checks the kernel's content at each use.
    KernelConvolver& Convolver();

private:
    struct Kernel;
    void AdoptKernel() const;

    mutable std::shared_ptr<const Kernel> held_;
    std::unique_ptr<KernelConvolver> convolver_;
};

}  // namespace Tarnwick::DSO::SystemFramework
