#include "filters/filters/ctlefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>

#include "framework/fftifft.h"
#include "maths/responses/ctle.h"
#include "support/captures.h"
#include "support/expectations.h"
#include "support/filterrig.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Set = std::function<void(CTLEFilterParameters&)>;

constexpr double kTwoPi = 2.0 * std::numbers::pi;

struct Equaliser : FilterRig<CTLEFilter, CTLEFilterParameters> {
    using FilterRig::FilterRig;
    const std::vector<double>& Taps()
    {
        Prepare();
        return filter->filterTaps;
    }
};

DeviceConfiguration Repeated(int samplesPerUi, int patternLengthUi, int repeats = 1)
{
    DeviceConfiguration config = Configuration(samplesPerUi, patternLengthUi);
    config.patternRepeats = repeats;
    return config;
}

// A third of `uiDuration` samples per UI, three on the grid.
DeviceConfiguration Fractional(double uiDuration)
{
    return FractionallySampled(Repeated(3, 511), uiDuration, 3.0);
}

Set Type(CTLE_Type type, double gain)
{
    return [=](CTLEFilterParameters& p) {
        p.type = type;
        p.gain = gain;
    };
}

void Oif(CTLEFilterParameters& p)
{
    p.type = CTLE_OIF_CEI_112G_LINEAR_PAM4;
    p.gain = -6.0;
    p.gain2 = -2.0;
    p.pole1 = 53.125;
    p.pole2 = 28.0;
    p.zero1 = 21.0;
    p.zero2 = 0.66;
}

std::complex<double> Factor(double f, double corner)
{
    return {1.0, f / corner};
}

// Each standard's own formula, f and corners in GHz.
struct Formula {
    const char* label;
    Set set;
    std::function<std::complex<double>(double f)> at;
};

std::vector<Formula> Formulas()
{
    const double rate = 26.5625;
    return {
        {"peaking 6 dB", Type(CTLE_PEAKING, 6.0),
         [=](double f) {
             // The zero follows from the poles and the peaking p: |1 + jx/z| = p |1 + jx/p1| |1 + jx/p2| at x = rate/2.
             const double x = rate / 2.0;
             const double p1 = 0.475 * rate;
             const double p2 = 0.525 * rate;
             const double lift = std::pow(10.0, 6.0 / 20.0) * std::abs(Factor(x, p1) * Factor(x, p2));
             const double z = x / std::sqrt(lift * lift - 1.0);
             return std::pow(10.0, -6.0 / 20.0) * Factor(f, z) / Factor(f, p1) / Factor(f, p2);
         }},
        {"HDMI level 5", Type(CTLE_HDMI, 5.0),
         [](double f) { return Factor(f, 3.5 / 2.32) / Factor(f, 3.5) / Factor(f, 10.0); }},
        {"HDMI 2.0, 8 dB", Type(CTLE_HDMI_2_0, 8.0),
         [=](double f) {
             const double root = (8.0 + 0.705115) / 8.685890 * std::sqrt(std::min(f, rate) / (rate / 2.0));
             const std::complex<double> s(0.0, kTwoPi * 0.33644 * f / rate);
             return std::polar(std::exp(root), root) * 105.0 / ReverseBessel(4, s);
         }},
        {"IEEE 802.3bs 4.5 dB", Type(CTLE_IEEE802_3bs, 4.5),
         [](double f) {
             return 0.595662 * Factor(f, 7.076858) * Factor(f, 1.0) / Factor(f, 26.5625) / Factor(f, 14.1) /
                    Factor(f, 1.2);
         }},
        {"OIF", Oif,
         [](double f) {
             const std::complex<double> j(0.0, 1.0);
             return (std::pow(10.0, -6.0 / 20.0) + j * f / 21.0) * (std::pow(10.0, -2.0 / 20.0) + j * f / 0.66) /
                    (Factor(f, 53.125) * Factor(f, 28.0) * Factor(f, 0.66));
         }},
    };
}

TEST(CTLEFilterParameters, KeepTheOddOrderOfTheLastArguments)
{
    const CTLEFilterParameters p(CTLE_IEEE802_3bs, 1, 2, true, 3, 4, 5, 6, 7, 8, 9, 10, 11);
    const std::vector<double> values{
        p.samplesPerUi, p.gain,    p.noiseCornerFrequency, p.pole1, p.pole2,      p.pole3, p.zero1, p.zero2,
        p.dcGain,       p.dcGain2, p.peakingRatio,         p.gain2, p.outputScale};
    EXPECT_EQ(values, (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 10, 0, 1}));
    EXPECT_EQ(CTLEFilterParameters().noiseCornerFrequency, 35e9);
}

