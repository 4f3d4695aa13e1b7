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
        std::size_t skip;
        std::vector<double> samples;
        double interval;
        std::size_t notes;
    } cases[] = {
        {"one value a line", "1\n-2.5\n3e-3\n", 0, {1, -2.5, 3e-3}, 0, 0},
        {"no newline at the end, carriage returns, blanks", " 1\r\n\r\n\t2 \r\n3", 0, {1, 2, 3}, 0, 0},
        {"byte-order mark and plus signs", "\xEF\xBB\xBF+1\n+2\n", 0, {1, 2}, 0, 0},
        {"times in the first column", "0,5\n1e-12,6\n2e-12,7\n", 0, {5, 6, 7}, 1e-12, 0},
        {"header lines", "Time,Ch1\n# note\n0,5\n1e-12,6\n", 0, {5, 6}, 1e-12, 1},
        {"three columns, the last counts", "0;9;5\n2;9;6\n", 0, {5, 6}, 2, 0},
        {"skipped lines", "0.0\n3\n1e10\n7\n8\n", 3, {7, 8}, 0, 0},
        {"a first column that falls", "2,5\n1,6\n", 0, {5, 6}, 0, 1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.label);
        const Waveform waveform = WaveformFrom(row.content, "capture.csv", row.skip);
        EXPECT_EQ(waveform.samples, row.samples);
        EXPECT_DOUBLE_EQ(waveform.interval, row.interval);
        EXPECT_EQ(waveform.notes.size(), row.notes);
    }
}

TEST(WaveformText, NamesTheLineThatIsWrong)
{
    ExpectFailures<DataFailure>("capture.txt",
                                {
                                    {"only words\n", ": holds no number"},
                                    {"1\n2x\n", ":2: \"2x\" is no number"},
                                    {"1\nnan\n", ":2: value is nan; expected a finite number"},
                                    {"1\n1e999\n", ":2: value is 1e999; expected a finite number"},
                                    {"1,2\n3\n", ":2: has 1 columns; expected 2"},
                                    {"1,2\n3,\n", ":2: \"\" is no number"},
                                },
                                [](const std::string& content) { return WaveformFrom(content, "capture.txt", 0); });
}

TEST(WaveformNpy, ReadsBothWidthsInBothOrders)
{
    const std::vector<double> values = {1.5, -0.25, 3e-7};
    const std::vector<float> floats = {1.5F, -0.25F};
    const auto read = [](const std::string& content) { return WaveformFrom(content, "capture.NPY", 0).samples; };
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
        [](const std::string& content) { return WaveformFrom(content, "capture.npy", 0); });
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
