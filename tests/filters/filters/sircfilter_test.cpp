#include "filters/filters/sircfilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <stdexcept>

#include "framework/fftifft.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/responses/channelcorrection.h"
#include "support/expectations.h"
#include "support/failures.h"
#include "support/filterrig.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Response = std::function<Complex(double f)>;  // f in Hz

constexpr double kTwoPi = 2.0 * std::numbers::pi;
constexpr double kHalfPower = 2.1139176749042;  // |B_4(0) / B_4(jw)|^2 = 1/2
constexpr double kBandwidth = 39.8e9;           // [Hz] of the reference
constexpr double kRate = 26.5625e9;             // [Bd]
constexpr double kWindow = 127.0 / 1.27e10;     // [s]
constexpr std::size_t kTableLength = 8128;
constexpr double kErrorDb = Maths::kCorrectedMagnitudeErrorDb;

Response BesselThomsonOf(double cutoff)
{
    return [=](double f) { return BesselThomsonAt(4, kHalfPower * f / cutoff); };
}

// A receiver of 30 GHz behind a line with skin effect (its loss at 20 GHz) and an echo.
Response Line(double lossDb, double echo, double echoDelay)
{
    return [=](double f) {
        const double root = lossDb / 20.0 * std::numbers::ln10 * std::sqrt(f / 20e9);
        return BesselThomsonOf(30e9)(f) * std::polar(std::exp(-root), -root) *
               (1.0 + std::polar(echo, -kTwoPi * f * echoDelay));
    };
}

const Response kChannel = Line(1.5, 0.04, 150e-12);

void Transform(std::vector<Complex>& values, bool inverse = false)
{
    SystemFramework::FFTIFFT& fft = SystemFramework::FFTIFFT_Factory::GetInstance();
    const int count = static_cast<int>(values.size());
    inverse ? fft.IFFT(values.data(), count, true) : fft.FFT(values.data(), count);
}

// What an instrument measures: the impulse response at a place in the table, of a period eight tables long, the tail
// of which is cut. A table has its interval as first value, unless that follows from the window.
std::vector<double> Measured(const Response& response, std::size_t count = kTableLength, double interval = 0.0,
                             double place = 0.5)
{
    const double step = interval > 0.0 ? interval : kWindow / static_cast<double>(count);
    const double delay = place * step * static_cast<double>(count);
    std::vector<Complex> bins(8 * count);
    for (std::size_t k = 0; k < bins.size() / 2; ++k) {
        const double f = static_cast<double>(k) / (step * static_cast<double>(bins.size()));
        bins[k] = response(f) * std::polar(1.0, -kTwoPi * f * delay);
        bins[(bins.size() - k) % bins.size()] = std::conj(bins[k]);
    }
    Transform(bins, true);
    std::vector<double> values;
    if (interval > 0.0)
        values.push_back(interval);
    for (std::size_t k = 0; k < count; ++k)
        values.push_back(bins[k].real());
    return values;
}

// On a configuration of four channels that hold the same tables.
struct Corrector : FilterRig<SircFilter, SircFilterParameters> {
    explicit Corrector(const std::vector<double>& response, const std::vector<double>& reference = {},
                       double samplesPerUi = 16.0, int patternLengthUi = 127, double cutoffPercent = 75.0)
        : FilterRig(Configuration(static_cast<int>(samplesPerUi), patternLengthUi), Later())
    {
        config.electricalResponseTable.assign(4, response);
        config.oeResponseTable.assign(12, response);
        config.referenceTable.assign(4, reference);
        config.channelBandwidths.assign(4, kBandwidth);
        config.useFractionalSampling = samplesPerUi != config.samplesPerUi;
        config.uiDuration = samplesPerUi;
        config.sampleSpacing = 1.0;
        config.oeChannel = oeChannels;
        parameters.referenceCutoffPercent = cutoffPercent;
    }
    std::vector<double> Taps()
    {
        Prepare();
        return Kernel(static_cast<std::size_t>(filter->kernelLength));
    }

    bool oeChannels[4] = {};
};

// How near channel times kernel comes to the fourth-order Bessel-Thomson response at the cutoff.
struct Quality {
    double largestErrorDb = 0.0;  // up to 1.5 times the cutoff
    double phaseDegrees = 0.0;    // up to the cutoff, less a constant delay
    double delayPs = 0.0;         // that delay
    double waveformError = 0.0;   // rms over rms, of a random pattern of ideal edges
    double overshoot = 0.0;       // of the step response
    double noiseGain = 0.0;       // over that of the ideal correction
};

