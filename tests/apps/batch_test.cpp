#include <algorithm>
#include <string>
#include <vector>

#include "apps/program.h"
#include "progress.h"
#include "workbench/batch.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::BatchColumn;
using DSO::Workbench::BatchRow;
using DSO::Workbench::ReadBatchTable;

constexpr const char* kBatchChain =
    R"({"device": {"baudRateGBd": 10}, "filters": [{"type": "bessel-thomson"}, {"type": "copy"}]})";
constexpr const char* kCaptures = "chain.json a/x.npy bad.csv b/x.npy c.npy none.csv a ";

// Three captures, two of them of one name; what else kCaptures names cannot be read.
void WriteBatchCase(const TestFolder& folder)
{
    std::filesystem::create_directory(folder / "a");
    std::filesystem::create_directory(folder / "b");
    int seed = 0;
    for (const char* const name : {"a/x", "b/x", "c"})
        ASSERT_EQ(RunProgram(folder, fmt::format("simulate -o {}.npy --prbs 7 --coding NRZ --baud 10 --spu 8 --noise "
                                                 "0.01 --repetitions 2 --seed {}",
                                                 name, ++seed)),
                  0)
            << folder.Read("err");
    folder.Write("bad.csv", "");
    folder.Write("chain.json", kBatchChain);
}

std::vector<BatchRow> RowsOf(const TestFolder& folder, const std::string& table)
{
    std::vector<BatchRow> rows = ReadBatchTable(folder.Read(table), table);
    for (BatchRow& row : rows)
        row[BatchColumn::Seconds].clear();
    return rows;
}

std::string TextOf(const std::vector<BatchRow>& rows)
{
    std::string text;
    for (const BatchRow& row : rows)
        text += BatchTableRow(row);
    return text;
}

