#include "platform/platform.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDFFF;
}

void AppendUtf8(std::string& out, char32_t code)
{
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        tail(0);
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

void AppendUtf16(WideString& out, char32_t code)
{
    if (code < 0x10000) {
        out += static_cast<char16_t>(code);
        return;
    }
    out += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
    out += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
}

// What a first byte promises: the number of bytes that follow, the bits that it brings itself, and the
// least code that needs so many bytes.
struct Lead {
    int tails;
    char32_t bits;
    char32_t least;
};

Lead ReadLead(unsigned char byte)
{
    if (byte < 0x80)
        return {0, byte, 0};
    if (byte >= 0xC2 && byte <= 0xDF)
        return {1, byte & 0x1Fu, 0x80};
    if (byte >= 0xE0 && byte <= 0xEF)
        return {2, byte & 0x0Fu, 0x800};
    if (byte >= 0xF0 && byte <= 0xF4)
        return {3, byte & 0x07u, 0x10000};
    return {0, kReplacement, 0};
}

}  // namespace

std::string ToUtf8(WideStringView text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t code = text[i];
        if (IsSurrogate(code)) {
            const bool paired = code < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
            code = paired ? 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00u) : kReplacement;
        }
        AppendUtf8(out, code);
    }
    return out;
}

WideString ToUtf16(std::string_view text)
{
    WideString out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const Lead lead = ReadLead(static_cast<unsigned char>(text[i++]));
        char32_t code = lead.bits;
        int missing = lead.tails;
        for (; missing > 0 && i < text.size() && (text[i] & 0xC0) == 0x80; --missing, ++i)
            code = (code << 6) | (static_cast<unsigned char>(text[i]) & 0x3Fu);
        const bool valid = missing == 0 && code >= lead.least && code <= 0x10FFFF && !IsSurrogate(code);
        AppendUtf16(out, valid ? code : kReplacement);
    }
    return out;
}