Quality Measure(const std::vector<double>& taps, const Response& channel, double sampleRate, double cutoff)
{
    std::vector<Complex> bins(taps.begin(), taps.end());
    Transform(bins);
    std::vector<Complex> ideal(bins.size(), 1.0);
    Quality quality;
    quality.noiseGain = NoiseRms(bins);
    const Response target = BesselThomsonOf(cutoff);
    const double spacing = sampleRate / static_cast<double>(bins.size());
    double moment = 0.0;
    double weight = 0.0;
    for (std::size_t k = 1; static_cast<double>(k) * spacing <= cutoff; ++k) {
        const double f = static_cast<double>(k) * spacing;
        moment -= std::arg(bins[k] * channel(f) / target(f)) * f;
        weight += kTwoPi * f * f;
    }
    const double delay = moment / weight;
    quality.delayPs = delay * 1e12;
    double power = 0.0;
    double error = 0.0;
    for (std::size_t k = 1; k <= bins.size() / 2; ++k) {
        const double f = static_cast<double>(k) * spacing;
        const double beyond = std::clamp(f / kBandwidth - 1.0, 0.0, 1.0);
        ideal[k] = ideal[bins.size() - k] = (0.5 + 0.5 * std::cos(std::numbers::pi * beyond)) * target(f) / channel(f);
        bins[k] *= channel(f);
        bins[bins.size() - k] = std::conj(bins[k]);
        const Complex wanted = target(f) * std::polar(1.0, -kTwoPi * f * delay);
        const Complex ratio = bins[k] / wanted;
        if (f <= 1.5 * cutoff)
            quality.largestErrorDb = std::max(quality.largestErrorDb, std::abs(20.0 * std::log10(std::abs(ratio))));
        if (f <= cutoff)
            quality.phaseDegrees = std::max(quality.phaseDegrees, std::abs(std::arg(ratio)) * 180.0 / std::numbers::pi);
        const double edges = std::sin(std::numbers::pi * f / kRate) / f;
        power += std::norm(edges * wanted);
        error += std::norm(edges * (bins[k] - wanted));
    }
    quality.waveformError = std::sqrt(error / power);
    quality.noiseGain /= NoiseRms(ideal);
    Transform(bins, true);
    double step = 0.0;
    // From half a period before the impulse, where the previous one has decayed.
    for (std::size_t k = 0; k < bins.size(); ++k) {
        step += bins[(k + bins.size() / 2) % bins.size()].real();
        quality.overshoot = std::max(quality.overshoot, step - 1.0);
    }
    return quality;
}

// Inverted, with an offset and noise 66 dB below the peak.
std::vector<double> Noisy()
{
    std::vector<double> table = Measured(kChannel);
    const double scale = std::pow(10.0, -66.0 / 20.0) * *std::max_element(table.begin(), table.end());
    const auto noise = RandomValues(4 * table.size(), 3);
    for (std::size_t k = 0; k < table.size(); ++k) {
        // Four uniform values: nearly normal, standard deviation sqrt(4/3).
        const double four = std::accumulate(&noise[4 * k], &noise[4 * k] + 4, 0.0);
        table[k] = 0.7 - 3.0 * (table[k] + scale * four / std::sqrt(4.0 / 3.0));
    }
    return table;
}

