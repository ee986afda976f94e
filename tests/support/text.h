#pragma once

#include <string>

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
