#include "platform/platform.h"

std::string ToUtf8(WideStringView text)
{
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
    return utf8;
}

WideString ToUtf16(std::string_view text)
{
    const int length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    WideString utf16(static_cast<std::size_t>(size), TEXT('\0'));
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, utf16.data(), size);
    return utf16;
}
