#include "workbench/batch.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/failures.h"
#include "support/files.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::FailureOf;
using Testing::TestFolder;

std::vector<std::string> NamesOf(const BatchPlan& plan)
{
    std::vector<std::string> names;
    for (const BatchJob& job : plan.jobs)
        names.push_back(job.name);
    return names;
}

TEST(PlanBatch, GivesEachCaptureANameOfItsOwn)
{
    const struct {
        std::vector<std::string> captures;
        std::vector<std::string> names;
    } cases[] = {
        {{"a.csv", "b/c.npy", "d.csv.gz", "e.1.txt"}, {"a", "c", "d", "e.1"}},
        {{"l0/x.csv", "l1/x.csv", "y.csv"}, {"l0-x", "l1-x", "y"}},
        {{"p/l0/x.csv", "q/l0/x.csv", "l1/x.csv"}, {"p-l0-x", "q-l0-x", "l1-x"}},
        {{"x.csv", "x.npy", "X.txt"}, {"x.csv", "x.npy", "X.txt"}},
        {{"a/x.csv", "b/x.csv", "a-x.csv"}, {"a-x.csv-1", "b-x", "a-x.csv-3"}},
    };
    for (const auto& [captures, names] : cases) {
        SCOPED_TRACE(captures.front());
        const BatchPlan plan = PlanBatch(captures);
        EXPECT_EQ(NamesOf(plan), names);
        EXPECT_TRUE(plan.notes.empty());
    }
    const BatchPlan twice = PlanBatch({"a.csv", "b.csv", "./a.csv"});
    EXPECT_EQ(NamesOf(twice), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(twice.notes, (std::vector<std::string>{"./a.csv: is given twice; it is run once"}));
    EXPECT_EQ(FailureOf<UsageFailure>([] { (void)PlanBatch({"-"}); }),
              "batch: a capture is -, standard input; expected files");
    EXPECT_EQ(FailureOf<UsageFailure>([] { (void)PlanBatch({}); }),
              "batch: there are no captures; expected at least one");
}

// Whatever the cells hold; the last of two rows of a capture counts, and one that was cut off does not.
TEST(BatchTable, IsReadAsItWasWritten)
{
    BatchRow odd;
    odd[BatchColumn::File] = "a, \"b\"\n.csv";
    odd[BatchColumn::Key] = "k";
    BatchRow again;
    again[BatchColumn::File] = "c";
    again[BatchColumn::Q] = "inf";
    again[BatchColumn::Ber] = "1e-3x";
    const BatchRow first = [&] {
        BatchRow row = again;
        row[BatchColumn::Q] = "7";
        return row;
    }();
    const std::string table = BatchTableHead() + BatchTableRow(first) + BatchTableRow(odd) + BatchTableRow(again);
    for (const char* const cutOff : {"", "d,done", "\"d\n"}) {
        const std::vector<BatchRow> rows = ReadBatchTable(table + cutOff, "t.csv");
        ASSERT_EQ(rows.size(), 2U) << cutOff;
        EXPECT_EQ(BatchTableRow(rows[0]), BatchTableRow(again));
        EXPECT_EQ(BatchTableRow(rows[1]), BatchTableRow(odd));
        EXPECT_GT(rows[0].Number(BatchColumn::Q).value_or(0.0), 1e300);
        EXPECT_FALSE(rows[0].Number(BatchColumn::Ber) || rows[0].Number(BatchColumn::HeightV));
    }
    EXPECT_TRUE(ReadBatchTable(BatchTableHead().substr(0, 5), "t.csv").empty());
    EXPECT_EQ(FailureOf<UsageFailure>([] { (void)ReadBatchTable("time,voltage\n", "t.csv"); }),
              "t.csv: is no table of a batch; expected another file");
    EXPECT_EQ(FailureOf<UsageFailure>([] { (void)ReadBatchTable(BatchTableHead() + "a,b\n", "t.csv"); }),
              "t.csv: row 2 has 2 cells; expected 24");
}

// A failure of the one who takes the rows ends the batch; captures that fail do not.
TEST(RunBatch, EndsWithWhoCannotTakeItsRows)
{
    const TestFolder folder;
    const BatchInput input{
        .chain = ChainFile::FromText(R"({"filters": []})", "chain.json"), .folder = folder / ".", .threads = 3};
    std::vector<BatchJob> jobs(50, {"missing.csv", "missing"});
    std::size_t rows = 0;
    BatchObserver observer;
    observer.end = [&](std::size_t, const BatchRow& row) {
        EXPECT_FALSE(row.IsDone());
        if (++rows == 7)
            throw std::runtime_error("full");
    };
    EXPECT_EQ(FailureOf<std::runtime_error>([&] { RunBatch(input, jobs, observer); }), "full");
    EXPECT_EQ(rows, 7U);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