// The magnitude error comes from the skin effect's tail beyond the window and from noise; without either it is that of
// interpolating the kernel.
TEST(SircKernel, TurnsAMeasuredChannelIntoItsTarget)
{
    const Response twoPoles = [](double f) {
        const Complex pole(1.0, f / 30e9 * std::sqrt(std::numbers::sqrt2 - 1.0));
        return 1.0 / (pole * pole);
    };
    const Response ripple = Line(0.0, 0.1146, 50e-12);  // 2 dB from peak to peak
    const Response reflection = Line(0.0, 0.1, 150e-12);
    const auto measured = Measured(kChannel);
    const auto reference = Measured(BesselThomsonOf(kBandwidth));
    const double fine = 0.8e-12;
    const auto fineReference = Measured(BesselThomsonOf(kBandwidth), 20000, fine);
    const struct {
        const char* label;
        Response channel;
        std::vector<double> table, reference;
        double errorDb = kErrorDb;
        double samplesPerUi = 16.0;
        int patternLengthUi = 511;
        double cutoffPercent = 75.0;
    } cases[] = {
        {"16 samples per UI", kChannel, measured, reference},
        {"8 samples per UI", kChannel, measured, reference, kErrorDb, 8.0},
        {"10.4 samples per UI", kChannel, measured, reference, kErrorDb, 10.4},
        {"pattern of 127 UI, shorter than the kernel", kChannel, measured, reference, kErrorDb, 16.0, 127},
        {"50 % cutoff", kChannel, measured, reference, kErrorDb, 16.0, 511, 50.0},
        {"no reference table", kChannel, measured, {}},
        {"8 ns with interval", kChannel, Measured(kChannel, 10000, fine), fineReference},
        {"16 ns with interval", kChannel, Measured(kChannel, 20000, fine), fineReference},
        // The tail wraps round the end of the table and stands where the baseline is taken.
        {"impulse at 3 ns", kChannel, Measured(kChannel, kTableLength, 0.0, 0.3), reference, 0.085},
        {"inverted, offset, noise", kChannel, Noisy(), reference, 0.26},
        {"two poles", twoPoles, Measured(twoPoles), reference, 0.001},
        {"2 dB ripple", ripple, Measured(ripple), reference, 0.001},
        {"reflection at 150 ps", reflection, Measured(reflection), reference, 0.001},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const auto taps =
            Corrector(row.table, row.reference, row.samplesPerUi, row.patternLengthUi, row.cutoffPercent).Taps();
        EXPECT_EQ(static_cast<double>(taps.size()), std::trunc(row.samplesPerUi * row.patternLengthUi));
        EXPECT_NEAR(std::accumulate(taps.begin(), taps.end(), 0.0), 1.0, 1e-13);
        const double dcGain = std::abs(row.channel(0.0));
        const Quality quality = Measure(
            taps, [&](double f) { return row.channel(f) / dcGain; }, row.samplesPerUi * kRate,
            row.cutoffPercent / 100.0 * kRate);
        EXPECT_LT(quality.largestErrorDb, row.errorDb);
        EXPECT_LT(quality.phaseDegrees, row.errorDb > 0.2 ? 0.6 : 0.2);
        EXPECT_LT(quality.waveformError, row.errorDb > 0.08 ? 0.012 : 0.009);
        // Two peaks are aligned to half a point of 1.23 ps each; the channel's lies up to 5 ps off its delay.
        EXPECT_LT(std::abs(quality.delayPs), 5.0);
        // The target itself overshoots by 0.8 %.
        EXPECT_LT(quality.overshoot, 0.01);
        EXPECT_NEAR(quality.noiseGain, 1.0, 0.01);
    }
}

// Where half the sample rate lies below twice the channel bandwidth the correction ends there, and what it would hold above
// does not fold back.
TEST(SircKernel, TakesFewSamplesPerUi)
{
    const auto measured = Measured(kChannel);
    const auto reference = Measured(BesselThomsonOf(kBandwidth));
    for (const double samplesPerUi : {2.0, 3.0, 3.3, 4.0}) {
        const auto taps = Corrector(measured, reference, samplesPerUi, 511).Taps();
        std::vector<Complex> bins(taps.begin(), taps.end());
        Transform(bins);
        const double spacing = samplesPerUi * kRate / static_cast<double>(bins.size());
        double largestDb = 0.0;
        for (std::size_t k = 1; k <= 2 * bins.size() / 5 && static_cast<double>(k) * spacing < kBandwidth; ++k) {
            const double f = static_cast<double>(k) * spacing;
            const Complex ratio = bins[k] * kChannel(f) / kChannel(0.0) / BesselThomsonOf(0.75 * kRate)(f);
            largestDb = std::max(largestDb, std::abs(20.0 * std::log10(std::abs(ratio))));
        }
        EXPECT_LT(largestDb, 0.15) << samplesPerUi << " samples per UI";
    }
}

// Nothing but an interval: the correction is what brings a receiver of the channel's bandwidth to the cutoff.
TEST(SircKernel, NeedsNoMeasurementToRetarget)
{
    const auto taps = Corrector({1e-12}, {}, 16.0, 425).Taps();
    const Complex at20GHz = DirectDftAt(taps, 320);
    EXPECT_NEAR(std::abs(at20GHz), 0.7652, 5e-5);
    // 1e-4: the kernel's interpolation, and 0.33644 in place of the exact cutoff.
    EXPECT_LT(std::abs(at20GHz - BesselThomsonOf(0.75 * kRate)(20e9) / BesselThomsonOf(kBandwidth)(20e9)), 1e-4);
}

