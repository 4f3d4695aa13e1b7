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
#include <limits>
#include <optional>
#include <random>
#include <string_view>

#include <fmt/format.h>

#include "workbench/failure.h"
#include "workbench/plumbing/wholefile.h"

namespace Tarnwick::DSO::Workbench {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kNpyMagic = "\x93NUMPY";
constexpr double kEvenSpacing = 0.01;  // [intervals] by which times may be off: printed ones are rounded

// The whole token as a number, in the C locale whatever the process uses.
std::optional<double> Number(std::string_view token)
{
    if (token.size() > 1 && token.front() == '+' && token[1] != '-')
        token.remove_prefix(1);
    double value = 0.0;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (end != token.data() + token.size() || token.empty())
        return std::nullopt;
    if (error ==
        std::errc::result_out_of_range)  // too small is zero; too large is infinity, which a waveform must not hold
        return token.find("e-") != std::string_view::npos || token.find("E-") != std::string_view::npos
                   ? 0.0
                   : std::numeric_limits<double>::infinity();
    return error == std::errc() ? std::optional(value) : std::nullopt;
}

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    const std::size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end == std::string_view::npos ? 0 : end + 1 - begin);
}

// Between commas or semicolons, where an empty column is one, or, without those, between blanks.
std::vector<std::string_view> Columns(std::string_view line)
{
    line = Trimmed(line);
    std::vector<std::string_view> columns;
    if (line.empty())
        return columns;
    const std::string_view separators = line.find_first_of(",;") != std::string_view::npos ? ",;" : " \t";
    while (true) {
        const std::size_t end = line.find_first_of(separators);
        columns.push_back(Trimmed(line.substr(0, end)));
        if (end == std::string_view::npos)
            return columns;
        line.remove_prefix(end + 1);
        if (separators.front() == ' ')
            line = Trimmed(line);
    }
}

std::string Ending(const fs::path& path)
{
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return ending;
}

class TextReader {
public:
    TextReader(std::string name, std::size_t skipLines) : name_(std::move(name)), skipLines_(skipLines) {}

    Waveform Read(std::string_view content)
    {
        if (content.substr(0, 3) == "\xEF\xBB\xBF")
            content.remove_prefix(3);
        for (std::size_t begin = 0; begin < content.size();) {
            const std::size_t end = std::min(content.find('\n', begin), content.size());
            std::string_view line = content.substr(begin, end - begin);
            if (!line.empty() && line.back() == '\r')
                line.remove_suffix(1);
            ++line_;
            if (line_ > skipLines_)
                Take(line);
            begin = end + 1;
        }
        if (waveform_.samples.empty())
            throw DataFailure(fmt::format("{}: holds no number", name_));
        if (headerLines_ > 0)
            waveform_.notes.push_back(fmt::format("{}: {} header line{} passed over, the first is \"{}\"", name_,
                                                  headerLines_, headerLines_ == 1 ? "" : "s", firstHeader_));
        FindInterval();
        return std::move(waveform_);
    }

private:
    void Take(std::string_view line)
    {
        const auto columns = Columns(line);
        if (columns.empty())
            return;
        const auto value = Number(columns.back());
        const auto first = columns.size() > 1 ? Number(columns.front()) : value;
        if (waveform_.samples.empty() && (!value || !first)) {
            if (headerLines_++ == 0)
                firstHeader_ = std::string(line.substr(0, 60));
            return;
        }
        if (!value || !first)
            Fail(fmt::format("\"{}\" is no number", !value ? columns.back() : columns.front()));
        if (!std::isfinite(*value) || !std::isfinite(*first))
            Fail(fmt::format("value is {}; expected a finite number", columns.back()));
        if (waveform_.samples.empty())
            columnCount_ = columns.size();
        else if (columns.size() != columnCount_)
            Fail(fmt::format("has {} columns; expected {}", columns.size(), columnCount_));
        waveform_.samples.push_back(*value);
        if (columnCount_ > 1)
            times_.push_back(*first);
    }

    void FindInterval()
    {
        if (times_.size() < 2)
            return;
        const double interval = (times_.back() - times_.front()) / static_cast<double>(times_.size() - 1);
        if (!std::isfinite(interval) || interval <= 0.0) {
            waveform_.notes.push_back(
                fmt::format("{}: the first column does not rise; it is not read as times", name_));
            return;
        }
        for (std::size_t k = 0; k < times_.size(); ++k) {
            const double expected = times_.front() + interval * static_cast<double>(k);
            if (std::abs(times_[k] - expected) > std::max(kEvenSpacing * interval, 1e-9 * std::abs(expected))) {
                waveform_.notes.push_back(
                    fmt::format("{}: the times are not evenly spaced (sample {}); their mean is used", name_, k));
                break;
            }
        }
        waveform_.interval = interval;
        waveform_.start = times_.front();
    }

    [[noreturn]] void Fail(const std::string& what) const
    {
        throw DataFailure(fmt::format("{}:{}: {}", name_, line_, what));
    }

    std::string name_;
    std::size_t skipLines_;
    std::size_t line_ = 0;
    std::size_t headerLines_ = 0;
    std::size_t columnCount_ = 0;
    std::string firstHeader_;
    std::vector<double> times_;
    Waveform waveform_;
};

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

std::string Text(std::span<const double> samples, double interval, double start)
{
    fmt::memory_buffer text;
    for (std::size_t k = 0; k < samples.size(); ++k) {
        if (interval > 0.0)
            fmt::format_to(std::back_inserter(text), "{},", start + interval * static_cast<double>(k));
        fmt::format_to(std::back_inserter(text), "{}\n", samples[k]);
    }
    return fmt::to_string(text);
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

Waveform ReadWaveform(const fs::path& path, std::size_t skipLines)
{
    return WaveformFrom(ReadWholeFile(path), path, skipLines);
}

Waveform WaveformFrom(std::string_view content, const fs::path& path, std::size_t skipLines)
{
    if (Ending(path) == ".npy") {
        Waveform waveform = ReadNpy(path.string(), content);
        if (skipLines > 0)
            waveform.notes.push_back(fmt::format("{}: holds no lines to skip", path.string()));
        return waveform;
    }
    return TextReader(path.string(), skipLines).Read(content);
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
        WriteWhole(path, Text(samples, Ending(path) == ".csv" ? interval : 0.0, start));
}

}  // namespace Tarnwick::DSO::Workbench
