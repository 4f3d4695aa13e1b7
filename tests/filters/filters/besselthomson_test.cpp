#include "filters/filters/besselthomson.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <optional>

#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kHalfPower = 2.1139287217715976;      // where the walk of order 4 ends for 1/sqrt(2)
constexpr double kHalfAmplitude = 2.8860245572148999;  // and for 1/2

// A configuration, its parameters and the filter, which hold on to each other.
struct Receiver {
    explicit Receiver(DeviceConfiguration configuration, const std::function<void(BesselThomsonParameters&)>& set = {})
        : config(std::move(configuration)), parameters(&config)
    {
        if (set)
            set(parameters);
        filter.emplace(&parameters);
    }
    std::vector<double> Kernel()
    {
        return Take(filter->GetBesselThomsonFrequencyDomainFilter(&parameters), parameters.samplesPerPattern - 1);
    }
    std::vector<double> Apply(Record& record) { return Take(filter->Apply(&record), record.Values().size()); }
    std::vector<double> Apply(std::vector<double> samples)
    {
        Record record(std::move(samples));
        return Apply(record);
    }

    DeviceConfiguration config;
    BesselThomsonParameters parameters;
    std::optional<BesselThomson> filter;
};

DeviceConfiguration Fractional(double uiDuration, double sampleSpacing, int patternLengthUi)
{
    DeviceConfiguration config = Configuration(100, patternLengthUi);  // whole samples per UI left over from elsewhere
    config.useFractionalSampling = true;
    config.uiDuration = uiDuration;
    config.sampleSpacing = sampleSpacing;
    return config;
}

// 4 eps log2(n) max|x| sum|h|: the convolution's own bound. Samples lie within 1, and the taps of a fourth-order
// response below half the symbol rate sum to less than 2 in magnitude.
double ApplyBound(std::size_t length)
{
    return 8.0 * DBL_EPSILON * std::log2(static_cast<double>(length));
}

double NoiseOf(const std::vector<double>& taps)
{
    return std::sqrt(std::inner_product(taps.begin(), taps.end(), taps.begin(), 0.0));
}

TEST(BesselThomsonParameters, TakeTheirDefaultsInEveryConstructor)
{
    DeviceConfiguration config;
    const BesselThomsonParameters byDefault;
    const BesselThomsonParameters configured(&config);
    for (const BesselThomsonParameters* each : {&byDefault, &configured}) {
        EXPECT_EQ(each->cutoffFrequency, 0.0);
        EXPECT_EQ(each->order, 4);
        EXPECT_EQ(each->cutoffPercent, 75.0);
        EXPECT_EQ(each->samplesPerPattern, 0);
        EXPECT_EQ(each->sampleInterval, 0.0);
        EXPECT_FALSE(each->preserveNoise);
        EXPECT_EQ(each->noiseCornerFrequency, 3.5e10);
    }
    EXPECT_EQ(byDefault.GetConfig(), nullptr);
    EXPECT_EQ(configured.GetConfig(), &config);

    const BesselThomsonParameters given(1e9, 3, 50.0, 64, true, 4e10, 99.0);
    BesselThomsonParameters assigned;
    assigned = BesselThomsonParameters(given);
    EXPECT_EQ(assigned.cutoffFrequency, 1e9);
    EXPECT_EQ(assigned.order, 3);
    EXPECT_EQ(assigned.cutoffPercent, 50.0);
    EXPECT_EQ(assigned.samplesPerPattern, 64);
    EXPECT_TRUE(assigned.preserveNoise);
    EXPECT_EQ(assigned.noiseCornerFrequency, 4e10);
}