TEST(SircKernel, RefusesTablesThatHoldNoResponse)
{
    using Table = std::vector<double>;
    const std::pair<Table, Table> cases[] = {{{0.0, kNan}, {}},
                                             {{2.0, 2.0}, {}},         // constant
                                             {{1e-15, 0.0, 1.0}, {}},  // an interval too short
                                             {{1e-9, 0.0, 1.0}, {}},   // and too long
                                             {{0.0, 1.0}, {0.0, 0.0}}};
    for (const auto& [response, reference] : cases) {
        SCOPED_TRACE(testing::PrintToString(response) + ", reference " + testing::PrintToString(reference));
        Corrector corrector(response, reference);
        SircFilter& filter = corrector.Filter();
        filter.channelBandwidth = 1.0;
        EXPECT_EQ(FailureOf<std::runtime_error>([&] { filter.Prepare(nullptr); }), "SRC not configured properly.");
        EXPECT_EQ(filter.channelBandwidth, 1.0);
        EXPECT_EQ(filter.kernel, nullptr);
        EXPECT_TRUE(corrector.parameters.IsDirty());
    }
}

TEST(SircErrors, NameTheSetting)
{
    const std::pair<std::function<void(Corrector&)>, const char*> cases[] = {
        {[](Corrector& c) { c.config.baudRateGBd = std::numeric_limits<double>::max(); },
         "samples in the span of the generation grid is inf; expected at most 1e6"},
        {[](Corrector& c) { c.Filter().generationParam2 = 63; },
         "generationParam2 * generationParam3 is 8001; expected a positive even number of points"},
        {[](Corrector& c) { c.Filter().generationParam5 = 0; }, "generationParam5 is 0; expected at least 1"},
        {[](Corrector& c) { c.Filter().baselineEndIndex = 8128; },
         "baselineEndIndex is 8128; expected less than the 8128 points of the generation grid"},
        {[](Corrector& c) { c.config.channelBandwidths.clear(); },
         "channelBandwidths is a table of 0 entries; expected an entry 2 for channel 2"},
        {[](Corrector& c) { c.oeChannels[2] = true, c.config.oeResponseTable.resize(6); },
         "oeResponseTable is a table of 6 entries; expected an entry 6 for channel 2"},
        {[](Corrector& c) { c.config.referenceTable.resize(2); },
         "referenceTable is a table of 2 entries; expected an entry 2 for channel 2"},
    };
    for (const auto& [set, text] : cases) {
        Corrector corrector({0.0, 1.0, 0.5, 0.25});
        corrector.parameters.channel = 2;
        set(corrector);
        ExpectRefused([&] { corrector.Filter().Prepare(nullptr); }, std::string("SircFilter: ") + text);
    }
    Corrector corrector({0.0, 1.0});
    SircFilter none(&corrector.config);
    SircFilterParameters unconfigured;
    ExpectRefused([&] { none.ApplyA(&unconfigured); },
                  "SircFilter: channelResponse is null; expected the table of the channel's measured response");
    unconfigured.channelResponse = corrector.config.electricalResponseTable.data();
    ExpectRefused([&] { none.ApplyA(&unconfigured); },
                  "SircFilter: configuration is null; expected the device configuration, which holds the symbol rate");
}

TEST(SircFilterParameters, TakeTwoNumbersAndIgnoreTheTexts)
{
    const SircFilterParameters given("a", "b", "c", "d", 2.5, 75.0);
    EXPECT_EQ(given.uiSamples, 2.5);
    EXPECT_EQ(given.referenceCutoffPercent, 75.0);
}

TEST(SircLifecycle, ChoosesTheTablesOfTheChannel)
{
    Corrector corrector({0.0, 1.0}, {}, 2.5, 4);
    DeviceConfiguration& config = corrector.config;
    config.channelBandwidths = {0.0, kNan, 20e9, 30e9};
    const struct {
        int channel;
        bool optical;
        int selector;
        const std::vector<double>* response;
        double bandwidth;
    } cases[] = {{0, false, 0, config.electricalResponseTable.data(), 3.98e10},
                 {1, false, 1, &config.electricalResponseTable[1], 3.98e10},
                 {2, true, 0, &config.oeResponseTable[6], 20e9},
                 {2, true, 1, &config.oeResponseTable[7], 20e9},
                 {3, true, -1, &config.oeResponseTable[11], 30e9}};
    for (const auto& row : cases) {
        SCOPED_TRACE("channel " + std::to_string(row.channel) + ", selector " + std::to_string(row.selector));
        corrector.oeChannels[row.channel] = row.optical;
        config.oeReceiverSelector = row.selector;
        SircFilterParameters& parameters = corrector.parameters;
        parameters.SetDirty();
        parameters.channel = row.channel;
        const SircFilter filter(&parameters);
        EXPECT_EQ(parameters.channelResponse, row.response);
        EXPECT_EQ(parameters.channelReference, &config.referenceTable[static_cast<std::size_t>(row.channel)]);
        EXPECT_EQ(filter.channelBandwidth, row.bandwidth);
        // An O/E channel has its kernel from construction.
        EXPECT_EQ(filter.kernel != nullptr, row.optical);
        EXPECT_EQ(parameters.IsDirty(), !row.optical);
        EXPECT_EQ(filter.notPrepared, !row.optical);
    }
}

