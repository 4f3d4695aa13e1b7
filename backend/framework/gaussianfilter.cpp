#include "framework/gaussianfilter.h"

#include <span>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/responses/gaussian.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

struct Sampling {
    double baudRateGBd;
    double bandwidth;
    int samplesPerUi;
};

double CheckedSampleRate(const char* operation, const Sampling& sampling)
{
    RequirePositive(operation, "baudRateGBd", sampling.baudRateGBd, "a finite positive symbol rate in GBd");
    RequirePositive(operation, "bandwidth", sampling.bandwidth, "a finite positive bandwidth in GHz");
    if (sampling.samplesPerUi < 1)
        Refuse(operation, "samplesPerUi", sampling.samplesPerUi, "at least 1 sample per UI");
    return sampling.baudRateGBd * sampling.samplesPerUi;
}

}  // namespace

double* GaussianFilter::GetGaussianFilter_A(int& length, double baudRateGBd, double bandwidth, int samplesPerUi,
                                            int workingLength, bool byDroop, double droopDb, double droopGHz)
{
    constexpr const char* kOperation = "GaussianFilter::GetGaussianFilter_A";
    const double sampleRate = CheckedSampleRate(kOperation, {baudRateGBd, bandwidth, samplesPerUi});
    if (workingLength < 1)
        Refuse(kOperation, "workingLength", workingLength, "at least 1 tap");
    if (byDroop) {
        RequirePositive(kOperation, "droopDb", droopDb, "a finite positive loss in dB");
        RequirePositive(kOperation, "droopGHz", droopGHz, "a finite positive frequency in GHz");
        bandwidth = Maths::GaussianBandwidth(droopDb, droopGHz);
    }
    const auto taps = Maths::GaussianTaps(static_cast<std::size_t>(workingLength), sampleRate, bandwidth);
    OwnedArray result = NewArrayFrom<double>(taps);
    length = workingLength;
    return result.release();
}

double* GaussianFilter::ApplyGaussianFilter(const double* x, int n, double baudRateGBd, double bandwidth,
                                            int samplesPerUi)
{
    constexpr const char* kOperation = "GaussianFilter::ApplyGaussianFilter";
    const double sampleRate = CheckedSampleRate(kOperation, {baudRateGBd, bandwidth, samplesPerUi});
    if (n < 1)
        Refuse(kOperation, "n", n, "at least 1 sample");
    if (x == nullptr)
        Refuse(kOperation, "x", "null", "an array of n samples");
    const std::span<const double> samples(x, static_cast<std::size_t>(n));
    return NewArrayFrom<double>(Maths::GaussianLowPass(samples, sampleRate, bandwidth)).release();
}

}  // namespace Tarnwick::DSO::SystemFramework
