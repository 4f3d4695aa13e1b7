#include "filters/filters/patternlockfailed.h"

#include <gtest/gtest.h>

#include <exception>

#include "filters/filters/besselthomson.h"
#include "filters/filters/copy.h"
#include "filters/filters/movingaveragesmoothingfilter.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

TEST(PatternLockFailed, IsAnExceptionWhoseCopiesSayTheSame)
{
    const PatternLockFailed error;
    const PatternLockFailed copy(error);  // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
    EXPECT_STREQ(error.what(), "No pattern lock");
    EXPECT_STREQ(copy.what(), "No pattern lock");
    try {
        throw PatternLockFailed();
    } catch (const std::exception& caught) {
        EXPECT_STREQ(caught.what(), "No pattern lock");
    }
}

MovingAverageWindowSmoothingParameters MovingAverageParameters(DeviceConfiguration* config)
{
    MovingAverageWindowSmoothingParameters parameters(5);
    static_cast<SystemFramework::BaseFilterParameters&>(parameters) = SystemFramework::BaseFilterParameters(config);
    return parameters;
}

TEST(PatternLock, IsAskedOfTheFiltersOwnChannelAndTheFilterStartsUnprepared)
{
    for (int locked = 0; locked < 4; ++locked)
        for (int channel = 0; channel < 4; ++channel) {
            SCOPED_TRACE("lock on " + std::to_string(locked) + ", filter on " + std::to_string(channel));
            DeviceConfiguration config = Configuration(4, 16);
            for (int each = 0; each < 4; ++each)
                config.patternLocked[each] = each == locked;
            BesselThomsonParameters bessel(&config);
            MovingAverageWindowSmoothingParameters average = MovingAverageParameters(&config);
            bessel.channel = average.channel = channel;
            if (locked != channel) {
                EXPECT_THROW(BesselThomson{&bessel}, PatternLockFailed);
                EXPECT_THROW(MovingAverageSmoothingFilter{&average}, PatternLockFailed);
                continue;
            }
            const BesselThomson besselFilter(&bessel);
            const MovingAverageSmoothingFilter averageFilter(&average);
            EXPECT_TRUE(besselFilter.notPrepared && averageFilter.notPrepared && averageFilter.flag2);
            EXPECT_FALSE(besselFilter.flag2 || besselFilter.flag3 || averageFilter.flag3);
            EXPECT_EQ(besselFilter.kernel, nullptr);
            EXPECT_EQ(averageFilter.kernel, nullptr);
        }
}

TEST(PatternLock, IsNotAskedWithoutAConfigurationNorByCopy)
{
    BesselThomsonParameters bessel;
    MovingAverageWindowSmoothingParameters average;
    bessel.channel = average.channel = 9;
    EXPECT_NO_THROW(BesselThomson{&bessel});
    EXPECT_NO_THROW(MovingAverageSmoothingFilter{&average});
    DeviceConfiguration unlocked;
    CopyParameters copy(&unlocked);
    copy.channel = 9;
    EXPECT_NO_THROW(Copy{&copy});
}

TEST(ChannelErrors, NameFilterAndChannel)
{
    DeviceConfiguration config = Configuration(4, 16);
    BesselThomsonParameters bessel(&config);
    MovingAverageWindowSmoothingParameters average = MovingAverageParameters(&config);
    for (const int channel : {-1, 4}) {
        bessel.channel = average.channel = channel;
        const std::string text = ": channel is " + std::to_string(channel) + "; expected 0 to 3";
        ExpectRefused([&] { BesselThomson{&bessel}; }, "BesselThomson" + text);
        ExpectRefused([&] { MovingAverageSmoothingFilter{&average}; }, "MovingAverageSmoothingFilter" + text);
    }
    ExpectRefused([] { BesselThomson{nullptr}; }, "BesselThomson: parameters is null; expected a parameters object");
    ExpectRefused([] { MovingAverageSmoothingFilter{nullptr}; },
                  "MovingAverageSmoothingFilter: parameters is null; expected a parameters object");
}

}  // namespace
