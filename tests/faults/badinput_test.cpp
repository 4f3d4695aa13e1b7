// Bad input to every filter: each case ends in a defined result or in one exception with its whole text, and afterwards
// the same object filters good input as before. What one filter alone refuses stands in that filter's own tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "faults/everyfilter.h"
#include "filters/filters.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using SystemFramework::BaseFilterParameters;
using SystemFramework::SignalData;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kLargest = std::numeric_limits<int>::max();
constexpr int kSmallest = std::numeric_limits<int>::min();

// A record, and what a host may get wrong about it.
struct Input {
    std::vector<double> samples;
    std::optional<int> sampleCount;
    bool hasSamples = true;
    bool hasSignal = true;
};

struct Case {
    Rig& rig;
    DeviceConfiguration& config;
    BaseFilterParameters& parameters;
    Input& input;
    BaseFilterParameters& other;  // of no filter
};

// What Apply comes to: "filtered", "not finite" (an array, some of its values), "null", or the text of the std::invalid_argument.
std::string OutcomeOf(Rig& rig, Input& input)
{
    SignalData signal;
    signal.sampleCount = input.sampleCount.value_or(static_cast<int>(input.samples.size()));
    signal.samples = input.hasSamples ? input.samples.data() : nullptr;
    try {
        double* const output = rig.Filter().Apply(input.hasSignal ? &signal : nullptr);
        if (output == nullptr)
            return "null";
        const auto values = Take(output, input.samples.size());
        const bool isFinite =
            std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
        return isFinite ? "filtered" : "not finite";
    } catch (const std::invalid_argument& error) {
        return error.what();
    } catch (const std::exception& error) {
        return std::string("no invalid argument: ") + error.what();
    }
}

struct Expected {
    const char* who;   // names of kinds or of their filters; the first that fits counts, "*" fits all
    const char* what;  // "@" stands for the filter's name
};

using Spoil = std::function<void(const Case& with)>;

struct Row {
    const char* label;
    Spoil spoil;
    std::vector<Expected> outcomes;
};

template <typename Class, typename Value>
Spoil Set(Value Class::*field, std::type_identity_t<Value> value)
{
    return [=](const Case& with) {
        if constexpr (std::is_same_v<Class, DeviceConfiguration>)
            with.config.*field = value;
        else
            dynamic_cast<Class&>(with.parameters).*field = value;
    };
}

Spoil Sample(double value)
{
    return [=](const Case& with) { with.input.samples[5] = value; };
}

Spoil Samples(std::size_t count)
{
    return [=](const Case& with) { with.input.samples.resize(count); };
}

Spoil FractionalSampling(double uiDuration, double sampleSpacing)
{
    return [=](const Case& with) { with.config = FractionallySampled(with.config, uiDuration, sampleSpacing); };
}

// A TDECQ equaliser with these taps.
Spoil TdecqOf(int numberOfTaps, std::vector<double> taps)
{
    return [numberOfTaps, taps = std::move(taps)](const Case& with) {
        auto& ffe = dynamic_cast<FFEFilterParameters&>(with.parameters);
        ffe.useTdecqEqualizer = ffe.useManualTaps = true;
        ffe.fitAtSamplingPhase = false;
        ffe.dfeTaps = 0;
        ffe.numberOfTaps = numberOfTaps;
        ffe.taps = taps;
    };
}

Spoil ConstantWithoutPattern()
{
    return [](const Case& with) {
        with.config.useUserPattern = false;
        std::fill(with.input.samples.begin(), with.input.samples.end(), 0.25);
    };
}

constexpr const char* kFiltered = "filtered";
constexpr const char* kNotFinite = "not finite";
constexpr const char* kNull = "null";
#define NO_CAPTURE "; expected a record that follows the pattern's symbols"
#define NO_COUNT "; expected a finite number of at most 2147483647"

using Config = DeviceConfiguration;

