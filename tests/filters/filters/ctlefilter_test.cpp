#include "filters/filters/ctlefilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <optional>

#include "filters/filters/patternlockfailed.h"
#include "framework/fftifft.h"
#include "support/expectations.h"
#include "support/references.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using Set = std::function<void(CTLEFilterParameters&)>;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kTwoPi = 2.0 * std::numbers::pi;

// A configuration, its parameters and the filter, which hold on to each other.
struct Equaliser {
    explicit Equaliser(DeviceConfiguration configuration, const Set& set = {})
        : config(std::move(configuration)), parameters(&config)
    {
        if (set)
            set(parameters);
        filter.emplace(&parameters);
    }
    std::vector<double> Apply(std::vector<double> samples)
    {
        Record record(std::move(samples));
        return Take(filter->Apply(&record), record.Values().size());
    }
    void Prepare() { static_cast<SystemFramework::BaseFilter&>(*filter).Prepare(nullptr); }
    const std::vector<double>& Taps()
    {
        Prepare();
        return filter->filterTaps;
    }

    DeviceConfiguration config;
    CTLEFilterParameters parameters;
    std::optional<CTLEFilter> filter;
};

DeviceConfiguration Repeated(int samplesPerUi, int patternLengthUi, int repeats = 1)
{
    DeviceConfiguration config = Configuration(samplesPerUi, patternLengthUi);
    config.patternRepeats = repeats;
    return config;
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

double Sum(const std::vector<double>& taps)
{
    return std::accumulate(taps.begin(), taps.end(), 0.0);
}

double RmsOfNoise(const std::vector<double>& taps)
{
    return std::sqrt(std::inner_product(taps.begin(), taps.end(), taps.begin(), 0.0));
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
    DeviceConfiguration config;
    for (const CTLEFilterParameters& p : {CTLEFilterParameters(), CTLEFilterParameters(&config)}) {
        EXPECT_EQ(p.type, CTLE_PEAKING);
        EXPECT_EQ(p.outputScale, 1.0);
        EXPECT_FALSE(p.preserveNoise);
        EXPECT_EQ(p.noiseCornerFrequency, 35e9);
        for (const double value : {p.samplesPerUi, p.gain, p.gain2, p.pole1, p.pole2, p.pole3, p.zero1, p.zero2,
                                   p.dcGain, p.dcGain2, p.peakingRatio})
            EXPECT_EQ(value, 0.0);
    }
    const CTLEFilterParameters given(CTLE_IEEE802_3bs, 1, 2, true, 3, 4, 5, 6, 7, 8, 9, 10, 11);
    CTLEFilterParameters p;
    p = CTLEFilterParameters(given);
    EXPECT_EQ(p.type, CTLE_IEEE802_3bs);
    EXPECT_TRUE(p.preserveNoise);
    const double values[] = {
        p.samplesPerUi, p.gain,    p.noiseCornerFrequency, p.pole1, p.pole2, p.pole3, p.zero1, p.zero2,
        p.dcGain,       p.dcGain2, p.peakingRatio};
    const double expected[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 9, 10};
    EXPECT_TRUE(std::equal(std::begin(values), std::end(values), std::begin(expected)));
    EXPECT_EQ(p.gain2, 0.0);
    EXPECT_EQ(p.outputScale, 1.0);
}

// The taps' spectrum is the standard's formula at every bin: even and odd N, several repetitions, fractional sampling.
TEST(CTLEFilterTaps, HaveTheSpectrumOfTheirFormula)
{
    DeviceConfiguration fractional = Repeated(3, 511);
    fractional.useFractionalSampling = true;
    fractional.uiDuration = 10.0;
    fractional.sampleSpacing = 3.0;
    const struct {
        const char* label;
        DeviceConfiguration config;
        std::size_t taps;
        double samplesPerUi;
    } grids[] = {{"even", Repeated(8, 127), 1015, 8},
                 {"odd", Repeated(7, 127), 889, 7},
                 {"three repetitions", Repeated(9, 127, 3), 3429, 9},
                 {"fractional", fractional, 1533, 10.0 / 3.0}};
    for (const auto& [label, config, count, samplesPerUi] : grids)
        for (const Formula& formula : Formulas()) {
            SCOPED_TRACE(std::string(formula.label) + ", " + label);
            Equaliser equaliser(config, formula.set);
            const std::vector<double>& taps = equaliser.Taps();
            ASSERT_EQ(taps.size(), count);
            std::vector<Complex> bins(taps.begin(), taps.end());
            SystemFramework::FFTIFFT_Factory::GetInstance().FFT(bins.data(), static_cast<int>(count));
            const double spacing =
                26.5625 * samplesPerUi / (config.patternRepeats * config.samplesPerUi * config.patternLengthUi);
            // 1e-9 for the transforms; the peaking design reaches its gain to five decimals and unit gain to as many.
            const double bound = equaliser.parameters.type == CTLE_PEAKING ? 2e-5 : 1e-9;
            for (std::size_t k = 0; k <= count / 2; ++k) {
                const Complex expected = formula.at(spacing * static_cast<double>(k));
                ASSERT_LT(std::abs(bins[k] - expected), bound * std::abs(expected)) << "bin " << k;
            }
        }
}

TEST(CTLEFilterTaps, SumToTheGainAtDcForEveryPreset)
{
    for (int step = 2; step <= 18; ++step) {
        Equaliser equaliser(Repeated(8, 127), Type(CTLE_IEEE802_3bs, 0.5 * step));
        const double sum = Sum(equaliser.Taps());
        EXPECT_NEAR(sum, equaliser.parameters.dcGain, 1e-14) << 0.5 * step << " dB";
        EXPECT_EQ(equaliser.parameters.pole3, 1.2 * kTwoPi * 1e9);
    }
    for (const double level : {0.0, -3.0, 9.0}) {
        Equaliser none(Repeated(8, 127), Type(CTLE_HDMI, level));
        EXPECT_EQ(none.Taps(), Constant(0.0, 1015)) << level;
        EXPECT_EQ(none.parameters.zero1, kInfinity);
    }
    // A type without a name stands for peaking; no samples, no taps.
    EXPECT_EQ(Equaliser(Repeated(8, 127), Type(static_cast<CTLE_Type>(7), 6.0)).Taps(),
              Equaliser(Repeated(8, 127), Type(CTLE_PEAKING, 6.0)).Taps());
    EXPECT_TRUE(Equaliser(Repeated(8, 127, 0), Type(CTLE_HDMI, 1.0)).Taps().empty());
    EXPECT_EQ(Equaliser(Repeated(1, 1), Oif).Taps().size(), 1U);
}

TEST(CTLEFilterTaps, PreserveTheNoiseOrSwitchThatOff)
{
    // 6 dB at 25 GBd and 800 GHz: white noise of rms 1 comes out with 0.3075 of it, behind the analog front end of
    // 35 GHz with 0.8242. To 0.2 %, what the ramp above the corner leaves open.
    const Set set = [](CTLEFilterParameters& p) { p.gain = 6.0; };
    DeviceConfiguration config = Repeated(32, 256);
    config.baudRateGBd = 25.0;
    Equaliser plain(config, set);
    EXPECT_NEAR(RmsOfNoise(plain.Taps()), 0.3075, 0.002 * 0.3075);
    Equaliser corrected(config, [&](CTLEFilterParameters& p) {
        set(p);
        p.preserveNoise = true;
    });
    EXPECT_NEAR(RmsOfNoise(corrected.Taps()), 0.8241, 0.002 * 0.8241);
    EXPECT_NEAR(Sum(corrected.Taps()), Sum(plain.Taps()), 1e-14);
    EXPECT_TRUE(corrected.parameters.preserveNoise);
    EXPECT_TRUE(corrected.parameters.preserveNoiseApplied);
    EXPECT_EQ(corrected.parameters.frequencyGrid, nullptr);

    // Nothing lies above the corner on this grid: the taps stay, the switch goes off, the grid stays behind.
    corrected.parameters.noiseCornerFrequency = 500e9;
    EXPECT_TRUE(HaveSameBits(corrected.Taps(), plain.Taps()));
    EXPECT_FALSE(corrected.parameters.preserveNoise);
    EXPECT_FALSE(corrected.parameters.preserveNoiseApplied);
    ASSERT_NE(corrected.parameters.frequencyGrid, nullptr);
    EXPECT_EQ(corrected.parameters.frequencyGrid[1], 800e9 / 8192);
    // With fractional sampling the correction gets the true frequencies: a corner that only the true ones lie above.
    DeviceConfiguration fractional = Repeated(3, 511);
    fractional.useFractionalSampling = true;
    fractional.uiDuration = 11.0;
    fractional.sampleSpacing = 3.0;
    Equaliser beyond(fractional, [&](CTLEFilterParameters& p) {
        set(p);
        p.preserveNoise = true;
        p.noiseCornerFrequency = 44e9;
    });
    beyond.Prepare();
    EXPECT_TRUE(beyond.parameters.preserveNoiseApplied);
}

TEST(CTLEFilterApply, EqualisesEachRepetitionAsAPeriod)
{
    const std::size_t period = 1016;
    const auto record = RandomValues(3 * period + 5, 7);
    for (const int repeats : {1, 3})
        for (const Formula& formula : Formulas()) {
            SCOPED_TRACE(std::string(formula.label) + ", taps over " + std::to_string(repeats));
            Equaliser equaliser(Repeated(8, 127, repeats), formula.set);
            equaliser.parameters.outputScale = 0.25;
            const auto output = equaliser.Apply(record);
            const double scale = equaliser.parameters.type == CTLE_OIF_CEI_112G_LINEAR_PAM4 ? 0.25 : 1.0;
            for (const std::size_t s : {0U, 1U, 2U}) {
                const std::span<const double> piece(record.data() + s * (record.size() / 3), record.size() / 3);
                for (const std::size_t k : {0U, 1U, 500U, 1016U})
                    EXPECT_NEAR(output[s * piece.size() + k],
                                scale * DirectConvolutionAt(piece, equaliser.filter->filterTaps, k), 1e-13);
            }
            EXPECT_EQ(output.size() - 3 * (record.size() / 3), 2U);
            EXPECT_EQ(output[output.size() - 1], 0.0);
            // Folded onto one repetition the taps keep their gain at DC.
            const auto constant = equaliser.Apply(Constant(2.0, period));
            EXPECT_TRUE(AreNear(constant, Constant(2.0 * scale * Sum(equaliser.filter->filterTaps), period), 1e-13));
        }
}

// An NRZ eye at 5.94 GBd behind a cable: closed to 0.34 of the swing at 8 dB, to 0.12 at 12 dB; open behind its inverse.
TEST(CTLEFilterApply, OpensTheEyeBehindACable)
{
    const int samplesPerUi = 16;
    std::vector<int> bits(511, 1);
    for (std::size_t k = 9; k < bits.size(); ++k)
        bits[k] = bits[k - 9] ^ bits[k - 5];
    std::vector<double> ideal;
    for (const int bit : bits)
        ideal.insert(ideal.end(), samplesPerUi, bit);
    const auto opening = [&](const std::vector<double>& wave) {
        double best = -1.0;
        for (std::size_t shift = 0; shift < wave.size(); ++shift) {
            double low = -1.0;
            double high = 2.0;
            for (std::size_t k = 0; k < bits.size(); ++k) {
                const double sample = wave[(shift + k * samplesPerUi) % wave.size()];
                (bits[k] ? high : low) = bits[k] ? std::min(high, sample) : std::max(low, sample);
            }
            best = std::max(best, high - low);
        }
        return best;
    };
    for (const auto& [loss, closed] : {std::pair{8.0, 0.34}, {12.0, 0.12}}) {
        DeviceConfiguration config = Repeated(samplesPerUi, 511);
        config.baudRateGBd = 5.94;
        Equaliser equaliser(config, Type(CTLE_HDMI_2_0, loss));
        // The cable itself, without the end of band that its emulation by a negative gain would have.
        const double k = loss / 8.685890 / std::sqrt(5.94e9 / 2.0);
        std::vector<Complex> bins(ideal.begin(), ideal.end());
        const int count = static_cast<int>(bins.size());
        SystemFramework::FFTIFFT& fft = SystemFramework::FFTIFFT_Factory::GetInstance();
        fft.FFT(bins.data(), count);
        for (int bin = 0; bin < count; ++bin) {
            const int folded = std::min(bin, count - bin);
            const double root = k * std::sqrt(folded * 5.94e9 * samplesPerUi / count);
            const Complex cable = std::polar(std::exp(-root), -root);
            bins[static_cast<std::size_t>(bin)] *= bin == folded ? cable : std::conj(cable);
        }
        fft.IFFT(bins.data(), count, true);
        std::vector<double> behind(bins.size());
        std::transform(bins.begin(), bins.end(), behind.begin(), [](Complex value) { return value.real(); });
        // The cable alone depends on the pattern: 0.03 covers one of 127 bits as well.
        EXPECT_NEAR(opening(behind), closed, 0.03) << loss;
        EXPECT_NEAR(opening(equaliser.Apply(behind)), 1.02, 0.01) << loss;
    }
}

TEST(CTLEFilterDerivations, TurnUserPolesIntoAGain)
{
    Equaliser equaliser(Repeated(8, 127), Type(CTLE_PEAKING, 6.3));
    CTLEFilterParameters& p = equaliser.parameters;
    equaliser.filter->GetCTLEFilterParams(&p);
    for (double CTLEFilterParameters::*field :
         {&CTLEFilterParameters::pole1, &CTLEFilterParameters::pole2, &CTLEFilterParameters::zero1})
        p.*field /= kTwoPi * 1e9;
    p.gain = 0.0;
    equaliser.filter->PolesAndZerosChanged(&p);
    EXPECT_EQ(p.gain, 6.3);
    p.zero1 = 0.0;
    equaliser.filter->PolesAndZerosChanged(&p);
    EXPECT_TRUE(std::isnan(p.gain));

    p.gain = -3.0;
    p.gain2 = -1.0;
    equaliser.filter->GetCTLEFilter_OIF_CEI_112G_LINEAR_PAM4Params(&p);
    EXPECT_EQ(p.dcGain, -3.0);
    EXPECT_EQ(p.dcGain2, -1.0);
    EXPECT_EQ(CTLEFilter::ComplexConjugate({1.0, 2.0}), Complex(1.0, -2.0));
}

TEST(CTLEFilterLifecycle, PreparesWhenDirtyAndNotBefore)
{
    Equaliser equaliser(Repeated(8, 127), Type(CTLE_HDMI, 1.0));
    const auto record = RandomValues(1016, 3);
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 8.0);
    EXPECT_TRUE(equaliser.filter->notPrepared);
    EXPECT_TRUE(equaliser.filter->filterTaps.empty());
    const auto first = equaliser.Apply(record);
    EXPECT_FALSE(equaliser.parameters.IsDirty());
    EXPECT_FALSE(equaliser.filter->notPrepared);
    EXPECT_EQ(equaliser.filter->kernel, nullptr);

    equaliser.parameters.gain = 8.0;
    equaliser.config.samplesPerUi = 4;
    EXPECT_TRUE(HaveSameBits(equaliser.Apply(record), first));
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 8.0);
    CTLEFilter copy(*equaliser.filter);
    equaliser.parameters.SetDirty();
    EXPECT_FALSE(HaveSameBits(equaliser.Apply(record), first));
    EXPECT_EQ(equaliser.parameters.samplesPerUi, 4.0);
    EXPECT_EQ(equaliser.filter->filterTaps.size(), 507U);
    // The copy has the taps of its source at that time, and the same parameters.
    EXPECT_EQ(copy.filterTaps.size(), 1015U);
    EXPECT_EQ(copy.parameters, &equaliser.parameters);
    // A host may write into the taps.
    copy.filterTaps.assign(1, 2.0);
    Record whole(record);
    EXPECT_EQ(Take(copy.Apply(&whole), 1016)[5], 2.0 * record[5]);
}

