#include "maths/transforms/chirptransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "maths/transforms/spectrum.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;

TEST(ChirpTransform, AgreesWithTheSumOfTheDefinition)
{
    const struct {
        std::size_t length, inputs;
    } sizes[] = {{1, 1}, {2, 1}, {2, 2}, {3, 2}, {16, 16}, {97, 1}, {97, 49}, {97, 97}, {1016, 1016}, {3001, 1501}};
    for (const auto& [length, inputs] : sizes) {
        SCOPED_TRACE(testing::Message() << inputs << " inputs of " << length);
        std::vector<Complex> values = RandomComplex(length, length);
        std::fill(values.begin() + static_cast<std::ptrdiff_t>(inputs), values.end(), Complex());
        const auto chirp = ChirpTransform::Of(length, inputs);
        // What is beyond the inputs must not matter.
        AlignedBuffer<Complex> data(length);
        std::fill_n(data.Data(), length, Complex(NAN, NAN));
        std::copy_n(values.begin(), inputs, data.Data());
        chirp->Forward(data.Data());
        EXPECT_TRUE(AreNear(std::span(data.Data(), length), DirectDft(values), TransformBound(values)));
    }
}

// Odd counts go through a chirp, but for those of small factors.
TEST(HermitianBins, AgreeWithTheComplexTransform)
{
    for (const std::size_t count : {625U, 1015U, 1016U, 65537U, 131055U}) {
        const std::vector<Complex> half = RandomComplex(count / 2 + 1, count / 2 + 1);
        HermitianBins bins(count);
        AlignedBuffer<Complex> same(count);
        for (std::size_t k = 0; k < half.size(); ++k) {
            // The first bin's imaginary part belongs to no real impulse response and must drop out.
            bins.Set(k, half[k]);
            same.Data()[k] = half[k];
            if (k > 0)
                same.Data()[count - k] = std::conj(half[k]);
        }
        const double bound = TransformBound(std::span(same.Data(), count)) / static_cast<double>(count);
        ComplexTransform::Of(count)->Inverse(same.Data());
        std::vector<double> expected;
        for (std::size_t n = 0; n < count; ++n)
            expected.push_back(same.Data()[n].real() / static_cast<double>(count));
        EXPECT_TRUE(AreNear(bins.Inverse(), expected, bound)) << count;
    }
}

}  // namespace
