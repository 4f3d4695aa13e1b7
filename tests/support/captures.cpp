#include "support/captures.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <numbers>
#include <utility>

#include "framework/fftifft.h"
#include "support/references.h"
#include "support/signals.h"

namespace Tarnwick::Testing {

std::vector<int> Prbs13qLevels()
{
    constexpr std::size_t kLength = 8191;
    constexpr int kLevelOfPair[] = {0, 1, 3, 2};
    std::vector<int> bits(13, 1);
    while (bits.size() < kLength) {
        const auto newest = bits.end();
        bits.push_back(newest[-13] ^ newest[-12] ^ newest[-2] ^ newest[-1]);
    }
    std::vector<int> levels(kLength);
    for (std::size_t k = 0; k < kLength; ++k)
        levels[k] = kLevelOfPair[2 * bits[2 * k % kLength] + bits[(2 * k + 1) % kLength]];
    return levels;
}

std::string GraySymbols(const std::vector<int>& levels)
{
    std::string symbols;
    std::transform(levels.begin(), levels.end(), std::back_inserter(symbols), [](int level) { return "0132"[level]; });
    return symbols;
}

std::string LevelText(const std::vector<int>& levels)
{
    std::string text;
    for (const int level : levels)
        text += static_cast<char>('0' + level);
    return text;
}

std::vector<double> Held(const std::vector<double>& values, double samplesPerUi)
{
    std::vector<double> samples(static_cast<std::size_t>(static_cast<double>(values.size()) * samplesPerUi));
    for (std::size_t m = 0; m < samples.size(); ++m)
        samples[m] = values[static_cast<std::size_t>(static_cast<double>(m) / samplesPerUi)];
    return samples;
}

std::vector<double> ThroughResponse(const std::vector<double>& samples, double sampleRate,
                                    const std::function<Complex(double)>& response)
{
    auto& fft = DSO::SystemFramework::FFTIFFT_Factory::GetInstance();
    const std::size_t count = samples.size();
    std::vector<Complex> bins(samples.begin(), samples.end());
    fft.FFT(bins.data(), static_cast<int>(count));
    for (std::size_t k = 0; k <= count / 2; ++k) {
        bins[k] *= response(static_cast<double>(k) * sampleRate / static_cast<double>(count));
        if (k > 0)
            bins[count - k] = std::conj(bins[k]);
    }
    fft.IFFT(bins.data(), static_cast<int>(count), true);
    std::vector<double> result(count);
    std::transform(bins.begin(), bins.end(), result.begin(), [](Complex value) { return value.real(); });
    return result;
}

std::vector<double> ThroughFrontEnd(const std::vector<double>& samples, double sampleRate, double bandwidth)
{
    constexpr double kHalfPower = 2.1139176749042;  // |B_4(0) / B_4(jw)|^2 = 1/2
    return ThroughResponse(samples, sampleRate, [bandwidth](double frequency) {
        return BesselThomsonAt(4, kHalfPower * frequency / bandwidth);
    });
}

double Opening(const std::vector<double>& samples, const std::string& symbols, double samplesPerUi)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    double best = -kInfinity;
    for (std::size_t shift = 0; shift < samples.size(); ++shift) {
        double low = -kInfinity;
        double high = kInfinity;
        for (std::size_t k = 0; k < symbols.size(); ++k) {
            const auto place = static_cast<std::size_t>(static_cast<double>(k) * samplesPerUi);
            const double sample = samples[(shift + place) % samples.size()];
            if (symbols[k] == '0')
                low = std::max(low, sample);
            else
                high = std::min(high, sample);
        }
        best = std::max(best, high - low);
    }
    return best;
}

std::vector<double> WithNoise(std::vector<double> samples, double rms, std::uint64_t seed)
{
    // Box and Muller: pairs of uniform values from -1 to 1 to normal ones.
    const std::vector<double> uniform = RandomValues(2 * samples.size(), seed);
    for (std::size_t k = 0; k < samples.size(); ++k) {
        const double radius = std::sqrt(-2.0 * std::log(1.0 - (uniform[2 * k] + 1.0) / 2.0));
        samples[k] += rms * radius * std::cos(std::numbers::pi * uniform[2 * k + 1]);
    }
    return samples;
}

}  // namespace Tarnwick::Testing
