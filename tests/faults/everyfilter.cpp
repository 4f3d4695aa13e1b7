#include "faults/everyfilter.h"

#include <cmath>
#include <complex>
#include <optional>
#include <sstream>
#include <utility>

#include "filters/filters.h"
#include "support/captures.h"
#include "support/files.h"
#include "support/signals.h"

namespace Tarnwick::Testing {

using namespace DSO;
using namespace DSO::Filters;
using SystemFramework::BaseFilter;
using SystemFramework::BaseFilterParameters;

namespace {

constexpr int kPatternLength = 31;
constexpr int kRepetitions = 2;
constexpr std::size_t kTableLength = 512;
constexpr std::size_t kChannels = 4;

// The symbols' text; those of PAM4 are pairs of bits of the sequence taken twice, that is level indices.
std::string Symbols(E_SIGNAL_CODING coding)
{
    const std::vector<int> bits = PrbsLevels(5, 3);
    std::vector<int> levels = bits;
    for (std::size_t k = 0; k < bits.size() && coding == SIGNAL_CODING_PAM4; ++k)
        levels[k] = 2 * bits[2 * k % bits.size()] + bits[(2 * k + 1) % bits.size()];
    return LevelText(levels);
}

// Two repetitions behind a line with an echo and slow edges, with noise of 1 %.
std::vector<double> Capture(const std::string& symbols, int samplesPerUi, double echo, std::uint64_t seed)
{
    const std::size_t count = symbols.size() * static_cast<std::size_t>(samplesPerUi);
    const auto held = [&](std::size_t sample) {
        const std::size_t ui = sample % count / static_cast<std::size_t>(samplesPerUi);
        return static_cast<double>(symbols[ui] - '0');
    };
    std::vector<double> samples = RandomValues(kRepetitions * count, seed);
    for (std::size_t k = 0; k < samples.size(); ++k) {
        const double main = 0.5 * (held(k) + held(k + count - 1));
        samples[k] = 0.01 * samples[k] + main + echo * held(k + count - static_cast<std::size_t>(samplesPerUi));
    }
    return samples;
}

DeviceConfiguration Configured(E_SIGNAL_CODING coding, int samplesPerUi)
{
    DeviceConfiguration config = Configuration(samplesPerUi, kPatternLength);
    config.patternRepeats = kRepetitions;
    config.multiplePatternRecord = true;
    config.samplesPerPattern = samplesPerUi * kPatternLength;
    config.signalCoding = coding;
    config.patternSymbols = Symbols(coding);
    config.useUserPattern = true;
    config.withoutGrayCoding = true;
    return config;
}

// A channel's measured impulse response: a decay in the middle of the table.
std::vector<double> MeasuredDecay(double rate)
{
    constexpr std::size_t kMiddle = kTableLength / 2;
    std::vector<double> table(kTableLength, 0.0);
    for (std::size_t k = kMiddle; k < kTableLength; ++k)
        table[k] = std::exp(-rate * static_cast<double>(k - kMiddle));
    return table;
}

// A fixture of 0.1 dB a GHz and 50 ps.
std::string FixtureText()
{
    std::ostringstream text;
    text << "# GHz S RI R 50\n";
    for (int f = 1; f <= 60; ++f) {
        const std::complex<double> s = std::polar(std::pow(10.0, -0.005 * f), -0.314159 * f);
        text << f << " 0 0 " << s.real() << ' ' << s.imag() << ' ' << s.real() << ' ' << s.imag() << " 0 0\n";
    }
    return text.str();
}

template <typename F, typename P>
struct Traits {
    /// Parameters on settings of someone's choice, mostly with the configuration.
    std::unique_ptr<P> (*choose)(Choices& choices, DeviceConfiguration* config);
    std::function<void(P&, bool other)> set = nullptr;
    std::function<std::vector<double>(const F&, const P&)> prepared = nullptr;
    E_SIGNAL_CODING coding = SIGNAL_CODING_NRZ;
    std::function<void(DeviceConfiguration&)> configure = nullptr;
};

template <typename F, typename P>
class RigOf : public Rig {
public:
    RigOf(const Traits<F, P>& traits, int samplesPerUi)
        : Rig(Configured(traits.coding, samplesPerUi), Capture(Symbols(traits.coding), samplesPerUi, 0.3, 1),
              Capture(Symbols(traits.coding), samplesPerUi, 0.2, 2)),
          traits_(traits)
    {
        if (traits_.configure)
            traits_.configure(config);
        if constexpr (std::is_constructible_v<P, DeviceConfiguration*>) {
            parameters_.emplace(&config);
        } else {
            parameters_.emplace();
            static_cast<BaseFilterParameters&>(*parameters_) = BaseFilterParameters(&config);
        }
        if (traits_.set)
            traits_.set(*parameters_, false);
        filter_.emplace(&*parameters_);
    }
    BaseFilter& Filter() override { return *filter_; }
    BaseFilterParameters& Parameters() override { return *parameters_; }
    void Prepare(SystemFramework::SignalData* signal) override
    {
        if constexpr (std::is_same_v<F, DeEmbeddingFilter>)
            filter_->Prepare();
        else
            Filter().Prepare(signal);
    }
    void Change(bool other) override
    {
        if (traits_.set)
            traits_.set(*parameters_, other);
        parameters_->SetDirty();
    }
    std::vector<double> Prepared() override
    {
        return traits_.prepared ? traits_.prepared(*filter_, *parameters_) : std::vector<double>{};
    }
    std::unique_ptr<BaseFilter> CopyOf(BaseFilter& filter) override
    {
        return std::make_unique<F>(static_cast<const F&>(filter));
    }
    void Assign(BaseFilter& to, const BaseFilter& from) override { static_cast<F&>(to) = static_cast<const F&>(from); }
    std::unique_ptr<BaseFilterParameters> CopyOfParameters() override { return std::make_unique<P>(*parameters_); }
    void DropFilter() override { filter_.reset(); }
    void Restore(const BaseFilterParameters& from) override { *parameters_ = static_cast<const P&>(from); }

private:
    Traits<F, P> traits_;
    std::optional<P> parameters_;
    std::optional<F> filter_;
};

template <typename F, typename P>
FilterKind KindOf(std::string name, std::string filter, Traits<F, P> traits)
{
    const auto choose = traits.choose;
    return {
        std::move(name), std::move(filter),
        [traits = std::move(traits)](int samplesPerUi) { return std::make_unique<RigOf<F, P>>(traits, samplesPerUi); },
        [choose](Choices& choices, DeviceConfiguration* config) {
            std::unique_ptr<P> parameters = choose(choices, config);
            auto chosen = std::make_unique<F>(parameters.get());
            return ChosenFilter{std::move(parameters), std::move(chosen)};
        }};
}

template <typename P>
std::unique_ptr<P> ChosenForAll(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = choices.Within(0, 15) != 1 ? std::make_unique<P>(config) : std::make_unique<P>();
    parameters->channel = choices.Within(0, 7) == 1 ? choices.Whole(0, 4) : 0;
    parameters->preserveNoise = choices.Flag();
    parameters->noiseCornerFrequency = choices.Real(0.0, 50e9);
    parameters->noiseSecondParameter = choices.Real(0.0, 200e9);
    return parameters;
}

std::vector<double> KernelOf(const BaseFilter& filter, int count)
{
    return filter.kernel == nullptr ? std::vector<double>{} : std::vector(filter.kernel, filter.kernel + count);
}

std::unique_ptr<CopyParameters> ChosenCopy(Choices&, DeviceConfiguration* config)
{
    return std::make_unique<CopyParameters>(config);
}

std::unique_ptr<BesselThomsonParameters> ChosenBessel(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = ChosenForAll<BesselThomsonParameters>(choices, config);
    parameters->order = choices.Whole(1, 17);
    parameters->cutoffPercent = choices.Real(1.0, 200.0);
    parameters->samplesPerPattern = choices.Within(0, 300);
    parameters->sampleInterval = choices.Real(0.0, 1e-11);
    return parameters;
}

FilterKind Bessel(std::string name, bool preserveNoise)
{
    Traits<BesselThomson, BesselThomsonParameters> traits{ChosenBessel};
    traits.set = [preserveNoise](auto& p, bool other) {
        p.cutoffPercent = other ? 50.0 : 75.0;
        p.preserveNoise = preserveNoise;
    };
    traits.prepared = [](const auto& f, const auto& p) { return KernelOf(f, p.samplesPerPattern - 1); };
    return KindOf(std::move(name), "BesselThomson", std::move(traits));
}

std::unique_ptr<CTLEFilterParameters> ChosenCtle(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = ChosenForAll<CTLEFilterParameters>(choices, config);
    parameters->type = choices.One<CTLE_Type>(CTLE_OIF_CEI_112G_LINEAR_PAM4);
    // Presets stand half a dB apart.
    parameters->gain = choices.Flag() ? 0.5 * choices.Whole(-4, 20) : choices.Real(-20.0, 20.0);
    parameters->gain2 = choices.Real(-10.0, 0.0);
    parameters->outputScale = choices.Real(-2.0, 2.0);
    for (double* field : {&parameters->pole1, &parameters->pole2, &parameters->pole3, &parameters->zero1,
                          &parameters->zero2, &parameters->dcGain, &parameters->dcGain2, &parameters->peakingRatio})
        *field = choices.Real(0.0, 50.0);
    return parameters;
}

FilterKind Ctle(std::string name, CTLE_Type type, double gain, double otherGain, bool preserveNoise = false)
{
    Traits<CTLEFilter, CTLEFilterParameters> traits{ChosenCtle};
    traits.set = [=](auto& p, bool other) {
        p.type = type;
        p.gain = other ? otherGain : gain;
        p.preserveNoise = preserveNoise;
        if (type == CTLE_OIF_CEI_112G_LINEAR_PAM4) {
            p.gain2 = -1.0;
            p.outputScale = 0.5;
            p.pole1 = 20.0;
            p.pole2 = 28.0;
            p.zero1 = 10.0;
            p.zero2 = 0.7;
        }
    };
    traits.prepared = [](const auto& f, const auto&) { return f.filterTaps; };
    return KindOf(std::move(name), "CTLEFilter", std::move(traits));
}

using FfeTraits = Traits<FFEFilter, FFEFilterParameters>;

std::unique_ptr<FFEFilterParameters> ChosenFfe(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = ChosenForAll<FFEFilterParameters>(choices, config);
    parameters->numberOfTaps = choices.Whole(1, 9);
    parameters->tapsPerUi = choices.Whole(1, 3);
    parameters->mainCursorPosition = choices.Whole(0, 9);
    parameters->useManualTaps = choices.Flag();
    parameters->useTdecqEqualizer = choices.Within(0, 3) == 1;
    parameters->quantizeTaps = choices.Flag();
    parameters->tapResolution = choices.Whole(1, 64);
    parameters->taps = choices.Reals(9, 2.0);
    parameters->fitAtSamplingPhase = choices.Within(0, 3) == 1;
    parameters->dfeTaps = choices.Within(0, 7) == 1 ? choices.Whole(-1, 5) : 0;
    parameters->ridge = choices.Within(0, 7) == 1 ? choices.Real(-0.1, 1.0) : 0.0;
    parameters->ignoredUi = choices.Within(0, 3) == 1 ? choices.Whole(-1, 20) : 0;
    return parameters;
}

FilterKind Ffe(std::string name, E_SIGNAL_CODING coding, FfeTraits traits)
{
    traits.coding = coding;
    traits.prepared = [](const FFEFilter& f, const FFEFilterParameters& p) {
        const DeviceConfiguration& config = *p.GetConfig();
        std::vector<double> prepared = KernelOf(f, p.useTdecqEqualizer ? config.patternLengthUi * p.samplesPerUi
                                                                       : p.samplesPerUi / p.tapsPerUi * p.numberOfTaps);
        prepared.insert(prepared.end(), p.appliedTaps.begin(), p.appliedTaps.end());
        return prepared;
    };
    return KindOf(std::move(name), "FFEFilter", std::move(traits));
}

FilterKind ManualFfe()
{
    FfeTraits traits{ChosenFfe};
    traits.set = [](auto& p, bool other) {
        p.useManualTaps = true;
        p.quantizeTaps = true;
        p.tapResolution = 64;
        p.tapsPerUi = 2;
        p.numberOfTaps = 4;
        p.taps = other ? std::vector<double>{0.1, 1.0, -0.3} : std::vector<double>{1.0, -0.2, 0.1};
    };
    return Ffe("FfeManual", SIGNAL_CODING_NRZ, std::move(traits));
}

FilterKind AutomaticFfe(std::string name, E_SIGNAL_CODING coding, bool tdecq)
{
    FfeTraits traits{ChosenFfe};
    traits.set = [tdecq](auto& p, bool) {
        p.useTdecqEqualizer = tdecq;
        p.tapsPerUi = 1;
        p.numberOfTaps = tdecq ? 2 : 3;
        p.mainCursorPosition = tdecq ? 1 : 0;  // else the search is run once for every place
    };
    return Ffe(std::move(name), coding, std::move(traits));
}

FilterKind PhaseFfe()
{
    FfeTraits traits{ChosenFfe};
    traits.set = [](auto& p, bool) {
        p.fitAtSamplingPhase = true;
        p.tapsPerUi = 2;
        p.numberOfTaps = 3;
        p.dfeTaps = 1;
    };
    return Ffe("FfePhase", SIGNAL_CODING_NRZ, std::move(traits));
}

std::unique_ptr<DFEFilterParameters> ChosenDfe(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = ChosenForAll<DFEFilterParameters>(choices, config);
    parameters->numberOfTaps = choices.Whole(0, 5);
    parameters->useManualTaps = choices.Flag();
    parameters->samplingDelayPs = choices.Real(-100.0, 100.0);
    parameters->taps = choices.Reals(5, 1.0);
    parameters->ignoredUi = choices.Within(0, 3) == 1 ? choices.Whole(-1, 20) : 0;
    return parameters;
}

FilterKind Dfe(std::string name, E_SIGNAL_CODING coding, bool manual)
{
    Traits<DFEFilter, DFEFilterParameters> traits{ChosenDfe};
    traits.coding = coding;
    traits.set = [manual](auto& p, bool) {
        p.numberOfTaps = 2;
        p.useManualTaps = manual;
        if (manual)
            p.taps = {0.3};
    };
    traits.prepared = [manual](const auto&, const auto& p) {
        if (manual)
            return std::vector<double>{};  // the host's
        std::vector<double> prepared = p.taps;
        prepared.push_back(p.samplingDelayPs);
        return prepared;
    };
    return KindOf(std::move(name), "DFEFilter", std::move(traits));
}

std::unique_ptr<SircFilterParameters> ChosenSirc(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = ChosenForAll<SircFilterParameters>(choices, config);
    parameters->uiSamples = choices.Real(0.0, 16.0);
    parameters->referenceCutoffPercent = choices.Real(10.0, 100.0);
    return parameters;
}

FilterKind Sirc()
{
    Traits<SircFilter, SircFilterParameters> traits{ChosenSirc};
    traits.set = [](auto& p, bool other) { p.referenceCutoffPercent = other ? 50.0 : 75.0; };
    traits.prepared = [](const auto& f, const auto&) { return KernelOf(f, f.kernelLength); };
    traits.configure = [](DeviceConfiguration& config) {
        config.electricalResponseTable.assign(kChannels, MeasuredDecay(1.0));
        config.referenceTable.assign(kChannels, MeasuredDecay(2.0));
        config.channelBandwidths.assign(kChannels, 3.98e10);
    };
    return KindOf("Sirc", "SircFilter", std::move(traits));
}

std::unique_ptr<DeEmbeddingParameters> ChosenDeEmbedding(Choices& choices, DeviceConfiguration* config)
{
    auto parameters = ChosenForAll<DeEmbeddingParameters>(choices, config);
    parameters->sparamFileName = choices.File();
    parameters->portOrder = choices.One<PortOrderS4P>(PORT_ORDER_13_24);
    parameters->conversionFlag = choices.Flag();
    parameters->conversionParameterA = choices.Whole(0, 60);
    parameters->conversionParameterB = choices.Whole(0, 60);
    return parameters;
}

FilterKind DeEmbedding(std::string name, bool preserveNoise)
{
    Traits<DeEmbeddingFilter, DeEmbeddingParameters> traits{ChosenDeEmbedding};
    traits.set = [preserveNoise](auto& p, bool other) {
        static const TestFolder kFolder;  // lasts as long as the process
        static const std::string kFixture = kFolder.Write("fixture.s2p", FixtureText()).string();
        p.sparamFileName = kFixture;
        p.conversionFlag = !other;
        p.preserveNoise = preserveNoise;
    };
    traits.prepared = [](const auto& f, const auto&) { return KernelOf(f, f.kernelLength); };
    return KindOf(std::move(name), "DeEmbeddingFilter", std::move(traits));
}

std::unique_ptr<MovingAverageWindowSmoothingParameters> ChosenMovingAverage(Choices& choices,
                                                                            DeviceConfiguration* config)
{
    auto parameters = std::make_unique<MovingAverageWindowSmoothingParameters>(choices.Whole(-1, 64));
    if (choices.Flag())
        static_cast<BaseFilterParameters&>(*parameters) = BaseFilterParameters(config);
    return parameters;
}

FilterKind MovingAverage()
{
    Traits<MovingAverageSmoothingFilter, MovingAverageWindowSmoothingParameters> traits{ChosenMovingAverage};
    traits.set = [](auto& p, bool other) { p.WindowLength = other ? 9 : 5; };
    traits.prepared = [](const auto& f, const auto& p) {
        const DeviceConfiguration& config = *p.GetConfig();
        return KernelOf(f, config.patternRepeats * config.patternLengthUi * config.samplesPerUi);
    };
    return KindOf("MovingAverage", "MovingAverageSmoothingFilter", std::move(traits));
}

}  // namespace

const std::vector<FilterKind>& EveryFilter()
{
    static const std::vector<FilterKind> kinds = {
        KindOf("Copy", "Copy", Traits<Copy, CopyParameters>{ChosenCopy}),
        MovingAverage(),
        Bessel("BesselThomson", false),
        Bessel("BesselThomsonNoise", true),
        Ctle("CtlePeaking", CTLE_PEAKING, 6.0, 4.0),
        Ctle("CtlePeakingNoise", CTLE_PEAKING, 6.0, 4.0, true),
        Ctle("CtleHdmi", CTLE_HDMI, 3.0, 5.0),
        Ctle("CtleHdmi20", CTLE_HDMI_2_0, 8.0, 5.0),
        Ctle("CtleIeee", CTLE_IEEE802_3bs, 4.0, 6.5),
        Ctle("CtleOif", CTLE_OIF_CEI_112G_LINEAR_PAM4, -4.0, -6.0),
        ManualFfe(),
        AutomaticFfe("FfeAutomatic", SIGNAL_CODING_NRZ, false),
        AutomaticFfe("FfeTdecq", SIGNAL_CODING_PAM4, true),
        PhaseFfe(),
        Dfe("DfeAutomatic", SIGNAL_CODING_NRZ, false),
        Dfe("DfePam4", SIGNAL_CODING_PAM4, false),
        Dfe("DfeManual", SIGNAL_CODING_NRZ, true),
        DeEmbedding("DeEmbedding", false),
        DeEmbedding("DeEmbeddingNoise", true),
        Sirc(),
    };
    return kinds;
}

}  // namespace Tarnwick::Testing