const std::vector<Row> kRows = {
    // Records
    {"no signal",
     [](const Case& with) { with.input.hasSignal = false; },
     {{"FFEFilter", "Cannot Prepare FFE Filter Without a signal"},
      {"DFEFilter", "Cannot Prepare DFE Filter Without a signal"},
      {"Sirc", kNull},
      {"*", "@: signal is null; expected a captured waveform"}}},
    {"no signal where nothing is to be prepared",
     [](const Case& with) {
         with.input.hasSignal = false;
         with.parameters.ResetDirty();
     },
     {{"Sirc", kNull}, {"*", "@: signal is null; expected a captured waveform"}}},
    {"neither signal nor configuration",
     [](const Case& with) {
         with.input.hasSignal = false;
         with.parameters = BaseFilterParameters();
     },
     {{"FFEFilter", "Cannot Prepare FFE Filter Without a signal"},
      {"DFEFilter", "Cannot Prepare DFE Filter Without a signal"},
      {"Sirc", kNull},
      {"*", "@: signal is null; expected a captured waveform"}}},
    {"samples that are null",
     [](const Case& with) { with.input.hasSamples = false; },
     {{"*", "@: samples is null; expected an array of sampleCount values"}}},
    {"fewer than no samples",
     [](const Case& with) { with.input.sampleCount = -1; },
     {{"*", "@: sampleCount is -1; expected 0 or more samples"}}},
    {"no samples",
     Samples(0),
     {{"Copy", kFiltered},
      {"Sirc", kNull},
      {"BesselThomson", "@: sampleCount is 0; expected at least one pattern of 124 samples"},
      {"MovingAverage", "@: WindowLength is 5; expected half a window shorter than the record of 0 samples"},
      {"*", "@: sampleCount is 0; expected at least one repetition of 124 samples"}}},
    {"half a repetition",
     Samples(62),
     {{"Copy", kFiltered},
      {"Sirc MovingAverage", kNull},
      {"BesselThomson", "@: sampleCount is 62; expected at least one pattern of 124 samples"},
      {"*", "@: sampleCount is 62; expected at least one repetition of 124 samples"}}},
    {"a repetition and a half",
     Samples(186),
     {{"FfeManual", kFiltered},
      {"FFEFilter", "@: sampleCount is 186; expected a whole number of repetitions of 124 samples"},
      {"*", kFiltered}}},
    {"a NaN",
     Sample(kNan),
     {{"FfeManual", kNotFinite}, {"FFEFilter", "@: samples[5] is nan; expected a finite value"}, {"*", kNotFinite}}},
    {"an infinity",
     Sample(kInfinity),
     {{"FfeManual DfeManual", kNotFinite},
      {"FFEFilter", "@: samples[5] is inf; expected a finite value"},
      {"DFEFilter", "@: main cursor is not positive at any sampling delay" NO_CAPTURE},
      {"*", kNotFinite}}},

    // Sizes
    {"no samples per UI",
     Set(&Config::samplesPerUi, 0),
     {{"Copy", kFiltered},
      {"MovingAverage", "@: samplesPerUi * patternLengthUi is 0; expected at least 1 sample"},
      {"BesselThomson", "@: samples per UI is 0; expected at least 1"},
      {"CTLEFilter", "@: patternLengthUi * samplesPerUi is 0; expected at least 1 sample"},
      {"Sirc", "@: uiSamples is 0; expected a finite positive number of samples"},
      {"DeEmbeddingFilter", "@: samplesPerUi * patternLengthUi is 0; expected at least 1 sample"},
      {"*", "@: samplesPerUi is 0; expected at least 1"}}},
    {"a negative number of samples per UI",  // for a moving average: fewer than no repetitions, none of them written
     Set(&Config::samplesPerUi, -4),
     {{"Copy MovingAverage", kFiltered},
      {"BesselThomson", "@: samples per UI is -4; expected at least 1"},
      {"CTLEFilter", "@: patternLengthUi * samplesPerUi is -124; expected at least 1 sample"},
      {"Sirc", "@: uiSamples is -4; expected a finite positive number of samples"},
      {"DeEmbeddingFilter", "@: samplesPerUi * patternLengthUi is -124; expected at least 1 sample"},
      {"*", "@: samplesPerUi is -4; expected at least 1"}}},
    {"a negative pattern length",
     Set(&Config::patternLengthUi, -31),
     {{"Copy MovingAverage", kFiltered},
      {"CTLEFilter", "@: patternLengthUi * samplesPerUi is -124; expected at least 1 sample"},
      {"Sirc", "@: patternLengthUi * uiSamples is -124; expected at least 1 sample"},
      {"DeEmbeddingFilter", "@: samplesPerUi * patternLengthUi is -124; expected at least 1 sample"},
      {"*", "@: patternLengthUi is -31; expected at least 1 UI"}}},
    {"a pattern of more than 2^31 samples",
     Set(&Config::patternLengthUi, kLargest),
     {{"Copy", kFiltered},
      {"MovingAverage BesselThomson DeEmbeddingFilter",
       "@: samplesPerUi * patternLengthUi is 8589934588; expected at most 2147483647"},
      {"Sirc", "@: patternLengthUi * uiSamples is 8589934588" NO_COUNT},
      {"*", "@: sampleCount is 248; expected at least one repetition of 8589934588 samples"}}},
    {"a record of more than 2^31 samples",
     Set(&Config::patternRepeats, 17318417),
     {{"BesselThomsonNoise DeEmbeddingNoise",
       "@: patternRepeats * patternLengthUi * samplesPerUi is 2147483708; expected at most 2147483647"},
      {"CTLEFilter", "@: patternRepeats * samplesPerUi * patternLengthUi is 2147483708; expected at most 2147483647"},
      {"*", kFiltered}}},
    {"no repetitions",  // counted in the record: a grid over none has no frequencies, and such a CTLE no taps
     Set(&Config::patternRepeats, 0),
     {{"*", kFiltered}}},
    {"fewer than no repetitions",
     Set(&Config::patternRepeats, -1),
     {{"CtlePeakingNoise", "@: patternRepeats * samplesPerUi * patternLengthUi is -124; expected 0 or more samples"},
      {"DeEmbeddingNoise BesselThomsonNoise",
       "@: patternRepeats * patternLengthUi * samplesPerUi is -124; expected 0 or more samples"},
      {"*", kFiltered}}},
    {"no samples in a pattern",
     Set(&Config::samplesPerPattern, 0),
     {{"DeEmbeddingFilter", "@: samplesPerPattern is 0; expected at least 1 sample"}, {"*", kFiltered}}},
    {"a UI of NaN",
     FractionalSampling(kNan, 1.0),
     {{"Copy", kFiltered},
      {"MovingAverage", "@: patternLengthUi * (uiDuration / sampleSpacing) is nan; expected at least 1 sample"},
      {"BesselThomson DeEmbeddingFilter", "@: patternLengthUi * uiDuration / sampleSpacing is nan" NO_COUNT},
      {"CTLEFilter", "@: patternLengthUi * samplesPerUi is nan; expected at least 1 sample"},
      {"Sirc", "@: uiSamples is nan; expected a finite positive number of samples"},
      {"*", "@: uiDuration / sampleSpacing is nan" NO_COUNT}}},
    {"samples that are not spaced",
     FractionalSampling(4.0, 0.0),
     {{"Copy", kFiltered},
      {"MovingAverage", kNull},
      {"BesselThomson DeEmbeddingFilter", "@: patternLengthUi * uiDuration / sampleSpacing is inf" NO_COUNT},
      {"CTLEFilter", "@: sampleCount is 248; expected at least one repetition of inf samples"},
      {"Sirc", "@: uiSamples is inf; expected a finite positive number of samples"},
      {"*", "@: uiDuration / sampleSpacing is inf" NO_COUNT}}},

    // Rates and frequencies
    {"no symbol rate",
     Set(&Config::baudRateGBd, 0.0),
     {{"Copy MovingAverage", kFiltered},
      {"DeEmbeddingFilter", "@: baudRateGBd is 0; expected a finite positive symbol rate in GBd"},
      {"*", "@: baudRateGBd is 0; expected a finite positive symbol rate"}}},
    {"a symbol rate of NaN",
     Set(&Config::baudRateGBd, -kNan),  // whatever its sign
     {{"Copy MovingAverage", kFiltered},
      {"DeEmbeddingFilter", "@: baudRateGBd is nan; expected a finite positive symbol rate in GBd"},
      {"*", "@: baudRateGBd is nan; expected a finite positive symbol rate"}}},
    {"an infinite symbol rate",
     Set(&Config::baudRateGBd, kInfinity),
     {{"Copy MovingAverage", kFiltered},
      {"DeEmbeddingFilter", "@: baudRateGBd is inf; expected a finite positive symbol rate in GBd"},
      {"*", "@: baudRateGBd is inf; expected a finite positive symbol rate"}}},
    {"a noise corner of NaN",
     Set(&BaseFilterParameters::noiseCornerFrequency, kNan),
     {{"BesselThomson CTLEFilter DeEmbeddingNoise",
       "@: noiseCornerFrequency is nan; expected a finite frequency in hertz"},
      {"*", kFiltered}}},
    {"an infinite end of the noise",
     Set(&BaseFilterParameters::noiseSecondParameter, kInfinity),
     {{"DeEmbeddingNoise", "@: noiseSecondParameter is inf; expected a finite frequency in hertz"}, {"*", kFiltered}}},

    // Channels, enumerators, patterns
    {"a channel below all",
     Set(&BaseFilterParameters::channel, kSmallest),
     {{"BesselThomson Sirc", "@: channel is -2147483648; expected 0 to 3"}, {"*", kFiltered}}},
    {"a coding without a name",
     Set(&Config::signalCoding, static_cast<E_SIGNAL_CODING>(99)),
     {{"DFEFilter", "@: signalCoding is 99; expected NRZ, PAM3, PAM4 or precoded PAM4"}, {"*", kFiltered}}},
    {"a receiver without a name", Set(&Config::oeReceiverSelector, 77), {{"Sirc", kFiltered}}},
    {"a CTLE without a name",  // is the peaking one
     Set(&CTLEFilterParameters::type, static_cast<CTLE_Type>(99)),
     {{"CTLEFilter", kFiltered}}},
    {"a port order without a name",
     Set(&DeEmbeddingParameters::portOrder, static_cast<PortOrderS4P>(99)),
     {{"DeEmbeddingFilter", kFiltered}}},
    {"no symbols",
     Set(&Config::patternSymbols, ""),
     {{"FFEFilter",
       "@: patternSymbols is empty; expected the pattern's symbols, of which a record of several repetitions is "
       "counted"},
      {"DfeManual", kFiltered},
      {"DFEFilter", "@: length of patternSymbols is 0; expected patternLengthUi, 31"},
      {"*", kFiltered}}},
    {"a symbol too many",
     [](const Case& with) { with.config.patternSymbols += '0'; },
     {{"FfeAutomatic FfeTdecq", "@: sampleCount is 248; expected a whole number of repetitions of 128 samples"},
      {"DfePam4", "@: length of patternSymbols is 32; expected patternLengthUi, 31"}}},
    {"a symbol of no level",
     [](const Case& with) { with.config.patternSymbols[7] = '9'; },
     {{"FfeTdecq DfePam4", "@: symbols[7] is '9'; expected '0' to '3'"}}},
    {"a constant in which symbols are to be detected",
     ConstantWithoutPattern(),
     {{"FfeTdecq", "@: samples is constant, 0.25; expected a capture of the pattern"},
      {"DfePam4", "@: quality of the four levels is inf; expected at most 0.05, as of a PAM4 pattern"}}},
    {"no parameters",
     [](const Case& with) { with.rig.Filter().parameters = nullptr; },
     {{"Copy", kFiltered}, {"*", "@: parameters is null; expected a parameters object"}}},
    {"no configuration",  // for a moving average: the whole record is one period
     [](const Case& with) { with.parameters = BaseFilterParameters(); },
     {{"Copy MovingAverage", kFiltered},
      {"Sirc", "@: configuration is null; expected the device configuration, which holds the pattern length"},
      {"*", "@: configuration is null; expected the device configuration, which holds the symbol rate"}}},
    {"parameters of another filter",
     [](const Case& with) { with.rig.Filter().parameters = &with.other; },
     {{"Copy", kFiltered}, {"*", "@: parameters is of another filter; expected a parameters object of its own"}}},

    // Settings of one filter
    {"the longest window",
     Set(&MovingAverageWindowSmoothingParameters::WindowLength, kLargest),
     {{"MovingAverage",
       "@: WindowLength is 2147483647; expected half a window shorter than the record of 248 samples"}}},
    {"the shortest window",  // is of 3 samples
     Set(&MovingAverageWindowSmoothingParameters::WindowLength, kSmallest),
     {{"MovingAverage", kFiltered}}},
    {"an infinite cutoff",
     Set(&BesselThomsonParameters::cutoffPercent, kInfinity),
     {{"BesselThomson", "@: cutoffPercent is inf; expected a finite positive percentage"}}},
    {"an infinite gain",
     Set(&CTLEFilterParameters::gain, -kInfinity),
     {{"CtleHdmi20", "@: gain is -inf dB; expected -20 to 20 dB at half the symbol rate"},
      {"CtlePeaking CtleHdmi CtleOif", "@: gain is -inf; expected a finite number"}}},
    {"a pole of NaN",  // which the other variants write themselves
     Set(&CTLEFilterParameters::pole1, kNan),
     {{"CtleOif", "@: pole1 is nan; expected a finite number"}, {"CTLEFilter", kFiltered}}},
    {"a pole at zero", Set(&CTLEFilterParameters::pole1, 0.0), {{"CtleOif", kNotFinite}, {"CTLEFilter", kFiltered}}},
    {"a main cursor below all",  // is to be searched
     Set(&FFEFilterParameters::mainCursorPosition, kSmallest),
     {{"FFEFilter", kFiltered}}},
    {"more taps than can be counted",
     Set(&FFEFilterParameters::numberOfTaps, kLargest),
     {{"FFEFilter", "@: numberOfTaps is 2147483647; expected at most 1048576 taps"}}},
    {"more taps than were prepared",
     [](const Case& with) {
         dynamic_cast<FFEFilterParameters&>(with.parameters).numberOfTaps = 100;
         with.parameters.ResetDirty();
     },
     {{"FfeManual", "@: number of kernel taps is 8; expected at least 200; call Prepare"},
      {"FfeTdecq", "@: number of kernel taps is 124; expected at least 400; call Prepare"}}},
    {"a TDECQ equaliser without taps",
     TdecqOf(0, {}),
     {{"FFEFilter", "@: numberOfTaps is 0; expected at least 1 for the TDECQ equaliser"}}},
    {"a TDECQ equaliser that passes no direct voltage",
     TdecqOf(2, {1.0, -1.0}),
     {{"FFEFilter", "@: sum of the taps is 0; expected a finite number other than 0 for the TDECQ equaliser"}}},
    {"an infinite delay",
     Set(&DFEFilterParameters::samplingDelayPs, kInfinity),
     {{"DFEFilter", "@: samplingDelayPs is inf; expected a finite time in picoseconds"}}},
    {"fewer than no feedback taps",
     Set(&DFEFilterParameters::numberOfTaps, kSmallest),
     {{"DFEFilter", "@: numberOfTaps is -2147483648; expected 0 or more taps"}}},
    {"an infinite reference cutoff",
     Set(&SircFilterParameters::referenceCutoffPercent, kInfinity),
     {{"Sirc", "@: referenceCutoffPercent is inf; expected a finite positive percentage of the symbol rate"}}},
    {"an infinite channel bandwidth",
     [](const Case& with) { with.config.channelBandwidths[0] = kInfinity; },
     {{"Sirc", "@: channelBandwidth is inf; expected a finite positive frequency in hertz"}}},
    {"an infinity in the measured response",
     [](const Case& with) { with.config.electricalResponseTable[0][3] = kInfinity; },
     {{"Sirc", "no invalid argument: SRC not configured properly."}}},
    {"no measured response",
     [](const Case& with) { with.config.electricalResponseTable[0].clear(); },
     {{"Sirc", "@: kernel is null; expected a kernel made by Prepare or assigned by the host"}}},
    {"a negative boost",
     Set(&DeEmbeddingParameters::conversionParameterA, -1),
     {{"DeEmbeddingFilter", "@: conversionParameterA is -1; expected 0 dB of boost or more"}}},
    {"a negative bandwidth",
     Set(&DeEmbeddingParameters::conversionParameterB, -1),
     {{"DeEmbeddingFilter", "@: conversionParameterB is -1; expected a bandwidth of 0 GHz or more"}}},
    {"a folder instead of a file",
     Set(&DeEmbeddingParameters::sparamFileName, "."),
     {{"DeEmbeddingFilter", "@: data is empty; expected two frequencies or more (file missing or unreadable?)"}}},
    {"no kernel",
     [](const Case& with) {
         with.rig.Filter().kernel = nullptr;
         with.parameters.ResetDirty();
     },
     {{"Copy CTLEFilter DFEFilter DeEmbeddingFilter", kFiltered},
      {"*", "@: kernel is null; expected a kernel made by Prepare or assigned by the host"}}},
};

