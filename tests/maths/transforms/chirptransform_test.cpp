#include "maths/transforms/chirptransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
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

std::vector<Complex> RandomBins(std::size_t count)
{
    const auto parts = RandomValues(2 * count, count);
    std::vector<Complex> values;
    for (std::size_t k = 0; k < parts.size(); k += 2)
        values.emplace_back(parts[k], parts[k + 1]);
    return values;
}

// Rounding of a transform grows as eps log2(n) of the root of the energy, here that of n values of at most 1; 8 covers
// the two transforms and three products of a chirp.
double Bound(std::size_t count)
{
    const auto n = static_cast<double>(count);
    return 8.0 * DBL_EPSILON * std::log2(2.0 * n) * std::sqrt(n);
}

TEST(ChirpTransform, AgreesWithTheSumOfTheDefinition)
{
    const struct {
        std::size_t length, inputs;
    } sizes[] = {{1, 1}, {2, 1}, {2, 2}, {3, 2}, {16, 16}, {97, 1}, {97, 49}, {97, 97}, {1016, 1016}, {3001, 1501}};
    for (const auto& [length, inputs] : sizes) {
        SCOPED_TRACE(testing::Message() << inputs << " inputs of " << length);
        std::vector<Complex> values = RandomBins(length);
        std::fill(values.begin() + static_cast<std::ptrdiff_t>(inputs), values.end(), Complex());
        const auto chirp = ChirpTransform::Of(length, inputs);
        ASSERT_GE(chirp->Room(), length + inputs - 1);
        // What stands behind the inputs is of no account.
        AlignedBuffer<Complex> data(chirp->Room());
        std::fill_n(data.Data(), chirp->Room(), Complex(NAN, NAN));
        std::copy_n(values.begin(), inputs, data.Data());
        chirp->Forward(data.Data());
        EXPECT_TRUE(AreNear(std::span(data.Data(), length), DirectDft(values), Bound(length)));
    }
}

TEST(HermitianBins, OfLongOddCountsAreTransformedAsAnyBins)
{
    for (const std::size_t count : {65537U, 65541U, 131055U}) {
        const std::vector<Complex> half = RandomBins(count / 2 + 1);
        HermitianBins bins(count);
        AlignedBuffer<Complex> same(count);
        for (std::size_t k = 0; k < half.size(); ++k) {
            // Only what is real of the first bin belongs to a real impulse response.
            bins.Set(k, half[k]);
            same.Data()[k] = half[k];
            if (k > 0)
                same.Data()[count - k] = std::conj(half[k]);
        }
        ComplexTransform::Of(count)->Inverse(same.Data());
        std::vector<double> expected;
        for (std::size_t n = 0; n < count; ++n)
            expected.push_back(same.Data()[n].real() / static_cast<double>(count));
        EXPECT_TRUE(AreNear(bins.Inverse(), expected, Bound(count) / static_cast<double>(count))) << count;
    }
}

}  // namespace
