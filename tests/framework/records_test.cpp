#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "framework/deviceconfiguration.h"
#include "framework/otoereceiverinfo.h"
#include "framework/signal.h"
#include "framework/signalcoding.h"
#include "framework/signaldata.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::SystemFramework;

// Through a reference, or compilers see the self-assignment and warn.
template <typename Value>
void AssignToItself(Value& value)
{
    Value& same = value;
    value = same;
}

TEST(SignalDataCopies, NameTheSameSamplesAndOwnTheirContainers)
{
    std::vector<double> samples{1.0, 2.0, 3.0};
    double aux = 4.0;
    SignalData signal;
    signal.sampleCount = 3;
    signal.samples = samples.data();
    signal.auxSamples1 = &aux;
    signal.frameworkScale4 = 0.5;
    signal.frameworkValues = {1.0, 2.0};
    signal.frameworkMap = {{7, 0.5}};
    {
        SignalData copy(signal);
        SignalData assigned;
        assigned = copy;
        for (const SignalData* other : {&copy, &assigned}) {
            EXPECT_EQ(other->sampleCount, 3);
            EXPECT_EQ(other->samples, samples.data());
            EXPECT_EQ(other->auxSamples1, &aux);
            EXPECT_EQ(other->auxSamples2, nullptr);
            EXPECT_EQ(other->frameworkScale4, 0.5);
        }
        assigned.frameworkValues.clear();
        assigned.frameworkMap[7] = 1.0;
    }
    EXPECT_EQ(samples, (std::vector<double>{1.0, 2.0, 3.0}));
    EXPECT_EQ(signal.frameworkValues.size(), 2U);
    EXPECT_EQ(signal.frameworkMap.at(7), 0.5);
}

TEST(SignalCopies, SurviveSelfAssignmentAndAreDeep)
{
    Signal signal{{1.0, 2.0}};
    AssignToItself(signal);
    Signal copy;
    copy = signal;
    copy.values[0] = 9.0;
    EXPECT_EQ(signal.values, (std::vector<double>{1.0, 2.0}));
}

TEST(OToEReceiverInfoCopies, SurviveSelfAssignmentAndMovesTakeTheMap)
{
    OToEReceiverInfo info{1, 2, {{850, 0.5}, {1310, 0.9}}};
    AssignToItself(info);
    EXPECT_EQ(info.calibration.size(), 2U);

    OToEReceiverInfo copy{8, 9, {{1, 1.0}}};
    copy = info;
    copy.calibration[850] = 0.0;
    EXPECT_EQ(info.calibration.at(850), 0.5);
    EXPECT_EQ(copy.receiverMode, 2);
    EXPECT_EQ(copy.calibration.size(), 2U);

    OToEReceiverInfo moved(std::move(copy));
    info = std::move(moved);
    EXPECT_EQ(info.calibration, (std::map<std::int32_t, double>{{850, 0.0}, {1310, 0.9}}));
    static_assert(std::is_nothrow_move_constructible_v<OToEReceiverInfo>);
}

TEST(DeviceConfigurationDefaults, AreZeroFalseNullAndEmpty)
{
    const DeviceConfiguration config;
    EXPECT_EQ(config.baudRateGBd, 0.0);
    EXPECT_EQ(config.samplesPerUi, 0);
    EXPECT_EQ(config.signalCoding, SIGNAL_CODING_UNKNOWN);
    EXPECT_EQ(config.oeChannel, nullptr);
    EXPECT_FALSE(config.patternLocked[0] || config.patternLocked[3] || config.useFractionalSampling);
    EXPECT_TRUE(config.patternSymbols.empty() && config.electricalResponseTable.empty());
}

TEST(DeviceConfigurationCopies, AreDeepButForThePointers)
{
    double taps[2] = {0.5, 0.5};
    bool oeChannel[4] = {false, true, false, false};
    DeviceConfiguration config;
    config.text4 = "bench";
    config.electricalResponseTable = {{1.0}, {2.0, 3.0}};
    config.patternSymbols = "0312";
    config.gaussianFilter = taps;
    config.gaussianFilterLength = 2;
    config.oeChannel = oeChannel;
    config.labels = {"a", "b"};
    config.capture.points = {{0.0, 1.0}};
    config.patternLocked[2] = true;
    config.settingMap = {{1, 2.0}};
    config.setting24 = 24;
    AssignToItself(config);

    DeviceConfiguration copy;
    copy = DeviceConfiguration(config);
    EXPECT_EQ(copy.gaussianFilter, taps);
    EXPECT_EQ(copy.oeChannel, oeChannel);
    EXPECT_TRUE(copy.patternLocked[2]);
    EXPECT_EQ(copy.labels, config.labels);
    EXPECT_EQ(copy.setting24, 24);
    copy.text4.clear();
    copy.electricalResponseTable[1][0] = 9.0;
    copy.patternSymbols[0] = '3';
    copy.capture.points[0].second = 9.0;
    copy.settingMap[1] = 9.0;
    EXPECT_EQ(config.text4, "bench");
    EXPECT_EQ(config.electricalResponseTable[1][0], 2.0);
    EXPECT_EQ(config.patternSymbols, "0312");
    EXPECT_EQ(config.capture.points[0].second, 1.0);
    EXPECT_EQ(config.settingMap.at(1), 2.0);
}

}  // namespace
