#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace printserver {

// SHA-256 of RFC 6234, fed piece by piece.
class Sha256 {
public:
    void Add(std::span<const std::uint8_t> bytes);
    // 64 hexadecimal digits in small letters. The object is used up.
    std::string Finish();

private:
    void DigestBlock(const std::uint8_t* block);

    std::array<std::uint32_t, 8> hash = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<std::uint8_t, 64> rest{};
    std::uint64_t total = 0;  // bytes
};

}  // namespace printserver
