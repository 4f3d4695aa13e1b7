#include "maths/transforms/orderedtransform.h"

#include "maths/transforms/lifetimes.h"

namespace Tarnwick::DSO::Maths {

namespace {

// [values] A thread keeps its work for the next transform, but not a MiB and more that it may never need again.
constexpr std::size_t kLongestKept = 32768;

}  // namespace

std::shared_ptr<const OrderedTransform> OrderedTransform::For(std::size_t length)
{
    return RingTransform::Holds(length) ? std::make_shared<OrderedTransform>(length) : nullptr;
}

OrderedTransform::OrderedTransform(std::size_t length)
    : ring_(RingTransform::Values::Complex, length), keepsWork_(length <= kLongestKept), order_(ring_.BinOrder())
{
}

void OrderedTransform::Forward(Complex* data) const
{
    Transform(data, false);
}

void OrderedTransform::Inverse(Complex* data) const
{
    Transform(data, true);
}

void OrderedTransform::Transform(Complex* data, bool isInverse) const
{
    if (keepsWork_) {
        ring_.Transform({data, isInverse}, order_, {data, isInverse}, OfThisThread<ConvolutionWork>());
    } else {
        ConvolutionWork work;
        ring_.Transform({data, isInverse}, order_, {data, isInverse}, work);
    }
}

}  // namespace Tarnwick::DSO::Maths
