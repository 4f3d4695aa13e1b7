#include "maths/convolution/circularconvolver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>
#include <vector>

#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;
using Values = std::vector<double>;
using Method = ConvolutionMethod;

Values Convolved(const CircularConvolver& convolver, std::span<const double> samples)
{
    Values result(samples.size(), kNan);
    ConvolutionWork work;
    convolver.Convolve(samples, result, work);
    return result;
}

Values Dense(std::size_t count)
{
    return RandomValues(count, 1000 + count);
}

Values Comb(std::size_t count, std::size_t spacing)
{
    const Values taps = Dense(count);
    Values comb((count - 1) * spacing + 1, 0.0);
    for (std::size_t t = 0; t < count; ++t)
        comb[t * spacing] = taps[t];
    return comb;
}

// `width` equal taps from lag `first` on, wrapped into the period.
Values Boxcar(std::size_t period, std::ptrdiff_t first, std::size_t width, double value)
{
    Values taps(period, 0.0);
    for (std::size_t m = 0; m < width; ++m)
        taps[(period + static_cast<std::size_t>(first + static_cast<std::ptrdiff_t>(period + m))) % period] = value;
    return taps;
}

// The documented bound, 4 eps log2(n) max|x| sum|h|. n is the longer of period and kernel, since longer kernels are
// folded, and at least 2, so that one rounding is allowed.
double Bound(const Values& samples, const Values& taps)
{
    double peak = 0.0;
    for (const double sample : samples)
        peak = std::max(peak, std::abs(sample));
    double sum = 0.0;
    for (const double tap : taps)
        sum += std::abs(tap);
    const auto n = static_cast<double>(std::max({samples.size(), taps.size(), std::size_t{2}}));
    return 4.0 * DBL_EPSILON * std::log2(n) * peak * sum;
}

// Against the direct sum: everywhere in small problems, at 150 places from the first to the last in large ones.
void ExpectAgreement(const Values& samples, const Values& taps, const Values& result)
{
    ASSERT_EQ(result.size(), samples.size());
    constexpr std::size_t kSmall = 1000000;
    const std::size_t places = samples.size() * taps.size() <= kSmall ? samples.size() : 150;
    const double bound = Bound(samples, taps);
    for (std::size_t p = 0; p < places; ++p) {
        const std::size_t k = p == 0 ? 0 : p * (samples.size() - 1) / (places - 1);
        EXPECT_NEAR(result[k], DirectConvolutionAt(samples, taps, k), bound) << "value " << k;
    }
}

// Both sides of every threshold between methods.
struct MethodCase {
    const char* label;
    std::size_t period;
    Values taps;
    Method method;
};

std::vector<MethodCase> MethodCases()
{
    return {{"no taps", 8, {}, Method::Zero},
            {"taps that cancel when folded", 2, {0.5, 0.0, -0.5}, Method::Zero},
            {"identity", 8191, {1.0}, Method::Direct},
            {"two equal neighbours", 8191, {0.5, 0.5}, Method::Boxcar},
            {"two equal taps apart", 8191, {0.5, 0.0, 0.5}, Method::Direct},
            {"equal taps round the wrap", 9, {0.2, 0.2, 0, 0, 0, 0, 0, 0.2, 0.2}, Method::Boxcar},
            {"equal taps, all of the period", 5, Values(5, 0.2), Method::Boxcar},
            {"a taller tap in the box", 64, {0.2, 0.2, 0.3, 0.2}, Method::Direct},
            {"32 taps", 8192, Dense(32), Method::Direct},
            {"33 taps", 8192, Dense(33), Method::Blocks},
            {"32 taps, all of the period", 32, Dense(32), Method::Direct},
            {"33 taps, all of the period", 33, Dense(33), Method::Padded},
            {"32 taps 16 apart", 131056, Comb(32, 16), Method::Direct},
            {"an eighth of a smooth period", 8192, Dense(1024), Method::Blocks},
            {"one tap more", 8192, Dense(1025), Method::Padded},
            {"an eighth of a prime period", 10007, Dense(1250), Method::Blocks},
            {"one tap more, prime", 10007, Dense(1251), Method::Padded},
            {"blocks longer than the shortest", 16400, Dense(2049), Method::Blocks},
            {"block as long as the period", 4096, Dense(40), Method::Padded},
            {"block shorter than the period", 4097, Dense(40), Method::Blocks},
            {"smooth", 10000, Dense(10000), Method::Padded},
            {"smooth but odd", 6561, Dense(6561), Method::Padded},
            {"half the period", 131056, Dense(65528), Method::Split},
            {"longest padded that could be split", 65534, Dense(65533), Method::Padded},
            {"smooth at the threshold", 65536, Dense(65535), Method::Padded},
            {"just above the threshold", 65538, Dense(65537), Method::Split},
            {"above it, no power of two divides it", 65537, Dense(65536), Method::Padded},
            {"longest of two rows", 131070, Dense(131069), Method::Split},
            {"too long for two rows, and four do not divide it", 131074, Dense(131073), Method::Padded},
            {"more than four rows", 262112, Dense(262111), Method::Split}};
}

