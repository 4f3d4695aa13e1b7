#include <string>

#include "apps/program.h"

namespace Tarnwick::App {

namespace {

json DocumentIn(const std::string& page)
{
    const std::string begin = "id=\"tarnwick-report\">";
    const std::size_t first = page.find(begin) + begin.size();
    return json::parse(page.substr(first, page.find("</script>", first) - first));
}

void WriteReportCase(const TestFolder& folder)
{
    ASSERT_EQ(
        RunProgram(folder, "simulate -o c.csv --prbs 7 --coding NRZ --spu 8 --loss 4 --noise 0.01 --repetitions 3"), 0);
    folder.Write("chain.json", R"({"filters": [{"type": "bessel-thomson"}]})");
    folder.Write("mask.json", R"({"polygons": [[[-0.1, 0], [0.1, 0], [0, 0.1]]]})");
}

TEST(ReportProgram, WritesOnePageThatSaysHowToMakeItAgain)
{
    const TestFolder folder;
    WriteReportCase(folder);
    const std::string command = "report chain.json c.csv -o r.html --mask mask.json --coding NRZ";
    ASSERT_EQ(RunProgram(folder, command, "PATH=none "), 0) << folder.Read("err");
    const json document = DocumentIn(folder.Read("r.html"));
    const json& head = document["head"];
    EXPECT_EQ(head["command"], "tarnwick " + command);
    EXPECT_EQ(head["title"], "c.csv through chain.json");
    EXPECT_EQ(head["captures"][0]["sha256"].get<std::string>().size(), 64U);
    EXPECT_EQ(head["chain"]["text"], folder.Read("chain.json"));
    EXPECT_EQ(document["mask"]["name"], "mask.json");
    const json apply = ReportOf(folder, "apply chain.json c.csv --coding NRZ");
    EXPECT_EQ(document["stages"][1]["eye"]["eyes"][0]["height"], apply["stages"][1]["eyes"][0]["height"]);
    ExpectRefusals(folder, "report chain.json c.csv",
                   {{"", 2, "--output is required"},
                    {"-o ./c.csv", 2, "--output: is ./c.csv, which this command reads"},
                    {"-o mask.json --mask mask.json", 2, "--output: is mask.json, which this command reads"},
                    {"-o x.html --mask c.csv", 2, "c.csv: line 1"},
                    {"-o none/x.html", 1, "none/x.html: cannot be written"}});
    ASSERT_EQ(RunProgram(folder, "report chain.json - -o \"it's.html\" < c.csv"), 0) << folder.Read("err");
    EXPECT_TRUE(DocumentIn(folder.Read("it's.html"))["head"]["captures"][0]["sha256"].is_null());
    EXPECT_EQ(DocumentIn(folder.Read("it's.html"))["head"]["command"],
              R"(tarnwick report chain.json - -o 'it'\''s.html')");
}

TEST(ReportProgram, TakesThePlaceOfPicturesWithoutGnuplot)
{
    const TestFolder folder;
    WriteReportCase(folder);
    ASSERT_EQ(RunProgram(folder, "eye c.csv -o eye", "PATH=none "), 0) << folder.Read("err");
    EXPECT_NE(folder.Read("err").find("gnuplot, which draws the pictures, is missing"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder / "eye.png"));
    const json document = DocumentIn(folder.Read("eye.html"));
    EXPECT_EQ(document["stages"].size(), 1U);
    EXPECT_FALSE(document["stages"][0]["eye"]["bathtub"].is_null());
    EXPECT_TRUE(document["head"]["chain"].is_null());
    ExpectRefusals(folder, "eye c.csv", {{"--report c.csv", 2, "--report: is c.csv, which this command reads"}});
}

TEST(ReportProgram, ShowsTheTablesOfOtherCommands)
{
    const TestFolder folder;
    WriteReportCase(folder);
    const struct {
        std::string command;
        int status;
        std::size_t rows;
        std::size_t eyes;
    } cases[] = {
        {"sweep chain.json c.csv --over filters.0.cutoffPercent=-1,50,70 -o s", 0, 3, 2},
        {"optimise chain.json c.csv -o best.json --ctle none --ffe-taps 2", 0, 2, 2},
        {"batch chain.json c.csv missing.csv -o filtered", 1, 2, 1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.command);
        ASSERT_EQ(RunProgram(folder, row.command + " --report r.html"), row.status) << folder.Read("err");
        const json document = DocumentIn(folder.Read("r.html"));
        EXPECT_EQ(document["kind"], "table");
        ASSERT_EQ(document["rows"].size(), row.rows);
        std::size_t eyes = 0;
        for (const json& each : document["rows"]) {
            EXPECT_EQ(each["values"].size(), document["columns"].size());
            EXPECT_EQ(each["eye"].is_null(), !each["failure"].is_null());
            eyes += each["eye"].is_null() ? 0 : 1;
        }
        EXPECT_EQ(eyes, row.eyes);
        std::filesystem::remove(folder / "r.html");
        const std::string command = row.command.substr(0, row.command.find(' '));
        const std::string inputs = command + (command == "sweep"   ? " chain.json c.csv --over filters.0.order=2"
                                              : command == "batch" ? " chain.json c.csv -o filtered"
                                                                   : " chain.json c.csv -o best.json");
        ExpectRefusals(folder, inputs, {{"--report chain.json", 2, "--report: "}});
    }
    ExpectRefusals(folder, "optimise chain.json c.csv -o b.json",
                   {{"--report b.json", 2, "--report: is b.json, which is written too"}});
}

}  // namespace

}  // namespace Tarnwick::App
