// Who owns what, for how long: copies, assignments and destruction in every order that the owners allow. What a sanitizer
// would see as a use after release is checked by value as well; what is left over, by counting.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>
#include <vector>

#include "faults/allocations.h"
#include "faults/everyfilter.h"
#include "filters/filters/ffefilter.h"
#include "support/expectations.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::Testing;
using Filters::FFEFilterParameters;
using Filters::Filtered;
using SystemFramework::BaseFilter;
using SystemFramework::BaseFilterParameters;

double* NewHostArray(double value, std::size_t count)
{
    auto* const array = static_cast<double*>(::operator new(count * sizeof(double)));
    std::fill(array, array + count, value);
    return array;
}

// Runs `scene` once to fill what the process keeps (transform plans, log), then counts what it leaves behind.
template <typename Scene>
void ExpectNothingLeft(const Scene& scene)
{
    scene();
    const long live = LiveAllocations();
    scene();
    EXPECT_EQ(LiveAllocations(), live) << "leaked";
}

class FilterLifetime : public testing::TestWithParam<FilterKind> {};

// The original, a copy, a copy of that and an assigned one hold one kernel; the original is then prepared again. They go
// in any order, and those that are left filter as before.
TEST_P(FilterLifetime, LetsCopiesGoInAnyOrder)
{
    constexpr std::size_t kHolders = 4;
    std::array<std::size_t, kHolders> order{};
    std::iota(order.begin(), order.end(), 0);
    do {
        SCOPED_TRACE(testing::PrintToString(order));
        ExpectNothingLeft([&] {
            const std::unique_ptr<Rig> rig = GetParam().make(kSamplesPerUi);
            const std::unique_ptr<Rig> other = GetParam().make(kSamplesPerUi + 1);
            const std::vector<double> first = rig->Apply(rig->first);
            const auto parameters = rig->CopyOfParameters();
            const double* const kernel = rig->Filter().kernel;
            std::array<std::unique_ptr<BaseFilter>, kHolders> holders;  // [0] stands for the original
            holders[1] = rig->CopyOf(rig->Filter());
            holders[2] = rig->CopyOf(*holders[1]);
            other->Apply(other->first);
            holders[3] = rig->CopyOf(other->Filter());
            rig->Assign(*holders[3], *holders[2]);
            rig->Assign(*holders[3], *holders[3]);
            for (std::size_t k = 1; k < kHolders; ++k)
                EXPECT_EQ(holders[k]->kernel, kernel);

            rig->Change(true);
            const std::vector<double> second = rig->Apply(rig->second);
            for (const std::size_t gone : order) {
                if (gone == 0)
                    rig->DropFilter();
                holders[gone].reset();
                rig->Restore(*parameters);
                for (const auto& holder : holders)
                    EXPECT_TRUE(!holder || HaveSameBits(Filtered(*holder, rig->first), first));
            }
        });
    } while (std::next_permutation(order.begin(), order.end()));
}

// A kernel that the host puts into a copy belongs to that copy and its copies; the former kernel stays with the others.
TEST_P(FilterLifetime, TakesTheHostsKernelForItsOwn)
{
    constexpr std::size_t kMany = 4096;  // more than any filter reads
    ExpectNothingLeft([] {
        const std::unique_ptr<Rig> rig = GetParam().make(kSamplesPerUi);
        const std::vector<double> first = rig->Apply(rig->first);
        const auto parameters = rig->CopyOfParameters();
        auto copy = rig->CopyOf(rig->Filter());
        copy->kernel = NewHostArray(0.5, kMany);
        const auto copyOfCopy = rig->CopyOf(*copy);
        EXPECT_EQ(copyOfCopy->kernel, copy->kernel);
        copy->kernel = NewHostArray(0.25, kMany);
        rig->Assign(*copy, rig->Filter());
        EXPECT_EQ(copy->kernel, rig->Filter().kernel);
        copy.reset();
        EXPECT_EQ(copyOfCopy->kernel[kMany - 1], 0.5);
        rig->Restore(*parameters);
        EXPECT_TRUE(HaveSameBits(rig->Apply(rig->first), first));
    });
}