TEST(BesselThomsonConstructor, TakesTheSizesFromTheConfiguration)
{
    const struct {
        const char* label;
        DeviceConfiguration config;
        int samplesPerPattern, samplesPerUi;
    } cases[] = {{"whole", Configuration(16, 127, 10.0), 2032, 16},
                 {"fractional, 3.33 samples per UI", Fractional(10, 3, 4), 13, 3},
                 {"fractional, 1.67 samples per UI", Fractional(10, 6, 6), 10, 1}};
    for (const auto& [label, config, samplesPerPattern, samplesPerUi] : cases) {
        const Receiver receiver(config);
        EXPECT_EQ(receiver.parameters.samplesPerPattern, samplesPerPattern) << label;
        EXPECT_EQ(receiver.parameters.sampleInterval, 1.0 / (config.baudRateGBd * 1e9) / samplesPerUi) << label;
        EXPECT_EQ(receiver.filter->kernel, nullptr) << label;
        EXPECT_TRUE(receiver.filter->notPrepared) << label;
    }
}

TEST(BesselThomsonKernel, HasOneTapFewerThanThePatternAndSumOne)
{
    for (const int samples : {2, 3, 4, 9, 1016, 1017, 8191, 8192}) {
        Receiver receiver(Configuration(1, samples));
        const auto taps = receiver.Kernel();
        // The bin at DC is exactly 1; what is left is the rounding of the inverse transform and of this sum.
        EXPECT_NEAR(std::accumulate(taps.begin(), taps.end(), 0.0), 1.0, 4 * DBL_EPSILON * std::log2(2.0 * samples))
            << samples << " samples";
    }
    EXPECT_EQ(Receiver(Configuration(1, 2)).Kernel(), std::vector<double>{1.0});
}

// Bin k of the taps is the response at k fs/(N - 1), for even and odd N and every order whose coefficients are right.
TEST(BesselThomsonKernel, HasTheMagnitudeAndPhaseOfTheResponse)
{
    const double cutoffs[] = {1.0,        1.3616461313682424, 1.7556880127995638,
                              kHalfPower, 2.4274150045255523, 2.7034027267972904};
    for (int order = 1; order <= 6; ++order)
        for (const int samples : {1016, 1017}) {
            SCOPED_TRACE("order " + std::to_string(order) + ", " + std::to_string(samples) + " samples");
            // 9 x 113 = 1017 and 8 x 127 = 1016
            Receiver receiver(samples == 1016 ? Configuration(8, 127) : Configuration(9, 113),
                              [&](BesselThomsonParameters& parameters) {
                                  parameters.order = order;
                                  parameters.cutoffPercent = 60.0;
                              });
            const auto taps = receiver.Kernel();
            const double spacing = receiver.config.samplesPerUi / 0.6 / (samples - 1);  // in cutoff frequencies
            for (int k = 0; 2 * k < samples - 1; k += 7)
                // k steps of a running frequency sum, and the rounding of the transform
                EXPECT_NEAR(std::abs(DirectDftAt(taps, k) - BesselThomsonAt(order, cutoffs[order - 1] * k * spacing)),
                            0.0, 1e-12)
                    << "bin " << k;
        }
}

// From bin to bin the phase falls by the integral of the group delay, 1 - w^2n / |B_n(jw)|^2.
TEST(BesselThomsonKernel, HasTheGroupDelayOfTheResponse)
{
    for (const int order : {2, 4}) {
        Receiver receiver(Configuration(8, 127), [order](auto& parameters) { parameters.order = order; });
        const auto taps = receiver.Kernel();
        const double step = (order == 2 ? 1.3616461313682424 : kHalfPower) * 8 / 0.75 / 1015;
        for (int k = 0; k < 300; k += 3) {
            const Complex turn = DirectDftAt(taps, k + 1) / DirectDftAt(taps, k);
            const auto delay = [&](double at) { return BesselThomsonDelayAt(order, (k + at) * step); };
            const double simpson =
                step / 12.0 * (delay(0.0) + 4.0 * delay(0.25) + 2.0 * delay(0.5) + 4.0 * delay(0.75) + delay(1.0));
            // 1e-15 of rounding over magnitudes that fall to 1e-2; Simpson's error is 1e-10 where the delay bends most.
            EXPECT_NEAR(-std::arg(turn), simpson, 1e-9) << "order " << order << ", bin " << k;
        }
    }
}

