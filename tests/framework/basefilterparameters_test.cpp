#include "framework/basefilterparameters.h"

#include <gtest/gtest.h>

#include <new>
#include <optional>

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::SystemFramework;

double* NewGrid(double value)
{
    auto* grid = static_cast<double*>(::operator new(sizeof(double)));
    *grid = value;
    return grid;
}

TEST(BaseFilterParametersDirty, IsSetWhenNewAndBySetDirtyAlone)
{
    BaseFilterParameters parameters;
    EXPECT_TRUE(parameters.IsDirty());
    parameters.ResetDirty();
    EXPECT_FALSE(parameters.IsDirty());
    parameters.channel = 2;
    EXPECT_FALSE(parameters.IsDirty());
    parameters.SetDirty();
    EXPECT_TRUE(parameters.IsDirty());
}

TEST(BaseFilterParametersCopies, CarryFieldsConfigurationAndDirtyState)
{
    DeviceConfiguration config;
    BaseFilterParameters parameters(&config);
    parameters.preserveNoise = true;
    parameters.noiseCornerFrequency = 3e10;
    parameters.noiseSecondParameter = 2e11;
    parameters.channel = 3;
    parameters.frameworkFlag = true;
    parameters.frameworkValue = 7;
    parameters.ResetDirty();

    BaseFilterParameters assigned;
    EXPECT_EQ(assigned.GetConfig(), nullptr);
    assigned = parameters;
    BaseFilterParameters moved;
    moved = BaseFilterParameters(parameters);
    for (const BaseFilterParameters* copy : {&assigned, &moved}) {
        EXPECT_EQ(copy->GetConfig(), &config);
        EXPECT_FALSE(copy->IsDirty());
        EXPECT_TRUE(copy->preserveNoise);
        EXPECT_EQ(copy->noiseCornerFrequency, 3e10);
        EXPECT_EQ(copy->noiseSecondParameter, 2e11);
        EXPECT_EQ(copy->channel, 3);
        EXPECT_TRUE(copy->frameworkFlag);
        EXPECT_EQ(copy->frameworkValue, 7);
    }
    assigned.SetDirty();
    EXPECT_FALSE(parameters.IsDirty());
}

// Who releases the grid, and when, is what the sanitizer build looks at here.
TEST(BaseFilterParametersGrid, LivesAsLongAsItsLastHolder)
{
    std::optional<BaseFilterParameters> first(std::in_place);
    first->SetFrequencyGrid(NewGrid(1.0));
    BaseFilterParameters copy(*first);
    BaseFilterParameters assigned;
    assigned.SetFrequencyGrid(NewGrid(2.0));
    assigned = copy;
    EXPECT_EQ(assigned.frequencyGrid, first->frequencyGrid);

    first->SetFrequencyGrid(NewGrid(3.0));
    EXPECT_EQ(*copy.frequencyGrid, 1.0);
    first.reset();
    copy.SetFrequencyGrid(nullptr);
    EXPECT_EQ(copy.frequencyGrid, nullptr);
    EXPECT_EQ(*assigned.frequencyGrid, 1.0);
}

}  // namespace
