// A filter of a host's own: a single pole, H(f) = 1 / (1 + jf/f_c), sampled in time and laid round one period.
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <vector>

#include "filters/filters.h"
#include "framework/convolution.h"

using namespace Tarnwick::DSO;
using SystemFramework::SignalData;

struct SinglePoleParameters : SystemFramework::BaseFilterParameters {
    double cutoff = 0.1;  // of the sample rate
};

class SinglePole : public SystemFramework::BaseFilter {
public:
    explicit SinglePole(SinglePoleParameters* parameters) { this->parameters = parameters; }

    void Prepare(SignalData* signal) override
    {
        constexpr double kTwoPi = 6.283185307179586;
        const double decay = std::exp(-kTwoPi * static_cast<SinglePoleParameters*>(parameters)->cutoff);
        std::vector<double> taps(static_cast<std::size_t>(signal->sampleCount));
        double tap = (1.0 - decay) / (1.0 - std::pow(decay, signal->sampleCount));  // they sum to 1
        for (double& each : taps) {
            each = tap;
            tap *= decay;
        }
        SetKernel(taps);
        parameters->ResetDirty();
    }

    double* Apply(SignalData* signal) override
    {
        if (parameters->IsDirty())
            Prepare(signal);
        return SystemFramework::Convolution::CircularConv(signal->samples, signal->sampleCount, kernel,
                                                          signal->sampleCount);
    }
};

int main()
{
    std::vector<double> samples(64, -0.2);
    for (std::size_t k = 32; k < samples.size(); ++k)
        samples[k] = 0.2;
    SinglePoleParameters parameters;
    SinglePole pole(&parameters);
    const std::vector<double> filtered = Filters::Filtered(pole, samples);
    for (std::size_t k = 30; k < 40; ++k)
        std::printf("%2zu %+6.3f V %+6.3f V\n", k, samples[k], filtered[k]);
}