// Behind an optical-to-electrical converter the response is 1/2 at the cutoff; a missing list means there is none.
TEST(BesselThomsonKernel, TakesTheCriterionOfItsChannel)
{
    bool converters[4] = {false, false, true, false};
    const struct {
        const char* label;
        bool* list;
        int channel;
        double cutoff;
    } cases[] = {{"no list", nullptr, 2, kHalfPower},
                 {"another channel's converter", converters, 1, kHalfPower},
                 {"converter", converters, 2, kHalfAmplitude}};
    for (const auto& [label, list, channel, cutoff] : cases) {
        DeviceConfiguration config = Configuration(8, 127);
        config.oeChannel = list;
        Receiver receiver(config, [channel = channel](auto& parameters) { parameters.channel = channel; });
        const auto taps = receiver.Kernel();
        for (const int k : {10, 95, 200})
            EXPECT_NEAR(std::abs(DirectDftAt(taps, k)), std::abs(BesselThomsonAt(4, cutoff * k * 8 / 0.75 / 1015)),
                        1e-12)
                << label << ", bin " << k;
    }
}

// rms of unit white noise through the taps: figures of the correction itself, rounded to four digits.
TEST(BesselThomsonNoise, IsPreservedOnTheFrequenciesOfTheBins)
{
    const struct {
        const char* label;
        int samplesPerUi, patternLengthUi;
        double cutoffPercent, plain, preserved;
    } cases[] = {{"13.28 GHz at 212.5 GHz", 8, 1024, 50.0, 0.3617, 0.6290},
                 {"39.84 GHz at 850 GHz", 32, 256, 150.0, 0.3132, 0.9237}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.label);
        DeviceConfiguration config = Configuration(each.samplesPerUi, each.patternLengthUi);
        const auto set = [&](auto& parameters) { parameters.cutoffPercent = each.cutoffPercent; };
        Receiver plain(config, set);
        EXPECT_NEAR(NoiseOf(plain.Kernel()), each.plain, 0.002 * each.plain);
        std::vector<double> oneRepetition;
        // The record's own axis is finer by the number of repetitions; the bins, and so the taps, are the same.
        for (const int repetitions : {1, 4, 7}) {
            config.patternRepeats = repetitions;
            Receiver receiver(config, set);
            receiver.parameters.preserveNoise = true;
            receiver.filter->Prepare(nullptr);
            EXPECT_TRUE(receiver.parameters.preserveNoise && receiver.parameters.preserveNoiseApplied);
            EXPECT_EQ(receiver.parameters.frequencyGrid, nullptr);  // released with the end of Prepare
            const double* const kernel = receiver.filter->kernel;
            const std::vector<double> taps(kernel, kernel + receiver.parameters.samplesPerPattern - 1);
            EXPECT_NEAR(NoiseOf(taps), each.preserved, 0.002 * each.preserved);
            if (oneRepetition.empty())
                oneRepetition = taps;
            EXPECT_TRUE(HaveSameBits(taps, oneRepetition)) << repetitions << " repetitions";
        }
    }
}

// Whole samples per UI that are left over from another setting move nothing.
TEST(BesselThomsonNoise, IsPreservedWithFractionalSampling)
{
    for (const double samplesPerUi : {8.0, 8.5}) {
        Receiver receiver(Fractional(samplesPerUi, 1.0, 1024), [](auto& parameters) {
            parameters.cutoffPercent = 50.0;
            parameters.preserveNoise = true;
        });
        const auto taps = receiver.Kernel();
        EXPECT_NEAR(NoiseOf(taps), 0.6290, 0.002 * 0.6290) << samplesPerUi << " samples per UI";
        if (samplesPerUi == 8.0) {
            Receiver whole(Configuration(8, 1024), [](auto& parameters) {
                parameters.cutoffPercent = 50.0;
                parameters.preserveNoise = true;
            });
            EXPECT_TRUE(HaveSameBits(taps, whole.Kernel()));
        }
    }
}