// Bins `spacing` apart, each against the formula at its frequency.
void ExpectSpectrum(const std::vector<double>& taps, double spacing, const std::function<Complex(double f)>& at,
                    double bound)
{
    std::vector<Complex> bins(taps.begin(), taps.end());
    SystemFramework::FFTIFFT_Factory::GetInstance().FFT(bins.data(), static_cast<int>(bins.size()));
    for (std::size_t k = 0; k <= bins.size() / 2; ++k) {
        const Complex expected = at(spacing * static_cast<double>(k));
        ASSERT_LT(std::abs(bins[k] - expected), bound * std::abs(expected)) << "bin " << k;
    }
}

// The taps' spectrum is the standard's formula at every bin: even and odd N, several repetitions, fractional sampling.
TEST(CTLEFilterTaps, HaveTheSpectrumOfTheirFormula)
{
    const struct {
        const char* label;
        DeviceConfiguration config;
        std::size_t taps;
        double samplesPerUi;
    } grids[] = {{"even", Repeated(8, 127), 1015, 8},
                 {"odd, three repetitions", Repeated(9, 127, 3), 3429, 9},
                 {"fractional", Fractional(10.0), 1533, 10.0 / 3.0}};
    for (const auto& [label, config, count, samplesPerUi] : grids)
        for (const Formula& formula : Formulas()) {
            SCOPED_TRACE(std::string(formula.label) + ", " + label);
            Equaliser equaliser(config, formula.set);
            const std::vector<double>& taps = equaliser.Taps();
            ASSERT_EQ(taps.size(), count);
            const double spacing =
                26.5625 * samplesPerUi / (config.patternRepeats * config.samplesPerUi * config.patternLengthUi);
            ExpectSpectrum(
                taps, spacing, formula.at,
                equaliser.parameters.type == CTLE_PEAKING ? Maths::kCtlePeakingBinError : Maths::kCtleBinError);
        }
}

// Every preset of docs/ctle-presets.md over 511 UI of 16 samples; the peaking type against the design that it is made from.
TEST(CTLEFilterTaps, FollowTheFormulaOfEveryPreset)
{
    struct Preset {
        CTLE_Type type;
        double gain, rateGBd;
        std::function<Complex(double f)> at;  // f in Hz
    };
    std::vector<Preset> presets;
    for (const Maths::Ieee802_3bsPreset& p : Maths::kIeee802_3bsPresets)
        presets.push_back({CTLE_IEEE802_3bs, p.keyDb, 26.5625, [p](double f) {
                               const double ghz = f / 1e9;
                               return p.dcGain * Factor(ghz, p.zero1) * Factor(ghz, p.zero2) / Factor(ghz, p.pole1) /
                                      Factor(ghz, p.pole2) / Factor(ghz, p.pole3);
                           }});
    for (const auto& [level, ratio] : Maths::kHdmiLevels)
        presets.push_back({CTLE_HDMI, static_cast<double>(level), 5.94, [ratio = ratio](double f) {
                               return Factor(f, 3.5e9 / ratio) / Factor(f, 3.5e9) / Factor(f, 10e9);
                           }});
    for (const double rate : {10.0, 26.5625, 53.125})
        for (int gain = 0; gain <= 12; gain += 3)
            presets.push_back({CTLE_PEAKING, static_cast<double>(gain), rate,
                               [design = *Maths::DesignPeaking(rate * 1e9, gain)](double f) {
                                   return design.dcGain * Factor(f, design.zero / kTwoPi) /
                                          Factor(f, design.pole1 / kTwoPi) / Factor(f, design.pole2 / kTwoPi);
                               }});
    for (const Preset& preset : presets) {
        SCOPED_TRACE(std::to_string(preset.type) + ", " + std::to_string(preset.gain) + " dB");
        DeviceConfiguration config = Repeated(16, 511);
        config.baudRateGBd = preset.rateGBd;
        Equaliser equaliser(config, Type(preset.type, preset.gain));
        ExpectSpectrum(equaliser.Taps(), preset.rateGBd * 1e9 / 511.0, preset.at, Maths::kCtleBinError);
    }
}

TEST(CTLEFilterTaps, HaveTheirLimits)
{
    EXPECT_EQ(Equaliser(Repeated(8, 127), Type(CTLE_HDMI, 9.0)).Taps(), Constant(0.0, 1015));  // no such level
    // A type without a name stands for peaking; no samples, no taps.
    EXPECT_EQ(Equaliser(Repeated(8, 127), Type(static_cast<CTLE_Type>(7), 6.0)).Taps(),
              Equaliser(Repeated(8, 127), Type(CTLE_PEAKING, 6.0)).Taps());
    EXPECT_TRUE(Equaliser(Repeated(8, 127, 0), Type(CTLE_HDMI, 1.0)).Taps().empty());
    EXPECT_EQ(Equaliser(Repeated(1, 1), Oif).Taps().size(), 1U);
}

