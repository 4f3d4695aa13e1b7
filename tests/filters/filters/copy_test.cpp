#include "filters/filters/copy.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::DSO::Filters;
using namespace Tarnwick::Testing;

TEST(CopyApply, GivesTheSamplesInABufferOfTheirOwn)
{
    CopyParameters parameters;
    Copy filter(&parameters);
    Record record(
        {1.0, -0.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 5e-324});
    double* result = filter.Apply(&record);
    EXPECT_NE(result, record.samples);
    const std::vector<double> before = record.Values();
    EXPECT_TRUE(HaveSameBits({result, 5}, before));
    result[0] = 9.0;
    EXPECT_EQ(record.samples[0], 1.0);
    Take(result, 5);
    EXPECT_TRUE(parameters.IsDirty());  // neither asked nor reset
    EXPECT_EQ(filter.kernel, nullptr);
}

TEST(CopyApply, GivesAnEmptyArrayForNoSamples)
{
    CopyParameters parameters;
    Copy filter(&parameters);
    Record record({});
    Take(filter.Apply(&record), 0);  // reports a null
}

TEST(CopyLifecycle, CarriesParametersAndTheirSevenValues)
{
    DeviceConfiguration config;
    CopyParameters parameters(&config);
    EXPECT_EQ(parameters.value1 + parameters.value2 + parameters.value3 + parameters.value4 + parameters.value5 +
                  parameters.value6 + parameters.value7,
              0);
    parameters.value1 = 1;
    parameters.value7 = 7;
    CopyParameters assigned;
    assigned = parameters;
    EXPECT_EQ(assigned.value1 + assigned.value7, 8);
    EXPECT_EQ(assigned.GetConfig(), &config);

    const Copy filter(&parameters);
    const Copy copy(filter);
    EXPECT_EQ(copy.parameters, &parameters);
}

TEST(CopyErrors, NameTheBadRecord)
{
    CopyParameters parameters;
    Copy filter(&parameters);
    Record negative({1.0});
    negative.sampleCount = -1;
    Record null({1.0});
    null.samples = nullptr;
    ExpectRefused([&] { filter.Apply(nullptr); }, "Copy: signal is null; expected a captured waveform");
    ExpectRefused([&] { filter.Apply(&negative); }, "Copy: sampleCount is -1; expected 0 or more samples");
    ExpectRefused([&] { filter.Apply(&null); }, "Copy: samples is null; expected an array of sampleCount values");
}

}  // namespace