// A corner above half the sample rate: the correction switches itself off, and the record's axis stays to be looked at.
TEST(BesselThomsonNoise, SwitchesItselfOffWhereItDoesNotApply)
{
    DeviceConfiguration config = Configuration(8, 128);
    config.patternRepeats = 3;
    Receiver receiver(config);
    const auto plain = receiver.Kernel();
    receiver.parameters.preserveNoise = true;
    receiver.parameters.noiseCornerFrequency = 1.2e11;
    receiver.filter->Prepare(nullptr);
    EXPECT_FALSE(receiver.parameters.preserveNoise || receiver.parameters.preserveNoiseApplied);
    EXPECT_TRUE(HaveSameBits({receiver.filter->kernel, plain.size()}, plain));
    constexpr int kCount = 3 * 128 * 8;
    ASSERT_NE(receiver.parameters.frequencyGrid, nullptr);
    for (const int k : {0, 1, 1000, kCount - 1})
        EXPECT_EQ(receiver.parameters.frequencyGrid[k], k * (8 * 26.5625 * 1e9) / kCount) << k;

    receiver.parameters.noiseCornerFrequency = 3.5e10;
    receiver.filter->Prepare(nullptr);  // stays off until the host asks again
    EXPECT_TRUE(HaveSameBits({receiver.filter->kernel, plain.size()}, plain));
    receiver.parameters.preserveNoise = true;
    receiver.filter->Prepare(nullptr);
    EXPECT_EQ(receiver.parameters.frequencyGrid, nullptr);
    EXPECT_FALSE(HaveSameBits({receiver.filter->kernel, plain.size()}, plain));
}

TEST(BesselThomsonApply, FiltersEachRepetitionAsOnePeriod)
{
    Receiver receiver(Configuration(8, 127));
    std::vector<double> samples;
    std::vector<double> expected;
    const auto taps = receiver.Kernel();
    for (int r = 0; r < 3; ++r) {
        const auto repetition = RandomValues(1016, r);
        const auto filtered = DirectConvolution(repetition, taps);
        samples.insert(samples.end(), repetition.begin(), repetition.end());
        expected.insert(expected.end(), filtered.begin(), filtered.end());
    }
    EXPECT_TRUE(AreNear(receiver.Apply(samples), expected, ApplyBound(1016)));
}

// 200 samples hold three patterns of 64: three segments of 66, two samples left over. 66 samples meet 63 taps.
TEST(BesselThomsonApply, LeavesWhatNoSegmentHoldsAtZero)
{
    Receiver receiver(Configuration(8, 8));
    const auto samples = RandomValues(200, 8);
    std::vector<double> expected;
    for (const std::size_t begin : {0U, 66U, 132U}) {
        const auto filtered = DirectConvolution(std::span(samples).subspan(begin, 66), receiver.Kernel());
        expected.insert(expected.end(), filtered.begin(), filtered.end());
    }
    expected.resize(200, 0.0);
    const auto result = receiver.Apply(samples);
    EXPECT_TRUE(AreNear(result, expected, ApplyBound(66)));
    EXPECT_EQ(result[198], 0.0);
    EXPECT_EQ(result[199], 0.0);
}

TEST(BesselThomsonApply, PassesTheSamplesOfTheShortestPattern)
{
    Receiver receiver(Configuration(1, 2));
    const auto samples = RandomValues(6, 9);
    EXPECT_EQ(receiver.Apply(samples), samples);
}

// Whatever stands beside a repetition, and wherever the host's array lies, its bits stay the same.
TEST(BesselThomsonApply, KeepsRepetitionsApartToTheLastBit)
{
    Receiver receiver(Configuration(16, 127));
    const auto repetition = RandomValues(2032, 10);
    const auto expected = receiver.Apply(repetition);
    EXPECT_TRUE(HaveSameBits(Receiver(Configuration(16, 127)).Apply(repetition), expected));

    std::vector<double> samples = Constant(kNan, 3 * repetition.size());
    std::copy(repetition.begin(), repetition.end(), samples.begin() + 2032);
    const auto result = receiver.Apply(samples);
    EXPECT_TRUE(HaveSameBits(std::span(result).subspan(2032, 2032), expected));

    for (const std::size_t offset : {1U, 3U}) {
        std::vector<double> shifted(2032 + offset);
        std::copy(repetition.begin(), repetition.end(), shifted.begin() + static_cast<std::ptrdiff_t>(offset));
        SystemFramework::SignalData signal;
        signal.sampleCount = 2032;
        signal.samples = shifted.data() + offset;
        EXPECT_TRUE(HaveSameBits(Take(receiver.filter->Apply(&signal), 2032), expected)) << "offset " << offset;
    }
}