std::optional<std::string> ExpectedOf(const Row& row, const FilterKind& kind)
{
    for (const auto& [who, what] : row.outcomes) {
        const std::string names = std::string(" ") + who + " ";
        const auto has = [&](const std::string& name) { return names.find(" " + name + " ") != std::string::npos; };
        if (has(kind.name) || has(kind.filter) || has("*"))
            return *what == '@' ? kind.filter + (what + 1) : std::string(what);
    }
    return std::nullopt;
}

class BadInput : public testing::TestWithParam<FilterKind> {};

TEST_P(BadInput, EndsAsItsRowSaysAndSpoilsNothing)
{
    const std::unique_ptr<Rig> rig = GetParam().make(kSamplesPerUi);
    for (const Row& row : kRows) {
        const auto expected = ExpectedOf(row, GetParam());
        if (!expected)
            continue;
        SCOPED_TRACE(row.label);
        const std::vector<double> good = rig->Apply(rig->first);
        const std::vector<double> prepared = rig->Prepared();
        const DeviceConfiguration config = rig->config;
        const std::unique_ptr<BaseFilterParameters> parameters = rig->CopyOfParameters();

        Input input{rig->first, {}};
        BaseFilterParameters other;
        rig->Parameters().SetDirty();
        row.spoil({*rig, rig->config, rig->Parameters(), input, other});
        const std::string outcome = OutcomeOf(*rig, input);
        EXPECT_EQ(outcome, *expected);
        // Every text names the filter; that of a bad SiRC table is one that hosts know word by word.
        EXPECT_TRUE(outcome.find(": ") == std::string::npos || outcome.rfind(GetParam().filter + ": ", 0) == 0 ||
                    outcome == "no invalid argument: SRC not configured properly.");
        // Refused before anything was prepared.
        const bool isAsBefore = rig->Parameters().IsDirty() && outcome.find(": ") != std::string::npos;

        rig->Filter().parameters = &rig->Parameters();
        rig->config = config;
        rig->Restore(*parameters);
        EXPECT_TRUE(!isAsBefore || HaveSameBits(rig->Prepared(), prepared)) << "half prepared";
        rig->Parameters().SetDirty();
        EXPECT_TRUE(HaveSameBits(rig->Apply(rig->first), good)) << "not as before";
    }
}

INSTANTIATE_TEST_SUITE_P(Every, BadInput, testing::ValuesIn(EveryFilter()),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
