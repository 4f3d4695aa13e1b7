#include "filters/filters/copy.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/expectations.h"
#include "support/signals.h"

namespace {

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
    EXPECT_TRUE(HaveSameBits(Take(result, 5), record.Values()));
    EXPECT_TRUE(parameters.IsDirty());  // neither asked nor reset
    Record empty({});
    Take(filter.Apply(&empty), 0);  // reports a null
}

}  // namespace