TEST(SircLifecycle, PreparesWhatIsDirtyAndKeepsItWhenThatFails)
{
    Corrector corrector(Measured(kChannel), {}, 8.0, 16);
    const auto record = RandomValues(128, 5);
    const auto first = corrector.Apply(record);
    corrector.config.samplesPerUi = 4;
    EXPECT_TRUE(HaveSameBits(corrector.Apply(record), first));  // not marked as changed: nothing changes
    corrector.parameters.SetDirty();
    corrector.parameters.referenceCutoffPercent = 0.0;
    EXPECT_THROW(corrector.Apply(record), std::invalid_argument);
    EXPECT_EQ(corrector.parameters.uiSamples, 8.0);
    corrector.parameters.referenceCutoffPercent = 75.0;
    corrector.Apply(record);
    EXPECT_EQ(corrector.parameters.uiSamples, 4.0);
    EXPECT_EQ(corrector.Filter().kernelLength, 64);
}

TEST(SircLifecycle, HasNoKernelWithoutAMeasurement)
{
    Corrector corrector({});
    SircFilter& filter = corrector.Filter();
    EXPECT_EQ(filter.ApplyA(&corrector.parameters), nullptr);
    EXPECT_EQ(filter.kernelLength, 0);
    // For other parameters the taps are the caller's, and the dirty state stays.
    Corrector other({0.0, 1.0});
    other.Filter();
    const auto taps = Take(filter.ApplyA(&other.parameters), 2032);
    EXPECT_EQ(filter.kernelLength, 2032);
    EXPECT_EQ(filter.kernel, nullptr);
    EXPECT_TRUE(other.parameters.IsDirty());
    EXPECT_TRUE(HaveSameBits(taps, other.Taps()));
}

TEST(SircApply, CutsTheRecordIntoSegments)
{
    Corrector corrector({0.0, 1.0, 0.5, 0.25}, {}, 2.5, 4);
    const auto record = RandomValues(25, 9);
    const auto output = corrector.Apply(record);
    const auto taps = corrector.Taps();
    for (const std::size_t begin : {0U, 12U})
        EXPECT_TRUE(AreNear(std::span(output).subspan(begin, 12),
                            DirectConvolution(std::span(record).subspan(begin, 12), taps), 1e-14));
    EXPECT_EQ(output[24], 0.0);
    Record tooShort(Constant(1.0, 9));
    EXPECT_EQ(corrector.Filter().Apply(&tooShort), nullptr);
}

TEST(SircApply, ConvolvesWithTheKernelThatIsThere)
{
    Corrector corrector({0.0, 1.0}, {}, 4.0, 4);
    SircFilter& filter = corrector.Filter();
    filter.Prepare(nullptr);
    const auto record = RandomValues(32, 13);
    filter.kernel = SystemFramework::NewArrayFrom<double>(std::vector<double>{0.0, 0.0, 2.0}).release();
    filter.kernelLength = 3;
    const auto output = corrector.Apply(record);
    EXPECT_EQ(output[5], 2.0 * record[3]);
    EXPECT_EQ(output[16], 2.0 * record[30]);
    filter.kernelLength = 0;
    EXPECT_EQ(corrector.Apply(record), Constant(0.0, 32));
    filter.kernelLength = -1;
    ExpectRefused([&] { corrector.Apply(record); }, "SircFilter: kernelLength is -1; expected 0 or more taps");
    corrector.config.patternLengthUi = 0;
    ExpectRefused([&] { corrector.Apply(record); },
                  "SircFilter: patternLengthUi * uiSamples is 0; expected a finite number of samples that is not 0");
    corrector.config.patternLengthUi = -1;
    EXPECT_EQ(corrector.Apply(record), Constant(0.0, 32));
}