TEST(BesselThomsonApply, RefusesARecordShorterThanAPatternBeforeItPrepares)
{
    Receiver receiver(Configuration(8, 8));
    Record record(Constant(1.0, 100));
    record.sampleCount = 63;
    ExpectRefused([&] { receiver.filter->Apply(&record); },
                  "BesselThomson: sampleCount is 63; expected at least one pattern of 64 samples");
    record.sampleCount = 100;
    receiver.config.patternLengthUi = 16;  // counted with the sizes that Prepare would take
    ExpectRefused([&] { receiver.filter->Apply(&record); },
                  "BesselThomson: sampleCount is 100; expected at least one pattern of 128 samples");
    EXPECT_EQ(receiver.filter->kernel, nullptr);
    EXPECT_TRUE(receiver.filter->notPrepared);
    EXPECT_EQ(receiver.parameters.samplesPerPattern, 64);
}

TEST(BesselThomsonLifecycle, RebuildsTheKernelWhileDirtyAndHonoursItWhenClean)
{
    Receiver receiver(Configuration(8, 8));
    const auto samples = RandomValues(128, 11);
    const auto expected = receiver.Apply(samples);
    EXPECT_TRUE(receiver.parameters.IsDirty());  // read, never reset
    EXPECT_FALSE(receiver.filter->notPrepared);
    receiver.filter->kernel[0] += 1.0;
    EXPECT_TRUE(HaveSameBits(receiver.Apply(samples), expected));

    receiver.parameters.ResetDirty();
    const double* const kernel = receiver.filter->kernel;
    receiver.config.baudRateGBd = 10.0;
    receiver.parameters.cutoffPercent = 40.0;
    EXPECT_TRUE(HaveSameBits(receiver.Apply(samples), expected));
    EXPECT_EQ(receiver.filter->kernel, kernel);

    // The host writes into the kernel: a delay by one sample of each repetition.
    std::fill(receiver.filter->kernel, receiver.filter->kernel + 63, 0.0);
    receiver.filter->kernel[1] = 1.0;
    auto delayed = samples;
    std::rotate(delayed.begin(), delayed.begin() + 63, delayed.begin() + 64);
    std::rotate(delayed.begin() + 64, delayed.end() - 1, delayed.end());
    EXPECT_EQ(receiver.Apply(samples), delayed);

    receiver.parameters.SetDirty();
    const auto rebuilt = receiver.Apply(samples);
    EXPECT_FALSE(HaveSameBits(rebuilt, expected));
    EXPECT_TRUE(HaveSameBits(
        rebuilt, Receiver(receiver.config, [](auto& parameters) { parameters.cutoffPercent = 40.0; }).Apply(samples)));
}

TEST(BesselThomsonLifecycle, PrepareClearsTheFirstAndThirdFlagAlone)
{
    Receiver receiver(Configuration(8, 8));
    BesselThomson& filter = *receiver.filter;
    filter.flag2 = filter.flag3 = filter.flag4 = true;
    filter.Prepare(nullptr);
    EXPECT_FALSE(filter.notPrepared || filter.flag3);
    EXPECT_TRUE(filter.flag2 && filter.flag4);
}

