#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "farlink/failure.h"
#include "farlink/ports/spooler_lists.h"
#include "platform/platform.h"

// The records of the spooler's lists, as its calls give them.
namespace farlink {

// The records that `call(buffer, size, needed, returned)` gives, however often the answer grows.
// They point into `buffer`.
template <typename Record, typename Call>
std::span<const Record> Ask(std::vector<BYTE>& buffer, Call call)
{
    buffer.resize(4096);
    for (;;) {
        DWORD needed = 0;
        DWORD returned = 0;
        if (call(buffer.data(), static_cast<DWORD>(buffer.size()), &needed, &returned))
            return {reinterpret_cast<const Record*>(buffer.data()), returned};
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            throw SpoolerFailure();
        buffer.resize(std::max<std::size_t>(needed, buffer.size() * 2));
    }
}

inline WideString TextOf(LPCWSTR text)
{
    return text == nullptr ? WideString() : WideString(text);
}

inline bool NameLess(const WideString& left, const WideString& right)
{
    const int order = lstrcmpiW(left.c_str(), right.c_str());
    return order != 0 ? order < 0 : left < right;
}

}  // namespace farlink