TEST(CTLEFilterErrors, NameTheFilterTheValueAndWhatWasExpected)
{
    const auto given = [](double CTLEFilterParameters::*field, double value, const Set& set) {
        return [=](Equaliser& e) {
            set(e.parameters);
            e.parameters.*field = value;
        };
    };
    using P = CTLEFilterParameters;
    const struct {
        const char* text;
        std::function<void(Equaliser&)> spoil;
    } cases[] = {
        {"gain is 4.25 dB; expected one of the presets 1, 1.5, 2, 2.5, 3, 3.5, 4, 4.5, 5, 5.5, 6, 6.5, 7, 7.5, 8, 8.5, "
         "9 dB",
         given(&P::gain, 4.25, Type(CTLE_IEEE802_3bs, 0))},
        {"gain is nan dB; expected one of the presets 1, 1.5, 2, 2.5, 3, 3.5, 4, 4.5, 5, 5.5, 6, 6.5, 7, 7.5, 8, 8.5, "
         "9 "
         "dB",
         given(&P::gain, kNan, Type(CTLE_IEEE802_3bs, 0))},
        {"gain is nan; expected a finite number", given(&P::gain, kNan, Type(CTLE_PEAKING, 0))},
        {"gain is inf; expected a finite number", given(&P::gain, kInfinity, Type(CTLE_HDMI, 0))},
        {"gain is 20.5 dB; expected -20 to 20 dB at half the symbol rate",
         given(&P::gain, 20.5, Type(CTLE_HDMI_2_0, 0))},
        {"gain is nan dB; expected -20 to 20 dB at half the symbol rate",
         given(&P::gain, kNan, Type(CTLE_HDMI_2_0, 0))},
        {"zero2 is nan; expected a finite number", given(&P::zero2, kNan, Oif)},
        {"outputScale is inf; expected a finite number", given(&P::outputScale, kInfinity, Oif)},
        {"noiseCornerFrequency is nan; expected a finite frequency in hertz",
         given(&P::noiseCornerFrequency, kNan, Oif)},
        {"baudRateGBd is 0; expected a finite positive symbol rate", [](Equaliser& e) { e.config.baudRateGBd = 0.0; }},
        {"baudRateGBd is 1e+200; expected a symbol rate at which a gain of 4 dB can be reached",
         [](Equaliser& e) { e.config.baudRateGBd = 1e200; }},
        {"sampleCount is 1015; expected at least one repetition of 1016 samples",
         [](Equaliser& e) { e.config.patternRepeats = 0; }},
        {"patternLengthUi * samplesPerUi is 0; expected at least 1 sample",
         [](Equaliser& e) { e.config.patternLengthUi = 0; }},
        {"patternRepeats * samplesPerUi * patternLengthUi is 2181843385352; expected at most 2147483647",
         [](Equaliser& e) { e.config.patternRepeats = std::numeric_limits<int>::max(); }},
    };
    for (const auto& [text, spoil] : cases) {
        SCOPED_TRACE(text);
        Equaliser equaliser(Repeated(8, 127), Type(CTLE_PEAKING, 4.0));
        const auto before = equaliser.Apply(Constant(1.0, 1016));
        spoil(equaliser);
        equaliser.parameters.SetDirty();
        const P held = equaliser.parameters;
        // The one row about a short record has the repetitions of a prepared filter to show that sizes do not matter.
        const std::size_t samples = equaliser.config.patternRepeats == 0 ? 1015 : 1016;
        ExpectRefused([&] { equaliser.Apply(Constant(1.0, samples)); }, std::string("CTLEFilter: ") + text);
        // Nothing changed; with good settings it works again.
        EXPECT_EQ(equaliser.parameters.pole1, held.pole1);
        EXPECT_EQ(equaliser.parameters.dcGain, held.dcGain);
        EXPECT_TRUE(equaliser.parameters.IsDirty());
        EXPECT_EQ(equaliser.filter->filterTaps.size(), 1015U);
        equaliser.config = Repeated(8, 127);
        equaliser.parameters = P(&equaliser.config);
        equaliser.parameters.gain = 4.0;
        EXPECT_TRUE(HaveSameBits(equaliser.Apply(Constant(1.0, 1016)), before));
    }
}

