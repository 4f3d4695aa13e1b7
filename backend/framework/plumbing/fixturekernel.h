// The kernel that removes a measured fixture or adds it, from checked settings. The public operation and the de-embedding
// filter share the checks, and each refuses in its own name.
#pragma once

#include <complex>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// Where noise is preserved.
struct NoiseBand {
    double corner;  // [Hz]
    double upper;   // [Hz] 200 GHz where that does not lie above the corner
};

/// The settings as SParameter::ConvertSparamFilterDataToImpulseResponse describes them.
struct FixtureSettings {
    double baudRateGBd;
    int samplesPerPattern;
    int patternLengthUi;
    bool conversionFlag;       // true: remove the fixture; false: add it
    int conversionParameterA;  // [dB]
    int conversionParameterB;  // [GHz]
    std::optional<NoiseBand> noise;
};

struct FixtureKernel {
    std::vector<double> taps;  // samplesPerPattern of them
    bool noisePreserved;
};

/// @throws std::invalid_argument  settings or data from which no kernel can be made
TARNWICK_FRAMEWORK_API FixtureKernel MakeFixtureKernel(std::string_view where, const FixtureSettings& settings,
                                                       const std::map<double, std::complex<double>>& data);

}  // namespace Tarnwick::DSO::SystemFramework
