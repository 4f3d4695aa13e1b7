#include "workbench/waveform.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <random>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "framework/filenames.h"
#include "maths/transforms/largepages.h"
#include "workbench/failure.h"
#include "workbench/plumbing/gunzip.h"
#include "workbench/plumbing/textcapture.h"
#include "workbench/plumbing/wholefile.h"
#include "workbench/statistics.h"

namespace Tarnwick::DSO::Workbench {

namespace {

namespace fs = std::filesystem;

constexpr const char* kStandardInput = "-";
constexpr std::string_view kNpyMagic = "\x93NUMPY";

std::string Ending(const fs::path& path)
{
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return ending;
}

// The text after a key of the header's Python dictionary, up to where the value ends.
std::string_view NpyField(std::string_view header, std::string_view key)
{
    const std::size_t at = header.find(key);
    if (at == std::string_view::npos)
        return {};
    header.remove_prefix(at + key.size());
    header.remove_prefix(std::min(header.find_first_not_of(" :"), header.size()));
    return header;
}

template <typename Word>
double FromBytes(const char* bytes, bool swap)
{
    std::array<char, sizeof(Word)> word{};
    std::copy_n(bytes, sizeof(Word), word.begin());
    if (swap)
        std::reverse(word.begin(), word.end());
    return static_cast<double>(std::bit_cast<Word>(word));
}

// Where the data of a NumPy file lie, and what they are.
struct NpyData {
    std::size_t begin;  // [bytes]
    std::size_t count;
    std::size_t itemSize;  // [bytes] 8 or 4
    bool swap;
};

constexpr std::size_t kNpyHead = std::size_t{1} << 12U;  // [bytes] that hold the header of any array of numbers

// [bytes] from the beginning of a NumPy file to its data, as its first 12 bytes say.
std::size_t NpyDataAt(const std::string& name, std::string_view content)
{
    const auto byteAt = [&](std::size_t at) {
        return static_cast<std::size_t>(static_cast<unsigned char>(content[at]));
    };
    if (content.size() < 12 || content.substr(0, kNpyMagic.size()) != kNpyMagic)
        throw DataFailure(name + ": is no NumPy file");
    if (byteAt(6) < 2)
        return 10 + byteAt(8) + 256 * byteAt(9);
    return 12 + byteAt(8) + 256 * byteAt(9) + 65536 * byteAt(10) + 16777216 * byteAt(11);
}

/// @param content   the file, or its first bytes with the whole header among them
/// @param fileSize  [bytes]
NpyData NpyDataOf(const std::string& name, std::string_view content, std::size_t fileSize)
{
    const auto fail = [&](std::string_view what) { throw DataFailure(fmt::format("{}: {}", name, what)); };
    const std::size_t begin = NpyDataAt(name, content);
    if (begin > fileSize)
        fail("ends within its header");
    const std::string_view header = content.substr(0, begin);
    const std::string_view type = NpyField(header, "'descr'").substr(0, 5);
    const std::string_view shape = NpyField(header, "'shape'");
    const std::size_t itemSize = type.size() == 5 && type.substr(2, 2) == "f8"   ? 8
                                 : type.size() == 5 && type.substr(2, 2) == "f4" ? 4
                                                                                 : 0;
    const char order = type.size() == 5 ? type[1] : ' ';
    if (itemSize == 0 || (order != '<' && order != '>'))
        fail(fmt::format("element type is {}; expected float64 or float32", type));
    std::size_t count = 0;
    const auto end =
        std::from_chars(shape.data() + std::min<std::size_t>(1, shape.size()), shape.data() + shape.size(), count);
    if (shape.empty() || shape.front() != '(' || end.ec != std::errc() ||
        std::string_view(end.ptr, std::min<std::size_t>(2, shape.data() + shape.size() - end.ptr)) != ",)")
        fail("has not one dimension");
    const std::size_t dataSize = fileSize - begin;
    if (count > dataSize / itemSize || count * itemSize != dataSize)
        fail(fmt::format("holds {} bytes of data; expected {} values of {} bytes", dataSize, count, itemSize));
    if (count == 0)
        fail("holds no sample");
    return {begin, count, itemSize, (order == '<') != (std::endian::native == std::endian::little)};
}

void RequireFinite(std::span<const double> samples, const std::string& name)
{
    if (AreFinite(samples))
        return;
    const auto broken =
        std::find_if(samples.begin(), samples.end(), [](double sample) { return !std::isfinite(sample); });
    throw DataFailure(
        fmt::format("{}: sample {} is {}; expected a finite number", name, broken - samples.begin(), *broken));
}

Waveform ReadNpy(const std::string& name, std::string_view content)
{
    const NpyData data = NpyDataOf(name, content, content.size());
    Waveform waveform;
    waveform.samples.resize(data.count);
    for (std::size_t k = 0; k < data.count; ++k) {
        const char* bytes = content.data() + data.begin + k * data.itemSize;
        waveform.samples[k] =
            data.itemSize == 8 ? FromBytes<double>(bytes, data.swap) : FromBytes<float>(bytes, data.swap);
    }
    RequireFinite(waveform.samples, name);
    return waveform;
}

// Straight from the file into the samples, where it holds them as they lie in memory.
std::optional<Waveform> ReadNpyInPlace(const fs::path& path)
{
    const fs::path opened = Openable(path);
    std::error_code error;
    if (!fs::is_regular_file(opened, error))
        return std::nullopt;
    std::ifstream file(opened, std::ios::binary);
    const std::uintmax_t size = fs::file_size(opened, error);
    std::string head(std::min<std::uintmax_t>(error ? 0 : size, kNpyHead), '\0');
    if (!file.read(head.data(), static_cast<std::streamsize>(head.size())))
        return std::nullopt;
    if (NpyDataAt(path.string(), head) > head.size())
        return std::nullopt;
    const NpyData data = NpyDataOf(path.string(), head, static_cast<std::size_t>(size));
    if (data.itemSize != sizeof(double) || data.swap)
        return std::nullopt;
    Waveform waveform;
    waveform.samples.reserve(data.count);
    Maths::PreferLargePages(waveform.samples.data(), data.count * sizeof(double));
    file.seekg(static_cast<std::streamoff>(data.begin));
    // Made, read and looked at piece by piece, while they are in the cache.
    constexpr std::size_t kPiece = std::size_t{1} << 15U;  // [samples]
    bool areFinite = true;
    for (std::size_t begin = 0; begin < data.count; begin += kPiece) {
        waveform.samples.resize(begin + std::min(kPiece, data.count - begin));
        const auto piece = std::span(waveform.samples).subspan(begin);
        if (!file.read(reinterpret_cast<char*>(piece.data()), static_cast<std::streamsize>(piece.size_bytes())))
            return std::nullopt;
        areFinite = areFinite && AreFinite(piece);
    }
    if (!areFinite)
        RequireFinite(waveform.samples, path.string());
    return waveform;
}

// Numbers and nothing else.
template <typename Word>
Waveform ReadRaw(const std::string& name, std::string_view content)
{
    if (content.empty() || content.size() % sizeof(Word) != 0)
        throw DataFailure(fmt::format("{}: holds {} bytes; expected values of {}", name, content.size(), sizeof(Word)));
    Waveform waveform;
    waveform.samples.resize(content.size() / sizeof(Word));
    for (std::size_t k = 0; k < waveform.samples.size(); ++k) {
        waveform.samples[k] =
            FromBytes<Word>(content.data() + k * sizeof(Word), std::endian::native != std::endian::little);
    }
    RequireFinite(waveform.samples, name);
    return waveform;
}

// Options that say something of a text, of a file that is none.
void NoteTextOptions(Waveform& waveform, const std::string& name, const WaveformOptions& options)
{
    if (options.skipLines.value_or(0) > 0)
        waveform.notes.push_back(fmt::format("{}: holds no lines to skip", name));
    if (!options.column.empty())
        waveform.notes.push_back(fmt::format("{}: holds no columns to choose from", name));
}

Waveform ReadUnpacked(std::string_view content, const std::string& name, const std::string& ending,
                      const WaveformOptions& options)
{
    using Reader = Waveform (*)(const std::string&, std::string_view);
    constexpr std::pair<std::string_view, Reader> kReaders[] = {
        {".npy", &ReadNpy}, {".f32", &ReadRaw<float>}, {".f64", &ReadRaw<double>}, {".i16", &ReadRaw<std::int16_t>}};
    for (const auto& [of, read] : kReaders) {
        if (ending != of)
            continue;
        Waveform waveform = read(name, content);
        NoteTextOptions(waveform, name, options);
        return waveform;
    }
    return ReadTextCapture(content, name, options);
}

// What the options say goes before what the file says.
void TakeRateAndScale(Waveform& waveform, const std::string& name, const WaveformOptions& options)
{
    constexpr double kTolerance = 0.01;  // times in a text file are rounded
    if (options.sampleRate > 0.0) {
        const double interval = 1.0 / options.sampleRate;
        if (waveform.interval > 0.0 && std::abs(waveform.interval - interval) > kTolerance * interval)
            waveform.notes.push_back(fmt::format("{}: its times give {:.6g} GS/s; {:.6g} GS/s, as given, is used", name,
                                                 1e-9 / waveform.interval, 1e-9 * options.sampleRate));
        waveform.interval = interval;
        if (!waveform.gap.empty())
            waveform.notes.push_back(std::exchange(waveform.gap, {}) + "; the samples are taken as evenly spaced");
    }
    if (options.scale == 1.0)
        return;
    for (double& sample : waveform.samples) {
        sample *= options.scale;
        if (!std::isfinite(sample))
            throw DataFailure(fmt::format("{}: sample {} times {} is too large", name,
                                          &sample - waveform.samples.data(), options.scale));
    }
}

std::string NpyHeader(std::size_t count)
{
    const char order = std::endian::native == std::endian::little ? '<' : '>';
    std::string header = fmt::format("{{'descr': '{}f8', 'fortran_order': False, 'shape': ({},), }}", order, count);
    constexpr std::size_t kFront = 10;
    constexpr std::size_t kAlignment = 64;  // where the data begin
    while ((kFront + header.size() + 1) % kAlignment != 0)
        header += ' ';
    header += '\n';
    std::string file(kNpyMagic);
    file += {'\x01', '\x00', static_cast<char>(header.size() % 256), static_cast<char>(header.size() / 256)};
    file += header;
    return file;
}

void RequireRateAndScale(const WaveformOptions& options)
{
    const auto require = [](bool holds, const char* option, double value, const char* expected) {
        if (!holds)
            throw UsageFailure(fmt::format("{} is {}; expected {}", option, value, expected));
    };
    require(std::isfinite(options.sampleRate) && options.sampleRate >= 0.0, "sample rate", options.sampleRate,
            "a number above 0 Hz");
    require(std::isfinite(options.scale) && options.scale != 0.0, "scale", options.scale, "a number other than 0");
}

// One part behind the other.
void WriteParts(const fs::path& path, std::initializer_list<std::span<const char>> parts)
{
    fs::path temporary = path;
    temporary += PathOf(fmt::format(".{:08x}.part", std::random_device()()));
    temporary = Openable(temporary);
    const auto discard = [&](std::string_view what) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw DataFailure(fmt::format("{}: {}", path.string(), what));
    };
    std::ofstream file(temporary, std::ios::binary);
    for (const std::span<const char> part : parts)
        file.write(part.data(), static_cast<std::streamsize>(part.size()));
    file.close();
    if (!file)
        discard("cannot be written");
    std::error_code error;
    fs::rename(temporary, Openable(path), error);
    if (error)
        discard(error.message());
}

}  // namespace