TEST(CTLEFilterErrors, RefuseWhatIsMissing)
{
    const auto text = [](const std::string& rest) { return "CTLEFilter: " + rest; };
    CTLEFilter none;
    Record record(Constant(1.0, 16));
    ExpectRefused([] { CTLEFilter filter(nullptr); }, text("parameters is null; expected a parameters object"));
    ExpectRefused([&] { none.Apply(&record); }, text("parameters is null; expected a parameters object"));
    ExpectRefused([&] { none.GetCTLEFilter(nullptr); }, text("parameters is null; expected a parameters object"));
    CTLEFilterParameters unconfigured;
    CTLEFilter filter(&unconfigured);
    const std::string noConfiguration =
        text("configuration is null; expected the device configuration, which holds the symbol rate");
    ExpectRefused([&] { filter.Apply(&record); }, noConfiguration);
    ExpectRefused([&] { filter.GetCTLEFilterParams(&unconfigured); }, noConfiguration);
    ExpectRefused([&] { filter.PolesAndZerosChanged(&unconfigured); }, noConfiguration);

    Equaliser equaliser(Repeated(8, 2), Type(CTLE_PEAKING, 4.0));
    ExpectRefused([&] { (void)equaliser.filter->Apply(nullptr); },
                  text("signal is null; expected a captured waveform"));
    equaliser.parameters.ResetDirty();
    ExpectRefused([&] { equaliser.Apply(Constant(1.0, 16)); },
                  text("filterTaps is empty; expected the taps that Prepare makes; mark the parameters dirty"));
    equaliser.config.patternLocked[0] = false;
    EXPECT_THROW(CTLEFilter(&equaliser.parameters), PatternLockFailed);
}

}  // namespace