// Windows joins folder and name by another sign.
std::string WithSlashes(std::string text)
{
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

TEST(BatchProgram, WritesARowForEachCaptureWhateverTheJobs)
{
    const TestFolder folder;
    WriteBatchCase(folder);
    EXPECT_EQ(RunProgram(folder, std::string("batch ") + kCaptures + "./c.npy -o one --jobs 1 --eyes --json"), 1);
    const std::string notes = WithSlashes(folder.Read("err"));
    for (const char* const note : {"./c.npy: is given twice", "bad.csv: holds no", "none.csv: cannot be read",
                                   "a: cannot be read", "3 of 6 captures failed; one/results.csv says why"})
        EXPECT_NE(notes.find(note), std::string::npos) << note << " in " << notes;
    const json summary = json::parse(folder.Read("out"));
    EXPECT_EQ(summary["done"], 3);
    EXPECT_EQ(summary["failed"], 3);
    EXPECT_EQ(summary["failures"][1]["file"], "none.csv");

    EXPECT_EQ(RunProgram(folder, std::string("batch ") + kCaptures + "-o three --jobs 3 --results three.csv"), 1);
    const std::vector<BatchRow> rows = RowsOf(folder, "one/results.csv");
    EXPECT_EQ(TextOf(RowsOf(folder, "three.csv")), TextOf(rows));
    const char* const files[] = {"a/x.npy", "bad.csv", "b/x.npy", "c.npy", "none.csv", "a"};
    const char* const outputs[] = {"a-x.npy", "", "b-x.npy", "c.npy", "", ""};
    ASSERT_EQ(rows.size(), std::size(files));
    for (std::size_t k = 0; k < rows.size(); ++k) {
        SCOPED_TRACE(files[k]);
        EXPECT_EQ(rows[k][BatchColumn::File], files[k]);
        EXPECT_EQ(rows[k][BatchColumn::Output], outputs[k]);
        EXPECT_EQ(rows[k].IsDone(), *outputs[k] != '\0');
        EXPECT_EQ(rows[k][BatchColumn::Reason].empty(), rows[k].IsDone());
        if (!rows[k].IsDone())
            continue;
        // What apply makes of the capture, to the last bit.
        const json stage =
            ReportOf(folder, fmt::format("apply chain.json {} -o {}", files[k], "apply.npy"))["stages"][2];
        EXPECT_EQ(folder.Read(std::string("one/") + outputs[k]), folder.Read("apply.npy"));
        EXPECT_EQ(rows[k].Number(BatchColumn::OpeningPercent), stage["eyes"][0]["openingPercent"].get<double>());
        EXPECT_EQ(rows[k].Number(BatchColumn::NoiseRmsV), stage["noiseRms"].get<double>());
        EXPECT_EQ(rows[k].Number(BatchColumn::Samples), stage["samples"].get<double>());
        EXPECT_EQ(rows[k][BatchColumn::Pattern], "PRBS7");
        std::string picture = std::string("one/") + outputs[k];
        EXPECT_TRUE(IsPng(folder.Read(picture.replace(picture.size() - 3, 3, "png"))));
    }
}

// What is done stays; what failed, was cut off, lost its output or has another chain is done again, once.
TEST(BatchProgram, GoesOnWithItsTable)
{
    const TestFolder folder;
    WriteBatchCase(folder);
    const std::string batch = "batch chain.json a/x.npy c.npy bad.csv -o filtered --resume --json";
    EXPECT_EQ(RunProgram(folder, batch), 1);
    const std::string table = folder.Read("filtered/results.csv");
    const auto kept = [&] {
        const json summary = json::parse(folder.Read("out"));
        const std::vector<BatchRow> rows = RowsOf(folder, "filtered/results.csv");
        EXPECT_EQ(summary["captures"], rows.size());
        EXPECT_EQ(TextOf(rows), TextOf(ReadBatchTable(TextOf(rows).insert(0, DSO::Workbench::BatchTableHead()), "")));
        return summary["kept"].get<int>();
    };
    EXPECT_EQ(kept(), 0);
    const std::size_t second = table.find("\nc.npy") + 1;
    for (const auto& [text, count] : {std::pair(table, 2), std::pair(table.substr(0, second + 10), 1),
                                      std::pair(table.substr(0, 9), 0), std::pair(std::string(), 0)}) {
        SCOPED_TRACE(count);
        folder.Write("filtered/results.csv", text);
        EXPECT_EQ(RunProgram(folder, batch), 1);
        EXPECT_EQ(kept(), count);
    }
    std::filesystem::copy_file(folder / "c.npy", folder / "bad.csv", std::filesystem::copy_options::overwrite_existing);
    std::filesystem::remove(folder / "filtered/c.npy");
    EXPECT_EQ(RunProgram(folder, batch), 1);
    EXPECT_EQ(kept(), 1);
    ASSERT_EQ(RunProgram(folder, "simulate -o a/x.npy --prbs 7 --coding NRZ --baud 10 --spu 9 --seed 1"), 0);
    EXPECT_EQ(RunProgram(folder, batch), 1);
    EXPECT_EQ(kept(), 1);
    folder.Write("chain.json", R"({"filters": [{"type": "copy"}]})");
    EXPECT_EQ(RunProgram(folder, batch), 1);
    EXPECT_EQ(kept(), 0);
    // Rows of other captures stay, but for an output that would be theirs.
    EXPECT_EQ(RunProgram(folder, "batch chain.json b/x.npy -o other --results filtered/results.csv --resume"), 2);
    EXPECT_NE(folder.Read("err").find("x.npy is a/x.npy, which b/x.npy would replace"), std::string::npos);
    EXPECT_EQ(RunProgram(folder, "batch chain.json c.npy -o filtered --resume --json"), 0);
    EXPECT_EQ(RowsOf(folder, "filtered/results.csv").size(), 3U);
}

TEST(BatchProgram, SaysWhoseFaultAFailureIs)
{
    const TestFolder folder;
    WriteBatchCase(folder);
    folder.Write("wrong.json", R"({"filters": [{"type": "copy", "enabeld": true}]})");
    folder.Write("fixture.json", R"({"filters": [{"type": "deembedding", "sparamFileName": "none.s2p"}]})");
    ExpectRefusals(folder, "batch",
                   {{"wrong.json c.npy -o z", 2, "filters.0.enabeld"},
                    {"fixture.json c.npy -o z", 1, "none.s2p"},
                    {"chain.json c.npy -o .", 2, "--output: c.npy would be written"},
                    {"chain.json c.npy -o z --results chain.json", 2, "--results: chain.json would be written"},
                    {"chain.json c.npy -o c.npy", 1, "c.npy cannot be made a folder"},
                    {"chain.json c.npy -o a --results bad.csv/x.csv", 1, "bad.csv/x.csv"},
                    {"chain.json c.npy -o a --resume --results c.npy", 2, "c.npy would be written"},
                    {"chain.json c.npy -o a --resume --results a/x.npy", 2, "is no table of a batch"},
                    {"chain.json c.npy -o z --jobs 0", 2, "--jobs"},
                    {"chain.json -o z", 2, "captures is required"}});
}

#if !defined(_WIN32)
// The limit, of 512 or of 1024 bytes a block, is below a record and above the table.
TEST(Outputs, OfABatchAreToldInItsTable)
{
    const TestFolder folder;
    WriteBatchCase(folder);
    EXPECT_EQ(RunProgram(folder, "batch chain.json c.npy a/x.npy -o full", "ulimit -f 4 && "), 1);
    EXPECT_EQ(WithSlashes(RowsOf(folder, "full/results.csv")[0][BatchColumn::Reason]), "full/c.npy: cannot be written");
    EXPECT_FALSE(std::filesystem::exists(folder / "full/c.npy"));
}

TEST(Devices, AreNoTablesOfBatches)
{
    const TestFolder folder;
    WriteBatchCase(folder);
    EXPECT_EQ(RunProgram(folder, "batch chain.json c.npy -o full --resume --results /dev/full"), 1);
    EXPECT_NE(folder.Read("err").find("/dev/full: is no regular file"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder / "full/c.npy"));
}
#endif

TEST(Progress, TellsThePaceAndWhatIsLeft)
{
    EXPECT_EQ(PaceText(0, 200, 3.0), "0 of 200");
    EXPECT_EQ(PaceText(50, 200, 20.0), "50 of 200, 2.5/s, 1:00 left");
    EXPECT_EQ(PaceText(1, 10000, 2.0), "1 of 10000, 30/min, 5:33 h left");
    EXPECT_EQ(PaceText(3, 3, 1.0), "3 of 3, 3/s, 0:00 left");
}

}  // namespace

}  // namespace Tarnwick::App
