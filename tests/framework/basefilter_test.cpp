// Who owns the kernel. The assertions look at pointers and values; releases are what the sanitizer build looks at: each
// test leaves nothing allocated and touches nothing released.
#include "framework/basefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "framework/plumbing/kernelconvolver.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using Tarnwick::Testing::ExpectRefused;

class Probe : public BaseFilter {
public:
    Probe() = default;
    explicit Probe(double tap) { Set(tap); }
    double* Apply(SignalData*) override { return nullptr; }
    void Set(double tap) { SetKernel(std::vector<double>{tap, tap, tap}); }
    using BaseFilter::Convolver;
    using BaseFilter::KernelTaps;
};

double* HostArray(double value)
{
    auto* array = static_cast<double*>(::operator new(3 * sizeof(double)));
    std::fill(array, array + 3, value);
    return array;
}

TEST(BaseFilterCopies, CarryParametersAndFlags)
{
    BaseFilterParameters parameters;
    Probe filter;
    filter.parameters = &parameters;
    filter.notPrepared = filter.flag4 = true;
    const Probe copy(filter);
    Probe assigned;
    assigned = filter;
    for (const Probe* other : {&copy, &std::as_const(assigned)}) {
        EXPECT_EQ(other->parameters, &parameters);
        EXPECT_TRUE(other->notPrepared && other->flag4);
        EXPECT_FALSE(other->flag2 || other->flag3);
    }
}

// An array that a host assigns belongs to the filter from then on, whatever happens next.
TEST(BaseFilterKernel, OfTheHostIsOwnedAndShared)
{
    Probe destroyed(1.0);
    destroyed.kernel = HostArray(2.0);  // the old one has no holder left
    EXPECT_EQ(destroyed.KernelTaps("Probe", 3)[2], 2.0);
    Probe neverAsked;
    neverAsked.kernel = HostArray(1.0);

    Probe source;
    source.kernel = HostArray(3.0);
    const Probe copy(source);
    source.kernel = HostArray(9.0);
    Probe assigned;
    assigned.kernel = HostArray(6.0);
    assigned = source;  // releases the array that was put into the target
    const Probe& same = assigned;
    assigned = same;
    source.Set(5.0);
    EXPECT_EQ(copy.kernel[0], 3.0);
    EXPECT_EQ(assigned.kernel[0], 9.0);
}

TEST(BaseFilterKernel, IsRefusedWhenShorterThanAskedForOrSetToNull)
{
    Probe filter(1.0);
    const Probe copy(filter);
    EXPECT_EQ(filter.KernelTaps("Probe", 3).size(), 3U);
    ExpectRefused([&] { filter.KernelTaps("Probe", 4); },
                  "Probe: number of kernel taps is 3; expected at least 4; call Prepare");
    filter.kernel = nullptr;
    ExpectRefused([&] { filter.KernelTaps("Probe", 1); },
                  "Probe: kernel is null; expected a kernel made by Prepare or assigned by the host");
    EXPECT_EQ(copy.kernel[0], 1.0);
}

// What is kept for speed follows the taps, also where a host writes into them or a copy shares them.
TEST(BaseFilterConvolver, FollowsTheContentOfTheKernel)
{
    const std::vector<double> samples{1.0, 2.0, 4.0};
    Probe filter;
    filter.kernel = HostArray(0.0);
    const auto convolved = [&](Probe& through) {
        std::vector<double> result(3);
        through.Convolver().Prepare(through.KernelTaps("Probe", 3), 3);
        through.Convolver().Convolve(samples, result);
        return result;
    };
    filter.kernel[0] = 1.0;
    EXPECT_EQ(convolved(filter), samples);
    Probe copy(filter);
    filter.kernel[0] = 2.0;
    for (Probe* each : {&filter, &copy})
        EXPECT_EQ(convolved(*each), (std::vector<double>{2.0, 4.0, 8.0}));
}

}  // namespace
