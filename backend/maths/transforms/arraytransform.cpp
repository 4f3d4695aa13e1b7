#include "maths/transforms/arraytransform.h"

#include <algorithm>

namespace Tarnwick::DSO::Maths {

namespace {

void Run(std::span<Complex> values, double divisor, void (ComplexTransform::*transform)(Complex*) const)
{
    if (values.empty())
        return;
    AlignedBuffer<Complex> buffer(values.size());
    std::copy(values.begin(), values.end(), buffer.Data());
    ((*ComplexTransform::Of(values.size())).*transform)(buffer.Data());
    std::transform(buffer.Data(), buffer.Data() + values.size(), values.begin(),
                   [divisor](Complex value) { return value / divisor; });
}

}  // namespace

void ForwardTransform(std::span<Complex> values)
{
    Run(values, 1.0, &ComplexTransform::Forward);
}

void InverseTransform(std::span<Complex> values, Scaling scaling)
{
    Run(values, scaling == Scaling::ByLength ? static_cast<double>(values.size()) : 1.0, &ComplexTransform::Inverse);
}

}  // namespace Tarnwick::DSO::Maths
