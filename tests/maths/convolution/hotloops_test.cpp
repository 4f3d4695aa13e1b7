#include "maths/convolution/hotloops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "maths/convolution/ringtransform.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::Maths;
using namespace Tarnwick::Testing;
using Values = std::vector<double>;
using ComplexValues = std::vector<Complex>;

constexpr double kGuard = 12345.0;

// The loops of each target against their definitions, in lengths that end anywhere in a pack or a line of the loops.
class HotLoopsOf : public testing::TestWithParam<LoopTarget> {
protected:
    void SetUp() override
    {
        loops_ = LoopsFor(GetParam());
        if (loops_ == nullptr)
            GTEST_SKIP() << "not in this build or not for this processor";
    }
    const HotLoops* loops_ = nullptr;
};

TEST_P(HotLoopsOf, SumTaps)
{
    constexpr std::size_t kReach = 20;
    for (std::size_t tapCount = 1; tapCount <= 9; ++tapCount)
        for (const std::size_t count : {1U, 3U, 8U, 1023U, 1029U}) {
            SCOPED_TRACE(testing::Message() << tapCount << " taps, " << count << " values");
            const Values samples = RandomValues(kReach + count + kReach, count);
            const Values values = RandomValues(tapCount, tapCount);
            std::vector<Tap> taps;
            for (std::size_t t = 0; t < tapCount; ++t)
                taps.push_back({static_cast<std::ptrdiff_t>(7 * t % (2 * kReach)) - 18, values[t]});
            Values expected(count + 1, kGuard);
            for (std::size_t i = 0; i < count; ++i) {
                long double sum = 0.0L;
                for (const Tap& tap : taps)
                    sum +=
                        static_cast<long double>(tap.value) * samples[kReach + i - static_cast<std::size_t>(tap.lag)];
                expected[i] = static_cast<double>(sum);
            }
            Values result(count + 1, kGuard);
            loops_->sumTaps(samples.data() + kReach, taps.data(), tapCount, result.data(), count);
            // Two roundings a tap, of sums below the number of taps.
            const auto n = static_cast<double>(tapCount);
            EXPECT_TRUE(AreNear(result, expected, n * n * DBL_EPSILON));
        }
}

TEST_P(HotLoopsOf, SumWindow)
{
    for (const std::size_t width : {1U, 2U, 3U, 7U, 8U, 31U, 100U})
        for (const std::size_t count : {1U, 6U, 50U})
            for (const double divisor : {0.0, 7.0}) {
                SCOPED_TRACE(testing::Message() << width << " wide, " << count << " values, divisor " << divisor);
                constexpr double kFactor = 0.3;
                const Values samples = RandomValues(count + width - 1, width);
                Values expected(count + 1, kGuard);
                for (std::size_t i = 0; i < count; ++i) {
                    long double sum = 0.0L;
                    for (std::size_t m = 0; m < width; ++m)
                        sum += samples[i + m];
                    expected[i] = static_cast<double>(divisor == 0.0 ? sum * kFactor : sum / divisor);
                }
                Values result(count + 1, kGuard);
                Values scratch(2 * (count + width));
                loops_->sumWindow(samples.data(), width, divisor, kFactor, result.data(), count, scratch.data());
                // 2 eps of the sum of |x|, which is at most the width, times the factor.
                EXPECT_TRUE(AreNear(result, expected, 2.0 * kFactor * static_cast<double>(width) * DBL_EPSILON));
            }
}

TEST_P(HotLoopsOf, SamplesBetweenSamples)
{
    constexpr std::size_t kTaps = 24;
    constexpr std::size_t kPhases = 5;
    const Values rows = RandomValues((kPhases + 1) * kTaps, 1);
    const Values samples = RandomValues(100, 2);
    const Values positions = {11.0, 11.1, 30.75, 50.9999, 40.4, 87.0};
    Values expected(positions.size() + 1, kGuard);
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const auto whole = static_cast<std::size_t>(positions[i]);
        const long double place = (positions[i] - static_cast<double>(whole)) * static_cast<double>(kPhases);
        const auto row = static_cast<std::size_t>(place);
        const long double fraction = place - static_cast<long double>(row);
        long double sum = 0.0L;
        for (std::size_t j = 0; j < kTaps; ++j)
            sum += samples[whole + 1 + j - kTaps / 2] *
                   ((1.0L - fraction) * rows[row * kTaps + j] + fraction * rows[(row + 1) * kTaps + j]);
        expected[i] = static_cast<double>(sum);
    }
    Values result(positions.size() + 1, kGuard);
    loops_->interpolate({rows.data(), kTaps, kPhases}, samples.data(), positions.data(), result.data(),
                        positions.size());
    // Two roundings a tap, of sums below the number of taps.
    EXPECT_TRUE(AreNear(result, expected, kTaps * kTaps * DBL_EPSILON));
}