TEST(BesselThomsonLifecycle, FiltersWithAHostsKernelWithoutAConfiguration)
{
    BesselThomsonParameters parameters(0.0, 4, 75.0, 4, false, 3.5e10, 0.0);
    parameters.ResetDirty();
    BesselThomson filter(&parameters);
    Record record({1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0});
    ExpectRefused([&] { filter.Apply(&record); },
                  "BesselThomson: kernel is null; expected a kernel made by Prepare or assigned by the host");
    filter.kernel = static_cast<double*>(::operator new(3 * sizeof(double)));
    filter.kernel[0] = filter.kernel[1] = 0.0;
    filter.kernel[2] = 2.0;
    EXPECT_EQ(Take(filter.Apply(&record), 8), (std::vector<double>{6, 8, 2, 4, 14, 16, 10, 12}));
}

TEST(BesselThomsonLifecycle, CopiesShareTheKernelUntilOneOfThemPrepares)
{
    Receiver receiver(Configuration(8, 8));
    const auto samples = RandomValues(64, 12);
    const auto expected = receiver.Apply(samples);
    receiver.parameters.ResetDirty();
    BesselThomson copy(*receiver.filter);
    BesselThomson assigned(&receiver.parameters);
    assigned = copy;
    EXPECT_EQ(copy.kernel, receiver.filter->kernel);
    EXPECT_EQ(assigned.kernel, receiver.filter->kernel);

    receiver.parameters.cutoffPercent = 40.0;
    assigned.Prepare(nullptr);
    EXPECT_NE(assigned.kernel, copy.kernel);
    receiver.filter.reset();
    Record record(samples);
    EXPECT_TRUE(HaveSameBits(Take(copy.Apply(&record), 64), expected));
}

TEST(BesselThomsonErrors, NameTheSizeThatTheConfigurationDoesNotGive)
{
    DeviceConfiguration noRate = Configuration(8, 8, 0.0);
    DeviceConfiguration infiniteRate = Configuration(8, 8, kInfinity);
    const struct {
        const char* text;
        DeviceConfiguration config;
    } cases[] = {
        {"baudRateGBd is 0; expected a finite positive symbol rate", noRate},
        {"baudRateGBd is inf; expected a finite positive symbol rate", infiniteRate},
        {"patternLengthUi is 0; expected at least 1 UI", Configuration(8, 0)},
        {"samples per UI is 0; expected at least 1", Configuration(0, 8)},
        {"samples per UI is -8; expected at least 1", Configuration(-8, 8)},
        {"samplesPerUi * patternLengthUi is 1e+10; expected at most 2147483647", Configuration(100000, 100000)},
        {"patternLengthUi * uiDuration / sampleSpacing is inf; expected a finite number of at most 2147483647",
         Fractional(10, 0, 8)}};
    for (const auto& [text, config] : cases)
        ExpectRefused([&config = config] { Receiver{config}; }, std::string("BesselThomson: ") + text);
}

