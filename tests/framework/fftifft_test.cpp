#include "framework/fftifft.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <thread>
#include <vector>

#include "maths/transforms/fft.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

namespace Maths = Tarnwick::DSO::Maths;
using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

bool IsNotOne(Complex bin)
{
    return std::abs(bin - 1.0) > 100 * DBL_EPSILON;  // a chirp transform adds its own rounding
}

std::vector<Complex> Transformed(std::vector<Complex> values, bool forward, bool normalise = false)
{
    FFTIFFT& fft = FFTIFFT_Factory::GetInstance();
    const int count = static_cast<int>(values.size());
    forward ? fft.FFT(values.data(), count) : fft.IFFT(values.data(), count, normalise);
    return values;
}

TEST(FFTIFFT, AgreesWithTheSumOfTheDefinition)
{
    std::vector<std::size_t> lengths{97, 1009, 1016};
    for (std::size_t length = 1; length <= 40; ++length)
        lengths.push_back(length);
    for (const std::size_t length : lengths) {
        SCOPED_TRACE("length " + std::to_string(length));
        const auto values = RandomComplex(length, length);
        EXPECT_TRUE(AreNear(Transformed(values, true), DirectDft(values), TransformBound(values)));
        const auto inverse = Transformed(values, false);
        EXPECT_TRUE(AreNear(inverse, DirectDft(values, false), TransformBound(values)));
        auto normalised = inverse;
        for (Complex& value : normalised)
            value /= static_cast<double>(length);
        EXPECT_TRUE(AreNear(Transformed(values, false, true), normalised, 0.0));
    }
}

TEST(FFTIFFT, GivesTheSameBitsWhereverTheArrayLies)
{
    for (const std::size_t length : {64U, 1009U, 4096U}) {
        const auto values = RandomComplex(length, length);
        const auto expected = Transformed(values, true);
        for (std::size_t offset = 1; offset <= 3; ++offset) {
            std::vector<Complex> buffer(offset + length);
            std::copy(values.begin(), values.end(), buffer.begin() + static_cast<std::ptrdiff_t>(offset));
            FFTIFFT_Factory::GetInstance().FFT(buffer.data() + offset, static_cast<int>(length));
            EXPECT_TRUE(AreNear(std::span<const Complex>(buffer).subspan(offset), expected, 0.0))
                << length << " values at " << offset;
        }
    }
}

// More lengths than the cache keeps, so that plans of both kinds are made, dropped and made again while other threads
// use or look up theirs. Without the lock on the planner or the one on the cache this corrupts the heap or never ends.
TEST(FFTIFFTThreads, PlanDifferentLengthsAtOnce)
{
    constexpr int kThreads = 4;
    std::atomic<int> waiting = kThreads;
    std::atomic<int> failures = 0;
    const auto run = [&](int thread) {
        for (--waiting; waiting > 0;)
            std::this_thread::yield();
        Maths::AlignedBuffer<double> values(512);
        Maths::AlignedBuffer<Complex> bins(512);
        for (int round = 0; round < 1000; ++round) {
            // The transform of an impulse is 1 in every bin, and exact where nothing but zeros is added to it.
            const auto length = static_cast<std::size_t>(3 + (round * kThreads + thread) % 251);
            std::fill_n(values.Data(), 2 * length, 0.0);
            values.Data()[0] = 1.0;
            std::fill_n(bins.Data(), 512, Complex());
            Maths::RealTransform::Of(2 * length)->Forward(values.Data(), bins.Data());
            failures += std::count_if(bins.Data(), bins.Data() + length + 1, IsNotOne) > 0 ? 1 : 0;
            std::fill_n(bins.Data(), length, Complex());
            bins.Data()[0] = 1.0;
            FFTIFFT_Factory::GetInstance().FFT(bins.Data(), static_cast<int>(length));
            failures += std::count_if(bins.Data(), bins.Data() + length, IsNotOne) > 0 ? 1 : 0;
            for (std::size_t look = 0; look < 100; ++look)
                Maths::ComplexTransform::Of(std::size_t{1} << look % 8);
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back(run, thread);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
}

}  // namespace
