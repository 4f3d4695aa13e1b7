#include "workbench/htmlreport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/captures.h"
#include "support/failures.h"
#include "support/files.h"
#include "workbench/failure.h"
#include "workbench/pattern.h"
#include "workbench/simulation.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using nlohmann::json;
using Testing::FailureOf;
using Testing::TestFolder;

// Ends elements, opens comments, and is no UTF-8 at its end.
const std::string kHostile = "</script><script>alert(1)</script><!-- &amp;\"' \xe2\x80\xa8\xe2\x80\xa9 \xff";
const std::string kHostileInUtf8 = kHostile.substr(0, kHostile.size() - 1) + "\xef\xbf\xbd";

std::size_t CountOf(std::string_view text, std::string_view what)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string_view::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

json DocumentIn(const std::string& page)
{
    constexpr std::string_view kBegin = "<script type=\"application/json\" id=\"tarnwick-report\">";
    const std::size_t begin = page.find(kBegin);
    EXPECT_NE(begin, std::string::npos);
    const std::size_t first = begin + kBegin.size();
    return json::parse(page.substr(first, page.find("</script>", first) - first));
}

std::vector<std::uint32_t> DecodedCounts(const std::string& text)
{
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<std::uint32_t> numbers;
    std::uint32_t bits = 0;
    int held = 0;
    std::uint32_t number = 0;
    unsigned shift = 0;
    for (const char letter : text.substr(0, text.find('='))) {
        bits = (bits << 6U) | static_cast<std::uint32_t>(kDigits.find(letter));
        if ((held += 6) < 8)
            continue;
        held -= 8;
        const std::uint32_t byte = (bits >> static_cast<unsigned>(held)) & 0xffU;
        number |= (byte & 0x7fU) << shift;
        shift += 7;
        if ((byte & 0x80U) == 0) {
            numbers.push_back(number);
            number = shift = 0;
        }
    }
    std::vector<std::uint32_t> cells;
    for (std::size_t k = 0; k < numbers.size(); ++k) {
        if (numbers[k] > 0)
            cells.push_back(numbers[k]);
        else
            cells.insert(cells.end(), numbers[++k], 0);
    }
    return cells;
}

void ExpectWholeDensity(const json& density)
{
    const auto cells = DecodedCounts(density["counts"].get<std::string>());
    EXPECT_EQ(cells.size(), density["columns"].get<std::size_t>() * density["rows"].get<std::size_t>());
    EXPECT_EQ(std::accumulate(cells.begin(), cells.end(), std::uint64_t{0}), density["total"].get<std::uint64_t>());
    EXPECT_GT(density["total"], 0);
}

Waveform CaptureOf(const SimulatedPattern& pattern, const Simulation& settings)
{
    Waveform capture;
    capture.samples =
        Simulate(pattern.Levels(static_cast<std::size_t>(settings.lengthUi)), LevelCount(pattern.coding), settings);
    capture.interval = 1e-9 / (settings.symbolRateGBd * settings.samplesPerUi);
    return capture;
}

RunReport ReportOf(const std::string& filters, const Waveform& capture)
{
    const ChainFile chain = ChainFile::FromText(R"({"filters": [)" + filters + "]}", "c.json");
    return RunForReport(chain, capture, {}, "capture");
}

const ReportHead kHead = {"title", "1.2.3", "2026-11-22T17:58:22Z"};
const Simulation kNoisy = {.repetitions = 4, .symbolRateGBd = 10.0, .lossDb = 4.0, .noiseRms = 0.01};
const SimulatedPattern kNrz = {.coding = SIGNAL_CODING_NRZ, .prbs = 9};

