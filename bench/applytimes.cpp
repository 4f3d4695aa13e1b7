// Least time of a Bessel-Thomson filter's Apply for each length: the same program for every system, so that
// bench/windows.py can set one build against the other. Prints a line for each: period in UI, samples per UI, repetitions,
// seconds, and the result's last sample, which both have to agree about.
//   tarnwick_applytimes [SECONDS]      to spend on each length; 0.2
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

#include "captures.h"
#include "filters/filters/besselthomson.h"

namespace {

using namespace Tarnwick;
using Clock = std::chrono::steady_clock;

struct Length {
    int patternLengthUi;
    int samplesPerUi;
    int repetitions;
};

struct Release {
    void operator()(double* samples) const noexcept { ::operator delete(samples); }
};

double SecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

int main(int count, char** arguments)
{
    const double budget = count > 1 ? std::strtod(arguments[1], nullptr) : 0.2;
    const Length lengths[] = {{127, 16, 8},  {511, 16, 8},   {2047, 16, 8},  {2047, 32, 2}, {8191, 16, 2},
                              {8191, 32, 2}, {32767, 16, 2}, {65535, 16, 2}, {65535, 32, 2}};
    for (const auto& [patternLengthUi, samplesPerUi, repetitions] : lengths) {
        DSO::DeviceConfiguration config = Bench::Locked(patternLengthUi, samplesPerUi, repetitions);
        DSO::Filters::BesselThomsonParameters parameters(&config);
        DSO::Filters::BesselThomson filter(&parameters);
        const auto period = static_cast<std::size_t>(config.samplesPerPattern);
        std::vector<double> record = Bench::Noise(period * static_cast<std::size_t>(repetitions));
        DSO::SystemFramework::SignalData signal;
        signal.samples = record.data();
        signal.sampleCount = static_cast<std::int32_t>(record.size());
        filter.Prepare(&signal);
        parameters.ResetDirty();  // this filter leaves it to the host, and would be prepared again each time
        double last = 0.0;
        double least = std::numeric_limits<double>::infinity();
        const auto begin = Clock::now();
        do {
            const auto before = Clock::now();
            {
                const std::unique_ptr<double[], Release> filtered(filter.Apply(&signal));
                last = filtered[record.size() - 1];
            }
            least = std::min(least, SecondsSince(before));
        } while (SecondsSince(begin) < budget);
        std::printf("%d %d %d %.9g %.17g\n", patternLengthUi, samplesPerUi, repetitions, least, last);
    }
    return 0;
}
