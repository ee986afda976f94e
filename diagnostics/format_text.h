#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "platform/platform.h"

// printf formatting that is the same on every build and can't be given an argument of the wrong size:
// each argument carries its kind. %i %d %u %x %X %s %S %% with flag 0 and width; a length (ll, h, z) is
// read over, since the argument knows its own.

class FormatArgument {
public:
    enum class Kind : std::uint8_t { Signed, Unsigned, Narrow, Wide };

    template <std::integral Integer>
    FormatArgument(Integer value)
        : kind(std::signed_integral<Integer> ? Kind::Signed : Kind::Unsigned),
          size(sizeof(Integer)),
          bits(static_cast<std::uint64_t>(value))
    {
    }
    FormatArgument(const char* text) : kind(Kind::Narrow), size(0), narrow(text) {}
    FormatArgument(const WCHAR* text) : kind(Kind::Wide), size(0), wide(text) {}

    const Kind kind;
    const std::uint8_t size;  // of an integer, in bytes
    union {
        std::uint64_t bits;
        const char* narrow;
        const WCHAR* wide;
    };
};

using FormatArguments = std::initializer_list<FormatArgument>;

// Formats into `buffer` of `size` bytes, which is at least 1, and gives the length without the NUL that
// always ends it. What doesn't fit is cut, never inside a UTF-8 character. %s and %S print a text
// as its argument is, UTF-16 as UTF-8; a null text prints "NULL". A conversion without a fitting
// argument prints "?".
std::size_t FormatText(char* buffer, std::size_t size, const char* format, FormatArguments arguments);