TEST(EyeCounts, TellWhatCrossesEachCell)
{
    constexpr std::size_t kPerUi = 40;
    constexpr std::size_t kUi = 64;
    std::vector<double> ramp(kPerUi * kUi);
    for (std::size_t k = 0; k < ramp.size(); ++k)
        ramp[k] = (static_cast<double>(k % kPerUi) + 0.5) / kPerUi;
    // Ten columns a UI of four samples each, ten rows: within a UI a trace climbs a row a column, and falls in the last one.
    const EyeCounts eye = CountEye(ramp, kPerUi, 0.0, {0.0, 1.0}, {20, 10});
    ASSERT_EQ(eye.hits.size(), 200U);
    for (std::size_t column = 0; column < 20; ++column)
        for (std::size_t row = 0; row < 10; ++row) {
            const std::size_t within = column % 10;
            const bool isCrossed = row == within || row == within + 1 || within == 9;
            SCOPED_TRACE(fmt::format("column {}, row {}", column, row));
            EXPECT_LE(eye.hits[row * 20 + column], isCrossed ? kUi : 0U);
            EXPECT_GE(eye.hits[row * 20 + column], row == within ? kUi - 1 : 0U);
        }
    // With a UI that begins at the measuring phase the same columns come half a picture later.
    const EyeCounts shifted = CountEye(ramp, kPerUi, 0.5, {0.0, 1.0}, {20, 10});
    EXPECT_GE(shifted.hits[7 * 20 + 2], kUi - 2);
    // Few samples a UI are read between; a record is as many traces as UI, less what the reading needs at its ends.
    const EyeCounts between = CountEye(std::vector<double>(4000, 0.55), 4.0, 0.3, {0.0, 1.0}, {20, 10});
    for (std::size_t column = 0; column < 20; ++column)
        EXPECT_NEAR(between.hits[std::size_t{5} * 20 + column], 1000 - 12, 1.0);
    EXPECT_TRUE(CountEye(std::vector<double>(99, NAN), 4.0, 0.0, {0.0, 1.0}, {20, 10}).hits.empty());
}

TEST(RowEyes, KeepThoseThatMatterMost)
{
    const std::vector<double> samples(64, 0.5);
    RowEyes worst(1000, RowEyes::Keep::Worst);
    RowEyes best(1000, RowEyes::Keep::Best);
    for (int row = 0; row < 300; ++row)
        for (RowEyes* const eyes : {&worst, &best})
            eyes->Add(std::to_string(row), (row * 7) % 300, {}, samples, 8.0);
    const auto keptBy = [](const RowEyes& eyes, int figure) {
        return eyes.Find(std::to_string((figure * 43) % 300)) != nullptr;  // 7 * 43 is 1 modulo 300
    };
    EXPECT_TRUE(keptBy(worst, 0) && keptBy(worst, 255) && !keptBy(worst, 256));
    EXPECT_TRUE(keptBy(best, 299) && keptBy(best, 44) && !keptBy(best, 43));
    ASSERT_EQ(best.Find("257")->figure, 299.0);
    best.Add("257", -1.0, {}, samples, 8.0);  // on another capture
    EXPECT_EQ(best.Find("257")->figure, -1.0);
}

TEST(ReportSource, IsToldByItsDigest)
{
    const TestFolder folder;
    const struct {
        std::string content;
        const char* digest;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& [content, digest] : cases)
        EXPECT_EQ(SourceOf(folder.Write("f", content)).sha256, digest);
    EXPECT_EQ(SourceOf(folder / ".").sha256, "");
}

TEST(ReportMask, IsReadOrRefused)
{
    const TestFolder folder;
    const ReportMask mask =
        ReadReportMask(folder.Write("m.json", R"({"name": "m", "polygons": [[[-0.2, 0], [0, 0.1], [0.2, 0]]]})"));
    EXPECT_EQ(mask.polygons.at(0).at(1), std::pair(0.0, 0.1));
    const struct {
        const char* content;
        const char* message;
    } cases[] = {
        {"[]", "m.json: is no mask; expected {\"name\""},
        {R"({"polygons": []})", "is no mask"},
        {R"({"polygons": [[[0, 0], [1, 1]]]})", "polygon 1 has 2 points; expected at least 3"},
        {R"({"polygons": [[[0, 0], [1, "x"], [1, 0]]]})", "is no mask"},
        {R"({"polygons": [[[0, 0, 0], [1, 1, 1], [1, 0, 0]]]})", "is no mask"},
        {R"({"polygons")", "is no JSON"},
    };
    for (const auto& [content, message] : cases) {
        const auto path = folder.Write("m.json", content);
        EXPECT_NE(FailureOf<UsageFailure>([&] { (void)ReadReportMask(path); }).find(message), std::string::npos);
    }
}