// A Prepare that is refused leaves filter and parameters as they were, also where the configuration has moved on.
TEST(BesselThomsonErrors, NameTheValueAndChangeNothing)
{
    const struct {
        const char* text;
        std::function<void(Receiver&)> spoil;
    } cases[] = {
        {"order is 0; expected 1 to 16", [](auto& r) { r.parameters.order = 0; }},
        {"order is 17; expected 1 to 16", [](auto& r) { r.parameters.order = 17; }},
        {"order is -1; expected 1 to 16", [](auto& r) { r.parameters.order = -1; }},
        {"cutoffPercent is 0; expected a finite positive percentage", [](auto& r) { r.parameters.cutoffPercent = 0; }},
        {"cutoffPercent is 1e-300; expected a cutoff that half the sample rate exceeds by at most 1e12 times",
         [](auto& r) { r.parameters.cutoffPercent = 1e-300; }},
        {"cutoffPercent is nan; expected a finite positive percentage",
         [](auto& r) { r.parameters.cutoffPercent = kNan; }},
        {"noiseCornerFrequency is inf; expected a finite frequency in hertz",
         [](auto& r) { r.parameters.noiseCornerFrequency = kInfinity; }},
        {"channel is 4; expected 0 to 3", [](auto& r) { r.parameters.channel = 4; }},
        {"channel is -1; expected 0 to 3", [](auto& r) { r.parameters.channel = -1; }},
        {"baudRateGBd is -1; expected a finite positive symbol rate", [](auto& r) { r.config.baudRateGBd = -1; }},
        {"patternRepeats * patternLengthUi * samplesPerUi is -32; expected 0 or more samples",
         [](auto& r) {
             r.parameters.preserveNoise = true;
             r.config.patternRepeats = -1;
         }},
        {"samplesPerPattern is 1; expected at least 2 samples", [](auto& r) {
             r.config.samplesPerUi = 1;
             r.config.patternLengthUi = 1;
         }}};
    for (const auto& [text, spoil] : cases) {
        SCOPED_TRACE(text);
        Receiver receiver(Configuration(8, 8));
        receiver.filter->Prepare(nullptr);
        const double* const kernel = receiver.filter->kernel;
        const std::vector<double> taps(kernel, kernel + 63);
        const double interval = receiver.parameters.sampleInterval;
        receiver.config.samplesPerUi = 4;
        receiver.filter->notPrepared = true;
        spoil(receiver);
        ExpectRefused([&] { receiver.filter->Prepare(nullptr); }, std::string("BesselThomson: ") + text);
        EXPECT_EQ(receiver.filter->kernel, kernel);
        EXPECT_TRUE(HaveSameBits({receiver.filter->kernel, 63}, taps));
        EXPECT_TRUE(receiver.filter->notPrepared);
        EXPECT_EQ(receiver.parameters.samplesPerPattern, 64);
        EXPECT_EQ(receiver.parameters.sampleInterval, interval);
        EXPECT_EQ(receiver.parameters.frequencyGrid, nullptr);
    }
}

TEST(BesselThomsonErrors, NameMissingObjectsAndBadRecords)
{
    Receiver receiver(Configuration(8, 8));
    BesselThomsonParameters unconfigured(0.0, 4, 75.0, 64, false, 3.5e10, 0.0);
    unconfigured.sampleInterval = 1e-12;
    BesselThomsonParameters unfilled;
    BesselThomson alone(&unconfigured);
    BesselThomson empty(&unfilled);
    Record record(Constant(1.0, 64));
    Record null(Constant(1.0, 64));
    null.samples = nullptr;
    const std::string where = "BesselThomson: ";
    const std::string noConfig =
        where + "configuration is null; expected the device configuration, which holds the symbol rate";
    ExpectRefused([&] { alone.Prepare(nullptr); }, noConfig);
    ExpectRefused([&] { alone.Apply(&record); }, noConfig);
    ExpectRefused([&] { empty.Apply(&record); }, where + "samplesPerPattern is 0; expected at least 2 samples");
    ExpectRefused([&] { alone.GetBesselThomsonFrequencyDomainFilter(nullptr); },
                  where + "parameters is null; expected a parameters object");
    ExpectRefused([&] { receiver.filter->Apply(nullptr); }, where + "signal is null; expected a captured waveform");
    ExpectRefused([&] { receiver.filter->Apply(&null); },
                  where + "samples is null; expected an array of sampleCount values");
}

TEST(BesselThomson4th, IsThreeDecibelsDownAtTheCutoffAndNormalisesItsInput)
{
    constexpr double kCutoff = 19.92e9;
    const std::vector<double> frequencies{0.0, 0.5 * kCutoff, kCutoff, 3.0 * kCutoff, -kCutoff};
    auto changed = frequencies;
    const auto response = Take(BesselThomson::BesselThomson4th(changed.data(), 5, kCutoff), 5);
    const auto copied = Take(BesselThomson::BesselThomson4th(frequencies, kCutoff), 5);
    EXPECT_EQ(response[0], Complex(1.0, 0.0));
    EXPECT_NEAR(std::abs(response[2]), 1.0 / std::numbers::sqrt2, 1e-4);
    EXPECT_NEAR(std::abs(response[4] - std::conj(response[2])), 0.0, 4 * DBL_EPSILON);
    for (std::size_t k = 0; k < 5; ++k) {
        EXPECT_EQ(changed[k], frequencies[k] * 0.33644 / kCutoff);
        const double w = 2.0 * std::numbers::pi * 0.33644 * frequencies[k] / kCutoff;
        EXPECT_NEAR(std::abs(response[k] - BesselThomsonAt(4, w)), 0.0, 50 * DBL_EPSILON);  // a dozen roundings each
        EXPECT_EQ(copied[k], response[k]);
    }
    EXPECT_EQ(BesselThomson::BesselThomson4thPolyomial(2.0), Complex(16 + 80 + 180 + 210 + 105, 0.0));
    EXPECT_EQ(BesselThomson::BesselThomson4thPolyomial({0.0, 1.0}), Complex(61.0, 95.0));
}

