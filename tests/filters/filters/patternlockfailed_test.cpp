#include "filters/filters/patternlockfailed.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>

#include "filters/filters.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

template <typename Filter, typename Parameters>
void Construct(DeviceConfiguration* config, int channel)
{
    Parameters parameters;
    static_cast<SystemFramework::BaseFilterParameters&>(parameters) = SystemFramework::BaseFilterParameters(config);
    parameters.channel = channel;
    const Filter filter(&parameters);
}

// Without a configuration there is nothing to ask. A copy of the samples and a fixture do not depend on the pattern's lock.
template <typename Filter, typename Parameters>
void ExpectAsked(const std::string& name, bool asks = true)
{
    SCOPED_TRACE(name);
    DeviceConfiguration config = Configuration(4, 16);
    config.electricalResponseTable = config.referenceTable = {4, {0.0, 1.0}};
    config.channelBandwidths = Constant(39.8e9, 4);
    config.patternLocked[2] = false;
    const auto construct = [&](int channel) { Construct<Filter, Parameters>(&config, channel); };
    for (const int locked : {0, 1, 3})
        EXPECT_NO_THROW(construct(locked));
    EXPECT_NO_THROW((Construct<Filter, Parameters>(nullptr, 9)));
    if (!asks) {
        EXPECT_NO_THROW(construct(2));
        EXPECT_NO_THROW(construct(4));
        return;
    }
    EXPECT_THROW(construct(2), PatternLockFailed);
    for (const int channel : {-1, 4})
        ExpectRefused([&] { construct(channel); },
                      name + ": channel is " + std::to_string(channel) + "; expected 0 to 3");
    ExpectRefused([] { const Filter filter(static_cast<Parameters*>(nullptr)); },
                  name + ": parameters is null; expected a parameters object");
}

TEST(PatternLock, IsAskedOfTheFiltersOwnChannel)
{
    ExpectAsked<BesselThomson, BesselThomsonParameters>("BesselThomson");
    ExpectAsked<CTLEFilter, CTLEFilterParameters>("CTLEFilter");
    ExpectAsked<Copy, CopyParameters>("Copy", false);
    ExpectAsked<DFEFilter, DFEFilterParameters>("DFEFilter");
    ExpectAsked<DeEmbeddingFilter, DeEmbeddingParameters>("DeEmbeddingFilter", false);
    ExpectAsked<FFEFilter, FFEFilterParameters>("FFEFilter");
    ExpectAsked<MovingAverageSmoothingFilter, MovingAverageWindowSmoothingParameters>("MovingAverageSmoothingFilter");
    ExpectAsked<SircFilter, SircFilterParameters>("SircFilter");
    const PatternLockFailed failed;
    EXPECT_STREQ(static_cast<const std::exception&>(failed).what(), "No pattern lock");
}

}  // namespace
