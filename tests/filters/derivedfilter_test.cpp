// Filters that a host derives: its Prepare runs before anything is asked of sizes that it alone fills in.
#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "filters/apply.h"
#include "filters/filters.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;
using SystemFramework::BaseFilterParameters;
using SystemFramework::SignalData;

constexpr int kSamplesPerUi = 8;

template <typename Filter>
struct Filling : Filter {
    using Filter::Filter;
    void Prepare(SignalData* signal) override
    {
        this->parameters->GetConfig()->samplesPerUi = kSamplesPerUi;
        Filter::Prepare(signal);
    }
};

template <typename Filter, typename Parameters>
std::vector<double> Output(int samplesPerUi)
{
    DeviceConfiguration config = Configuration(samplesPerUi, 4);
    config.patternRepeats = 2;
    config.signalCoding = SIGNAL_CODING_NRZ;
    Parameters parameters;
    static_cast<BaseFilterParameters&>(parameters) = BaseFilterParameters(&config);
    if constexpr (requires { parameters.taps; }) {
        parameters.useManualTaps = true;
        parameters.taps = {0.5};
        parameters.numberOfTaps = 1;
    }
    if constexpr (requires { parameters.tapsPerUi; })
        parameters.tapsPerUi = 1;
    Filter filter(&parameters);
    return Filtered(filter, RandomValues(8 * std::size_t{kSamplesPerUi}, 1));
}

template <typename Filter, typename Parameters>
void ExpectFilled()
{
    EXPECT_TRUE(HaveSameBits(Output<Filling<Filter>, Parameters>(0), Output<Filter, Parameters>(kSamplesPerUi)));
}

TEST(DerivedFilter, FillsTheSizesInItsPrepare)
{
    ExpectFilled<BesselThomson, BesselThomsonParameters>();
    ExpectFilled<MovingAverageSmoothingFilter, MovingAverageWindowSmoothingParameters>();
    ExpectFilled<FFEFilter, FFEFilterParameters>();
    ExpectFilled<DFEFilter, DFEFilterParameters>();
}

struct DoublingReceiver : BesselThomson {
    using BesselThomson::BesselThomson;
    void Prepare(SignalData*) override
    {
        dynamic_cast<BesselThomsonParameters&>(*parameters).samplesPerPattern = 4;
        SetKernel(std::vector<double>{2.0, 0.0, 0.0});
    }
};

struct DoublingEqualiser : CTLEFilter {
    using CTLEFilter::CTLEFilter;
    void Prepare(SignalData*) override
    {
        dynamic_cast<CTLEFilterParameters&>(*parameters).samplesPerUi = 1.0;
        filterTaps = {2.0};
    }
};

TEST(DerivedFilter, FiltersWithTapsOfItsOwn)
{
    const std::vector<double> samples{1, 2, 3, 4};
    const std::vector<double> doubled{2, 4, 6, 8};
    BesselThomsonParameters withoutConfiguration;
    DoublingReceiver receiver(&withoutConfiguration);
    EXPECT_EQ(Filtered(receiver, samples), doubled);
    DeviceConfiguration config = Configuration(0, 4);
    CTLEFilterParameters parameters(&config);
    DoublingEqualiser equaliser(&parameters);
    EXPECT_EQ(Filtered(equaliser, samples), doubled);
}

}  // namespace
