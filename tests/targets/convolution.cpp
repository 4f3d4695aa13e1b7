// The convolver by itself, held to the sum that defines it: for processors that no other test of this tree runs on, without
// a test framework, files or exceptions. script/targets builds and runs it.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

#include "maths/convolution/circularconvolver.h"

using Tarnwick::DSO::Maths::CircularConvolver;
using Tarnwick::DSO::Maths::ConvolutionMethod;
using Tarnwick::DSO::Maths::ConvolutionWork;

namespace {

std::vector<double> Noise(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    std::vector<double> noise(count);
    for (double& value : noise)
        value = normal(random);
    return noise;
}

// Some forty samples from all over the period.
double LargestError(const std::vector<double>& kernel, const std::vector<double>& samples,
                    const std::vector<double>& result)
{
    const std::size_t period = samples.size();
    double largest = 0.0;
    for (std::size_t k = 0; k < period; k += period / 40) {
        double sum = 0.0;
        for (std::size_t m = 0; m < kernel.size(); ++m)
            sum += kernel[m] * samples[(k + period - m) % period];
        largest = std::max(largest, std::abs(sum - result[k]));
    }
    return largest;
}

struct Case {
    std::size_t period;
    std::size_t taps;
    ConvolutionMethod method;
};

}  // namespace

int main()
{
    const Case cases[] = {{1016, 20, ConvolutionMethod::Direct},     {65504, 300, ConvolutionMethod::Blocks},
                          {1016, 1016, ConvolutionMethod::Padded},   {511 * 15, 511 * 15, ConvolutionMethod::Padded},
                          {65504, 65504, ConvolutionMethod::Padded}, {131056, 131056, ConvolutionMethod::Split}};
    bool good = true;
    for (const Case& each : cases) {
        const std::vector<double> kernel = Noise(each.taps, 1);
        const std::vector<double> samples = Noise(each.period, 2);
        std::vector<double> result(each.period);
        ConvolutionWork work;
        const CircularConvolver convolver(kernel, each.period);
        convolver.Convolve(samples, result, work);

        double peak = 0.0;
        for (double sample : samples)
            peak = std::max(peak, std::abs(sample));
        double gain = 0.0;
        for (double tap : kernel)
            gain += std::abs(tap);
        // The bound that circularconvolver.h states.
        const double bound =
            4.0 * std::numeric_limits<double>::epsilon() * std::log2(static_cast<double>(each.period)) * peak * gain;
        const double error = LargestError(kernel, samples, result);
        const bool holds = convolver.Method() == each.method && error < bound;
        std::printf("%s: %zu samples, %zu taps: error %.2g, bound %.2g\n", holds ? "holds" : "FAILED", each.period,
                    each.taps, error, bound);
        good = good && holds;
    }
    return good ? 0 : 1;
}