TEST(CTLEFilterTaps, PreserveTheNoiseOrSwitchThatOff)
{
    // 6 dB at 25 GBd and 800 GHz: white noise of rms 1 comes out with 0.8241 of it, behind an analog front end of 35 GHz.
    // To 0.2 %, what the ramp above the corner leaves open.
    DeviceConfiguration config = Repeated(32, 256);
    config.baudRateGBd = 25.0;
    Equaliser equaliser(config, Type(CTLE_PEAKING, 6.0));
    CTLEFilterParameters& p = equaliser.parameters;
    const std::vector<double> plain = equaliser.Taps();
    p.preserveNoise = true;
    const std::vector<double>& taps = equaliser.Taps();
    const double power = std::inner_product(taps.begin(), taps.end(), taps.begin(), 0.0);
    EXPECT_NEAR(std::sqrt(power), 0.8241, 0.002 * 0.8241);
    EXPECT_TRUE(p.preserveNoise && p.preserveNoiseApplied);
    EXPECT_EQ(p.frequencyGrid, nullptr);

    // With no bin above the corner the taps stay, the switch goes off and the grid stays.
    p.noiseCornerFrequency = 500e9;
    EXPECT_TRUE(HaveSameBits(equaliser.Taps(), plain));
    EXPECT_FALSE(p.preserveNoise || p.preserveNoiseApplied);
    ASSERT_NE(p.frequencyGrid, nullptr);
    EXPECT_EQ(p.frequencyGrid[1], 800e9 / 8192);

    // With fractional sampling the correction gets the true frequencies: a corner that only the true ones lie above.
    Equaliser beyond(Fractional(11.0), Type(CTLE_PEAKING, 6.0));
    beyond.parameters.preserveNoise = true;
    beyond.parameters.noiseCornerFrequency = 44e9;
    beyond.Prepare();
    EXPECT_TRUE(beyond.parameters.preserveNoiseApplied);
}

// Taps over three repetitions, a record of three and five samples: segments of 1017, two samples left over.
TEST(CTLEFilterApply, EqualisesEachRepetitionAsAPeriod)
{
    const auto record = RandomValues(3 * 1016 + 5, 7);
    for (const Formula& formula : Formulas()) {
        SCOPED_TRACE(formula.label);
        Equaliser equaliser(Repeated(8, 127, 3), formula.set);
        equaliser.parameters.outputScale = 0.25;
        const auto output = equaliser.Apply(record);
        const std::vector<double>& taps = equaliser.filter->filterTaps;
        const double scale = equaliser.parameters.type == CTLE_OIF_CEI_112G_LINEAR_PAM4 ? 0.25 : 1.0;
        for (const std::size_t begin : {0U, 1017U, 2034U})
            for (const std::size_t k : {0U, 500U, 1016U})
                EXPECT_NEAR(output[begin + k],
                            scale * DirectConvolutionAt(std::span(record).subspan(begin, 1017), taps, k), 1e-13);
        EXPECT_TRUE(output[3051] == 0.0 && output[3052] == 0.0);
        // Folded onto one repetition the taps keep their gain at DC.
        const auto constant = equaliser.Apply(Constant(2.0, 1016));
        const double atDc = std::accumulate(taps.begin(), taps.end(), 0.0);
        EXPECT_TRUE(AreNear(constant, Constant(2.0 * scale * atDc, 1016), 1e-13));
    }
}

// An NRZ eye at 5.94 GBd behind a cable: closed to 0.34 of the swing at 8 dB, to 0.12 at 12 dB; open behind its inverse.
TEST(CTLEFilterApply, OpensTheEyeBehindACable)
{
    const auto bits = PrbsLevels(9, 5);
    const std::string symbols = LevelText(bits);
    const auto sent = Held({bits.begin(), bits.end()}, 16);
    for (const auto& [loss, closed] : {std::pair{8.0, 0.34}, {12.0, 0.12}}) {
        DeviceConfiguration config = Repeated(16, 511);
        config.baudRateGBd = 5.94;
        Equaliser equaliser(config, Type(CTLE_HDMI_2_0, loss));
        // The cable itself: its emulation by a negative gain would be limited in band.
        const auto behind = ThroughResponse(sent, 5.94 * 16, [loss = loss](double f) {
            const double root = loss / 8.685890 * std::sqrt(f / (5.94 / 2.0));
            return std::polar(std::exp(-root), -root);
        });
        // The cable alone depends on the pattern, by 0.03 between 127 and 511 bits.
        EXPECT_NEAR(Opening(behind, symbols, 16), closed, 0.03) << loss;
        EXPECT_NEAR(Opening(equaliser.Apply(behind), symbols, 16), 1.02, 0.01) << loss;
    }
}

