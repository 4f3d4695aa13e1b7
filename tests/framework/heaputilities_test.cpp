#include "framework/heaputilities.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/expectations.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

TEST(HeapUtilities, ResizesACopy)
{
    const double old[] = {1.0, 2.0, 3.0};
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(old, 3, 5), 5), std::vector<double>({1.0, 2.0, 3.0, 0.0, 0.0}));
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(old, 3, 2), 2), std::vector<double>({1.0, 2.0}));
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(nullptr, 0, 1), 1), std::vector<double>{0.0});
    Take(HeapUtilities::ResizePointerArray(old, 3, 0), 0);
    ExpectRefused([] { HeapUtilities::ResizePointerArray(nullptr, 1, 2); },
                  "HeapUtilities::ResizePointerArray: a is null; expected an array of oldCount values");
}

}  // namespace
