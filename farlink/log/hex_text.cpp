#include "farlink/log/hex_text.h"

#include <array>
#include <cstdio>
#include <utility>

namespace farlink {

namespace {

constexpr std::size_t kBytesPerLine = 16;
constexpr std::string_view kDigits = "0123456789abcdef";

// -1 for no digit.
int DigitOf(char letter)
{
    if (letter >= '0' && letter <= '9')
        return letter - '0';
    const int small = letter | 0x20;
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

bool IsPrintable(char byte)
{
    return byte >= ' ' && byte <= '~';
}

}  // namespace

std::optional<std::string> BytesOfHex(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ' || text[i] == ':') {
            ++i;
            continue;
        }
        const int high = DigitOf(text[i]);
        const int low = i + 1 < text.size() ? DigitOf(text[i + 1]) : -1;
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return bytes;
}

std::string HexOf(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<unsigned char>(byte) >> 4];
        text += kDigits[static_cast<unsigned char>(byte) & 0xF];
    }
    return text;
}

std::vector<std::string> HexDump(std::string_view bytes)
{
    std::vector<std::string> lines;
    for (std::size_t offset = 0; offset < bytes.size(); offset += kBytesPerLine) {
        const std::string_view part = bytes.substr(offset, kBytesPerLine);
        std::array<char, 24> head{};
        std::snprintf(head.data(), head.size(), "%08zx ", offset);
        std::string line = head.data();
        std::string printable;
        for (const char byte : part) {
            line += ' ';
            line += HexOf({&byte, 1});
            printable += IsPrintable(byte) ? byte : '.';
        }
        line.resize(9 + 3 * kBytesPerLine, ' ');
        line.append("  |").append(printable).append("|");
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace farlink