TEST(HtmlReport, ShowsEachStageOfAChain)
{
    const RunReport report = ReportOf(R"({"type": "bessel-thomson", "cutoffPercent": 60},
        {"type": "ffe", "numberOfTaps": 5, "mainCursorPosition": 2}, {"type": "dfe", "numberOfTaps": 2})",
                                      CaptureOf(kNrz, kNoisy));
    const json document = DocumentIn(HtmlReport(report, kHead));
    EXPECT_EQ(document["format"], 1);
    EXPECT_EQ(document["head"]["title"], "title");
    EXPECT_NEAR(document["unitIntervalPs"].get<double>(), 100.0, 1e-3);  // of the clock that was found
    const json& stages = document["stages"];
    ASSERT_EQ(stages.size(), 4U);
    const struct {
        const char* name;
        bool hasResponse;
        const char* taps;
    } expected[] = {{"capture", false, nullptr},
                    {"bessel-thomson", true, nullptr},
                    {"ffe", true, "feed-forward"},
                    {"dfe", false, "feedback"}};
    for (std::size_t k = 0; k < stages.size(); ++k) {
        SCOPED_TRACE(expected[k].name);
        const json& stage = stages[k];
        const EyeReport& eye = report.stages[k].eye;
        EXPECT_EQ(stage["name"], expected[k].name);
        EXPECT_EQ(!stage["response"].is_null(), expected[k].hasResponse);
        EXPECT_EQ(stage["taps"].is_null(), expected[k].taps == nullptr);
        EXPECT_EQ(stage["pulses"].is_null(), expected[k].taps == nullptr);
        if (expected[k].taps != nullptr) {
            EXPECT_EQ(stage["taps"]["kind"], expected[k].taps);
        }
        EXPECT_EQ(stage["eye"]["eyes"][0]["height"], eye.eyes[0].height);
        EXPECT_EQ(stage["eye"]["phaseUi"], eye.phaseUi);
        EXPECT_EQ(stage["eye"]["bathtub"]["ber"]["values"].size(), 65U);
        ExpectWholeDensity(stage["eye"]["density"]);
        // The outline closes, and lies about the threshold.
        if (!stage["eye"]["contour"].empty()) {
            const json& outline = stage["eye"]["contour"][0];
            EXPECT_EQ(outline.front(), outline.back());
            EXPECT_GT(outline.front()[1], outline[outline.size() - 2][1]);
        }
    }
    EXPECT_FALSE(stages[3]["eye"]["contour"].empty());
    const json settings = stages[1]["settings"];
    EXPECT_TRUE(std::find(settings.begin(), settings.end(),
                          json({{"name", "cutoffPercent"}, {"value", 60}, {"unit", "% of the symbol rate"}})) !=
                settings.end());
    // The response of taps that were found: at 0 Hz their sum.
    double sum = 0.0;
    for (const json& tap : stages[2]["taps"]["values"])
        sum += tap.get<double>();
    const json& response = stages[2]["response"]["magnitudeDb"];
    EXPECT_NEAR(response["values"][0].get<double>(), 20.0 * std::log10(std::abs(sum)), 1e-4);  // six digits
    EXPECT_NEAR(document["chainResponse"]["magnitudeDb"]["values"][0].get<double>(),
                response["values"][0].get<double>() + stages[1]["response"]["magnitudeDb"]["values"][0].get<double>(),
                1e-4);
    EXPECT_EQ(document["levels"]["levels"].size(), 2U);
    EXPECT_NEAR(document["spectrum"]["line"].get<double>(), 10.0, 0.02);  // the spacing of the spectrum
    EXPECT_FALSE(document["clockPhase"].is_null());
    EXPECT_NE(document["warnings"].dump().find("without 2 dfe"), std::string::npos) << document["warnings"];
}

