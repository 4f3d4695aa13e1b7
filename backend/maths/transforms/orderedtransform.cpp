#include "maths/transforms/orderedtransform.h"

#include "maths/transforms/lifetimes.h"

namespace Tarnwick::DSO::Maths {

std::shared_ptr<const OrderedTransform> OrderedTransform::For(std::size_t length)
{
    return RingTransform::Holds(length) ? std::make_shared<OrderedTransform>(length) : nullptr;
}

OrderedTransform::OrderedTransform(std::size_t length)
    : ring_(RingTransform::Values::Complex, length), order_(ring_.BinOrder())
{
}

void OrderedTransform::Forward(Complex* data) const
{
    ring_.Transform({data, false}, order_, {data, false}, OfThisThread<ConvolutionWork>());
}

void OrderedTransform::Inverse(Complex* data) const
{
    ring_.Transform({data, true}, order_, {data, true}, OfThisThread<ConvolutionWork>());
}

}  // namespace Tarnwick::DSO::Maths
