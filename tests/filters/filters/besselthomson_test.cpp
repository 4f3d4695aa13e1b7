#include "filters/filters/besselthomson.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>

#include "maths/responses/besselthomson.h"
#include "support/expectations.h"
#include "support/filterrig.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

constexpr double kHalfPower = 2.1139287217715976;      // where the walk of order 4 ends for 1/sqrt(2)
constexpr double kHalfAmplitude = 2.8860245572148999;  // and for 1/2

struct Receiver : FilterRig<BesselThomson, BesselThomsonParameters> {
    using FilterRig::FilterRig;
    std::vector<double> Kernel()
    {
        return Take(filter->GetBesselThomsonFrequencyDomainFilter(&parameters), parameters.samplesPerPattern - 1);
    }
};

DeviceConfiguration Fractional(double uiDuration, double sampleSpacing, int patternLengthUi)
{
    // Whole samples per UI left over from elsewhere.
    return FractionallySampled(Configuration(100, patternLengthUi), uiDuration, sampleSpacing);
}

// 4 eps log2(n) max|x| sum|h|: the convolution's own bound. Samples lie within 1, and the taps of a fourth-order
// response below half the symbol rate sum to less than 2 in magnitude.
const double kApplyBound = 8.0 * DBL_EPSILON * std::log2(66.0);

// 40 samples in four UI of 3.33: whole ones count.
TEST(BesselThomsonConstructor, TakesTheSizesFromTheConfiguration)
{
    const Receiver receiver(Fractional(10, 3, 4));
    EXPECT_EQ(receiver.parameters.samplesPerPattern, 13);
    EXPECT_EQ(receiver.parameters.sampleInterval, 1.0 / 26.5625e9 / 3);
    EXPECT_EQ(Receiver(Configuration(0, 4)).parameters.sampleInterval, 0.0);  // Prepare refuses it
}

// Bin k of the taps is the response at k fs/(N - 1), for even and odd N and every order whose coefficients are right.
TEST(BesselThomsonKernel, HasTheMagnitudeAndPhaseOfTheResponse)
{
    const double cutoffs[] = {1.0,        1.3616461313682424, 1.7556880127995638,
                              kHalfPower, 2.4274150045255523, 2.7034027267972904};
    for (const auto& [samplesPerUi, patternLengthUi] : {std::pair{8, 127}, {9, 113}, {1, 2}, {1, 3}})
        for (int order = 1; order <= 6; ++order) {
            SCOPED_TRACE("order " + std::to_string(order) + ", " + std::to_string(patternLengthUi) + " UI");
            const auto taps = Receiver(Configuration(samplesPerUi, patternLengthUi), [&](auto& parameters) {
                                  parameters.order = order;
                                  parameters.cutoffPercent = 60.0;
                              }).Kernel();
            const double spacing = samplesPerUi / 0.6 / static_cast<double>(taps.size());  // in cutoff frequencies
            for (std::size_t k = 0; 2 * k < taps.size(); k += 7) {
                const double w = cutoffs[order - 1] * spacing * static_cast<double>(k);
                EXPECT_NEAR(std::abs(DirectDftAt(taps, k) - BesselThomsonAt(order, w)), 0.0,
                            Maths::kBesselThomsonBinError)
                    << "bin " << k;
            }
        }
}

TEST(BesselThomsonKernel, PassesDirectVoltagesExactlyAtEveryOrder)
{
    for (int order = Maths::kLowestOrder; order <= Maths::kHighestOrder; ++order)
        EXPECT_EQ(Maths::BesselResponse(order).At(0.0), 1.0) << order;
}

// Behind an optical-to-electrical converter, not beside one, the response is 1/2 at the cutoff.
TEST(BesselThomsonKernel, TakesTheCriterionOfItsChannel)
{
    for (const auto& [converter, cutoff] : {std::pair{1, kHalfPower}, {2, kHalfAmplitude}}) {
        bool converters[4] = {};
        converters[converter] = true;
        DeviceConfiguration config = Configuration(8, 127);
        config.oeChannel = converters;
        const auto taps = Receiver(config, [](auto& parameters) { parameters.channel = 2; }).Kernel();
        for (const int k : {10, 95, 200})
            EXPECT_NEAR(std::abs(DirectDftAt(taps, k)), std::abs(BesselThomsonAt(4, cutoff * k * 8 / 0.75 / 1015)),
                        Maths::kBesselThomsonBinError)
                << "converter on channel " << converter << ", bin " << k;
    }
}

