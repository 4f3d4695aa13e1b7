// Apply of each filter over the patterns that instruments lock to. Arguments: UI, samples per UI, repetitions.
#include <benchmark/benchmark.h>

#include "captures.h"

namespace Tarnwick::Bench {

namespace {

using DSO::SystemFramework::BaseFilter;
using DSO::SystemFramework::SignalData;

void ApplyLoop(benchmark::State& state, BaseFilter& filter, const DSO::DeviceConfiguration& config)
{
    std::vector<double> samples = Noise(static_cast<std::size_t>(config.samplesPerPattern) * config.patternRepeats);
    SignalData signal;
    signal.sampleCount = static_cast<int>(samples.size());
    signal.samples = samples.data();
    filter.Prepare(&signal);
    filter.parameters->ResetDirty();
    ::operator delete(filter.Apply(&signal));  // the first one also transforms the kernel
    for (auto _ : state)
        ::operator delete(filter.Apply(&signal));
    state.SetItemsProcessed(state.iterations() * signal.sampleCount);
}

DSO::DeviceConfiguration Sizes(const benchmark::State& state)
{
    return Locked(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), static_cast<int>(state.range(2)));
}

template <typename Filter, typename Parameters>
void Apply(benchmark::State& state)
{
    auto config = Sizes(state);
    Parameters parameters(&config);
    Filter filter(&parameters);
    ApplyLoop(state, filter, config);
}

template <typename Filter, typename Parameters>
void Prepare(benchmark::State& state)
{
    auto config = Sizes(state);
    Parameters parameters(&config);
    Filter filter(&parameters);
    SignalData signal;
    for (auto _ : state) {
        parameters.SetDirty();
        static_cast<BaseFilter&>(filter).Prepare(&signal);
    }
}

void MovingAverageApply(benchmark::State& state)
{
    auto config = Sizes(state);
    WindowInConfiguration parameters(&config, 11);
    DSO::Filters::MovingAverageSmoothingFilter filter(&parameters);
    ApplyLoop(state, filter, config);
}

// Two taps on PAM4 noise: decisions come out at random, and the levels move for as many passes as there may be.
void DfeApply(benchmark::State& state)
{
    auto config = Sizes(state);
    config.signalCoding = SIGNAL_CODING_PAM4;
    DSO::Filters::DFEFilterParameters parameters(&config);
    parameters.useManualTaps = true;
    parameters.numberOfTaps = 2;
    parameters.taps = {0.3, 0.1};
    DSO::Filters::DFEFilter filter(&parameters);
    ApplyLoop(state, filter, config);
}

void Patterns(benchmark::internal::Benchmark* bench)
{
    bench->ArgNames({"ui", "spu", "repetitions"})->Unit(benchmark::kMicrosecond);
    for (const int patternLengthUi : {127, 511, 2047, 8191, 32767, 65535})
        for (const int samplesPerUi : {8, 16, 32})
            bench->Args({patternLengthUi, samplesPerUi, 2});
    for (const int repetitions : {1, 4, 16, 64})
        bench->Args({8191, 8, repetitions});
}

using Receiver = DSO::Filters::BesselThomson;
using ReceiverParameters = DSO::Filters::BesselThomsonParameters;
using Ctle = DSO::Filters::CTLEFilter;
using CtleParameters = DSO::Filters::CTLEFilterParameters;

BENCHMARK(Apply<Receiver, ReceiverParameters>)->Apply(Patterns)->Name("BesselThomsonApply");
BENCHMARK(Apply<Ctle, CtleParameters>)->Apply(Patterns)->Name("CTLEFilterApply");
BENCHMARK(MovingAverageApply)->Apply(Patterns);
BENCHMARK(DfeApply)->Apply(Patterns)->Name("DFEFilterApply");
BENCHMARK(Prepare<Receiver, ReceiverParameters>)->Apply(Patterns)->Name("BesselThomsonPrepare");
BENCHMARK(Prepare<Ctle, CtleParameters>)->Apply(Patterns)->Name("CTLEFilterPrepare");

}  // namespace

}  // namespace Tarnwick::Bench
