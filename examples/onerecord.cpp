// A host that hands records over as SignalData, without the helpers of filters/apply.h, and changes a parameter between two of
// them. Exits with 1 when the second record comes back the same as the first.
#include <cstdio>
#include <memory>
#include <new>
#include <vector>

#include "filters/filters.h"

using namespace Tarnwick::DSO;
using SystemFramework::SignalData;

int main()
{
    DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = 16;
    config.samplesPerUi = 16;
    config.samplesPerPattern = 256;
    config.patternLocked[0] = true;
    std::vector<double> samples(256, -0.2);
    for (int k = 48; k < 96; ++k)
        samples[k] = 0.2;  // a pulse of three UI

    Filters::BesselThomsonParameters parameters(&config);
    Filters::BesselThomson filter(&parameters);

    SignalData record;
    record.samples = samples.data();  // [V], in time order
    record.sampleCount = static_cast<int>(samples.size());

    const std::unique_ptr<double[], void (*)(void*)> filtered(filter.Apply(&record), ::operator delete);

    parameters.cutoffPercent = 50.0;
    parameters.SetDirty();
    const std::unique_ptr<double[], void (*)(void*)> slower(filter.Apply(&record), ::operator delete);

    std::printf("first sample of the pulse: %.3f V at 75 %%, %.3f V at 50 %% of the symbol rate\n", filtered[48],
                slower[48]);
    return filtered[48] == slower[48] ? 1 : 0;
}
