#include "workbench/plumbing/gunzip.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>

#include <fmt/format.h>
#include <zlib.h>

#include "workbench/failure.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20U;
constexpr std::size_t kAlwaysAllowed = 64 * kMiB;
constexpr std::size_t kLargestRatio = 100;   // deflate reaches 1032; a noisy capture as text expands two to five times
constexpr int kGzipWindow = MAX_WBITS + 16;  // zlib's way to say gzip
constexpr std::string_view kMagic = "\x1f\x8b";

struct Inflater {
    z_stream stream = {};

    Inflater()
    {
        if (inflateInit2(&stream, kGzipWindow) != Z_OK)
            throw std::bad_alloc();
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() { inflateEnd(&stream); }
};

// As much as the stream's counters take.
uInt Portion(std::size_t size)
{
    return static_cast<uInt>(std::min<std::size_t>(size, std::numeric_limits<uInt>::max()));
}

}  // namespace

std::string Unzipped(std::string_view packed, const std::string& name)
{
    const auto fail = [&](const std::string& what) { throw DataFailure(fmt::format("{}: {}", name, what)); };
    const std::size_t most = std::max(kAlwaysAllowed, kLargestRatio * packed.size());
    Inflater inflater;
    z_stream& stream = inflater.stream;
    std::string content;
    std::size_t written = 0;
    while (true) {
        if (written == content.size()) {
            if (written >= most)
                fail(
                    fmt::format("expands to more than {} MiB, {} times its size; expected a capture (one that does "
                                "is read once it is unpacked)",
                                most / kMiB, most / std::max<std::size_t>(packed.size(), 1)));
            content.resize(std::min(most, std::max({2 * written, 4 * packed.size(), kMiB})));
        }
        const uInt in = Portion(packed.size());
        const uInt out = Portion(content.size() - written);
        // The library reads what it takes as not constant and leaves it as it is.
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));  // NOLINT(*-const-cast)
        stream.avail_in = in;
        stream.next_out = reinterpret_cast<Bytef*>(content.data() + written);
        stream.avail_out = out;
        const int status = inflate(&stream, Z_NO_FLUSH);
        packed.remove_prefix(in - stream.avail_in);
        written += out - stream.avail_out;
        if (status == Z_MEM_ERROR)
            throw std::bad_alloc();
        if (status == Z_STREAM_END) {
            if (packed.substr(0, kMagic.size()) != kMagic)
                break;
            inflateReset(&stream);
        } else if (status != Z_OK && !(status == Z_BUF_ERROR && stream.avail_out == 0)) {
            fail(status == Z_BUF_ERROR ? "ends before its gzip data do" : "is damaged or no gzip file");
        }
    }
    // Tapes pad with zeros.
    if (packed.find_first_not_of('\0') != std::string_view::npos)
        fail(fmt::format("holds {} bytes behind its gzip data", packed.size()));
    content.resize(written);
    return content;
}

}  // namespace Tarnwick::DSO::Workbench
