#include <cstdio>
#include <string>
#include <vector>

#include "filters/filters.h"

using namespace Tarnwick::DSO;

int main()
{
    const std::string bits = "0001011100101101";  // NRZ, one repetition, -0.2 V and 0.2 V
    DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = static_cast<int>(bits.size());
    config.samplesPerUi = 16;
    config.samplesPerPattern = config.samplesPerUi * config.patternLengthUi;
    config.patternLocked[0] = true;

    std::vector<double> samples;
    for (const char bit : bits)
        samples.insert(samples.end(), 16, bit == '1' ? 0.2 : -0.2);

    Filters::BesselThomsonParameters parameters(&config);  // fourth order, 75 % of the symbol rate
    Filters::BesselThomson receiver(&parameters);
    const std::vector<double> filtered = Filters::Filtered(receiver, samples);

    const double sampleIntervalPs = 1e3 / (config.baudRateGBd * config.samplesPerUi);
    std::puts("after the edge     in  filtered");
    for (int k = -2; k <= 16; k += 2)  // the first 1 starts with sample 48
        std::printf("%8.1f ps %+8.3f V %+7.3f V\n", k * sampleIntervalPs, samples[48 + k], filtered[48 + k]);
}
