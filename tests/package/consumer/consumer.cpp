// Filters one record with two filters and fails unless each does what it is for.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "filters/filters.h"

#if !defined(ELPP_THREAD_SAFE) || !defined(ELPP_NO_DEFAULT_LOG_FILE)
#error "the package does not carry the definitions of the shared log storage"
#endif

using namespace Tarnwick::DSO;

namespace {

std::vector<double> Filtered(SystemFramework::BaseFilter& filter, SystemFramework::SignalData& record)
{
    const std::unique_ptr<double[], void (*)(void*)> result(filter.Apply(&record), ::operator delete);
    return {result.get(), result.get() + record.sampleCount};
}

bool Check(bool holds, const char* what)
{
    if (!holds)
        std::fprintf(stderr, "consumer: %s\n", what);
    return holds;
}

}  // namespace

int main()
{
    constexpr int kSamples = 64;
    DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = kSamples / 8;
    config.samplesPerUi = 8;
    config.samplesPerPattern = kSamples;

    std::vector<double> samples(kSamples, 0.0);
    samples[20] = 1.0;
    SystemFramework::SignalData record;
    record.samples = samples.data();
    record.sampleCount = kSamples;

    bool ok = true;
    Filters::BesselThomsonParameters receiver(&config);
    try {
        const Filters::BesselThomson unlocked(&receiver);
        ok &= Check(false, "a receiver without pattern lock was made");
    } catch (const PatternLockFailed&) {  // also proves that exceptions cross the library's boundary by type
    }
    config.patternLocked[0] = true;

    Filters::BesselThomson besselThomson(&receiver);
    const std::vector<double> low = Filtered(besselThomson, record);
    const auto peak = std::max_element(low.begin(), low.end()) - low.begin();
    ok &= Check(peak > 20 && peak < 28, "the receiver's pulse is not within one unit interval after the impulse");

    Filters::MovingAverageWindowSmoothingParameters window(3);
    Filters::MovingAverageSmoothingFilter average(&window);
    const std::vector<double> smooth = Filtered(average, record);
    ok &= Check(std::abs(smooth[19] - 1.0 / 3) < 1e-12 && std::abs(smooth[22]) < 1e-12, "the boxcar is not three wide");

    return ok ? 0 : 1;
}
