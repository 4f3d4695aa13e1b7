// Memory that runs short at any place: the call throws std::bad_alloc, what was prepared before still filters, nothing
// leaks, and the next call gives what an undisturbed one gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <optional>

#include "faults/allocations.h"
#include "faults/everyfilter.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO;
using namespace Tarnwick::Testing;

enum class Operation { Construct, Prepare, Apply, Copy, Assign };

constexpr const char* kOperationNames[] = {"construction", "Prepare", "Apply", "copy", "assignment"};
constexpr const char* kShortageNames[] = {"once", "from then on"};

// What a filter gives when memory suffices: prepared for the first capture, changed, prepared for the second.
struct Undisturbed {
    explicit Undisturbed(Rig& rig)
        : first(rig.Apply(rig.first)),
          before(rig.Prepared()),
          second((rig.Change(true), rig.Apply(rig.second))),
          after(rig.Prepared())
    {
    }
    std::vector<double> first, before, second, after;
};

void ExpectIntact(Rig& rig, Operation operation, const Undisturbed& expected)
{
    const auto now = rig.Prepared();
    // Apply may have got past Prepare, which resets the dirty state once it has succeeded.
    const bool isOld = HaveSameBits(now, expected.before);
    EXPECT_TRUE(isOld || operation == Operation::Apply) << "something half prepared";
    EXPECT_TRUE(isOld || HaveSameBits(now, expected.after));
    EXPECT_TRUE(rig.Parameters().IsDirty() || !isOld || HaveSameBits(now, expected.after)) << "not dirty any more";
    if (isOld) {
        rig.Change(false);
        rig.Parameters().ResetDirty();
        EXPECT_TRUE(HaveSameBits(rig.Apply(rig.first), expected.first));
    }
    rig.Change(true);
    EXPECT_TRUE(HaveSameBits(rig.Apply(rig.second), expected.second));
    EXPECT_TRUE(HaveSameBits(rig.Prepared(), expected.after));
}

struct Attempt {
    bool failed;  // it asked for as many as n
    long asked;
};

// One operation with the n-th allocation failing.
Attempt WithFailure(const FilterKind& kind, Operation operation, Shortage shortage, long n, const Undisturbed& expected)
{
    std::unique_ptr<Rig> donor;
    std::unique_ptr<Rig> rig;
    std::optional<Record> record;
    if (operation != Operation::Construct) {
        rig = kind.make(kSamplesPerUi);
        EXPECT_TRUE(HaveSameBits(rig->Apply(rig->first), expected.first));
        rig->Change(true);
        record.emplace(rig->second);
    }
    if (operation == Operation::Assign) {
        donor = kind.make(kSamplesPerUi + 1);  // longer: what the assigned filter holds does not suffice
        donor->Change(true);
        donor->Apply(donor->second);
    }
    std::unique_ptr<SystemFramework::BaseFilter> copy;
    double* output = nullptr;
    bool threw = false;
    Attempt attempt{};
    {
        const FailingAllocation failing(n, shortage);
        try {
            switch (operation) {
                case Operation::Construct: rig = kind.make(kSamplesPerUi); break;
                case Operation::Prepare: rig->Prepare(&*record); break;
                case Operation::Apply: output = rig->Filter().Apply(&*record); break;
                case Operation::Copy: copy = rig->CopyOf(rig->Filter()); break;
                case Operation::Assign: rig->Assign(rig->Filter(), donor->Filter()); break;
            }
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        attempt = {failing.HasFailed(), failing.Asked()};
    }
    EXPECT_EQ(output != nullptr, operation == Operation::Apply && !threw);
    if (output != nullptr) {
        EXPECT_TRUE(HaveSameBits(Take(output, record->Values().size()), expected.second));
    }
    if (threw && operation != Operation::Construct) {
        ExpectIntact(*rig, operation, expected);
    } else if (operation == Operation::Prepare) {
        EXPECT_TRUE(HaveSameBits(rig->Prepared(), expected.after));
    }
    // Releasing allocates nothing.
    const FailingAllocation failing(1, Shortage::FromThenOn);
    copy.reset();
    rig.reset();
    donor.reset();
    return attempt;
}

// Every allocation; of a search that repeats the same few over and over, the first and last and some between.
long Next(long n, long count)
{
    constexpr long kAll = 400;
    constexpr long kEnd = 15;
    constexpr long kStretches = 12;
    return count <= kAll || n < kEnd || n >= count - kEnd ? n + 1 : std::min(n + 1 + count / kStretches, count - kEnd);
}

class FilterWithoutMemory : public testing::TestWithParam<FilterKind> {};

TEST_P(FilterWithoutMemory, StaysAsItIs)
{
    const std::unique_ptr<Rig> rig = GetParam().make(kSamplesPerUi);
    const Undisturbed expected(*rig);
    ASSERT_EQ(expected.first.size(), rig->first.size());
    ASSERT_EQ(expected.second.size(), rig->second.size());
    EXPECT_FALSE(HaveSameBits(expected.first, expected.second));
    constexpr long kUnreached = std::numeric_limits<long>::max();
    for (const Operation operation :
         {Operation::Construct, Operation::Prepare, Operation::Apply, Operation::Copy, Operation::Assign}) {
        const long count = WithFailure(GetParam(), operation, Shortage::Once, kUnreached, expected).asked;
        EXPECT_TRUE(operation != Operation::Apply || count > 0) << "the library's allocations are not seen";
        for (const Shortage shortage : {Shortage::Once, Shortage::FromThenOn}) {
            for (long n = 1; n <= count && !HasFailure(); n = Next(n, count)) {
                SCOPED_TRACE(std::string(kOperationNames[static_cast<int>(operation)]) + ", allocation " +
                             std::to_string(n) + " of " + std::to_string(count) + ' ' +
                             kShortageNames[static_cast<int>(shortage)]);
                const long live = LiveAllocations();
                EXPECT_TRUE(WithFailure(GetParam(), operation, shortage, n, expected).failed);
                EXPECT_EQ(LiveAllocations(), live) << "leaked";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Every, FilterWithoutMemory, testing::ValuesIn(EveryFilter()),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
