#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/platform.h"

// Cuts an input into values. Past its end everything is 0 or empty.
class InputReader {
public:
    InputReader(const std::uint8_t* data, std::size_t size) : rest(data, size) {}

    bool IsEmpty() const { return rest.empty(); }
    std::uint8_t Byte()
    {
        const auto bytes = Take(1);
        return bytes.empty() ? std::uint8_t{0} : bytes[0];
    }
    // A length byte and so many bytes.
    std::vector<BYTE> Bytes()
    {
        const auto bytes = Take(Byte());
        return {bytes.begin(), bytes.end()};
    }
    std::vector<BYTE> Rest()
    {
        const auto bytes = Take(rest.size());
        return {bytes.begin(), bytes.end()};
    }
    // 16-bit units without a NUL.
    WideString Text()
    {
        const std::vector<BYTE> bytes = Bytes();
        WideString text;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
            text += static_cast<WCHAR>(bytes[i] | bytes[i + 1] << 8);
        return text.substr(0, text.find(WCHAR{0}));
    }

private:
    std::span<const std::uint8_t> Take(std::size_t count)
    {
        const auto taken = rest.first(std::min(count, rest.size()));
        rest = rest.subspan(taken.size());
        return taken;
    }

    std::span<const std::uint8_t> rest;
};
