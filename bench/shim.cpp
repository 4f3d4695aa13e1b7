// A C face of what compare.py measures.
#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <span>
#include <type_traits>

#include <fftw3.h>

#include <Eigen/Core>
#include <Eigen/LU>

#include "captures.h"
#include "maths/equalisers/ffetaps.h"
#include "maths/transforms/alignedbuffer.h"
#include "maths/transforms/fft.h"
#include "workbench/eyeimage.h"
#include "workbench/fixturefile.h"
#include "workbench/lock.h"
#include "workbench/network.h"
#include "workbench/simulation.h"
#include "workbench/waveform.h"

using namespace Tarnwick;
namespace Maths = DSO::Maths;
using DSO::Maths::AlignedBuffer;
using DSO::Maths::Complex;
using DSO::SystemFramework::BaseFilter;
using DSO::SystemFramework::BaseFilterParameters;
using DSO::SystemFramework::SignalData;

namespace {

struct Job {
    DSO::DeviceConfiguration config;
    std::unique_ptr<BaseFilterParameters> parameters;
    std::unique_ptr<BaseFilter> filter;
};

template <typename Filter, typename Parameters, typename Set>
Job* MakeJob(int patternLengthUi, int samplesPerUi, int repetitions, Set set)
{
    auto job = std::make_unique<Job>();
    job->config = Bench::Locked(patternLengthUi, samplesPerUi, repetitions);
    auto parameters = std::make_unique<Parameters>(&job->config);
    set(*parameters);
    job->filter = std::make_unique<Filter>(parameters.get());
    job->parameters = std::move(parameters);
    return job.release();
}

SignalData Record(double* samples, int count)
{
    SignalData signal;
    signal.samples = samples;
    signal.sampleCount = count;
    return signal;
}

// The peers run in FFTW, whichever library stands behind ours.
using FftwPlan = std::unique_ptr<std::remove_pointer_t<fftw_plan>, decltype(&fftw_destroy_plan)>;

FftwPlan Planned(fftw_plan plan)
{
    return {plan, fftw_destroy_plan};
}

fftw_complex* Raw(AlignedBuffer<Complex>& values)
{
    return reinterpret_cast<fftw_complex*>(values.Data());
}

// One transform and one inverse of each segment at a smooth length, and one copy of the record: the least that a dense
// kernel needs.
struct LowerBound {
    explicit LowerBound(int smoothLength)
        : length(smoothLength),
          values(static_cast<std::size_t>(smoothLength)),
          bins(static_cast<std::size_t>(smoothLength) / 2 + 1),
          forward(Planned(fftw_plan_dft_r2c_1d(smoothLength, values.Data(), Raw(bins), FFTW_ESTIMATE))),
          inverse(Planned(fftw_plan_dft_c2r_1d(smoothLength, Raw(bins), values.Data(), FFTW_ESTIMATE)))
    {
        std::fill(values.Data(), values.Data() + smoothLength, 0.0);
    }
    int length;
    AlignedBuffer<double> values;
    AlignedBuffer<Complex> bins;
    FftwPlan forward, inverse;
};

// The direct reading of circular convolution: complex transforms of segment and kernel at the exact length, each time.
struct Naive {
    explicit Naive(int periodLength)
        : length(periodLength),
          signal(static_cast<std::size_t>(periodLength)),
          kernel(static_cast<std::size_t>(periodLength)),
          forward(Planned(fftw_plan_dft_1d(periodLength, Raw(signal), Raw(signal), FFTW_FORWARD, FFTW_ESTIMATE))),
          inverse(Planned(fftw_plan_dft_1d(periodLength, Raw(signal), Raw(signal), FFTW_BACKWARD, FFTW_ESTIMATE)))
    {
    }
    int length;
    AlignedBuffer<Complex> signal;
    AlignedBuffer<Complex> kernel;
    FftwPlan forward, inverse;
};

// A capture and its reference for an equaliser's tap search: noise held for a UI, an echo, more noise.
struct TapSearch {
    TapSearch(int count, int numberOfTaps, int samplesPerUi)
        : delays(Maths::TapDelays(numberOfTaps, samplesPerUi, 1)),
          candidates(Maths::CandidateDelays(numberOfTaps, samplesPerUi, 1, false))
    {
        const auto length = static_cast<std::size_t>(count);
        const std::vector<double> levels = Bench::Noise(2 * length);
        for (std::size_t k = 0; k < length; ++k)
            reference.push_back(levels[k / static_cast<std::size_t>(samplesPerUi)]);
        for (std::size_t k = 0; k < length; ++k)
            capture.push_back(reference[k] + 0.3 * reference[(k + length - 20) % length] + 0.02 * levels[length + k]);
    }
    std::vector<double> capture, reference;
    std::vector<int> delays, candidates;
};

Eigen::MatrixXd Rotations(const std::vector<double>& values, const std::vector<int>& delays)
{
    const auto rows = static_cast<Eigen::Index>(values.size());
    Eigen::MatrixXd matrix(rows, static_cast<Eigen::Index>(delays.size()));
    for (Eigen::Index j = 0; j < matrix.cols(); ++j)
        for (Eigen::Index i = 0; i < rows; ++i)
            matrix((i + delays[static_cast<std::size_t>(j)] + rows) % rows, j) = values[static_cast<std::size_t>(i)];
    return matrix;
}

}  // namespace

