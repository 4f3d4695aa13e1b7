// What a capture holds, and what its signal is worth, as text and JSON.
#pragma once

#include <string>

#include "framework/export.h"
#include "workbench/acquisition.h"
#include "workbench/eyereport.h"
#include "workbench/signalquality.h"

namespace Tarnwick::DSO::Workbench {

/// A line a figure.
TARNWICK_WORKBENCH_API std::string ContentAsText(const CaptureContent& content);

/// {"samples", "interval", "min", "max", "mean", "rms", "samplesPerUi", "symbolRateGBd", "period", "levels"}, indented by
/// two; null where nothing was found. "samplesPerUi" and "period" are {"value", "confidence"}.
TARNWICK_WORKBENCH_API std::string ContentAsJson(const CaptureContent& content);

/// A line a figure; with a TDECQ also what it assumes.
TARNWICK_WORKBENCH_API std::string QualityAsText(const SignalQuality& quality, const SignalDescription& signal,
                                                 ZeroVolts zero = ZeroVolts::Unknown);

/// {"coding", "samplesPerUi", "patternLengthUi", "levels", "eyes", "phaseUi", "ber", "noiseRms", "symbolsKnown", "valid",
/// "oma", "extinctionRatioDb", "targetBer", "bathtub", "symbolQuality", "rlm", "tdecqDb", ...}, indented by two; null where
/// there is no figure. "bathtub" is a list of {"offsetUi", "ber", "openings": [{"low", "high"}]}. With an equaliser its
/// "taps", "mainCursor" (from 1), "equalisedOma", "tolerableNoiseRms", "noiseGain" and the "assumptions", otherwise
/// "whyNoTdecq".
TARNWICK_WORKBENCH_API std::string QualityAsJson(const SignalQuality& quality, const SignalDescription& signal,
                                                 ZeroVolts zero = ZeroVolts::Unknown);

}  // namespace Tarnwick::DSO::Workbench
