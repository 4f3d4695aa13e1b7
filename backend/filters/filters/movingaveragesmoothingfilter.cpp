#include "filters/filters/movingaveragesmoothingfilter.h"

#include <string>

#include "filters/plumbing/channel.h"
#include "filters/plumbing/repetitions.h"
#include "filters/plumbing/settings.h"
#include "filters/plumbing/timebase.h"
#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/responses/movingaverage.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::NewArrayFrom;
using SystemFramework::Refuse;
using SystemFramework::SignalData;

namespace {

constexpr const char* kMovingAverageFilter = "MovingAverageSmoothingFilter";

std::vector<double> Boxcar(MovingAverageWindowSmoothingParameters* parameters, const SignalData* signal)
{
    (void)ParametersOf<MovingAverageWindowSmoothingParameters>(kMovingAverageFilter, parameters);
    const std::size_t recordLength = SamplesOf(kMovingAverageFilter, signal).size();
    const int window = Maths::OddWindow(parameters->WindowLength);
    if (static_cast<std::size_t>(window / 2) >= recordLength)
        Refuse(kMovingAverageFilter, "WindowLength", parameters->WindowLength,
               "half a window shorter than the record of " + std::to_string(recordLength) + " samples");
    std::vector<double> taps = Maths::CentredBoxcar(window, recordLength);
    parameters->WindowLength = window;
    return taps;
}

}  // namespace

MovingAverageSmoothingFilter::MovingAverageSmoothingFilter(MovingAverageWindowSmoothingParameters* parameters)
{
    RequirePatternLock(kMovingAverageFilter, parameters);
    this->parameters = parameters;
    flag2 = true;
}

double* MovingAverageSmoothingFilter::MovingAverageSmoothing(MovingAverageWindowSmoothingParameters* parameters,
                                                             SignalData* signal)
{
    const std::vector<double> taps = Boxcar(parameters, signal);
    return NewArrayFrom<double>(taps).release();
}

void MovingAverageSmoothingFilter::Prepare(SignalData* signal)
{
    SetKernel(Boxcar(&ParametersOf<MovingAverageWindowSmoothingParameters>(kMovingAverageFilter, parameters), signal));
    notPrepared = false;
    parameters->ResetDirty();
}

double* MovingAverageSmoothingFilter::Apply(SignalData* signal)
{
    const std::span<const double> record = SamplesOf(kMovingAverageFilter, signal);
    const DeviceConfiguration* config =
        ParametersOf<MovingAverageWindowSmoothingParameters>(kMovingAverageFilter, parameters).GetConfig();
    const auto repetitions = [&] {
        return config != nullptr ? WholeRepetitions(kMovingAverageFilter, *config, signal->sampleCount) : 1;
    };
    if (!IsDerivedByHost(*this))
        (void)repetitions();
    if (parameters->IsDirty()) {
        Prepare(signal);
        parameters->ResetDirty();
    }
    const int count = repetitions();
    if (count == 0)
        return nullptr;
    // The kernel is as long as the record. Of several repetitions each meets only its first `length` taps, so the lags
    // wrapped to the far end drop out and what remains is a trailing average. Deliberate.
    const Repetitions cut(signal->sampleCount, count);
    return ConvolveRepetitions(record, cut, KernelTaps(kMovingAverageFilter, cut.length), Convolver()).release();
}

}  // namespace Tarnwick::DSO::Filters
