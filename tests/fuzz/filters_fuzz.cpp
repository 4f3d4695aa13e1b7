// A chain of the library's filters that the bytes choose, with settings that they choose, on a record that they choose.
// A refusal in the terms that the filters document is an answer; any other exception ends the run, as a crash does.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "filters/apply.h"
#include "filters/filters.h"
#include "fixtures.h"

namespace {

using namespace Tarnwick;
using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using SystemFramework::BaseFilter;
using SystemFramework::BaseFilterParameters;

constexpr int kLongest = 1024;          // samples of a record, for some hundred runs a second
constexpr double kLongestGrid = 65536;  // samples that a configuration may claim for one
using Limits = std::numeric_limits<double>;
using WholeLimits = std::numeric_limits<std::int32_t>;
constexpr double kReals[] = {0.0,
                             -0.0,
                             -1.0,
                             Limits::quiet_NaN(),
                             Limits::infinity(),
                             -Limits::infinity(),
                             Limits::max(),
                             Limits::lowest(),
                             Limits::min(),
                             Limits::denorm_min(),
                             1e-300,
                             1e15};
constexpr std::int32_t kWholes[] = {-1, WholeLimits::min(), WholeLimits::max(), 46341, 65536, 1 << 24, 0, 3};

// Settings out of the bytes: of the likely range, or now and then what no host should give.
class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size) : bytes_(data, size) {}

    bool IsOver() { return bytes_.remaining_bytes() == 0; }
    bool Flag() { return bytes_.ConsumeBool(); }
    double Real(double lowest, double highest)
    {
        return IsOdd() ? bytes_.PickValueInArray(kReals) : bytes_.ConsumeFloatingPointInRange(lowest, highest);
    }
    std::int32_t Whole(std::int32_t lowest, std::int32_t highest)
    {
        return IsOdd() ? bytes_.PickValueInArray(kWholes) : bytes_.ConsumeIntegralInRange(lowest, highest);
    }
    template <typename Enumeration>
    Enumeration One(std::int32_t highest)
    {
        return static_cast<Enumeration>(Whole(0, highest));
    }
    std::vector<double> Reals(std::size_t most, double magnitude)
    {
        std::vector<double> values(bytes_.ConsumeIntegralInRange<std::size_t>(0, most));
        std::generate(values.begin(), values.end(), [&] { return Real(-magnitude, magnitude); });
        return values;
    }
    template <typename Integer>
    Integer Plain(Integer lowest, Integer highest)
    {
        return bytes_.ConsumeIntegralInRange(lowest, highest);
    }

private:
    bool IsOdd() { return bytes_.ConsumeIntegralInRange(0, 15) == 1; }

    FuzzedDataProvider bytes_;
};

// A configuration with the arrays that it points to.
struct Device {
    DeviceConfiguration config;
    bool optical[4] = {};
    std::string buffer;
};

// A measured impulse response: a few values, behind their interval or without.
std::vector<double> Measured(Choices& choices)
{
    std::vector<double> table = choices.Reals(24, 1.0);
    if (choices.Flag())
        table.insert(table.begin(), choices.Real(1e-12, 1e-10));
    return table;
}

void Choose(Choices& choices, Device& device)
{
    constexpr int kUnlikely = 20;
    DeviceConfiguration& config = device.config;
    config.baudRateGBd = choices.Real(1.0, 60.0);
    config.samplesPerUi = choices.Whole(1, 9);
    config.patternLengthUi = choices.Whole(1, 32);
    config.patternRepeats = choices.Whole(1, 4);
    config.samplesPerPattern =
        choices.Plain(0, kUnlikely) == 1
            ? choices.Whole(0, 300)
            : static_cast<std::int32_t>(static_cast<std::int64_t>(config.samplesPerUi) * config.patternLengthUi);
    config.multiplePatternRecord = choices.Flag();
    config.signalCoding = choices.One<E_SIGNAL_CODING>(SIGNAL_CODING_PAM4_PRECODED);
    config.withoutGrayCoding = choices.Flag();
    config.useUserPattern = choices.Flag();
    config.useFractionalSampling = choices.Plain(0, 3) == 1;
    config.uiDuration = choices.Real(1.0, 8.0);
    config.sampleSpacing = choices.Real(0.5, 1.0);
    config.oeReceiverSelector = choices.Whole(0, 2);
    for (int channel = 0; channel < 4; ++channel) {
        config.patternLocked[channel] = choices.Plain(0, kUnlikely) != 1;
        device.optical[channel] = choices.Plain(0, 3) == 1;
    }
    config.oeChannel = choices.Flag() ? device.optical : nullptr;
    const int symbols = choices.Plain(0, kUnlikely) == 1 ? choices.Plain(0, 40) : std::min(config.patternLengthUi, 64);
    for (int k = 0; k < symbols; ++k)
        config.patternSymbols += static_cast<char>('0' + choices.Plain(0, k % 16 == 15 ? 5 : 3));
    device.buffer = config.patternSymbols;
    config.patternSequenceBuffer = choices.Flag() ? device.buffer.data() : nullptr;

    const auto entries = [&](int most) { return choices.Plain(0, kUnlikely) == 1 ? choices.Plain(0, most) : most; };
    const std::vector<double> table = Measured(choices);
    config.electricalResponseTable.assign(static_cast<std::size_t>(entries(4)), table);
    config.oeResponseTable.assign(static_cast<std::size_t>(entries(12)), table);
    config.referenceTable.assign(static_cast<std::size_t>(entries(4)), Measured(choices));
    config.channelBandwidths.assign(static_cast<std::size_t>(entries(4)), choices.Real(10e9, 50e9));
}

