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

#include "faults/everyfilter.h"
#include "filters/apply.h"
#include "filters/filters/patternlockfailed.h"
#include "fixtures.h"
#include "framework/deviceconfiguration.h"
#include "framework/signalcoding.h"

namespace {

using namespace Tarnwick;
using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

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

class BytesAsChoices : public Choices {
public:
    BytesAsChoices(const std::uint8_t* data, std::size_t size) : bytes_(data, size) {}

    bool IsOver() { return bytes_.remaining_bytes() == 0; }
    bool Flag() override { return bytes_.ConsumeBool(); }
    double Real(double lowest, double highest) override
    {
        return IsOdd() ? bytes_.PickValueInArray(kReals) : bytes_.ConsumeFloatingPointInRange(lowest, highest);
    }
    std::int32_t Whole(std::int32_t lowest, std::int32_t highest) override
    {
        return IsOdd() ? bytes_.PickValueInArray(kWholes) : bytes_.ConsumeIntegralInRange(lowest, highest);
    }
    int Within(int lowest, int highest) override { return bytes_.ConsumeIntegralInRange(lowest, highest); }
    std::string File() override
    {
        static const Fuzz::Fixtures fixtures;
        return (fixtures.Folder() / bytes_.PickValueInArray(Fuzz::kFixtures).first).string();
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
        choices.Within(0, kUnlikely) == 1
            ? choices.Whole(0, 300)
            : static_cast<std::int32_t>(static_cast<std::int64_t>(config.samplesPerUi) * config.patternLengthUi);
    config.multiplePatternRecord = choices.Flag();
    config.signalCoding = choices.One<E_SIGNAL_CODING>(SIGNAL_CODING_PAM4_PRECODED);
    config.withoutGrayCoding = choices.Flag();
    config.useUserPattern = choices.Flag();
    config.useFractionalSampling = choices.Within(0, 3) == 1;
    config.uiDuration = choices.Real(1.0, 8.0);
    config.sampleSpacing = choices.Real(0.5, 1.0);
    config.oeReceiverSelector = choices.Whole(0, 2);
    for (int channel = 0; channel < 4; ++channel) {
        config.patternLocked[channel] = choices.Within(0, kUnlikely) != 1;
        device.optical[channel] = choices.Within(0, 3) == 1;
    }
    config.oeChannel = choices.Flag() ? device.optical : nullptr;
    const int symbols =
        choices.Within(0, kUnlikely) == 1 ? choices.Within(0, 40) : std::min(config.patternLengthUi, 64);
    for (int k = 0; k < symbols; ++k)
        config.patternSymbols += static_cast<char>('0' + choices.Within(0, k % 16 == 15 ? 5 : 3));
    device.buffer = config.patternSymbols;
    config.patternSequenceBuffer = choices.Flag() ? device.buffer.data() : nullptr;

    const auto entries = [&](int most) { return choices.Within(0, kUnlikely) == 1 ? choices.Within(0, most) : most; };
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

// Each filter once, of whatever kind.
std::vector<FilterKind> EveryFilterOnce()
{
    std::vector<FilterKind> once;
    for (const FilterKind& kind : EveryFilter())
        if (std::none_of(once.begin(), once.end(),
                         [&](const FilterKind& other) { return other.filter == kind.filter; }))
            once.push_back(kind);
    return once;
}

std::vector<double> ChosenRecord(Choices& choices, const DeviceConfiguration& config)
{
    const double perUi = config.useFractionalSampling ? config.uiDuration / config.sampleSpacing : config.samplesPerUi;
    const double period = perUi * config.patternLengthUi * config.patternRepeats;
    const bool fits = period >= 1.0 && period <= kLongest;
    const int odd = choices.Within(0, 7);
    const int count = fits && odd != 1 ? static_cast<int>(period) + (odd == 2 ? 1 : 0) : choices.Within(0, kLongest);
    // Symbols and an echo of them, plus what the bytes put on top.
    std::vector<double> samples(static_cast<std::size_t>(count));
    const double echo = choices.Within(-5, 5) / 10.0;
    double last = 0.0;
    for (std::size_t k = 0; k < samples.size(); ++k) {
        const auto ui = static_cast<std::size_t>(perUi >= 1.0 ? static_cast<double>(k) / perUi : 0.0);
        const std::string& symbols = config.patternSymbols;
        const double level = symbols.empty() ? 0.0 : symbols[ui % symbols.size()] - '0';
        samples[k] = level + echo * last;
        last = level;
    }
    for (int touched = choices.Within(0, 8); touched > 0 && count > 0; --touched)
        samples[static_cast<std::size_t>(choices.Within(0, count - 1))] = choices.Real(-1.0, 1.0);
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
    static const std::vector<FilterKind> kFilters = EveryFilterOnce();
    BytesAsChoices choices(data, size);
    Device device;
    Choose(choices, device);
    if (ClaimsTooMuch(device.config))
        return 0;
    std::vector<double> samples = ChosenRecord(choices, device.config);
    for (int k = 0; k < kMostFilters && !choices.IsOver(); ++k) {
        const auto kind = static_cast<std::size_t>(choices.Within(0, static_cast<int>(kFilters.size()) - 1));
        std::vector<double> given = samples;
        std::optional<std::vector<double>> result;
        try {
            const ChosenFilter chosen = kFilters[kind].choose(choices, &device.config);
            result = Filtered(*chosen.filter, given);
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