TEST_P(HotLoopsOf, PhasesOfManyPositions)
{
    constexpr std::size_t kSamples = 21;
    constexpr std::size_t kPhases = 16;
    constexpr std::size_t kStride = 5;
    const std::vector<std::size_t> used = {2, 19, 20, 21};  // the others' weights are never read
    Values weights = RandomValues(kPhases * kSamples, 1);
    for (const std::size_t count : {1U, 7U, 8U, 21U}) {
        SCOPED_TRACE(testing::Message() << count << " positions");
        const Values samples = RandomValues(kSamples + (count - 1) * kStride, count);
        Values expected(count * kPhases + 1, kGuard);
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t p = 0; p < kPhases; ++p) {
                long double sum = 0.0L;
                for (std::size_t k = used[p / 8 * 2]; k < used[p / 8 * 2 + 1]; ++k)
                    sum += static_cast<long double>(weights[(p / 8 * kSamples + k) * 8 + p % 8]) *
                           samples[i * kStride + k];
                expected[i * kPhases + p] = static_cast<double>(sum);
            }
        Values result(count * kPhases + 1, kGuard);
        loops_->readPhases({weights.data(), kSamples, kPhases, used.data()}, samples.data(), kStride, count,
                           result.data());
        // Two roundings a sample, of sums below the number of samples.
        EXPECT_TRUE(AreNear(result, expected, kSamples * kSamples * DBL_EPSILON));
        // Phase by phase they are the same.
        std::vector<Values> apart(kPhases, Values(count + 1, kGuard));
        std::vector<double*> to;
        for (Values& phase : apart)
            to.push_back(phase.data());
        loops_->readPhasesApart({weights.data(), kSamples, kPhases, used.data()}, samples.data(), kStride, count,
                                to.data());
        for (std::size_t p = 0; p < kPhases; ++p) {
            for (std::size_t i = 0; i < count; ++i)
                EXPECT_EQ(apart[p][i], result[i * kPhases + p]) << "position " << i << ", phase " << p;
            EXPECT_EQ(apart[p][count], kGuard) << p;
        }
    }
}

// A UI is beyond where the value at some phase reaches a limit, and all are where a sample is too large for the screen.
TEST_P(HotLoopsOf, PhasesBeyondLimits)
{
    constexpr std::size_t kPhases = 32;
    constexpr std::size_t kSamples = 11;
    constexpr std::size_t kStride = 3;
    constexpr std::size_t kCount = 19;
    const Values inDouble = RandomValues(kSamples * kPhases, 1);
    const std::vector<float> weights(inDouble.begin(), inDouble.end());
    const std::size_t used[] = {0, kSamples, 2, 9};
    Values samples = RandomValues((kCount - 1) * kStride + kSamples, 2);
    // A narrow bank that tells nothing, one that tells all, and one that leaves some to the wide one.
    const auto screenOf = [&](float narrowMargin) {
        const ScreenBank wide{weights.data(), kSamples, used, 0.0F, 0.0F};
        return PhaseScreen{{weights.data(), kSamples, used, narrowMargin, 0.0F}, wide, kPhases, 0.25, 0.75};
    };
    const PhaseScreen screens[] = {screenOf(1.0F), screenOf(0.0F), screenOf(0.15F)};
    const auto valueAt = [&](std::size_t i, std::size_t p) {
        double sum = 0.0;
        for (std::size_t k = used[2 * (p / 16)]; k < used[2 * (p / 16) + 1]; ++k)
            sum += static_cast<double>(weights[(p / 16 * kSamples + k) * 16 + p % 16]) * 0.75 *
                   (samples[i * kStride + k] - 0.25);
        return sum;
    };
    constexpr double kNear = 1e-5;  // more than 22 roundings in single precision of sums below 11
    for (std::size_t p = 0; p < kPhases; ++p)
        for (const double side : {-1.0, 1.0}) {
            std::vector<float> limits(2 * kPhases, 1e3F);
            std::fill_n(limits.begin(), kPhases, -1e3F);
            // At this phase half of the UI have their limit just within their value, the others just beyond it.
            std::vector<std::vector<float>> ofUi(kCount, limits);
            std::vector<const float*> pointers;
            for (std::size_t i = 0; i < kCount; ++i) {
                const double reached = valueAt(i, p) - side * (i % 2 == 0 ? kNear : -kNear);
                ofUi[i][side > 0.0 ? kPhases + p : p] = static_cast<float>(reached);
                pointers.push_back(ofUi[i].data());
            }
            std::vector<float> scaled(samples.size());
            std::vector<unsigned char> beyond(kCount + 1, 9);
            for (const PhaseScreen& screen : screens) {
                loops_->screenPhases(screen, samples.data(), kStride, kCount, pointers.data(), scaled.data(),
                                     beyond.data());
                for (std::size_t i = 0; i < kCount; ++i)
                    EXPECT_EQ(beyond[i], i % 2 == 0 ? 1 : 0)
                        << i << " at " << p << ", narrow margin " << screen.narrow.margin;
                EXPECT_EQ(beyond[kCount], 9);
            }
            if (p > 0)
                continue;
            for (const std::size_t large : {std::size_t{0}, samples.size() - 1}) {
                const double kept = std::exchange(samples[large], side * 1e300);
                loops_->screenPhases(screens[1], samples.data(), kStride, kCount, pointers.data(), scaled.data(),
                                     beyond.data());
                samples[large] = kept;
                EXPECT_EQ(std::count(beyond.begin(), beyond.end(), 1), static_cast<std::ptrdiff_t>(kCount));
            }
        }
}

