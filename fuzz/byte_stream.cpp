#include "fuzz/byte_stream.h"

#include <algorithm>

#include "platform/platform.h"

namespace {

std::span<const std::uint8_t> unread;
std::size_t segmentSize = 1;

constexpr SOCKET kTheSocket = 7;

}  // namespace

void ServeBytes(std::span<const std::uint8_t> bytes, std::size_t segment)
{
    unread = bytes;
    segmentSize = std::max<std::size_t>(segment, 1);
}

std::size_t BytesUnread()
{
    return unread.size();
}

// --- the platform's calls, as this binary has them ---

SOCKET socket(int, int, int)
{
    return kTheSocket;
}

int connect(SOCKET, const SOCKADDR*, int)
{
    return 0;
}

int send(SOCKET, const char*, int length, int)
{
    return length;
}

int recv(SOCKET, char* buffer, int length, int flags)
{
    const std::size_t count = std::min({unread.size(), segmentSize, static_cast<std::size_t>(length)});
    std::copy_n(unread.begin(), count, buffer);
    if ((flags & MSG_PEEK) == 0)
        unread = unread.subspan(count);
    return static_cast<int>(count);
}

int ioctlsocket(SOCKET, long, ULONG* value)
{
    *value = static_cast<ULONG>(std::min(unread.size(), segmentSize));
    return 0;
}

int shutdown(SOCKET, int)
{
    return 0;
}

int closesocket(SOCKET)
{
    return 0;
}

void WakeBlockedCalls(SOCKET) {}

void Sleep(DWORD) {}