// rms of unit white noise through the taps: figures of the correction itself, rounded to four digits. The record's own
// axis is finer by the number of repetitions, and whole samples per UI may be left over from another setting: neither
// moves anything.
TEST(BesselThomsonNoise, IsPreservedOnTheFrequenciesOfTheBins)
{
    DeviceConfiguration repeated = Configuration(8, 1024);
    repeated.patternRepeats = 7;
    const struct {
        const char* label;
        DeviceConfiguration config;
        double cutoffPercent, rms;
    } cases[] = {{"13.28 GHz at 212.5 GHz, seven repetitions", repeated, 50.0, 0.6290},
                 {"8 samples per UI, fractional", Fractional(8.0, 1.0, 1024), 50.0, 0.6290},
                 {"8.5 samples per UI", Fractional(8.5, 1.0, 1024), 50.0, 0.6290},
                 {"39.84 GHz at 850 GHz", Configuration(32, 256), 150.0, 0.9237}};
    for (const auto& each : cases) {
        Receiver receiver(each.config, [&](auto& parameters) {
            parameters.cutoffPercent = each.cutoffPercent;
            parameters.preserveNoise = true;
        });
        const auto taps = receiver.Kernel();
        const double rms = std::sqrt(std::inner_product(taps.begin(), taps.end(), taps.begin(), 0.0));
        EXPECT_NEAR(rms, each.rms, 0.002 * each.rms) << each.label;
        EXPECT_TRUE(receiver.parameters.preserveNoise && receiver.parameters.preserveNoiseApplied) << each.label;
    }
    EXPECT_EQ(BesselThomsonParameters().noiseCornerFrequency, 35e9);  // as for those that a configuration made
}

// A corner above half the sample rate: the correction switches itself off, and the record's axis stays for the host to read.
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
    EXPECT_EQ(receiver.parameters.frequencyGrid[kCount - 1], (kCount - 1) * (8 * 26.5625 * 1e9) / kCount);

    receiver.parameters.noiseCornerFrequency = 3.5e10;
    receiver.parameters.preserveNoise = true;
    receiver.filter->Prepare(nullptr);
    EXPECT_EQ(receiver.parameters.frequencyGrid, nullptr);  // released with the end of Prepare
    EXPECT_FALSE(HaveSameBits({receiver.filter->kernel, plain.size()}, plain));
}

// 200 samples hold three patterns of 64: three segments of 66, two samples left over. 66 samples meet 63 taps, whatever
// stands in another segment.
TEST(BesselThomsonApply, FiltersEachSegmentAsOnePeriod)
{
    Receiver receiver(Configuration(8, 8));
    auto samples = RandomValues(200, 8);
    std::fill_n(samples.begin(), 66, kNan);
    const auto result = receiver.Apply(samples);
    for (const std::size_t begin : {66U, 132U})
        EXPECT_TRUE(AreNear(std::span(result).subspan(begin, 66),
                            DirectConvolution(std::span(samples).subspan(begin, 66), receiver.Kernel()), kApplyBound));
    EXPECT_TRUE(result[198] == 0.0 && result[199] == 0.0);
}

TEST(BesselThomsonApply, PassesTheSamplesOfTheShortestPattern)
{
    const auto samples = RandomValues(6, 9);
    EXPECT_EQ(Receiver(Configuration(1, 2)).Apply(samples), samples);
}

TEST(BesselThomsonApply, RefusesARecordShorterThanAPatternBeforeItPrepares)
{
    Receiver receiver(Configuration(8, 8));
    receiver.config.patternLengthUi = 16;  // counted with the sizes that Prepare would take
    ExpectRefused([&] { receiver.Apply(Constant(1.0, 127)); },
                  "BesselThomson: sampleCount is 127; expected at least one pattern of 128 samples");
    EXPECT_TRUE(receiver.filter->notPrepared);
    EXPECT_EQ(receiver.parameters.samplesPerPattern, 64);
}

