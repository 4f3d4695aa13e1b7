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
#include <random>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "workbench/failure.h"
#include "workbench/plumbing/gunzip.h"
#include "workbench/plumbing/textcapture.h"
#include "workbench/plumbing/wholefile.h"

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

Waveform ReadNpy(const std::string& name, std::string_view content)
{
    const auto fail = [&](std::string_view what) { throw DataFailure(fmt::format("{}: {}", name, what)); };
    const auto byteAt = [&](std::size_t at) {
        return static_cast<std::size_t>(static_cast<unsigned char>(content[at]));
    };
    if (content.size() < 12 || content.substr(0, kNpyMagic.size()) != kNpyMagic)
        fail("is no NumPy file");
    const bool isLong = byteAt(6) >= 2;
    const std::size_t headerAt = isLong ? 12 : 10;
    std::size_t headerSize = byteAt(8) + 256 * byteAt(9);
    if (isLong)
        headerSize += 65536 * byteAt(10) + 16777216 * byteAt(11);
    if (headerSize > content.size() - std::min(headerAt, content.size()))
        fail("ends within its header");
    const std::string_view header = content.substr(headerAt, headerSize);
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
    const std::string_view data = content.substr(headerAt + headerSize);
    if (count > data.size() / itemSize || count * itemSize != data.size())
        fail(fmt::format("holds {} bytes of data; expected {} values of {} bytes", data.size(), count, itemSize));

    const bool swap = (order == '<') != (std::endian::native == std::endian::little);
    Waveform waveform;
    waveform.samples.resize(count);
    for (std::size_t k = 0; k < count; ++k) {
        const char* bytes = data.data() + k * itemSize;
        waveform.samples[k] = itemSize == 8 ? FromBytes<double>(bytes, swap) : FromBytes<float>(bytes, swap);
        if (!std::isfinite(waveform.samples[k]))
            fail(fmt::format("sample {} is {}; expected a finite number", k, waveform.samples[k]));
    }
    if (count == 0)
        fail("holds no sample");
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
        if (!std::isfinite(waveform.samples[k]))
            throw DataFailure(
                fmt::format("{}: sample {} is {}; expected a finite number", name, k, waveform.samples[k]));
    }
    return waveform;
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
        if (options.skipLines.value_or(0) > 0)
            waveform.notes.push_back(fmt::format("{}: holds no lines to skip", name));
        if (!options.column.empty())
            waveform.notes.push_back(fmt::format("{}: holds no columns to choose from", name));
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

std::string Npy(std::span<const double> samples)
{
    const char order = std::endian::native == std::endian::little ? '<' : '>';
    std::string header =
        fmt::format("{{'descr': '{}f8', 'fortran_order': False, 'shape': ({},), }}", order, samples.size());
    constexpr std::size_t kFront = 10;
    constexpr std::size_t kAlignment = 64;  // where the data begin
    while ((kFront + header.size() + 1) % kAlignment != 0)
        header += ' ';
    header += '\n';
    std::string file(kNpyMagic);
    file += {'\x01', '\x00', static_cast<char>(header.size() % 256), static_cast<char>(header.size() / 256)};
    file += header;
    file.append(reinterpret_cast<const char*>(samples.data()), samples.size_bytes());
    return file;
}

}  // namespace

Waveform ReadWaveform(const fs::path& path, const WaveformOptions& options)
{
    if (path == kStandardInput)
        return WaveformFrom(ReadStandardInput(), "standard input", options);
    return WaveformFrom(ReadWholeFile(path), path, options);
}

Waveform WaveformFrom(std::string_view content, const fs::path& path, const WaveformOptions& options)
{
    const auto require = [](bool holds, const char* option, double value, const char* expected) {
        if (!holds)
            throw UsageFailure(fmt::format("{} is {}; expected {}", option, value, expected));
    };
    require(std::isfinite(options.sampleRate) && options.sampleRate >= 0.0, "sample rate", options.sampleRate,
            "a number above 0 Hz");
    require(std::isfinite(options.scale) && options.scale != 0.0, "scale", options.scale, "a number other than 0");
    const std::string name = path.string();
    Waveform waveform = Ending(path) == ".gz"
                            ? ReadUnpacked(Unzipped(content, name), name, Ending(path.stem()), options)
                            : ReadUnpacked(content, name, Ending(path), options);
    TakeRateAndScale(waveform, name, options);
    return waveform;
}

void WriteWhole(const fs::path& path, std::span<const char> content)
{
    fs::path temporary = path;
    temporary += fmt::format(".{:08x}.part", std::random_device()());
    const auto discard = [&](std::string_view what) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw DataFailure(fmt::format("{}: {}", path.string(), what));
    };
    std::ofstream file(temporary, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        discard("cannot be written");
    std::error_code error;
    fs::rename(temporary, path, error);
    if (error)
        discard(error.message());
}

std::string WaveformAsCsv(std::span<const double> samples, double interval, double start)
{
    fmt::memory_buffer text;
    fmt::format_to(std::back_inserter(text), "{}voltage [V]\n", interval > 0.0 ? "time [s]," : "");
    for (std::size_t k = 0; k < samples.size(); ++k) {
        if (interval > 0.0)
            fmt::format_to(std::back_inserter(text), "{},", start + interval * static_cast<double>(k));
        fmt::format_to(std::back_inserter(text), "{}\n", samples[k]);
    }
    return fmt::to_string(text);
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
        WriteWhole(path, Npy(samples));
    else
        WriteWhole(path, WaveformAsCsv(samples, Ending(path) == ".csv" ? interval : 0.0, start));
}

}  // namespace Tarnwick::DSO::Workbench
