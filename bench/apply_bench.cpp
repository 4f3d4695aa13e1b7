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

void BesselThomsonApply(benchmark::State& state)
{
    auto config =
        Locked(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), static_cast<int>(state.range(2)));
    DSO::Filters::BesselThomsonParameters parameters(&config);
    DSO::Filters::BesselThomson filter(&parameters);
    ApplyLoop(state, filter, config);
}

void BesselThomsonPrepare(benchmark::State& state)
{
    auto config =
        Locked(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), static_cast<int>(state.range(2)));
    DSO::Filters::BesselThomsonParameters parameters(&config);
    DSO::Filters::BesselThomson filter(&parameters);
    SignalData signal;
    for (auto _ : state)
        filter.Prepare(&signal);
}

void MovingAverageApply(benchmark::State& state)
{
    auto config =
        Locked(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), static_cast<int>(state.range(2)));
    WindowInConfiguration parameters(&config, 11);
    DSO::Filters::MovingAverageSmoothingFilter filter(&parameters);
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

BENCHMARK(BesselThomsonApply)->Apply(Patterns);
BENCHMARK(MovingAverageApply)->Apply(Patterns);
BENCHMARK(BesselThomsonPrepare)->Apply(Patterns);

}  // namespace

}  // namespace Tarnwick::Bench