// The mean of a sample's neighbours stands for it to half of the second difference, whichever of them is the larger.
TEST_P(HotLoopsOf, BendsWidenTheReachOfANarrowBank)
{
    constexpr std::size_t kPhases = 16;
    constexpr std::size_t kSamples = 3;
    constexpr std::size_t kCount = 43;
    std::vector<float> itself(kSamples * kPhases, 0.0F);
    std::vector<float> neighbours(kSamples * kPhases, 0.0F);
    itself[kPhases] = 1.0F;
    neighbours[0] = neighbours[2 * kPhases] = 0.5F;
    const std::size_t used[] = {0, kSamples};
    Values samples(kCount + kSamples - 1);
    for (std::size_t k = 0; k < samples.size(); ++k)
        samples[k] = 0.5 * std::sin(0.7 * static_cast<double>(k));
    std::vector<std::vector<float>> limits(kCount, std::vector<float>(2 * kPhases, 1e3F));
    std::vector<const float*> pointers;
    for (std::size_t i = 0; i < kCount; ++i) {
        std::fill_n(limits[i].begin(), kPhases, -1e3F);
        // Every third value lies just beyond its limit.
        limits[i][kPhases] = static_cast<float>(samples[i + 1] + (i % 3 == 0 ? -1e-5 : 1e-5));
        pointers.push_back(limits[i].data());
    }
    for (const float perBend : {0.5F, 0.0F}) {
        const PhaseScreen screen{{neighbours.data(), kSamples, used, 1e-6F, perBend},
                                 {itself.data(), kSamples, used, 0.0F, 0.0F},
                                 kPhases,
                                 0.0,
                                 1.0};
        std::vector<float> scaled(samples.size());
        std::vector<unsigned char> beyond(kCount);
        loops_->screenPhases(screen, samples.data(), 1, kCount, pointers.data(), scaled.data(), beyond.data());
        std::size_t missed = 0;
        for (std::size_t i = 0; i < kCount; ++i) {
            missed += i % 3 == 0 && beyond[i] == 0 ? 1 : 0;
            EXPECT_TRUE(i % 3 == 0 || beyond[i] == 0) << i;
        }
        EXPECT_EQ(missed > 0, perBend == 0.0F);
    }
}

TEST_P(HotLoopsOf, SumsOfStretches)
{
    for (const std::size_t width : {1U, 7U, 8U, 21U}) {
        const Values samples = RandomValues(60, 3);
        const double* const stretches[] = {samples.data(), samples.data() + 5, samples.data() + 30};
        Values sum(width + 1, kGuard);
        std::fill_n(sum.begin(), width, 0.5);
        loops_->addStretches(stretches, 3, width, sum.data());
        for (std::size_t k = 0; k < width; ++k)
            EXPECT_NEAR(sum[k], 0.5 + samples[k] + samples[k + 5] + samples[k + 30], 4 * DBL_EPSILON * 4.0);
        EXPECT_EQ(sum[width], kGuard);
    }
}

