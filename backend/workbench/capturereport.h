// What a capture holds, and what its signal is worth, as text and JSON.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "framework/export.h"
#include "workbench/eyereport.h"
#include "workbench/lock.h"
#include "workbench/signalquality.h"
#include "workbench/statistics.h"
#include "workbench/waveform.h"

namespace Tarnwick::DSO::Workbench {

/// What a capture shows of itself.
struct CaptureContent {
    std::size_t sampleCount = 0;
    double interval = 0.0;  ///< [s] 0: not in the file
    SampleStatistics statistics;
    std::optional<LockReport> acquisition;
    std::string whyNoAcquisition;
};

/// @param capture  at least one sample
/// @param name     the capture's, for messages
/// @throws DataFailure  a sample is not finite
TARNWICK_WORKBENCH_API CaptureContent FindContent(const Waveform& capture, const CaptureFacts& facts,
                                                  const std::string& name);

/// A line a figure.
TARNWICK_WORKBENCH_API std::string ContentAsText(const CaptureContent& content);

/// {"samples", "interval", "min", "max", "mean", "rms", "acquisition", "whyNoAcquisition"}, indented by two; null where
/// nothing was found. "acquisition" is as LockAsJson has it.
TARNWICK_WORKBENCH_API std::string ContentAsJson(const CaptureContent& content);

/// A line a figure; with a TDECQ also what it assumes.
TARNWICK_WORKBENCH_API std::string QualityAsText(const LockedCapture& capture, const SignalQuality& quality,
                                                 ZeroVolts zero = ZeroVolts::Unknown);

/// {"acquisition", "coding", "samplesPerUi", "patternLengthUi", "levels", "eyes", "phaseUi", "ber", "noiseRms", "symbolsKnown", "valid",
/// "oma", "extinctionRatioDb", "targetBer", "bathtub", "symbolQuality", "rlm", "tdecqDb", ...}, indented by two; null where
/// there is no figure. "acquisition" is as LockAsJson has it; "patternLengthUi" is null of a single shot. "bathtub" is a list of {"offsetUi", "ber", "openings": [{"low", "high"}]}. With an equaliser its
/// "taps", "mainCursor" (from 1), "equalisedOma", "tolerableNoiseRms", "noiseGain" and the "assumptions", otherwise
/// "whyNoTdecq".
TARNWICK_WORKBENCH_API std::string QualityAsJson(const LockedCapture& capture, const SignalQuality& quality,
                                                 ZeroVolts zero = ZeroVolts::Unknown);

}  // namespace Tarnwick::DSO::Workbench
