#include "framework/rangeutilities.h"

#include <algorithm>
#include <span>

#include "framework/plumbing/error.h"
#include "maths/patterns/periodicrecord.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

std::span<const double> Checked(const char* operation, const double* values, int count)
{
    if (count < 1)
        Refuse(operation, "count", count, "at least one value");
    if (values == nullptr)
        Refuse(operation, "values", "null", "an array of count values");
    return {values, static_cast<std::size_t>(count)};
}

}  // namespace

double RangeUtilities::Min(const double* values, int count)
{
    const auto range = Checked("RangeUtilities::Min", values, count);
    return *std::min_element(range.begin(), range.end());
}

double RangeUtilities::Max(const double* values, int count)
{
    const auto range = Checked("RangeUtilities::Max", values, count);
    return *std::max_element(range.begin(), range.end());
}

double RangeUtilities::Average(const double* values, int count)
{
    const auto range = Checked("RangeUtilities::Average", values, count);
    return Maths::Mean(range);
}

}  // namespace Tarnwick::DSO::SystemFramework
