#include "framework/basefilter.h"

#include <limits>
#include <string>
#include <utility>

#include "framework/plumbing/error.h"
#include "framework/plumbing/kernelconvolver.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::SystemFramework {

struct BaseFilter::Kernel {
    OwnedArray taps;
    std::size_t count;  // not known of an array that the host assigned: then the largest number
};

BaseFilter::BaseFilter() = default;

BaseFilter::BaseFilter(const BaseFilter& other)
    : parameters(other.parameters),
      notPrepared(other.notPrepared),
      flag2(other.flag2),
      flag3(other.flag3),
      flag4(other.flag4)
{
    other.AdoptKernel();
    held_ = other.held_;
    kernel = other.kernel;
    if (other.convolver_)
        convolver_ = std::make_unique<KernelConvolver>(*other.convolver_);
}

BaseFilter& BaseFilter::operator=(const BaseFilter& other)
{
    if (this == &other)
        return *this;
    other.AdoptKernel();
    AdoptKernel();
    auto convolver = other.convolver_ ? std::make_unique<KernelConvolver>(*other.convolver_) : nullptr;
    parameters = other.parameters;
    notPrepared = other.notPrepared;
    flag2 = other.flag2;
    flag3 = other.flag3;
    flag4 = other.flag4;
    held_ = other.held_;
    kernel = other.kernel;
    convolver_ = std::move(convolver);
    return *this;
}

BaseFilter::~BaseFilter()
{
    ReleaseKernel();
}

void BaseFilter::Prepare(SignalData*) {}

// The public pointer decides: an array other than the one held was assigned by the host and is the filter's from now on.
void BaseFilter::AdoptKernel() const
{
    const double* held = held_ ? held_->taps.get() : nullptr;
    if (kernel == held)
        return;
    std::shared_ptr<Kernel> adopted;
    if (kernel != nullptr) {
        adopted = std::make_shared<Kernel>(Kernel{nullptr, std::numeric_limits<std::size_t>::max()});
        adopted->taps.reset(kernel);
    }
    held_ = std::move(adopted);
}

void BaseFilter::SetKernel(std::span<const double> taps)
{
    auto fresh = std::make_shared<const Kernel>(Kernel{NewArrayFrom(taps), taps.size()});
    AdoptKernel();
    held_ = std::move(fresh);
    kernel = held_->taps.get();
}

void BaseFilter::ReleaseKernel() noexcept
{
    // Without AdoptKernel, which allocates: a destructor must not fail.
    if (kernel != nullptr && (!held_ || held_->taps.get() != kernel))
        BoundaryRelease()(kernel);
    held_.reset();
    kernel = nullptr;
}

std::span<const double> BaseFilter::KernelTaps(const char* filter, std::size_t count)
{
    AdoptKernel();
    if (kernel == nullptr)
        Refuse(filter, "kernel", "null", "a kernel made by Prepare or assigned by the host");
    if (count > held_->count)
        Refuse(filter, "number of kernel taps", held_->count, "at least " + std::to_string(count) + "; call Prepare");
    return {kernel, count};
}

KernelConvolver& BaseFilter::Convolver()
{
    if (!convolver_)
        convolver_ = std::make_unique<KernelConvolver>();
    return *convolver_;
}

}  // namespace Tarnwick::DSO::SystemFramework