TEST(CircularConvolver, AgreesWithTheDirectSumInTheMethodOfItsKernelAndPeriod)
{
    for (const auto& [label, period, taps, method] : MethodCases()) {
        SCOPED_TRACE(label);
        const CircularConvolver convolver(taps, period);
        EXPECT_EQ(static_cast<int>(convolver.Method()), static_cast<int>(method));
        const Values samples = RandomValues(period, period);
        ExpectAgreement(samples, taps, Convolved(convolver, samples));
    }
}

// 2047 and 2049 are both sides of the longest single row of a padded transform.
TEST(CircularConvolver, AgreesWithTheDirectSumAtAwkwardLengths)
{
    for (const std::size_t period :
         {1U, 2U, 3U, 5U, 7U, 127U, 1009U, 1016U, 2047U, 2049U, 4088U, 8191U, 8192U, 10000U}) {
        const Values samples = RandomValues(period, period);
        for (const std::size_t tapCount : {std::size_t{0}, std::size_t{1}, std::size_t{2}, period / 8, period / 2,
                                           period - 1, period, period + 1, 2 * period + 3}) {
            SCOPED_TRACE(std::to_string(period) + " samples, " + std::to_string(tapCount) + " taps");
            const Values taps = Dense(tapCount);
            ExpectAgreement(samples, taps, Convolved(CircularConvolver(taps, period), samples));
        }
    }
}

TEST(CircularConvolver, ShiftsExactly)
{
    Values samples = RandomValues(1016, 1);
    const Values shifted = Convolved(CircularConvolver(Values{0.0, 0.0, 1.0}, samples.size()), samples);
    std::rotate(samples.begin(), samples.end() - 2, samples.end());
    EXPECT_EQ(shifted, samples);
}

// From a convolver made again, with used buffers, at any 8-byte offset of either array and with NaN on both sides of the
// samples. Nothing is written outside the result.
TEST(CircularConvolver, GivesTheSameBitsWhereverAndWheneverItRuns)
{
    for (const auto& [label, period, taps, method] : MethodCases()) {
        SCOPED_TRACE(label);
        const Values samples = RandomValues(period, 2 * period);
        const CircularConvolver convolver(taps, period);
        const Values expected = Convolved(convolver, samples);
        EXPECT_TRUE(HaveSameBits(Convolved(CircularConvolver(taps, period), samples), expected));

        ConvolutionWork work;
        constexpr double kGuard = 12345.0;
        for (const std::size_t offset : {1U, 2U, 3U}) {
            Values input(period + 4, kNan);
            Values output(period + 8, kGuard);
            std::copy(samples.begin(), samples.end(), input.begin() + static_cast<std::ptrdiff_t>(offset));
            const std::span<double> result = std::span(output).subspan(2 * offset, period);
            convolver.Convolve(std::span<const double>(input).subspan(offset, period), result, work);
            EXPECT_TRUE(HaveSameBits(result, expected)) << "offset " << offset;
            EXPECT_EQ(std::count(output.begin(), output.end(), kGuard), 8) << "offset " << offset;
        }
    }
}

// A mean of equal samples is that sample to the last bit at every width; a product with 1/w fails at w = 49. The samples
// have so few bits that their sums are exact.
TEST(CircularConvolverBoxcar, KeepsAConstantExactly)
{
    constexpr std::size_t kPeriod = 2500;  // two blocks and a part
    const Values constant = Constant(1234.0625, kPeriod);
    for (std::size_t width = 3; width <= 201; width += 2) {
        const Values taps =
            Boxcar(kPeriod, -static_cast<std::ptrdiff_t>(width / 2), width, 1.0 / static_cast<double>(width));
        ASSERT_EQ(Convolved(CircularConvolver(taps, kPeriod), constant), constant) << width << " taps";
    }
}

TEST(CircularConvolverBoxcar, AgreesWithTheDirectSum)
{
    for (const std::size_t period : {64U, 1009U, 3000U}) {
        const Values samples = RandomValues(period, period);
        for (const std::size_t width : {2U, 3U, 8U, 31U, 33U, 63U})
            for (const std::ptrdiff_t first : {-40, -1, 0, 5, 60}) {
                SCOPED_TRACE(std::to_string(width) + " taps from lag " + std::to_string(first));
                const Values taps = Boxcar(period, first, width, 0.3);
                const CircularConvolver convolver(taps, period);
                EXPECT_EQ(convolver.Method(), Method::Boxcar);
                ExpectAgreement(samples, taps, Convolved(convolver, samples));
            }
    }
}

// A NaN reaches as far as the taps and no further; a running sum would carry it to the end of the record.
TEST(CircularConvolverNan, ReachesAsFarAsTheTaps)
{
    constexpr std::size_t kPeriod = 3000;
    for (const Values& taps : {Boxcar(kPeriod, -15, 31, 1.0 / 31), Boxcar(kPeriod, 0, 16, 1.0 / 31), Comb(5, 16)})
        for (const std::size_t at : {0U, 1023U, 2999U}) {
            SCOPED_TRACE(std::to_string(taps.size()) + " taps, NaN at " + std::to_string(at));
            Values samples = RandomValues(kPeriod, 5);
            samples[at] = kNan;
            const Values result = Convolved(CircularConvolver(taps, kPeriod), samples);
            for (std::size_t k = 0; k < kPeriod; ++k) {
                const std::size_t lag = (k + kPeriod - at) % kPeriod;
                ASSERT_EQ(std::isnan(result[k]), lag < taps.size() && taps[lag] != 0.0) << "value " << k;
            }
        }
}

}  // namespace