TEST_P(HotLoopsOf, ProductsOfValues)
{
    for (std::size_t count = 1; count <= 17; ++count) {
        SCOPED_TRACE(testing::Message() << count << " values");
        const ComplexValues a = RandomComplex(count, 1);
        const ComplexValues b = RandomComplex(count, 2);
        ComplexValues product;
        for (std::size_t k = 0; k < count; ++k)
            product.push_back(a[k] * b[k]);
        constexpr double kBound = 4.0 * DBL_EPSILON;  // a few roundings of values below 2
        ComplexValues result(count);
        Values real(count + 1, kGuard);
        Values imag(count + 1, kGuard);
        loops_->multiplyToParts(a.data(), b.data(), count, real.data(), imag.data());
        EXPECT_EQ(real.back(), kGuard);
        EXPECT_EQ(imag.back(), kGuard);
        for (std::size_t k = 0; k < count; ++k)
            result[k] = {real[k], imag[k]};
        EXPECT_TRUE(AreNear(result, product, kBound));
        loops_->partsTimes(real.data(), imag.data(), b.data(), count, result.data());
        for (std::size_t k = 0; k < count; ++k)
            product[k] *= b[k];
        EXPECT_TRUE(AreNear(result, product, 4.0 * kBound));
    }
}

constexpr std::size_t kRingLengths[] = {3,   64,  190,  320, 380,
                                        505, 950, 2000, 4100};  // every radix, and one after another

// The value n of a sequence continued in front of its start.
template <typename Value>
Value Extended(const std::vector<Value>& values, std::ptrdiff_t n, Value wrap)
{
    const auto count = static_cast<std::ptrdiff_t>(values.size());
    if (n >= 0)
        return n < count ? values[static_cast<std::size_t>(n)] : Value{};
    return n + count >= 0 ? wrap * values[static_cast<std::size_t>(n + count)] : Value{};
}

// y[k] = sum_j h[j] x[k - j], k = 0 .. count - 1
template <typename Value>
std::vector<Value> Product(const std::vector<Value>& x, const std::vector<Value>& h, Value wrap, std::size_t count)
{
    std::vector<Value> product;
    for (std::size_t k = 0; k < count; ++k) {
        Value sum{};
        for (std::size_t j = 0; j < h.size(); ++j)
            sum += h[j] * Extended(x, static_cast<std::ptrdiff_t>(k) - static_cast<std::ptrdiff_t>(j), wrap);
        product.push_back(sum);
    }
    return product;
}

// As of CircularConvolver, and as much again for the sum by definition: values below 2, as many as the kernel has.
double ProductBound(std::size_t length, std::size_t kernel)
{
    return 8.0 * DBL_EPSILON * std::log2(static_cast<double>(2 * length)) * static_cast<double>(kernel);
}

TEST_P(HotLoopsOf, ProductsInARingOfRealValues)
{
    for (const std::size_t length : kRingLengths)
        for (const double wrap : {1.0, -1.0}) {
            const RingTransform ring(RingTransform::Values::Real, length, *loops_);
            ASSERT_GE(ring.Length(), length);
            const std::size_t taps = length / 3;
            const std::size_t count = ring.Length() - taps + 1;
            const std::size_t gap = taps - 1;
            SCOPED_TRACE(testing::Message() << length << " values, " << ring.Bins() << " bins, wrap " << wrap);
            Values samples = RandomValues(count, 1);
            const Values kernel = RandomValues(taps, 2);
            Values expected = Product(samples, kernel, wrap, count);
            AlignedBuffer<double> spectrum(ring.SpectrumSize());
            ConvolutionWork work;
            ring.TransformKernel({kernel.data(), taps}, 3.0, spectrum.Data(), work);
            for (double& value : expected)
                value *= 3.0;
            expected.push_back(kGuard);
            samples.push_back(kGuard);
            ring.Convolve({samples.data(), count, gap, wrap}, spectrum.Data(), {samples.data(), count, gap}, work);
            EXPECT_TRUE(AreNear(samples, expected, 3.0 * ProductBound(length, taps)));
        }
}

