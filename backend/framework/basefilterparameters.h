#pragma once

#include <cstdint>
#include <memory>

#include "framework/deviceconfiguration.h"
#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// What every filter's parameters carry: the configuration they were made from, a dirty state and the settings of the
/// noise-preserving correction.
///
/// A new object is dirty. Writing a field does not mark it: the host calls SetDirty(). Copies and assignments carry
/// every field, the configuration and the dirty state.
class TARNWICK_FRAMEWORK_API BaseFilterParameters {
public:
    BaseFilterParameters() = default;
    /// @param config  not owned, must outlive this object; null: no configuration
    explicit BaseFilterParameters(DeviceConfiguration* config) : config_(config) {}

    BaseFilterParameters(const BaseFilterParameters&) = default;
    BaseFilterParameters& operator=(const BaseFilterParameters&) = default;
    // No move: an object that was moved from keeps its frequency grid, pointer and owner alike.
    virtual ~BaseFilterParameters() = default;

    /// The configuration that the parameters were made from; null for parameters made without one.
    DeviceConfiguration* GetConfig() const { return config_; }
    /// True when the parameters have changed since the last ResetDirty().
    bool IsDirty() const { return dirty_; }
    void SetDirty() { dirty_ = true; }
    void ResetDirty() { dirty_ = false; }

    bool preserveNoise = false;  ///< pass the response through DSP_Helpers::preserve_noise_TF
    /// [Hz] where that correction starts: at or above the bandwidth of the signal's own content (the instrument's noise
    /// bandwidth). A corner inside the signal band lifts signal.
    double noiseCornerFrequency = 3.5e10;
    double noiseSecondParameter = 0.0;  ///< [Hz] upper end of the correction; read by the de-embedding filter alone
    std::int32_t channel = 0;           ///< 0 to 3
    double* frequencyGrid = nullptr;    ///< [Hz] the record's frequency axis while Prepare runs; owned by this object
    bool preserveNoiseApplied = false;  ///< written by the correction
    bool frameworkFlag = false;         ///< read by no filter
    std::int64_t frameworkValue = 0;    ///< read by no filter

    /// Replaces the grid that this object owns; null releases it and sets the pointer to null.
    /// @param grid  made by ::operator new; shared by copies of this object, released with the last
    void SetFrequencyGrid(double* grid);

private:
    DeviceConfiguration* config_ = nullptr;
    bool dirty_ = true;
    std::shared_ptr<double> gridOwner_;
};

}  // namespace Tarnwick::DSO::SystemFramework