TEST(BesselThomson4th, GivesTheImpulseResponseOfTheMirroredFirstHalf)
{
    for (const std::size_t count : {1U, 2U, 7U, 8U, 101U}) {
        std::vector<double> frequencies(count);
        for (std::size_t k = 0; k < count; ++k)
            frequencies[k] = 1e9 * static_cast<double>(k);
        std::vector<Complex> bins(count);
        for (std::size_t k = 0; k <= count / 2; ++k) {
            const Complex bin = BesselThomsonAt(4, 2.0 * std::numbers::pi * 0.33644 * frequencies[k] / 9e9);
            bins[k == 0 ? 0 : count - k] = std::conj(bin);
            bins[k] = bin;
        }
        auto expected = DirectDft(bins, false);
        std::vector<double> real(count);
        for (std::size_t k = 0; k < count; ++k)
            real[k] = expected[k].real() / static_cast<double>(count);
        std::vector<double> taps(count, kNan);
        BesselThomson::BesselThomson4th(&taps, frequencies, 9e9);
        EXPECT_TRUE(AreNear(taps, real, 100 * DBL_EPSILON)) << count << " frequencies";  // bins and transform together
    }
}

TEST(BesselThomson4th, TakesNoFrequencies)
{
    double untouched = 1.0;
    Take(BesselThomson::BesselThomson4th(&untouched, 0, 1e9), 0);
    Take(BesselThomson::BesselThomson4th(nullptr, -3, 1e9), 0);
    Take(BesselThomson::BesselThomson4th(std::vector<double>{}, 1e9), 0);
    EXPECT_EQ(untouched, 1.0);
    std::vector<double> taps;
    BesselThomson::BesselThomson4th(&taps, {}, 1e9);
    EXPECT_TRUE(taps.empty());
}

TEST(BesselThomson4thErrors, NameTheValueAndChangeNothing)
{
    double frequency = 1e9;
    std::vector<double> taps{5.0};
    const std::string where = "BesselThomson::BesselThomson4th: ";
    for (const auto& [cutoff, shown] : {std::pair{0.0, "0"}, {-1e9, "-1e+09"}, {kNan, "nan"}, {kInfinity, "inf"}}) {
        const std::string text = where + "cutoff is " + shown + "; expected a finite positive frequency in hertz";
        const double value = cutoff;
        ExpectRefused([&] { BesselThomson::BesselThomson4th(&frequency, 1, value); }, text);
        ExpectRefused([&] { BesselThomson::BesselThomson4th(std::vector<double>{1e9}, value); }, text);
        ExpectRefused([&] { BesselThomson::BesselThomson4th(&taps, {1e9}, value); }, text);
    }
    ExpectRefused([] { BesselThomson::BesselThomson4th(static_cast<double*>(nullptr), 1, 1e9); },
                  where + "frequencies is null; expected an array of count values");
    ExpectRefused([] { BesselThomson::BesselThomson4th(nullptr, std::vector<double>{1e9}, 1e9); },
                  where + "impulseResponse is null; expected a vector to write to");
    EXPECT_EQ(frequency, 1e9);
    EXPECT_EQ(taps, std::vector<double>{5.0});
}

}  // namespace
