#include "pictures/gnuplot.h"

#include <cstdlib>

#include "apps/program.h"
#include "workbench/failure.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::DataFailure;

TEST(Gnuplot, TakesTextsAsTheyAre)
{
    EXPECT_EQ(Quoted("it's 5 % of \\n {x}_2"), R"('it''s 5 % of \n {x}_2')");
    EXPECT_EQ(Quoted("a\nset output 'b'"), "'a set output ''b'''");
}

// Names that gnuplot would run, expand or end early were it to see them as they are; relative, as a user types them.
TEST(Gnuplot, WritesUnderAnyName)
{
    const TestFolder folder;
    folder.Write("chain.json", R"({"device": {"samplesPerUi": 4, "signalCoding": "NRZ"}, "filters": []})");
    ASSERT_EQ(RunProgram(folder, "simulate --prbs 7 --coding NRZ --spu 4 -o capture.txt"), 0);
    for (const std::string name : {"plain", "|touch caught; true ", "~", "a`touch caught`$(touch caught)"}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(RunProgram(folder, "apply chain.json capture.txt -o f.csv --eye '" + name + "'"), 0)
            << folder.Read("err");
        EXPECT_TRUE(IsPng(folder.Read(name + "-before.png")));
        EXPECT_TRUE(IsPng(folder.Read(name + "-after.png")));
    }
    EXPECT_EQ(folder.Count(), 5U + 3 * 4);  // the pictures, chain, capture, f.csv, out and err
}

TEST(Gnuplot, LeavesNothingBehindAFailure)
{
    const TestFolder folder;
    std::filesystem::create_directory(folder / "taken.png");
    const std::string good = "plot x\n";
    const struct {
        const char* name;
        std::string script;
        const char* message;
    } cases[] = {
        {"none/a.png", good, "a.png: cannot be written"},
        {"taken.png", good, "taken.png: cannot be written"},
        {"a\nb.png", good, "control character"},
        {"a.png", "plot nothing(x)\n", "a.png: gnuplot, which draws the pictures, is missing or failed"},
        {"a.png", "", "gnuplot"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name + row.script);
        const std::string message = FailureOf<DataFailure>([&] { DrawPng(folder / row.name, 64, 64, row.script); });
        EXPECT_NE(message.find(row.message), std::string::npos) << message;
        EXPECT_EQ(folder.Count(), 1U);
    }
}

#if !defined(_WIN32)
// More than a pipe holds, so that the writer meets its broken end.
TEST(Gnuplot, SurvivesThatThereIsNone)
{
    const TestFolder folder;
    const std::string path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
    setenv("PATH", (folder / "").c_str(), 1);      // NOLINT(concurrency-mt-unsafe)
    const std::string message = FailureOf<DataFailure>(
        [&] { DrawPng(folder / "a.png", 64, 64, std::string(1U << 22U, '\n').append("plot x\n")); });
    setenv("PATH", path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    EXPECT_NE(message.find("a.png: gnuplot, which draws the pictures, is missing"), std::string::npos) << message;
    EXPECT_EQ(folder.Count(), 0U);
}
#endif

}  // namespace

}  // namespace Tarnwick::App
