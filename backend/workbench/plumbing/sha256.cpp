#include "workbench/plumbing/sha256.h"

#include <algorithm>
#include <bit>
#include <cstddef>

#include <fmt/format.h>

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kBlock = 64;   // [bytes]
constexpr std::size_t kLength = 8;   // [bytes] of the text's length behind the padding
constexpr std::size_t kRounds = 64;  // FIPS 180-4, section 6.2.2

// Section 4.2.2: the first 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<std::uint32_t, kRounds> kConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<std::uint32_t, 8>;

std::uint32_t WordAt(const char* bytes)
{
    std::uint32_t word = 0;
    for (int k = 0; k < 4; ++k)
        word = (word << 8U) | static_cast<unsigned char>(bytes[k]);
    return word;
}

void AddBlock(State& state, const char* block)
{
    std::array<std::uint32_t, kRounds> words{};
    for (std::size_t k = 0; k < 16; ++k)
        words[k] = WordAt(block + 4 * k);
    for (std::size_t k = 16; k < kRounds; ++k) {
        const std::uint32_t a = words[k - 15];
        const std::uint32_t b = words[k - 2];
        words[k] = words[k - 16] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ (a >> 3U)) + words[k - 7] +
                   (std::rotr(b, 17) ^ std::rotr(b, 19) ^ (b >> 10U));
    }
    State s = state;
    for (std::size_t k = 0; k < kRounds; ++k) {
        const std::uint32_t choice = (s[4] & s[5]) ^ (~s[4] & s[6]);
        const std::uint32_t majority = (s[0] & s[1]) ^ (s[0] & s[2]) ^ (s[1] & s[2]);
        const std::uint32_t first =
            s[7] + (std::rotr(s[4], 6) ^ std::rotr(s[4], 11) ^ std::rotr(s[4], 25)) + choice + kConstants[k] + words[k];
        const std::uint32_t second = (std::rotr(s[0], 2) ^ std::rotr(s[0], 13) ^ std::rotr(s[0], 22)) + majority;
        s = {first + second, s[0], s[1], s[2], s[3] + first, s[4], s[5], s[6]};
    }
    for (std::size_t k = 0; k < state.size(); ++k)
        state[k] += s[k];
}

}  // namespace

Sha256Digest Sha256(std::string_view text)
{
    State state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::string_view rest = text;
    for (; rest.size() >= kBlock; rest.remove_prefix(kBlock))
        AddBlock(state, rest.data());
    // A bit of 1, zeros, and the length in bits, to whole blocks.
    std::string end(rest);
    end += '\x80';
    end.resize((end.size() + kLength + kBlock - 1) / kBlock * kBlock, '\0');
    const std::uint64_t bits = 8 * static_cast<std::uint64_t>(text.size());
    for (std::size_t k = 0; k < kLength; ++k)
        end[end.size() - 1 - k] = static_cast<char>(bits >> (8 * k));
    for (std::size_t at = 0; at < end.size(); at += kBlock)
        AddBlock(state, end.data() + at);
    Sha256Digest digest{};
    for (std::size_t k = 0; k < digest.size(); ++k)
        digest[k] = static_cast<std::uint8_t>(state[k / 4] >> (24 - 8 * (k % 4)));
    return digest;
}

std::string HexOf(const Sha256Digest& digest)
{
    std::string text;
    for (const std::uint8_t byte : digest)
        text += fmt::format("{:02x}", byte);
    return text;
}

}  // namespace Tarnwick::DSO::Workbench