// The frequency grid lasts as long as the last of the parameters that share it, and goes where it is replaced.
TEST_P(FilterLifetime, SharesTheGridAmongCopiesOfTheParameters)
{
    ExpectNothingLeft([] {
        std::unique_ptr<Rig> rig = GetParam().make(kSamplesPerUi);
        rig->Parameters().SetFrequencyGrid(NewHostArray(1.0, 8));
        const std::unique_ptr<BaseFilterParameters> copy = rig->CopyOfParameters();
        EXPECT_EQ(copy->frequencyGrid, rig->Parameters().frequencyGrid);
        rig->Parameters().SetFrequencyGrid(NewHostArray(2.0, 8));
        EXPECT_EQ(copy->frequencyGrid[7], 1.0);
        rig->Restore(*copy);
        EXPECT_EQ(rig->Parameters().frequencyGrid, copy->frequencyGrid);
        rig.reset();
        EXPECT_EQ(copy->frequencyGrid[7], 1.0);
        copy->SetFrequencyGrid(nullptr);
        EXPECT_EQ(copy->frequencyGrid, nullptr);
    });
}

TEST_P(FilterLifetime, BeginsUnpreparedAtTheNoiseCornerOfTheInstrument)
{
    const std::unique_ptr<Rig> rig = GetParam().make(kSamplesPerUi);
    EXPECT_TRUE(rig->Filter().notPrepared);
    EXPECT_EQ(rig->Parameters().noiseCornerFrequency, 3.5e10);
}

INSTANTIATE_TEST_SUITE_P(Every, FilterLifetime, testing::ValuesIn(EveryFilter()),
                         [](const auto& kind) { return kind.param.name; });

const FilterKind& TdecqKind()
{
    return *std::find_if(EveryFilter().begin(), EveryFilter().end(),
                         [](const FilterKind& kind) { return kind.name == "FfeTdecq"; });
}

TEST(GaussianLifetime, OutlivesTheParametersItWasMadeFor)
{
    ExpectNothingLeft([] {
        std::unique_ptr<Rig> rig = TdecqKind().make(kSamplesPerUi);
        rig->Apply(rig->first);
        auto& parameters = dynamic_cast<FFEFilterParameters&>(rig->Parameters());
        const std::vector<double> taps(parameters.gaussianFilter,
                                       parameters.gaussianFilter + parameters.gaussianFilterLength);
        const FFEFilterParameters copy(parameters);
        FFEFilterParameters moved(std::move(parameters));  // one that was moved from keeps its share
        rig->Parameters().SetDirty();
        rig.reset();
        for (const FFEFilterParameters* each : {&copy, static_cast<const FFEFilterParameters*>(&moved)})
            EXPECT_TRUE(HaveSameBits(std::vector(each->gaussianFilter, each->gaussianFilter + taps.size()), taps));
        moved = FFEFilterParameters();
        EXPECT_EQ(moved.gaussianFilter, nullptr);
        EXPECT_EQ(copy.gaussianFilter[0], taps[0]);
    });
}

// An equaliser that the FFE published lasts as long as a configuration that shares it; one that the host put there goes
// when it is replaced.
TEST(TdecqLifetime, IsSharedByCopiesOfTheConfiguration)
{
    ExpectNothingLeft([] {
        const std::unique_ptr<Rig> rig = TdecqKind().make(kSamplesPerUi);
        rig->config.tdecqEqualizer = NewHostArray(3.0, 4);
        rig->config.tdecqEqualizerLength = 4;
        rig->Apply(rig->first);
        const auto published = [](const DeviceConfiguration& config) {
            return std::vector(config.tdecqEqualizer, config.tdecqEqualizer + config.tdecqEqualizerLength);
        };
        const std::vector<double> first = published(rig->config);
        auto copy = std::make_unique<DeviceConfiguration>(rig->config);
        DeviceConfiguration movedTo(std::move(*copy));
        DeviceConfiguration assigned;
        assigned = movedTo;
        rig->Change(true);
        rig->Apply(rig->second);
        EXPECT_NE(rig->config.tdecqEqualizer, movedTo.tdecqEqualizer);
        EXPECT_TRUE(HaveSameBits(published(movedTo), first));
        // A configuration that was moved from behaves like any other that shares the array.
        copy->PublishTdecqEqualizer(NewHostArray(4.0, 2), 2);
        EXPECT_TRUE(HaveSameBits(published(movedTo), first));
        copy.reset();
        movedTo.PublishTdecqEqualizer(nullptr, 0);
        EXPECT_EQ(movedTo.tdecqEqualizer, nullptr);
        EXPECT_TRUE(HaveSameBits(published(assigned), first));
        assigned = rig->config;
        EXPECT_TRUE(HaveSameBits(published(assigned), published(rig->config)));
    });
}

}  // namespace