TEST(CTLEFilterDerivations, TurnUserPolesIntoAGain)
{
    Equaliser equaliser(Repeated(8, 127), Type(CTLE_PEAKING, 6.3));
    CTLEFilterParameters& p = equaliser.parameters;
    equaliser.filter->GetCTLEFilterParams(&p);
    for (double* corner : {&p.pole1, &p.pole2, &p.zero1})
        *corner /= kTwoPi * 1e9;
    p.gain = 0.0;
    equaliser.filter->PolesAndZerosChanged(&p);
    EXPECT_EQ(p.gain, 6.3);
    p.zero1 = 0.0;
    equaliser.filter->PolesAndZerosChanged(&p);
    EXPECT_TRUE(std::isnan(p.gain));
    EXPECT_EQ(CTLEFilter::ComplexConjugate({1.0, 2.0}), Complex(1.0, -2.0));
}

TEST(CTLEFilterLifecycle, PreparesWhenDirtyAndNotBefore)
{
    Equaliser equaliser(Repeated(8, 127), Type(CTLE_HDMI, 1.0));
    const auto record = RandomValues(1016, 3);
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 8.0);
    EXPECT_TRUE(equaliser.filter->notPrepared);
    const auto first = equaliser.Apply(record);
    EXPECT_FALSE(equaliser.parameters.IsDirty() || equaliser.filter->notPrepared);
    equaliser.config.samplesPerUi = 4;
    EXPECT_TRUE(HaveSameBits(equaliser.Apply(record), first));
    equaliser.parameters.SetDirty();
    equaliser.Apply(record);
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 4.0);
    EXPECT_EQ(equaliser.filter->filterTaps.size(), 507U);
    equaliser.filter->filterTaps.assign(1, 2.0);  // as a host may
    EXPECT_EQ(equaliser.Apply(record)[5], 2.0 * record[5]);
}

TEST(CTLEFilterErrors, NameTheFilterTheValueAndWhatWasExpected)
{
    const std::pair<Set, const char*> cases[] = {
        {Type(CTLE_IEEE802_3bs, 4.25),
         "gain is 4.25 dB; expected one of the presets 1, 1.5, 2, 2.5, 3, 3.5, 4, 4.5, 5, 5.5, 6, 6.5, 7, 7.5, 8, 8.5, "
         "9 dB"},
        {Type(CTLE_HDMI_2_0, 20.5), "gain is 20.5 dB; expected -20 to 20 dB at half the symbol rate"},
        {[](CTLEFilterParameters& p) {
             Oif(p);
             p.outputScale = std::numeric_limits<double>::infinity();
         },
         "outputScale is inf; expected a finite number"},
    };
    for (const auto& [set, text] : cases) {
        SCOPED_TRACE(text);
        Equaliser equaliser(Repeated(8, 127), Type(CTLE_PEAKING, 4.0));
        CTLEFilterParameters& p = equaliser.parameters;
        equaliser.Prepare();
        const double dcGain = p.dcGain;
        set(p);
        equaliser.config.samplesPerUi = 4;
        p.SetDirty();
        ExpectRefused([&] { equaliser.Apply(Constant(1.0, 1016)); }, std::string("CTLEFilter: ") + text);
        // Nothing changed.
        EXPECT_EQ(p.dcGain, dcGain);
        EXPECT_EQ(p.samplesPerUi, 8.0);
        EXPECT_TRUE(p.IsDirty());
        EXPECT_EQ(equaliser.filter->filterTaps.size(), 1015U);
    }
    Equaliser fast(Configuration(8, 127, 1e200), Type(CTLE_PEAKING, 4.0));
    ExpectRefused([&] { fast.filter->GetCTLEFilterParams(&fast.parameters); },
                  "CTLEFilter: baudRateGBd is 1e+200; expected a symbol rate at which a gain of 4 dB can be reached");
}

TEST(CTLEFilterErrors, RefuseWhatIsMissing)
{
    const std::string where = "CTLEFilter: ";
    Equaliser equaliser(Repeated(8, 2), Type(CTLE_PEAKING, 4.0));
    equaliser.parameters.ResetDirty();
    ExpectRefused([&] { equaliser.Apply(Constant(1.0, 16)); },
                  where + "filterTaps is empty; expected the taps that Prepare makes; mark the parameters dirty");
}

}  // namespace