TEST(HtmlReport, WritesNullForWhatIsNotKnown)
{
    Waveform noise;  // no clock
    noise.samples = Testing::WithNoise(std::vector<double>(3000, 0.0), 1.0, 1);
    const json document = DocumentIn(HtmlReport(ReportOf(R"({"type": "copy"})", noise), kHead));
    for (const char* const key : {"chainResponse", "clockPhase", "spectrum", "levels", "mask", "unitIntervalPs"})
        EXPECT_TRUE(document.at(key).is_null()) << key;
    EXPECT_TRUE(document["stages"][1]["eye"].is_null());
    EXPECT_TRUE(document["head"]["command"].is_null() && document["head"]["chain"].is_null());
    EXPECT_NE(document["warnings"].dump().find("there are no eyes"), std::string::npos);

    // Without noise Q is infinite; a single shot has ends.
    Simulation ideal = {.samplesPerUi = 8.0, .symbolRateGBd = 10.0, .riseUi = 0.5};
    ideal.lengthUi = 300;
    const json shot = DocumentIn(HtmlReport(ReportOf(R"({"type": "copy"})", CaptureOf(kNrz, ideal)), kHead));
    EXPECT_TRUE(shot["stages"][1]["eye"]["eyes"][0]["q"].is_null() ||
                shot["stages"][1]["eye"]["eyes"][0]["q"].get<double>() > 1e3);
    EXPECT_NE(shot["warnings"].dump().find("\"ends\""), std::string::npos) << shot["warnings"];
}

TEST(HtmlReport, TellsOfClippedSamples)
{
    Waveform capture = CaptureOf(kNrz, kNoisy);
    const auto kindsOf = [](const json& document) {
        std::string kinds;
        for (const json& warning : document["warnings"])
            kinds += warning["kind"].get<std::string>() + " ";
        return kinds;
    };
    EXPECT_EQ(kindsOf(DocumentIn(HtmlReport(ReportOf("", capture), kHead))).find("clipped"), std::string::npos);
    for (double& sample : capture.samples)
        sample = std::min(sample, 0.4);
    EXPECT_NE(kindsOf(DocumentIn(HtmlReport(ReportOf("", capture), kHead))).find("clipped"), std::string::npos);
}

TEST(HtmlReport, KeepsEveryTextInItsPlace)
{
    RunReport report = ReportOf(R"({"type": "copy"})", CaptureOf(kNrz, kNoisy));
    const std::string plain = HtmlReport(report, kHead);
    const std::size_t ends = CountOf(plain, "</script");
    EXPECT_EQ(ends, 2U);  // the bundle's text holds none
    report.notes = {kHostile};
    report.stages[1].name = kHostile;
    report.stages[1].findings = json{{"found", "</script>"}}.dump();
    ReportHead head = kHead;
    head.title = head.command = kHostile;
    head.captures = {{kHostile, 3, ""}};
    head.mask = {kHostile, {{{0.0, 0.0}, {0.1, 0.0}, {0.0, 0.1}}}};
    head.chain = ChainFile::FromText(R"({"device": {"</script>": "</script>"}})", kHostile);
    TableReport table;
    table.columns = {{"key", kHostile, kHostile, false}};
    table.rows = {{kHostile, {kHostile}, kHostile}};
    table.notes = {kHostile};
    for (const std::string& page : {HtmlReport(report, head), HtmlReport(table, head)}) {
        EXPECT_EQ(CountOf(page, "</script"), ends);
        EXPECT_EQ(CountOf(page, "<!--"), CountOf(plain, "<!--"));
        EXPECT_EQ(CountOf(page, "<script>alert"), 0U);
        EXPECT_EQ(CountOf(page, "\xff"), 0U);
        EXPECT_EQ(CountOf(page.substr(0, page.find("<style>")), "\xe2\x80\xa8"), 1U);  // the title
        const json document = DocumentIn(page);
        EXPECT_EQ(document["head"]["title"], kHostileInUtf8);
        EXPECT_EQ(document["head"]["captures"][0]["name"], kHostileInUtf8);
        EXPECT_EQ(document["warnings"].back()["text"], kHostileInUtf8);
        EXPECT_EQ(document["mask"]["name"], kHostileInUtf8);
    }
    EXPECT_NE(plain.find("default-src 'none'; script-src 'sha256-"), std::string::npos);
}