TEST(BesselThomsonLifecycle, RebuildsTheKernelWhileDirtyAndHonoursItWhenClean)
{
    Receiver receiver(Configuration(8, 8));
    BesselThomson& filter = *receiver.filter;
    filter.flag2 = filter.flag3 = filter.flag4 = true;
    const auto samples = RandomValues(128, 11);
    const auto expected = receiver.Apply(samples);
    EXPECT_TRUE(receiver.parameters.IsDirty());  // read, never reset
    EXPECT_FALSE(filter.notPrepared || filter.flag3);
    EXPECT_TRUE(filter.flag2 && filter.flag4);
    filter.kernel[0] += 1.0;
    EXPECT_TRUE(HaveSameBits(receiver.Apply(samples), expected));

    receiver.parameters.ResetDirty();
    receiver.config.baudRateGBd = 10.0;
    receiver.parameters.cutoffPercent = 40.0;
    EXPECT_TRUE(HaveSameBits(receiver.Apply(samples), expected));
    receiver.parameters.SetDirty();
    Receiver second(receiver.config, [](auto& parameters) { parameters.cutoffPercent = 40.0; });
    EXPECT_TRUE(HaveSameBits(receiver.Apply(samples), second.Apply(samples)));
}

TEST(BesselThomsonLifecycle, FiltersWithAHostsKernelWithoutAConfiguration)
{
    BesselThomsonParameters parameters(0.0, 4, 75.0, 4, false, 3.5e10, 0.0);
    parameters.ResetDirty();
    BesselThomson filter(&parameters);
    filter.kernel = static_cast<double*>(::operator new(3 * sizeof(double)));
    filter.kernel[0] = filter.kernel[1] = 0.0;
    filter.kernel[2] = 2.0;
    EXPECT_EQ(Filtered(filter, std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8}),
              (std::vector<double>{6, 8, 2, 4, 14, 16, 10, 12}));
}

// A refused Prepare leaves filter and parameters as they were, even after the configuration has changed.
TEST(BesselThomsonErrors, NameTheValueAndChangeNothing)
{
    const struct {
        const char* text;
        std::function<void(Receiver&)> spoil;
    } cases[] = {
        {"order is 0; expected 1 to 16", [](auto& r) { r.parameters.order = 0; }},
        {"order is 17; expected 1 to 16", [](auto& r) { r.parameters.order = 17; }},
        {"cutoffPercent is 0; expected a finite positive percentage", [](auto& r) { r.parameters.cutoffPercent = 0; }},
        {"cutoffPercent is 1e-300; expected a cutoff that half the sample rate exceeds by at most 1e12 times",
         [](auto& r) { r.parameters.cutoffPercent = 1e-300; }},
        {"channel is 4; expected 0 to 3", [](auto& r) { r.parameters.channel = 4; }},
        {"patternLengthUi is 0; expected at least 1 UI", [](auto& r) { r.config.patternLengthUi = 0; }},
        {"samplesPerPattern is 1; expected at least 2 samples", [](auto& r) {
             r.config.samplesPerUi = 1;
             r.config.patternLengthUi = 1;
         }}};
    for (const auto& [text, spoil] : cases) {
        SCOPED_TRACE(text);
        Receiver receiver(Configuration(8, 8));
        receiver.filter->Prepare(nullptr);
        const double* const kernel = receiver.filter->kernel;
        receiver.config.samplesPerUi = 4;
        receiver.filter->notPrepared = receiver.parameters.preserveNoise = true;
        spoil(receiver);
        ExpectRefused([&] { receiver.filter->Prepare(nullptr); }, std::string("BesselThomson: ") + text);
        EXPECT_EQ(receiver.filter->kernel, kernel);
        EXPECT_TRUE(receiver.filter->notPrepared);
        EXPECT_EQ(receiver.parameters.samplesPerPattern, 64);
        EXPECT_EQ(receiver.parameters.frequencyGrid, nullptr);
    }
}

