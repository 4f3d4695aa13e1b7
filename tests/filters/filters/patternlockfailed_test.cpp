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

template <typename Filter, typename Parameters>
void ConstructOnNothing()
{
    const Filter filter(static_cast<Parameters*>(nullptr));
}

struct Row {
    std::string name;
    bool asks;
    void (*construct)(DeviceConfiguration* config, int channel);
    void (*constructOnNothing)();
};

template <typename Filter, typename Parameters>
Row RowOf(const char* name, bool asks = true)
{
    return {name, asks, Construct<Filter, Parameters>, ConstructOnNothing<Filter, Parameters>};
}

// Without a configuration there is nothing to ask. A copy of the samples and a fixture do not depend on the pattern's lock.
TEST(PatternLock, IsAskedOfTheFiltersOwnChannel)
{
    const Row rows[] = {
        RowOf<BesselThomson, BesselThomsonParameters>("BesselThomson"),
        RowOf<CTLEFilter, CTLEFilterParameters>("CTLEFilter"),
        RowOf<Copy, CopyParameters>("Copy", false),
        RowOf<DFEFilter, DFEFilterParameters>("DFEFilter"),
        RowOf<DeEmbeddingFilter, DeEmbeddingParameters>("DeEmbeddingFilter", false),
        RowOf<FFEFilter, FFEFilterParameters>("FFEFilter"),
        RowOf<MovingAverageSmoothingFilter, MovingAverageWindowSmoothingParameters>("MovingAverageSmoothingFilter"),
        RowOf<SircFilter, SircFilterParameters>("SircFilter"),
    };
    DeviceConfiguration config = Configuration(4, 16);
    config.electricalResponseTable = config.referenceTable = {4, {0.0, 1.0}};
    config.channelBandwidths = Constant(39.8e9, 4);
    config.patternLocked[2] = false;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        for (const int locked : {0, 1, 3})
            EXPECT_NO_THROW(row.construct(&config, locked));
        EXPECT_NO_THROW(row.construct(nullptr, 9));
        if (!row.asks) {
            EXPECT_NO_THROW(row.construct(&config, 2));
            EXPECT_NO_THROW(row.construct(&config, 4));
            continue;
        }
        EXPECT_THROW(row.construct(&config, 2), PatternLockFailed);
        for (const int channel : {-1, 4})
            ExpectRefused([&] { row.construct(&config, channel); },
                          row.name + ": channel is " + std::to_string(channel) + "; expected 0 to 3");
        ExpectRefused(row.constructOnNothing, row.name + ": parameters is null; expected a parameters object");
    }
    const PatternLockFailed failed;
    EXPECT_STREQ(static_cast<const std::exception&>(failed).what(), "No pattern lock");
}

}  // namespace
