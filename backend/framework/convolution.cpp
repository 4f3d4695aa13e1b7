#include "framework/convolution.h"

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/convolution/circularconvolver.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

std::span<const double> Checked(const char* field, const char* countField, const double* values, int count)
{
    if (count < 0)
        Refuse("Convolution::CircularConv", countField, count, "0 or more values");
    if (values == nullptr && count > 0)
        Refuse("Convolution::CircularConv", field, "null", "an array of values");
    return {values, static_cast<std::size_t>(count)};
}

}  // namespace

double* Convolution::CircularConv(const double* x, int n, const double* h, int m)
{
    const auto samples = Checked("x", "n", x, n);
    const auto taps = Checked("h", "m", h, m);
    OwnedArray result = NewArray(samples.size());
    if (!samples.empty()) {
        const Maths::CircularConvolver convolver(taps, samples.size());
        Maths::ConvolutionWork work;
        convolver.Convolve(samples, {result.get(), samples.size()}, work);
    }
    return result.release();
}

}  // namespace Tarnwick::DSO::SystemFramework
