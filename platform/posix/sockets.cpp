#include <atomic>
#include <bit>
#include <climits>

#include "platform/platform.h"
#include "platform/posix/call_switch.h"
#include "platform/posix/socket_startup.h"
#include "platform/posix/system_sockets.h"

namespace {

std::atomic<int> startups{0};

int Fail(int error)
{
    WSASetLastError(error);
    return SOCKET_ERROR;
}

// The descriptor behind a socket; -1, which is none, for a value that can't be one.
int Descriptor(SOCKET socket)
{
    return socket <= INT_MAX ? static_cast<int>(socket) : -1;
}

// What every call on a socket begins with. False with the last error set when it ends there.
bool MayRun(const char* name)
{
    if (posix_layer::CallFails(name))
        return false;
    if (posix_layer::SocketsAreStarted())
        return true;
    WSASetLastError(WSANOTINITIALISED);
    return false;
}

int Result(bool succeeded)
{
    return succeeded ? 0 : SOCKET_ERROR;
}

template <class Unsigned>
Unsigned NetworkOrder(Unsigned value)
{
    static_assert(std::endian::native == std::endian::little);
    return sizeof value == 2 ? static_cast<Unsigned>(__builtin_bswap16(static_cast<USHORT>(value)))
                             : static_cast<Unsigned>(__builtin_bswap32(value));
}

}  // namespace

bool posix_layer::SocketsAreStarted()
{
    return startups.load(std::memory_order_relaxed) > 0;
}

int WSAStartup(WORD version, WSADATA* data)
{
    if (posix_layer::CallFails("WSAStartup"))
        return WSAGetLastError();
    constexpr WORD kNewest = 0x0202;  // 2.2: the minor version in the upper byte
    if ((version & 0xFF) == 0)
        return WSAVERNOTSUPPORTED;
    *data = {};
    data->wVersion = (version & 0xFF) >= 2 ? kNewest : version;
    data->wHighVersion = kNewest;
    ++startups;
    return 0;
}

int WSACleanup()
{
    if (posix_layer::CallFails("WSACleanup"))
        return SOCKET_ERROR;
    for (int count = startups.load(); count > 0;) {
        if (startups.compare_exchange_weak(count, count - 1))
            return 0;
    }
    return Fail(WSANOTINITIALISED);
}

int WSAGetLastError()
{
    return static_cast<int>(GetLastError());
}

void WSASetLastError(int error)
{
    SetLastError(static_cast<DWORD>(error));
}

SOCKET socket(int family, int type, int protocol)
{
    if (!MayRun("socket"))
        return INVALID_SOCKET;
    int refusal = 0;
    if (family != AF_INET)
        refusal = WSAEAFNOSUPPORT;
    else if (type != SOCK_STREAM)
        refusal = WSAESOCKTNOSUPPORT;
    else if (protocol != 0 && protocol != IPPROTO_TCP)
        refusal = WSAEPROTONOSUPPORT;
    if (refusal != 0) {
        WSASetLastError(refusal);
        return INVALID_SOCKET;
    }
    const int descriptor = system_sockets::OpenStream();
    return descriptor < 0 ? INVALID_SOCKET : static_cast<SOCKET>(descriptor);
}

int connect(SOCKET socket, const SOCKADDR* address, int length)
{
    if (!MayRun("connect"))
        return SOCKET_ERROR;
    if (address == nullptr || length < static_cast<int>(sizeof(SOCKADDR_IN)))
        return Fail(WSAEFAULT);
    return Result(system_sockets::Connect(Descriptor(socket), address, length));
}

int send(SOCKET socket, const char* buffer, int length, int flags)
{
    if (!MayRun("send"))
        return SOCKET_ERROR;
    if (length < 0)
        return Fail(WSAEFAULT);
    if (flags != 0)
        return Fail(WSAEOPNOTSUPP);
    return system_sockets::Send(Descriptor(socket), buffer, length);
}

int recv(SOCKET socket, char* buffer, int length, int flags)
{
    if (!MayRun("recv"))
        return SOCKET_ERROR;
    if (length < 0)
        return Fail(WSAEFAULT);
    if ((flags & ~MSG_PEEK) != 0)
        return Fail(WSAEOPNOTSUPP);
    return system_sockets::Receive(Descriptor(socket), buffer, length, flags == MSG_PEEK);
}

int shutdown(SOCKET socket, int how)
{
    if (!MayRun("shutdown"))
        return SOCKET_ERROR;
    return Result(system_sockets::Shutdown(Descriptor(socket), how));
}

int closesocket(SOCKET socket)
{
    // Even when the sockets are not started any more: there, a socket left over would never be closed.
    if (posix_layer::CallFails("closesocket"))
        return SOCKET_ERROR;
    return Result(system_sockets::Close(Descriptor(socket)));
}

int ioctlsocket(SOCKET socket, long request, ULONG* value)
{
    if (!MayRun("ioctlsocket"))
        return SOCKET_ERROR;
    if (request != FIONREAD)
        return Fail(WSAEINVAL);
    return Result(system_sockets::CountReadable(Descriptor(socket), value));
}

USHORT htons(USHORT value)
{
    return NetworkOrder(value);
}

USHORT ntohs(USHORT value)
{
    return NetworkOrder(value);
}

ULONG htonl(ULONG value)
{
    return NetworkOrder(value);
}

ULONG ntohl(ULONG value)
{
    return NetworkOrder(value);
}

void WakeBlockedCalls(SOCKET socket)
{
    const DWORD lastError = GetLastError();
    // Fails on a socket that is not connected, which has nobody to wake.
    (void)system_sockets::Shutdown(Descriptor(socket), SD_BOTH);
    SetLastError(lastError);
}

bool IsWritable(SOCKET socket)
{
    return system_sockets::SendWouldNotBlock(Descriptor(socket));
}