TEST(HtmlReport, HoldsTwoHundredStagesAndThousandsOfRows)
{
    constexpr std::size_t kMostBytes = 4'000'000;
    SimulatedPattern pattern;  // PAM4: three eyes a stage
    pattern.prbs = 9;
    std::string filters = R"({"type": "moving-average", "WindowLength": 3})";
    for (int k = 1; k < 200; ++k)
        filters += R"(, {"type": "bessel-thomson", "cutoffPercent": 780})";
    Simulation dense = kNoisy;  // at so many samples a UI nothing is read between them, which would take the longest
    dense.samplesPerUi = 32.0;
    const std::string page = HtmlReport(ReportOf(filters, CaptureOf(pattern, dense)), kHead);
    EXPECT_LT(page.size(), kMostBytes);
    const json document = DocumentIn(page);
    ASSERT_EQ(document["stages"].size(), 201U);
    EXPECT_EQ(document["stages"][200]["name"], "bessel-thomson 199");
    EXPECT_GE(document["stages"][200]["eye"]["density"]["rows"], 32);
    ExpectWholeDensity(document["stages"][200]["eye"]["density"]);

    RowEyes eyes(5000, RowEyes::Keep::Best);
    const std::vector<double> samples = Testing::WithNoise(std::vector<double>(400, 0.0), 0.1, 1);
    std::vector<SweepRun> runs;
    for (int k = 0; k < 5000; ++k) {
        runs.push_back({{std::to_string(k)}, {}, {}, static_cast<double>(k)});
        eyes.Add(RowOf(runs.size() - 1), k, {}, samples, 4.0);
    }
    const SweepAxis axis{"filters.0.gain", {"1"}};
    const std::string rows = HtmlReport(TableOf({&axis, 1}, runs, eyes), kHead);
    EXPECT_LT(rows.size(), kMostBytes);
    EXPECT_FALSE(DocumentIn(rows)["rows"][0]["eye"].is_null());
    EXPECT_TRUE(DocumentIn(rows)["rows"][4999]["eye"].is_null());
}

TEST(TableReport, HasARowForEachSettingAndEachCapture)
{
    const SweepAxis axis{"filters.0.gain", {"1", "2", "\"x\""}};
    EyeReport eye;
    eye.levels = {0.0, 1.0};
    eye.eyes = {{.height = 0.5, .widthUi = std::nullopt, .openingPercent = 50.0, .q = INFINITY}};
    eye.symbolRateGBd = 10.0;
    std::vector<SweepRun> runs = {{{"1"}, eye, {}, 40.0}, {{"2"}, eye, {}, 50.0}, {{"\"x\""}, {}}};
    runs[2].error = "is no gain";
    RowEyes eyes(3, RowEyes::Keep::Best);
    for (std::size_t run = 0; run < 2; ++run)
        eyes.Add(RowOf(run), 40.0, eye, std::vector<double>(320, 0.25), 16.0);  // run 1 was better on this capture
    const json table = DocumentIn(HtmlReport(TableOf({&axis, 1}, runs, eyes), kHead));
    EXPECT_EQ(table["columns"][1],
              json({{"key", "filters.0.gain"}, {"label", "gain"}, {"unit", ""}, {"kind", "text"}}));
    const json& rows = table["rows"];
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0]["values"], json({1.0, 2.0, 50.0, 0.5, nullptr, nullptr, nullptr, nullptr}));
    EXPECT_TRUE(rows[0]["eye"].is_null());
    ExpectWholeDensity(rows[1]["eye"]["density"]);
    EXPECT_TRUE(rows[1]["eye"]["eyes"][0]["q"].is_null());
    EXPECT_EQ(rows[1]["unitIntervalPs"], 100.0);
    EXPECT_EQ(rows[2]["failure"], "is no gain");
    EXPECT_EQ(rows[2]["values"], json({nullptr, "x", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr}));

    BatchRow done;
    done[BatchColumn::File] = "a/b.csv";
    done[BatchColumn::Status] = "done";
    done[BatchColumn::OpeningPercent] = "12.5";
    BatchRow failed;
    failed[BatchColumn::File] = "c.csv";
    failed[BatchColumn::Reason] = "c.csv: is constant";
    const json batch = DocumentIn(HtmlReport(TableOf(std::vector{done, failed}, eyes), kHead));
    EXPECT_EQ(batch["rows"][0]["label"], "b.csv");
    EXPECT_EQ(batch["rows"][0]["values"][2], 12.5);
    EXPECT_EQ(batch["rows"][1]["failure"], "c.csv: is constant");
    EXPECT_EQ(batch["warnings"][0]["kind"], "failure");
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