// The samples that the sizes claim for a record. A kernel is that long by its definition, whatever record it then meets,
// so what is claimed without need is not asked for.
bool ClaimsTooMuch(const DeviceConfiguration& config)
{
    const auto isTooMuch = [](double claimed) {
        return claimed > kLongestGrid && claimed <= std::numeric_limits<std::int32_t>::max();
    };
    for (const double perUi : {static_cast<double>(config.samplesPerUi), config.uiDuration / config.sampleSpacing})
        for (const double repeats : {1.0, static_cast<double>(config.patternRepeats)})
            if (isTooMuch(std::abs(perUi * config.patternLengthUi * repeats)))
                return true;
    return isTooMuch(config.samplesPerPattern);
}

struct Step {
    std::unique_ptr<BaseFilterParameters> parameters;
    std::unique_ptr<BaseFilter> filter;
};

template <typename Filter, typename Parameters>
Step Made(std::unique_ptr<Parameters> parameters)
{
    Step step{std::move(parameters), nullptr};
    step.filter = std::make_unique<Filter>(static_cast<Parameters*>(step.parameters.get()));
    return step;
}

template <typename Parameters>
std::unique_ptr<Parameters> Common(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = std::make_unique<Parameters>();
    if (choices.Plain(0, 15) != 1)
        parameters = std::make_unique<Parameters>(config);
    parameters->channel = choices.Plain(0, 7) == 1 ? choices.Whole(0, 4) : 0;
    parameters->preserveNoise = choices.Flag();
    parameters->noiseCornerFrequency = choices.Real(0.0, 50e9);
    parameters->noiseSecondParameter = choices.Real(0.0, 200e9);
    return parameters;
}

Step Smoothing(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = std::make_unique<MovingAverageWindowSmoothingParameters>(choices.Whole(-1, 64));
    if (choices.Flag())
        static_cast<BaseFilterParameters&>(*parameters) = BaseFilterParameters(config);
    return Made<MovingAverageSmoothingFilter>(std::move(parameters));
}

Step Receiver(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = Common<BesselThomsonParameters>(choices, config);
    parameters->order = choices.Whole(1, 17);
    parameters->cutoffPercent = choices.Real(1.0, 200.0);
    parameters->samplesPerPattern = choices.Plain(0, 300);
    parameters->sampleInterval = choices.Real(0.0, 1e-11);
    return Made<BesselThomson>(std::move(parameters));
}

Step LinearEqualiser(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = Common<CTLEFilterParameters>(choices, config);
    parameters->type = choices.One<CTLE_Type>(CTLE_OIF_CEI_112G_LINEAR_PAM4);
    // Presets stand half a dB apart.
    parameters->gain = choices.Flag() ? 0.5 * choices.Whole(-4, 20) : choices.Real(-20.0, 20.0);
    parameters->gain2 = choices.Real(-10.0, 0.0);
    parameters->outputScale = choices.Real(-2.0, 2.0);
    for (double* field : {&parameters->pole1, &parameters->pole2, &parameters->pole3, &parameters->zero1,
                          &parameters->zero2, &parameters->dcGain, &parameters->dcGain2, &parameters->peakingRatio})
        *field = choices.Real(0.0, 50.0);
    return Made<CTLEFilter>(std::move(parameters));
}

Step FeedForwardEqualiser(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = Common<FFEFilterParameters>(choices, config);
    parameters->numberOfTaps = choices.Whole(1, 9);
    parameters->tapsPerUi = choices.Whole(1, 3);
    parameters->mainCursorPosition = choices.Whole(0, 9);
    parameters->useManualTaps = choices.Flag();
    parameters->useTdecqEqualizer = choices.Plain(0, 3) == 1;
    parameters->quantizeTaps = choices.Flag();
    parameters->tapResolution = choices.Whole(1, 64);
    parameters->taps = choices.Reals(9, 2.0);
    parameters->fitAtSamplingPhase = choices.Plain(0, 3) == 1;
    parameters->dfeTaps = choices.Plain(0, 7) == 1 ? choices.Whole(-1, 5) : 0;
    parameters->ridge = choices.Plain(0, 7) == 1 ? choices.Real(-0.1, 1.0) : 0.0;
    parameters->ignoredUi = choices.Plain(0, 3) == 1 ? choices.Whole(-1, 20) : 0;
    return Made<FFEFilter>(std::move(parameters));
}