Waveform ReadWaveform(const fs::path& path, const WaveformOptions& options)
{
    if (path == kStandardInput)
        return WaveformFrom(ReadStandardInput(), "standard input", options);
    if (Ending(path) == ".npy") {
        RequireRateAndScale(options);
        if (auto waveform = ReadNpyInPlace(path)) {
            NoteTextOptions(*waveform, path.string(), options);
            TakeRateAndScale(*waveform, path.string(), options);
            return std::move(*waveform);
        }
    }
    return WaveformFrom(ReadWholeFile(path), path, options);
}

Waveform WaveformFrom(std::string_view content, const fs::path& path, const WaveformOptions& options)
{
    RequireRateAndScale(options);
    const std::string name = path.string();
    Waveform waveform = Ending(path) == ".gz"
                            ? ReadUnpacked(Unzipped(content, name), name, Ending(path.stem()), options)
                            : ReadUnpacked(content, name, Ending(path), options);
    TakeRateAndScale(waveform, name, options);
    return waveform;
}

void WriteWhole(const fs::path& path, std::span<const char> content)
{
    WriteParts(path, {content});
}
std::string WaveformAsCsv(std::span<const double> samples, double interval, double start)
{
    std::string text = interval > 0.0 ? "time [s],voltage [V]\n" : "voltage [V]\n";
    for (std::size_t k = 0; k < samples.size(); ++k)
        text += interval > 0.0 ? fmt::format("{},{}\n", start + interval * static_cast<double>(k), samples[k])
                               : fmt::format("{}\n", samples[k]);
    return text;
}

void RequireWaveformName(const fs::path& path)
{
    const std::string ending = Ending(path);
    if (ending != ".npy" && ending != ".csv" && ending != ".txt")
        throw UsageFailure(
            fmt::format("{}: output format is \"{}\"; expected .csv, .txt or .npy", path.string(), ending));
}

void WriteWaveform(const fs::path& path, std::span<const double> samples, double interval, double start)
{
    RequireWaveformName(path);
    if (Ending(path) == ".npy")
        WriteParts(path,
                   {NpyHeader(samples.size()), {reinterpret_cast<const char*>(samples.data()), samples.size_bytes()}});
    else
        WriteWhole(path, WaveformAsCsv(samples, Ending(path) == ".csv" ? interval : 0.0, start));
}

}  // namespace Tarnwick::DSO::Workbench
