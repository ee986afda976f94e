#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

// Between the platform's wide texts and those of a test. Characters beyond ASCII become '?'.
inline std::string Narrow(WideStringView text)
{
    std::string narrow;
    for (const WCHAR character : text)
        narrow.push_back(character < 0x80 ? static_cast<char>(character) : '?');
    return narrow;
}

inline WideString Wide(const std::string& text)
{
    return WideString(text.begin(), text.end());
}

// The text as a tool hands it over, with its NUL.
inline std::vector<BYTE> WithNul(const WideString& text)
{
    const auto* first = reinterpret_cast<const BYTE*>(text.c_str());
    return {first, first + (text.size() + 1) * sizeof(WCHAR)};
}
