// Every filter once, as the documents show it: eachfilter TYPE CAPTURE prints the capture's samples behind the filter. A capture is
// one repetition of an NRZ PRBS7 at 10.3125 GBd, for the TDECQ equaliser of a PAM4 PRBS9 at 26.5625 GBd, with 16 samples per UI,
// as text with a line of title.
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "filters/filters.h"

using namespace Tarnwick::DSO;
using Samples = std::span<const double>;

namespace {

// One period of x^7 + x^6 + 1 from all ones.
std::string Prbs7()
{
    std::string bits;
    for (unsigned state = 0x7f; bits.size() < 127; state = ((state << 1) | ((state >> 6 ^ state >> 5) & 1)) & 0x7f)
        bits += (state >> 6) & 1 ? '1' : '0';
    return bits;
}

std::vector<double> ReadColumn(const std::string& name)
{
    std::ifstream file(name);
    std::vector<double> values;
    for (double value; file >> value;)
        values.push_back(value);
    if (values.empty())
        throw std::runtime_error(name + ": no numbers");
    return values;
}

std::vector<double> ReadCapture(const std::string& name)
{
    std::ifstream file(name);
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');  // the title
    std::vector<double> samples;
    for (double value; file >> value;)
        samples.push_back(value);
    return samples;
}

// [device]
DeviceConfiguration Device()
{
    DeviceConfiguration device;
    device.baudRateGBd = 10.3125;
    device.signalCoding = SIGNAL_CODING_NRZ;
    device.patternSymbols = Prbs7();  // "1111111000..."
    device.patternLengthUi = 127;
    device.samplesPerUi = 16;
    device.samplesPerPattern = 127 * 16;
    device.patternRepeats = 1;
    device.patternLocked[0] = true;
    return device;
}
// [device]

// [copy]
std::vector<double> Copied(Samples samples)
{
    Filters::CopyParameters parameters;
    Filters::Copy copy(&parameters);
    return Filters::Filtered(copy, samples);
}
// [copy]

// [moving-average]
std::vector<double> Smoothed(Samples samples)
{
    Filters::MovingAverageWindowSmoothingParameters parameters(5);  // samples
    Filters::MovingAverageSmoothingFilter smooth(&parameters);
    return Filters::Filtered(smooth, samples);
}
// [moving-average]

// [bessel-thomson]
std::vector<double> Received(DeviceConfiguration& device, Samples samples)
{
    Filters::BesselThomsonParameters parameters(&device);
    parameters.order = 4;
    parameters.cutoffPercent = 75.0;
    Filters::BesselThomson receiver(&parameters);
    return Filters::Filtered(receiver, samples);
}
// [bessel-thomson]

// [ctle]
std::vector<double> Peaked(DeviceConfiguration& device, Samples samples)
{
    Filters::CTLEFilterParameters parameters(&device);
    parameters.type = CTLE_PEAKING;
    parameters.gain = 6.0;  // [dB] at half the symbol rate over DC
    Filters::CTLEFilter ctle(&parameters);
    return Filters::Filtered(ctle, samples);
}
// [ctle]

// [ffe]
std::vector<double> Equalised(DeviceConfiguration& device, Samples samples)
{
    Filters::FFEFilterParameters parameters(&device);
    parameters.numberOfTaps = 5;
    parameters.tapsPerUi = 1;
    parameters.fitAtSamplingPhase = true;
    Filters::FFEFilter ffe(&parameters);
    return Filters::Filtered(ffe, samples);  // the taps are now in parameters.appliedTaps
}
// [ffe]

// [dfe]
std::vector<double> FedBack(DeviceConfiguration& device, Samples samples)
{
    Filters::DFEFilterParameters parameters(&device);
    parameters.numberOfTaps = 2;
    Filters::DFEFilter dfe(&parameters);
    return Filters::Filtered(dfe, samples);  // taps and delay are now in the parameters
}
// [dfe]

// [tdecq]
std::vector<double> ReferenceEqualised(DeviceConfiguration& device, Samples samples)
{
    device.baudRateGBd = 26.5625;
    device.signalCoding = SIGNAL_CODING_PAM4;  // the symbols are detected in the capture
    device.patternSymbols.clear();
    device.patternLengthUi = 511;
    device.samplesPerPattern = 511 * 16;
    Filters::FFEFilterParameters parameters(&device);
    parameters.numberOfTaps = 5;
    parameters.tapsPerUi = 1;
    parameters.useTdecqEqualizer = true;
    Filters::FFEFilter ffe(&parameters);
    return Filters::Filtered(ffe, samples);
}
// [tdecq]

// [deembedding]
std::vector<double> WithoutFixture(DeviceConfiguration& device, Samples samples)
{
    Filters::DeEmbeddingParameters parameters(&device);
    parameters.sparamFileName = "fixture.s2p";
    parameters.preserveNoise = false;
    Filters::DeEmbeddingFilter remove(&parameters);
    return Filters::Filtered(remove, samples);
}
// [deembedding]

// [sirc]
std::vector<double> Corrected(DeviceConfiguration& device, Samples samples)
{
    device.electricalResponseTable = {ReadColumn("channel.txt")};  // the interval [s], then the impulse response
    device.referenceTable = {{}};                                  // none: a Bessel-Thomson of the channel's bandwidth
    device.channelBandwidths = {0.0};                              // stands for 39.8 GHz
    Filters::SircFilterParameters parameters(&device);
    parameters.referenceCutoffPercent = 75.0;
    Filters::SircFilter correct(&parameters);
    return Filters::Filtered(correct, samples);
}
// [sirc]

}  // namespace

int main(int count, char** arguments)
{
    const std::map<std::string, std::function<std::vector<double>(DeviceConfiguration&, Samples)>> filters = {
        {"copy", [](DeviceConfiguration&, Samples samples) { return Copied(samples); }},
        {"moving-average", [](DeviceConfiguration&, Samples samples) { return Smoothed(samples); }},
        {"bessel-thomson", Received},
        {"ctle", Peaked},
        {"ffe", Equalised},
        {"dfe", FedBack},
        {"tdecq", ReferenceEqualised},
        {"deembedding", WithoutFixture},
        {"sirc", Corrected},
    };
    if (count != 3 || !filters.contains(arguments[1])) {
        std::cerr << "usage: eachfilter TYPE CAPTURE\n";
        return 2;
    }
    try {
        DeviceConfiguration device = Device();
        for (const double sample : filters.at(arguments[1])(device, ReadCapture(arguments[2])))
            std::printf("%.17g\n", sample);
    } catch (const std::exception& failure) {
        std::cerr << "eachfilter: " << failure.what() << '\n';
        return 1;
    }
}