TEST(BesselThomsonErrors, NameMissingObjects)
{
    BesselThomsonParameters unfilled;
    BesselThomson empty(&unfilled);
    const std::string where = "BesselThomson: ";
    ExpectRefused([&] { Filtered(empty, Constant(1.0, 64)); },
                  where + "samplesPerPattern is 0; expected at least 2 samples");
    ExpectRefused([&] { empty.GetBesselThomsonFrequencyDomainFilter(nullptr); },
                  where + "parameters is null; expected a parameters object");
}

TEST(BesselThomson4th, IsThreeDecibelsDownAtTheCutoffAndNormalisesItsInput)
{
    constexpr double kCutoff = 19.92e9;
    const std::vector<double> frequencies{0.0, 0.5 * kCutoff, kCutoff, 3.0 * kCutoff, -kCutoff};
    auto changed = frequencies;
    const auto response = Take(BesselThomson::BesselThomson4th(changed.data(), 5, kCutoff), 5);
    EXPECT_EQ(Take(BesselThomson::BesselThomson4th(frequencies, kCutoff), 5), response);
    EXPECT_NEAR(std::abs(response[2]), 1.0 / std::numbers::sqrt2, 1e-4);
    for (std::size_t k = 0; k < 5; ++k) {
        EXPECT_EQ(changed[k], frequencies[k] * 0.33644 / kCutoff);
        const double w = 2.0 * std::numbers::pi * 0.33644 * frequencies[k] / kCutoff;
        EXPECT_NEAR(std::abs(response[k] - BesselThomsonAt(4, w)), 0.0, 50 * DBL_EPSILON);  // a dozen roundings each
    }
    Take(BesselThomson::BesselThomson4th(nullptr, 0, 0.0), 0);
    EXPECT_EQ(BesselThomson::BesselThomson4thPolyomial({0.0, 1.0}), Complex(61.0, 95.0));
}

TEST(BesselThomson4th, GivesTheImpulseResponseOfTheMirroredFirstHalf)
{
    for (const std::size_t count : {1U, 2U, 7U, 8U}) {
        std::vector<double> frequencies(count);
        std::vector<Complex> bins(count);
        for (std::size_t k = 0; k <= count / 2; ++k) {
            frequencies[k] = 1e9 * static_cast<double>(k);
            const Complex bin = BesselThomsonAt(4, 2.0 * std::numbers::pi * 0.33644 * frequencies[k] / 9e9);
            bins[(count - k) % count] = std::conj(bin);
            bins[k] = bin;
        }
        std::vector<double> expected(count);
        std::ranges::transform(DirectDft(bins, false), expected.begin(),
                               [&](Complex value) { return value.real() / static_cast<double>(count); });
        std::vector<double> taps(count, kNan);
        BesselThomson::BesselThomson4th(&taps, frequencies, 9e9);
        EXPECT_TRUE(AreNear(taps, expected, 100 * DBL_EPSILON)) << count << " frequencies";  // bins and transform
        BesselThomson::BesselThomson4th(&taps, {}, 0.0);
        EXPECT_TRUE(taps.empty());
    }
}

TEST(BesselThomson4thErrors, NameTheValueAndChangeNothing)
{
    double frequency = 1e9;
    std::vector<double> taps{5.0};
    const std::string where = "BesselThomson::BesselThomson4th: ";
    const std::string text = where + "cutoff is 0; expected a finite positive frequency in hertz";
    ExpectRefused([&] { BesselThomson::BesselThomson4th(&frequency, 1, 0.0); }, text);
    ExpectRefused([&] { BesselThomson::BesselThomson4th(&taps, {1e9}, 0.0); }, text);
    ExpectRefused([] { BesselThomson::BesselThomson4th(static_cast<double*>(nullptr), 1, 1e9); },
                  where + "frequencies is null; expected an array of count values");
    ExpectRefused([] { BesselThomson::BesselThomson4th(nullptr, std::vector<double>{1e9}, 1e9); },
                  where + "impulseResponse is null; expected a vector to write to");
    EXPECT_EQ(frequency, 1e9);
    EXPECT_EQ(taps, std::vector<double>{5.0});
}

}  // namespace
