#include "filters/filters/patternlockfailed.h"

#include <gtest/gtest.h>

#include <exception>

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

const struct {
    const char* name;
    void (*construct)(DeviceConfiguration* config, int channel);
} kFilters[] = {
    {"BesselThomson", Construct<BesselThomson, BesselThomsonParameters>},
    {"MovingAverageSmoothingFilter", Construct<MovingAverageSmoothingFilter, MovingAverageWindowSmoothingParameters>},
    {"FFEFilter", Construct<FFEFilter, FFEFilterParameters>},
    {"DFEFilter", Construct<DFEFilter, DFEFilterParameters>}};

// Without a configuration there is nothing to ask; a copy of the samples never asks.
TEST(PatternLock, IsAskedOfTheFiltersOwnChannel)
{
    for (const auto& filter : kFilters) {
        SCOPED_TRACE(filter.name);
        DeviceConfiguration config = Configuration(4, 16);
        config.patternLocked[2] = false;
        for (const int locked : {0, 1, 3})
            EXPECT_NO_THROW(filter.construct(&config, locked));
        EXPECT_THROW(filter.construct(&config, 2), PatternLockFailed);
        for (const int channel : {-1, 4})
            ExpectRefused([&] { filter.construct(&config, channel); },
                          std::string(filter.name) + ": channel is " + std::to_string(channel) + "; expected 0 to 3");
        EXPECT_NO_THROW(filter.construct(nullptr, 9));
    }
    const PatternLockFailed failed;
    EXPECT_STREQ(static_cast<const std::exception&>(failed).what(), "No pattern lock");
    DeviceConfiguration unlocked;
    EXPECT_NO_THROW((Construct<Copy, CopyParameters>(&unlocked, 9)));
    ExpectRefused([] { BesselThomson{nullptr}; }, "BesselThomson: parameters is null; expected a parameters object");
}

}  // namespace