Step DecisionFeedbackEqualiser(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = Common<DFEFilterParameters>(choices, config);
    parameters->numberOfTaps = choices.Whole(0, 5);
    parameters->useManualTaps = choices.Flag();
    parameters->samplingDelayPs = choices.Real(-100.0, 100.0);
    parameters->taps = choices.Reals(5, 1.0);
    parameters->ignoredUi = choices.Plain(0, 3) == 1 ? choices.Whole(-1, 20) : 0;
    return Made<DFEFilter>(std::move(parameters));
}

Step DeEmbedding(Choices& choices, DeviceConfiguration* config)
{
    static const Fuzz::Fixtures fixtures;
    auto parameters = Common<DeEmbeddingParameters>(choices, config);
    parameters->sparamFileName =
        (fixtures.Folder() / Fuzz::kFixtures[choices.Plain<std::size_t>(0, std::size(Fuzz::kFixtures) - 1)].first)
            .string();
    parameters->portOrder = choices.One<PortOrderS4P>(PORT_ORDER_13_24);
    parameters->conversionFlag = choices.Flag();
    parameters->conversionParameterA = choices.Whole(0, 60);
    parameters->conversionParameterB = choices.Whole(0, 60);
    return Made<DeEmbeddingFilter>(std::move(parameters));
}

Step Correction(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = Common<SircFilterParameters>(choices, config);
    parameters->uiSamples = choices.Real(0.0, 16.0);
    parameters->referenceCutoffPercent = choices.Real(10.0, 100.0);
    return Made<SircFilter>(std::move(parameters));
}

Step Pass(Choices&, DeviceConfiguration* config)
{
    return Made<Copy>(std::make_unique<CopyParameters>(config));
}

constexpr Step (*kFilters[])(Choices&, DeviceConfiguration*) = {
    Pass,        Smoothing, Receiver, LinearEqualiser, FeedForwardEqualiser, DecisionFeedbackEqualiser,
    DeEmbedding, Correction};

std::vector<double> ChosenRecord(Choices& choices, const DeviceConfiguration& config)
{
    const double perUi = config.useFractionalSampling ? config.uiDuration / config.sampleSpacing : config.samplesPerUi;
    const double period = perUi * config.patternLengthUi * config.patternRepeats;
    const bool fits = period >= 1.0 && period <= kLongest;
    const int odd = choices.Plain(0, 7);
    const int count = fits && odd != 1 ? static_cast<int>(period) + (odd == 2 ? 1 : 0) : choices.Plain(0, kLongest);
    // Symbols and an echo of them, plus what the bytes put on top.
    std::vector<double> samples(static_cast<std::size_t>(count));
    const double echo = choices.Plain(-5, 5) / 10.0;
    double last = 0.0;
    for (std::size_t k = 0; k < samples.size(); ++k) {
        const auto ui = static_cast<std::size_t>(perUi >= 1.0 ? static_cast<double>(k) / perUi : 0.0);
        const std::string& symbols = config.patternSymbols;
        const double level = symbols.empty() ? 0.0 : symbols[ui % symbols.size()] - '0';
        samples[k] = level + echo * last;
        last = level;
    }
    for (int touched = choices.Plain(0, 8); touched > 0 && count > 0; --touched)
        samples[choices.Plain<std::size_t>(0, samples.size() - 1)] = choices.Real(-1.0, 1.0);
    return samples;
}

bool AreSame(const std::vector<double>& a, const std::vector<double>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](double x, double y) { return x == y || (std::isnan(x) && std::isnan(y)); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr int kMostFilters = 4;
    Choices choices(data, size);
    Device device;
    Choose(choices, device);
    if (ClaimsTooMuch(device.config))
        return 0;
    std::vector<double> samples = ChosenRecord(choices, device.config);
    for (int k = 0; k < kMostFilters && !choices.IsOver(); ++k) {
        const auto kind = choices.Plain<std::size_t>(0, std::size(kFilters) - 1);
        std::vector<double> given = samples;
        std::optional<std::vector<double>> result;
        try {
            const Step step = kFilters[kind](choices, &device.config);
            result = Filtered(*step.filter, given);
        } catch (const PatternLockFailed&) {      // NOLINT(bugprone-empty-catch): a refusal is an answer
        } catch (const std::invalid_argument&) {  // NOLINT(bugprone-empty-catch)
        } catch (const std::out_of_range&) {      // NOLINT(bugprone-empty-catch)
        } catch (const std::runtime_error&) {     // NOLINT(bugprone-empty-catch)
        }
        if (!AreSame(given, samples))
            std::abort();
        if (result)
            samples = std::move(*result);
    }
    return 0;
}
