#include "framework/heaputilities.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/expectations.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

TEST(HeapUtilities, ResizesACopy)
{
    const std::vector<double> old{1.0, 2.0, 3.0};
    const struct {
        std::size_t oldCount, newCount;
        std::vector<double> resized;
    } cases[] = {{3, 5, {1.0, 2.0, 3.0, 0.0, 0.0}}, {3, 3, old}, {3, 2, {1.0, 2.0}}, {3, 0, {}}, {0, 2, {0.0, 0.0}}};
    for (const auto& [oldCount, newCount, resized] : cases) {
        EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(old.data(), oldCount, newCount), newCount), resized);
        EXPECT_EQ(old, std::vector<double>({1.0, 2.0, 3.0}));
    }
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(nullptr, 0, 1), 1), std::vector<double>{0.0});
    ExpectRefused([] { HeapUtilities::ResizePointerArray(nullptr, 1, 2); },
                  "HeapUtilities::ResizePointerArray: a is null; expected an array of oldCount values");
}

}  // namespace