extern "C" {

TARNWICK_EXPORT TapSearch* bench_taps(int count, int numberOfTaps, int samplesPerUi)
{
    return new TapSearch(count, numberOfTaps, samplesPerUi);  // NOLINT(cppcoreguidelines-owning-memory)
}

/// The least-squares step; the candidate chosen.
TARNWICK_EXPORT int bench_taps_run(const TapSearch* job)
{
    const auto solution = Maths::SolveTaps(job->capture, job->reference, job->delays, job->candidates);
    return solution ? static_cast<int>(solution->candidate) : -1;
}

/// The same by its definition: matrices of samples, their products, the inverse, the residual of every pair.
TARNWICK_EXPORT int bench_taps_naive(const TapSearch* job)
{
    const Eigen::MatrixXd x = Rotations(job->capture, job->delays);
    const Eigen::MatrixXd y = Rotations(job->reference, job->candidates);
    const Eigen::MatrixXd xt = x.transpose();
    const Eigen::MatrixXd yt = y.transpose();
    const Eigen::MatrixXd w = (xt * x).inverse() * (xt * y);
    const Eigen::MatrixXd residual = yt * y - (yt * x) * w;
    Eigen::Index best = 0;
    residual.diagonal().cwiseAbs().minCoeff(&best);
    return static_cast<int>(best);
}

TARNWICK_EXPORT void bench_taps_destroy(TapSearch* job)
{
    delete job;  // NOLINT(cppcoreguidelines-owning-memory)
}

/// A stretch of PRBS31 at any number of samples per UI, as a capture about which nothing is known.
TARNWICK_EXPORT DSO::Workbench::Waveform* bench_capture(int lengthUi, double samplesPerUi)
{
    const DSO::Workbench::SimulatedPattern pattern{.coding = SIGNAL_CODING_NRZ, .prbs = 31};
    const std::vector<int> levels = pattern.Levels(static_cast<std::size_t>(lengthUi));
    auto capture = std::make_unique<DSO::Workbench::Waveform>();
    capture->samples = DSO::Workbench::Simulate(
        levels, 2, {.samplesPerUi = samplesPerUi, .lossDb = 3.0, .noiseRms = 0.01, .lengthUi = lengthUi});
    return capture.release();
}

TARNWICK_EXPORT int bench_capture_count(const DSO::Workbench::Waveform* capture)
{
    return static_cast<int>(capture->samples.size());
}

/// The whole acquisition; the samples per UI that it finds.
TARNWICK_EXPORT double bench_lock(const DSO::Workbench::Waveform* capture)
{
    return DSO::Workbench::Lock(*capture, {}, "capture").report.samplesPerUi;
}

/// A capture from its file.
TARNWICK_EXPORT DSO::Workbench::Waveform* bench_read_capture(const char* path)
{
    return std::make_unique<DSO::Workbench::Waveform>(DSO::Workbench::ReadWaveform(path)).release();
}

TARNWICK_EXPORT const double* bench_capture_samples(const DSO::Workbench::Waveform* capture)
{
    return capture->samples.data();
}

/// The picture of an eye as the program draws it, but for the drawing; the sum of its shades.
TARNWICK_EXPORT double bench_shade(const double* samples, int count, double samplesPerUi)
{
    const std::span<const double> record(samples, static_cast<std::size_t>(count));
    const auto image =
        DSO::Workbench::ShadeBetween(record, samplesPerUi, 0.5, DSO::Workbench::RangeOf(record), 480, 320);
    return std::accumulate(image.shades.begin(), image.shades.end(), 0.0);
}

/// Reads all parameters of a Touchstone file; the number of its points.
TARNWICK_EXPORT int bench_read_network(const char* path)
{
    return static_cast<int>(DSO::Workbench::ReadNetwork(DSO::Workbench::ReadFixtureText(path), path).frequency.size());
}

TARNWICK_EXPORT void bench_capture_destroy(DSO::Workbench::Waveform* capture)
{
    delete capture;  // NOLINT(cppcoreguidelines-owning-memory)
}

TARNWICK_EXPORT Job* bench_bessel_thomson(int patternLengthUi, int samplesPerUi, int repetitions)
{
    return MakeJob<DSO::Filters::BesselThomson, DSO::Filters::BesselThomsonParameters>(patternLengthUi, samplesPerUi,
                                                                                       repetitions, [](auto&) {});
}

/// Automatic taps, one a UI, of a capture whose symbols are given: the whole waveform's fit or that at the sampling phase.
/// @param symbols  NRZ, patternLengthUi characters
TARNWICK_EXPORT Job* bench_ffe(int patternLengthUi, int samplesPerUi, int numberOfTaps, bool fitAtSamplingPhase,
                               const char* symbols)
{
    Job* job = MakeJob<DSO::Filters::FFEFilter, DSO::Filters::FFEFilterParameters>(
        patternLengthUi, samplesPerUi, 1, [=](DSO::Filters::FFEFilterParameters& parameters) {
            parameters.numberOfTaps = numberOfTaps;
            parameters.tapsPerUi = 1;
            parameters.fitAtSamplingPhase = fitAtSamplingPhase;
        });
    job->config.signalCoding = SIGNAL_CODING_NRZ;
    job->config.useUserPattern = true;
    job->config.patternSymbols = symbols;
    return job;
}

/// Taps over one repetition.
TARNWICK_EXPORT Job* bench_ctle(int patternLengthUi, int samplesPerUi, int type, double gain)
{
    return MakeJob<DSO::Filters::CTLEFilter, DSO::Filters::CTLEFilterParameters>(
        patternLengthUi, samplesPerUi, 1, [=](DSO::Filters::CTLEFilterParameters& parameters) {
            parameters.type = static_cast<CTLE_Type>(type);
            parameters.gain = gain;
            parameters.pole1 = 53.125;  // [GHz] read by the OIF form alone
            parameters.pole2 = 28.0;
            parameters.zero1 = 21.0;
            parameters.zero2 = 0.66;
        });
}

TARNWICK_EXPORT Job* bench_moving_average(int patternLengthUi, int samplesPerUi, int repetitions, int window)
{
    auto job = std::make_unique<Job>();
    job->config = Bench::Locked(patternLengthUi, samplesPerUi, repetitions);
    auto parameters = std::make_unique<Bench::WindowInConfiguration>(&job->config, window);
    job->filter = std::make_unique<DSO::Filters::MovingAverageSmoothingFilter>(parameters.get());
    job->parameters = std::move(parameters);
    return job.release();
}

TARNWICK_EXPORT void bench_prepare(Job* job, double* samples, int count)
{
    SignalData signal = Record(samples, count);
    job->parameters->SetDirty();
    job->filter->Prepare(&signal);
    job->parameters->ResetDirty();
}

TARNWICK_EXPORT const double* bench_kernel(Job* job)
{
    if (const auto* ctle = dynamic_cast<const DSO::Filters::CTLEFilter*>(job->filter.get()))
        return ctle->filterTaps.data();
    return job->filter->kernel;
}

TARNWICK_EXPORT double* bench_apply(Job* job, double* samples, int count)
{
    SignalData signal = Record(samples, count);
    return job->filter->Apply(&signal);
}

TARNWICK_EXPORT void bench_release(double* result)
{
    ::operator delete(result);
}

TARNWICK_EXPORT void bench_destroy(Job* job)
{
    job->filter.reset();
    delete job;  // NOLINT(cppcoreguidelines-owning-memory)
}

TARNWICK_EXPORT LowerBound* bench_lower_bound(int smoothLength)
{
    return new LowerBound(smoothLength);  // NOLINT(cppcoreguidelines-owning-memory)
}

TARNWICK_EXPORT void bench_lower_bound_run(LowerBound* job, const double* samples, double* result, int segment,
                                           int count)
{
    for (int begin = 0; begin < count; begin += segment) {
        std::memcpy(job->values.Data(), samples + begin, static_cast<std::size_t>(segment) * sizeof(double));
        fftw_execute(job->forward.get());
        fftw_execute(job->inverse.get());
        std::memcpy(result + begin, job->values.Data(), static_cast<std::size_t>(segment) * sizeof(double));
    }
}

TARNWICK_EXPORT Naive* bench_naive(int period)
{
    return new Naive(period);  // NOLINT(cppcoreguidelines-owning-memory)
}

/// One complex transform of one period.
TARNWICK_EXPORT void bench_naive_transform(Naive* job)
{
    std::fill(job->signal.Data(), job->signal.Data() + job->length, Complex(0.25, -0.5));
    fftw_execute(job->inverse.get());
}

TARNWICK_EXPORT void bench_naive_run(Naive* job, const double* samples, const double* kernel, int taps, double* result,
                                     int count)
{
    Complex* signal = job->signal.Data();
    Complex* response = job->kernel.Data();
    for (int begin = 0; begin < count; begin += job->length) {
        for (int k = 0; k < job->length; ++k) {
            signal[k] = samples[begin + k];
            response[k] = k < taps ? kernel[k] : 0.0;
        }
        fftw_execute(job->forward.get());
        fftw_execute_dft(job->forward.get(), Raw(job->kernel), Raw(job->kernel));
        for (int k = 0; k < job->length; ++k)
            signal[k] *= response[k];
        fftw_execute(job->inverse.get());
        for (int k = 0; k < job->length; ++k)
            result[begin + k] = signal[k].real() / job->length;
    }
}

}  // extern "C"
