#include "farlink/ports/port_failure.h"

#include "farlink/error_words.h"

namespace farlink {

namespace {

constexpr DWORD kFirstSocketWord = 10000;

}  // namespace

Failure PortFailure(const WideString& port)
{
    const DWORD word = GetLastError();
    if (word >= kFirstSocketWord && FindErrorWord(word) != nullptr)
        return PlatformFailure("Port '" + ToUtf8(port) + "'", word);
    return SpoolerFailure();
}

}  // namespace farlink
