#include "workbench/waveform.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "support/failures.h"
#include "support/files.h"
#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

using Testing::ExpectFailures;
using Testing::FailureOf;
using Testing::TestFolder;

// A .npy file as NumPy writes it, values in the given order of bytes.
template <typename Value>
std::string NpyFile(const std::string& type, const std::vector<Value>& values, const std::string& shape, bool bigEndian)
{
    std::string header = "{'descr': '" + type + "', 'fortran_order': False, 'shape': " + shape + ", }";
    header.resize(117, ' ');
    header += '\n';
    std::string file = "\x93NUMPY";
    file += {'\x01', '\x00', static_cast<char>(header.size()), '\x00'};
    file += header;
    for (const Value value : values) {
        std::string bytes(sizeof value, '\0');
        std::memcpy(bytes.data(), &value, sizeof value);
        if (bigEndian != (std::endian::native == std::endian::big))
            std::reverse(bytes.begin(), bytes.end());
        file += bytes;
    }
    return file;
}

TEST(WaveformText, TakesTheFormsThatCapturesComeIn)
{
    const struct {
        const char* label;
        const char* content;
        WaveformOptions options;
        std::vector<double> samples;
        double interval;
        std::size_t notes;
    } cases[] = {
        {"one value a line", "1\n-2.5\n3e-3\n", {}, {1, -2.5, 3e-3}, 0, 0},
        {"no newline at the end, carriage returns, blanks", " 1\r\n\r\n\t2 \r\n3", {}, {1, 2, 3}, 0, 0},
        {"rows of other kinds among plain ones",
         "1 ,2\n3,4\r\n\n5,\"6\"\n 7, +8\n9 , 1e-400\n10,11\t\n\"end\"\n",
         {{}, "2"},
         {2, 4, 6, 8, 0, 11},
         1.8,
         2},
        {"byte-order mark and plus signs", "\xEF\xBB\xBF+1\n+2\n", {}, {1, 2}, 0, 0},
        {"times in the first column", "0,5\n1e-12,6\n2e-12,7\n", {}, {5, 6, 7}, 1e-12, 0},
        {"header lines", "Time,Ch1\n# note\n0,5\n1e-12,6\n", {}, {5, 6}, 1e-12, 1},
        {"skipped lines", "0.0\n3\n1e10\n7\n8\n", {3, ""}, {7, 8}, 0, 0},
        {"several columns, by number", "0;9;5\n2;9;6\n", {{}, "3"}, {5, 6}, 2, 0},
        {"quotes, units, by name",
         "\"time [ps]\",\"a, b (mV)\",c\n0,\"5\",1\n2,\"6\",1\n",
         {{}, "A, B"},
         {5e-3, 6e-3},
         2e-12,
         1},
        {"units in a row, decimal commas", "t;U\n(ms);(mV)\n0,5;1,5\n1,0;2\n", {}, {1.5e-3, 2e-3}, 5e-4, 1},
        {"units between blanks", "# time [ns]  CH1 [V]\n0 5\n1 6\n", {}, {5, 6}, 1e-9, 1},
        {"units of one column", "CH1 (\xC2\xB5V)\n4\n8\n", {}, {4e-6, 8e-6}, 0, 1},
        {"times that are none, samples counted", "n,time [UI],V\n1,0,5\n2,1,6\n", {}, {5, 6}, 0, 2},
        {"a number for a name", "x-axis,1\nsecond,Volt\n0,5\n1,6\n", {{}, "1"}, {5, 6}, 1, 1},
        {"all on one line", "U:\n1, 2, -3,\n", {}, {1, 2, -3}, 0, 1},
        {"trailer lines", "1\n2\n\"END\"\n# of file 3\n", {}, {1, 2}, 0, 1},
        {"a gap", "0,5\n1,6\n2,7\n9,8\n10,9\n", {}, {5, 6, 7, 8, 9}, 1, 0},
        {"a gap, but a rate as given", "0,5\n1,6\n2,7\n9,8\n", {{}, "", 1.0}, {5, 6, 7, 8}, 1, 1},
        {"rate and scale as given", "0,5\n1,6\n", {{}, "", 4.0, 0.5}, {2.5, 3}, 0.25, 1},
        {"numbers that are samples",
         "7e6\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n",
         {0, ""},
         {7e6, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
         0,
         0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const Waveform waveform = WaveformFrom(row.content, "capture.csv", row.options);
        EXPECT_EQ(waveform.samples, row.samples);
        EXPECT_DOUBLE_EQ(waveform.interval, row.interval);
        EXPECT_EQ(waveform.notes.size(), row.notes);
    }
    const std::string gap = "capture.csv: the times are not evenly spaced: sample 3, at 9 s, comes 7 s after";
    EXPECT_EQ(WaveformFrom("0,5\n1,6\n2,7\n9,8\n10,9\n", "capture.csv").gap.rfind(gap, 0), 0U);
}

TEST(WaveformText, NamesTheLineThatIsWrong)
{
    std::string counted = "-5e-8\n17\n40e9\n";
    for (int k = 0; k < 17; ++k)
        counted += "0.25\n";
    ExpectFailures<DataFailure>(
        "capture.txt",
        {
            {"only words\n", ": holds no number"},
            {"1\n2x\n", ":2: \"2x\" is no number"},
            {"1\nnan\n", ":2: value is nan; expected a finite number"},
            {"1\n1e999\n", ":2: value is 1e999; expected a finite number"},
            {"1,2\n3\n", ":2: has 1 column; expected 2"},
            {"1,2\n3,\n", ":2: \"\" is no number"},
            {"1\nfoo\nbar\n2\n", ":2: \"foo\" is no number, and numbers follow"},
            {"2,5\n1,6\n",
             ": holds 2 columns of values: 1, 2; expected one, or the choice of one (--column NAME or NUMBER)"},
            {"time,\"CH1 (V)\",CH2\n0,1,2\n1,2,3\n",
             ": holds 2 columns of values: 2 \"CH1 (V)\", 3 \"CH2\"; expected one, or the choice of one (--column NAME "
             "or NUMBER)"},
            {counted,
             ": begins with 3 numbers that look like a header, -5e-08, 17, 4e+10: leave them out with --skip-lines 3, "
             "or take them as samples with --skip-lines 0"},
        },
        [](const std::string& content) { return WaveformFrom(content, "capture.txt"); });
    EXPECT_EQ(FailureOf<UsageFailure>([] {
                  WaveformFrom("t,a\n1,2\n", "c.csv", {{}, "b"});
              }),
              "c.csv: column is \"b\"; expected one of 1 \"t\", 2 \"a\"");
}

TEST(WaveformRaw, TakesLittleEndianNumbersPackedOrNot)
{
    EXPECT_EQ(WaveformFrom({"\x00\x00\x80\x3f\x00\x00\x00\xc0", 8}, "c.f32").samples, (std::vector<double>{1, -2}));
    EXPECT_EQ(WaveformFrom({"\x00\x00\x00\x00\x00\x00\xf0\xbf", 8}, "c.F64").samples, (std::vector<double>{-1}));
    const Waveform counts = WaveformFrom({"\x02\x00\xff\xff", 4}, "c.i16", {{}, "", 2e10, 0.25});
    EXPECT_EQ(counts.samples, (std::vector<double>{0.5, -0.25}));
    EXPECT_EQ(counts.interval, 5e-11);
    // printf '1\n2\n' | gzip -n, twice
    const std::string member(
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03\x33\xe4\x32\xe2\x02\x00\x61\x78\xe1\x69\x04\x00\x00\x00", 24);
    EXPECT_EQ(WaveformFrom(member + member, "c.csv.GZ").samples, (std::vector<double>{1, 2, 1, 2}));
    ExpectFailures<DataFailure>("c.i16.gz: ",
                                {
                                    {member.substr(0, 20), "ends before its gzip data do"},
                                    {"plain", "is damaged or no gzip file"},
                                    {member + "x", "holds 1 bytes behind its gzip data"},
                                },
                                [](const std::string& content) { return WaveformFrom(content, "c.i16.gz"); });
    EXPECT_EQ(FailureOf<DataFailure>([] { WaveformFrom("abc", "c.i16"); }),
              "c.i16: holds 3 bytes; expected values of 2");
}

TEST(WaveformNpy, ReadsBothWidthsInBothOrders)
{
    const std::vector<double> values = {1.5, -0.25, 3e-7};
    const std::vector<float> floats = {1.5F, -0.25F};
    const auto read = [](const std::string& content) { return WaveformFrom(content, "capture.NPY").samples; };
    EXPECT_EQ(read(NpyFile("<f8", values, "(3,)", false)), values);
    EXPECT_EQ(read(NpyFile(">f8", values, "(3,)", true)), values);
    EXPECT_EQ(read(NpyFile("<f4", floats, "(2,)", false)), (std::vector<double>{1.5, -0.25}));
    EXPECT_EQ(read(NpyFile(">f4", floats, "(2,)", true)), (std::vector<double>{1.5, -0.25}));
}

TEST(WaveformNpy, RefusesWhatItWouldMisread)
{
    const std::vector<double> values = {1.0, 2.0};
    const std::string good = NpyFile("<f8", values, "(2,)", false);
    ExpectFailures<DataFailure>(
        "capture.npy: ",
        {
            {"", "is no NumPy file"},
            {"1\n2\n3\n4\n5\n6\n7\n", "is no NumPy file"},
            {good.substr(0, 40), "ends within its header"},
            {good.substr(0, good.size() - 1), "holds 15 bytes of data; expected 2 values of 8 bytes"},
            {NpyFile("<i8", values, "(2,)", false), "element type is '<i8'; expected float64 or float32"},
            {NpyFile("<f8", values, "(1, 2)", false), "has not one dimension"},
            {NpyFile("<f8", values, "(99999999999999999999,)", false), "has not one dimension"},
            {NpyFile("<f8", values, "(4611686018427387904,)", false),
             "holds 16 bytes of data; expected 4611686018427387904 values of 8 bytes"},
        },
        [](const std::string& content) { return WaveformFrom(content, "capture.npy"); });
}

TEST(WaveformWrite, ReadsBackExactlyInEveryFormat)
{
    const std::vector<double> samples = {0.1, -1.0 / 3.0, 5e-324, 1.7976931348623157e308, 0.0};
    for (const std::string name : {"out.txt", "out.csv", "out.npy"}) {
        SCOPED_TRACE(name);
        const TestFolder folder;
        WriteWaveform(folder / name, samples, 0.0);
        EXPECT_EQ(ReadWaveform(folder / name).samples, samples);
        EXPECT_EQ(folder.Count(), 1U);  // nothing temporary is left
    }
    const TestFolder folder;
    WriteWaveform(folder / "timed.csv", samples, 2e-12, -5e-9);
    EXPECT_NEAR(ReadWaveform(folder / "timed.csv").interval, 2e-12, 1e-24);  // eps of the times, over one interval
    EXPECT_EQ(ReadWaveform(folder / "timed.csv").start, -5e-9);
}

}  // namespace

}  // namespace Tarnwick::DSO::Workbench