// By hand, of eight samples: the kernel of eight taps brings the peak to index 3, that of two to index 0.
TEST(SircImpulseResponse, IsAlignedFreedOfItsBaselineAndOfUnitArea)
{
    DeviceConfiguration config;
    SircFilter filter(&config);
    using Values = std::vector<double>;
    const Values identity{1, 0, 0, 0, 0, 0, 0, 0};
    const struct {
        Values signal, kernel;
        int baselineEnd;
        Values expected;
    } cases[] = {
        {{1, 2, 7, 2, 1, 1, 1, 1}, identity, 1, {0, 0, 0.125, 0.75, 0.125, 0, 0, 0}},
        {{-1, -2, -7, -2, -1, -1, -1, -1}, identity, 1, {0, 0, 0.125, 0.75, 0.125, 0, 0, 0}},
        {{0, 3, 0, 1, -3, 0, 0, 0}, identity, -1, {3, 0, 1, -3, 0, 0, 0, 0}},  // equal magnitudes: the minimum
        {{0, 0, 0, 0, 4, 0, 0, 0}, {0.5, 0.5, 0, 0, 0, 0, 0, 0}, 0, {0, 0, 0, 0.5, 0.5, 0, 0, 0}},
        {{2, 4, 14, 4, 2, 2, 2, 2}, {0.5, 0}, -2, {0.4375, 0.125, 0.0625, 0.0625, 0.0625, 0.0625, 0.0625, 0.125}},
    };
    const auto processed = [&](Values signal, Values kernel) {
        const auto taps = static_cast<int>(kernel.size());
        return Take(filter.ProcessImpulseResponse(signal.data(), 8, kernel.data(), taps), 8);
    };
    for (const auto& row : cases) {
        filter.baselineEndIndex = row.baselineEnd;
        EXPECT_EQ(processed(row.signal, row.kernel), row.expected);
    }
    EXPECT_TRUE(std::isnan(processed(Constant(0.0, 8), identity)[7]));
}

TEST(SircRetargeting, IsTheRatioOfTwoBesselThomsonResponses)
{
    DeviceConfiguration config;
    SircFilter filter(&config);
    const std::vector<double> given{0.0, 1e9, 20e9, 100e9};
    auto frequencies = given;
    const auto ratio = Take(filter.BesselThomson4th_corrected(frequencies.data(), 4, 39.8e9, 20e9), 4);
    const auto same = Take(filter.BesselThomson4th_corrected(frequencies.data(), 4, 20e9, 20e9), 4);
    EXPECT_EQ(frequencies, given);
    EXPECT_EQ(same, std::vector<Complex>(4, 1.0));
    for (std::size_t k = 0; k < given.size(); ++k) {
        const double w = kTwoPi * 0.33644 * given[k];
        const Complex expected = BesselThomsonAt(4, w / 20e9) / BesselThomsonAt(4, w / 39.8e9);
        EXPECT_LT(std::abs(ratio[k] - expected), 1e-13 * std::abs(expected));
    }
    Take(filter.BesselThomson4th_corrected(nullptr, -1, 0.0, kNan), 0);
}

TEST(SircErrors, NameTheArgument)
{
    DeviceConfiguration config;
    SircFilter filter(&config);
    std::vector<double> values = Constant(1.0, 1301);
    double* const data = values.data();
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { filter.ProcessImpulseResponse(data, 1300, data, 1); },
         "ProcessImpulseResponse: signalLength is 1300; expected at least 1301 values"},
        {[&] { filter.ProcessImpulseResponse(nullptr, 1301, data, 1); },
         "ProcessImpulseResponse: signal is null; expected an array of signalLength values"},
        {[&] { filter.ProcessImpulseResponse(data, 1301, nullptr, 1); },
         "ProcessImpulseResponse: kernel is null; expected an array of tapCount values"},
        {[&] { filter.ProcessImpulseResponse(data, 1301, data, -1); },
         "ProcessImpulseResponse: tapCount is -1; expected 0 or more taps"},
        {[&] { filter.BesselThomson4th_corrected(nullptr, 1, 1.0, 1.0); },
         "BesselThomson4th_corrected: frequencies is null; expected an array of count values"},
        {[&] { filter.BesselThomson4th_corrected(data, 1, 0.0, 1.0); },
         "BesselThomson4th_corrected: channelCutoff is 0; expected a finite positive frequency in hertz"},
    };
    for (const auto& [call, text] : cases)
        ExpectRefused(call, std::string("SircFilter::") + text);
}

}  // namespace
