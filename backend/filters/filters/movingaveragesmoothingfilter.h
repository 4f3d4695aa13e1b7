// Moving-average smoothing: a centred boxcar of odd length w.
//     y[k] = (1/w) sum_{m=-h..h} x[k - m],  h = (w - 1)/2          H(f) = sin(pi f w/fs) / (w sin(pi f/fs))
// Zero phase, gain 1 at DC, first null at fs/w. In a record cut into several repetitions only m = 0..h act, gain
// (h + 1)/w. Error below (w + 1) eps max|x|. Source: S. W. Smith, "The Scientist and Engineer's Guide to Digital Signal Processing", chapter 15.
#pragma once

#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/export.h"

namespace Tarnwick::DSO::Filters {

class TARNWICK_FILTERS_API MovingAverageWindowSmoothingParameters : public SystemFramework::BaseFilterParameters {
public:
    MovingAverageWindowSmoothingParameters() = default;
    MovingAverageWindowSmoothingParameters(int windowLength) : WindowLength(windowLength) {}

    int WindowLength = 0;  ///< samples averaged; replaced by the odd length of at least 3 that is used
};

class TARNWICK_FILTERS_API MovingAverageSmoothingFilter : public SystemFramework::BaseFilter {
public:
    /// @param parameters  not owned, must outlive the filter
    /// @throws PatternLockFailed      the configuration reports no lock on parameters->channel
    /// @throws std::invalid_argument  parameters is null, or its channel is outside 0 to 3
    MovingAverageSmoothingFilter(MovingAverageWindowSmoothingParameters* parameters);

    /// The circular kernel for a record of signal->sampleCount (N) samples; lag -m stands at index N - m.
    /// @return new array of N values, sum 1 while w <= N; the caller releases it with ::operator delete
    /// @throws std::invalid_argument  half the window reaches round the whole record; WindowLength is then unchanged
    double* MovingAverageSmoothing(MovingAverageWindowSmoothingParameters* parameters,
                                   SystemFramework::SignalData* signal);

    /// Builds the kernel for records of signal->sampleCount samples and clears the parameters' dirty state.
    void Prepare(SystemFramework::SignalData* signal) override;

    /// @return new array of sampleCount values, zero past the last whole repetition; the caller releases it with
    ///         ::operator delete. Null: the record is shorter than one repetition.
    /// @throws std::invalid_argument  a bad record, a repetition without samples, or a kernel shorter than a repetition
    double* Apply(SystemFramework::SignalData* signal) override;
};

}  // namespace Tarnwick::DSO::Filters
