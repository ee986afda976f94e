#include "printserver/sha256.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace printserver {
namespace {

// RFC 6234, section 5.1.
constexpr std::array<std::uint32_t, 64> kConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

std::array<std::uint32_t, 64> Schedule(const std::uint8_t* block)
{
    std::array<std::uint32_t, 64> words;
    for (std::size_t t = 0; t < 16; ++t, block += 4) {
        words[t] = static_cast<std::uint32_t>(block[0]) << 24 | static_cast<std::uint32_t>(block[1]) << 16 |
                   static_cast<std::uint32_t>(block[2]) << 8 | block[3];
    }
    for (std::size_t t = 16; t < 64; ++t) {
        const std::uint32_t near = words[t - 2];
        const std::uint32_t far = words[t - 15];
        words[t] = (std::rotr(near, 17) ^ std::rotr(near, 19) ^ near >> 10) + words[t - 7] +
                   (std::rotr(far, 7) ^ std::rotr(far, 18) ^ far >> 3) + words[t - 16];
    }
    return words;
}

}  // namespace

void Sha256::DigestBlock(const std::uint8_t* block)
{
    const auto words = Schedule(block);
    auto [a, b, c, d, e, f, g, h] = hash;
    for (std::size_t t = 0; t < 64; ++t) {
        const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                    ((e & f) ^ (~e & g)) + kConstants[t] + words[t];
        const std::uint32_t second =
            (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const std::array<std::uint32_t, 8> round = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < hash.size(); ++i)
        hash[i] += round[i];
}

void Sha256::Add(std::span<const std::uint8_t> bytes)
{
    std::size_t held = total % rest.size();
    total += bytes.size();
    if (held > 0) {
        const std::size_t count = std::min(bytes.size(), rest.size() - held);
        std::copy_n(bytes.begin(), count, rest.begin() + static_cast<std::ptrdiff_t>(held));
        bytes = bytes.subspan(count);
        if (held + count < rest.size())
            return;
        DigestBlock(rest.data());
    }
    for (; bytes.size() >= rest.size(); bytes = bytes.subspan(rest.size()))
        DigestBlock(bytes.data());
    std::copy(bytes.begin(), bytes.end(), rest.begin());
}

std::string Sha256::Finish()
{
    const std::uint64_t bits = total * 8;
    std::array<std::uint8_t, 72> padding{0x80};
    const std::size_t zeros = (119 - total % 64) % 64;  // up to 8 bytes short of a block's end
    for (std::size_t i = 0; i < 8; ++i)
        padding[1 + zeros + i] = static_cast<std::uint8_t>(bits >> (56 - 8 * i));
    Add(std::span(padding).first(1 + zeros + 8));

    std::string text;
    for (const std::uint32_t word : hash) {
        for (int shift = 28; shift >= 0; shift -= 4)
            text += "0123456789abcdef"[word >> shift & 15];
    }
    return text;
}

}  // namespace printserver