TEST_P(HotLoopsOf, ProductsInARingOfComplexValues)
{
    const Complex wrap(0.6, -0.8);
    for (const std::size_t length : kRingLengths) {
        const RingTransform ring(RingTransform::Values::Complex, length, *loops_);
        ASSERT_GE(ring.Length(), length);
        const std::size_t count = (ring.Length() + 1) / 2;
        const std::size_t gap = count - 1;
        SCOPED_TRACE(testing::Message() << length << " values, " << ring.Bins() << " bins");
        const ComplexValues samples = RandomComplex(count, 1);
        const ComplexValues kernel = RandomComplex(count, 2);
        const auto partsOf = [](const ComplexValues& values) {
            Values parts;
            for (const Complex value : values)
                parts.push_back(value.real());
            for (const Complex value : values)
                parts.push_back(value.imag());
            parts.push_back(kGuard);
            return parts;
        };
        const Values kernelParts = partsOf(kernel);
        Values parts = partsOf(samples);
        AlignedBuffer<double> spectrum(ring.SpectrumSize());
        ConvolutionWork work;
        ring.TransformKernel({kernelParts.data(), kernelParts.data() + count, count}, 1.0, spectrum.Data(), work);
        ring.Convolve({parts.data(), parts.data() + count, count, gap, wrap.real(), wrap.imag()}, spectrum.Data(),
                      {parts.data(), parts.data() + count, count, gap}, work);
        EXPECT_TRUE(AreNear(parts, partsOf(Product(samples, kernel, wrap, count)), 2.0 * ProductBound(length, count)));
    }
}

TEST_P(HotLoopsOf, TransformsInOrder)
{
    for (const std::size_t length : {64U, 128U, 192U, 320U, 960U, 1600U, 4096U}) {
        ASSERT_TRUE(RingTransform::Holds(length, *loops_)) << length;
        const RingTransform ring(RingTransform::Values::Complex, length, *loops_);
        const std::vector<std::size_t> order = ring.BinOrder();
        const ComplexValues samples = RandomComplex(length, 1);
        for (const bool isInverse : {false, true}) {
            ComplexValues result = samples;
            ConvolutionWork work;
            ring.Transform({result.data(), isInverse}, order, {result.data(), isInverse}, work);
            ComplexValues expected = samples;
            const auto conjugate = [&](ComplexValues& values) {
                for (Complex& value : values)
                    value = isInverse ? std::conj(value) : value;
            };
            conjugate(expected);
            expected = DirectDft(expected);
            conjugate(expected);
            EXPECT_TRUE(AreNear(result, expected, TransformBound(samples))) << length << ", inverse " << isInverse;
        }
    }
    EXPECT_FALSE(RingTransform::Holds(97, *loops_));
}

TEST_P(HotLoopsOf, ColumnsSplitAndJoined)
{
    for (std::size_t q = 2; q <= kMostRows; q *= 2)
        for (const std::size_t r : {1U, 4U, 7U, 8U, 21U}) {
            SCOPED_TRACE(testing::Message() << q << " rows of " << r);
            Values samples = RandomValues(q * r, q + r);
            Values first(r + 1, kGuard);
            Values middle(r + 1, kGuard);
            Values inner((q - 2) * r + 1, kGuard);
            const SplitRows rows{first.data(), middle.data(), inner.data()};
            loops_->splitColumns(samples.data(), q, r, rows);
            EXPECT_EQ(first.back(), kGuard);
            EXPECT_EQ(middle.back(), kGuard);
            EXPECT_EQ(inner.back(), kGuard);
            for (std::size_t c = 0; c < r; ++c) {
                ComplexValues column;
                for (std::size_t t = 0; t < q; ++t)
                    column.emplace_back(samples[t * r + c]);
                ComplexValues bins{first[c]};
                for (std::size_t k = 1; k < q / 2; ++k)
                    bins.emplace_back(inner[2 * (k - 1) * r + c], inner[(2 * k - 1) * r + c]);
                bins.emplace_back(middle[c]);
                ComplexValues expected = DirectDft(column);
                expected.resize(q / 2 + 1);
                EXPECT_TRUE(AreNear(bins, expected, TransformBound(column))) << "column " << c;
            }
            Values result(q * r + 1, kGuard);
            loops_->joinColumns(rows, q, r, result.data());
            for (double& sample : samples)
                sample *= static_cast<double>(q);
            samples.push_back(kGuard);
            const auto n = static_cast<double>(q);
            EXPECT_TRUE(AreNear(result, samples, 8.0 * DBL_EPSILON * std::log2(2.0 * n) * n));
        }
}

INSTANTIATE_TEST_SUITE_P(Targets, HotLoopsOf, testing::Values(LoopTarget::Plain, LoopTarget::Avx2, LoopTarget::Avx512),
                         [](const testing::TestParamInfo<LoopTarget>& target) -> std::string {
                             switch (target.param) {
                                 case LoopTarget::Avx2: return "Avx2";
                                 case LoopTarget::Avx512: return "Avx512";
                                 default: return "Plain";
                             }
                         });

}  // namespace
