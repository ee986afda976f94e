#include <system_error>

#include "printserver/system_sockets.h"

namespace printserver::system_sockets {
namespace {

// Takes over a fresh socket.
SocketHandle MakeNonBlocking(SOCKET socket)
{
    if (socket == INVALID_SOCKET)
        return kNoSocket;
    u_long on = 1;
    (void)ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
    return static_cast<SocketHandle>(socket);
}

struct Startup {
    Startup()
    {
        WSADATA data;
        (void)WSAStartup(MAKEWORD(2, 2), &data);
    }
};

}  // namespace

void Start()
{
    static const Startup once;
}

SocketHandle New(const addrinfo& address)
{
    return MakeNonBlocking(::socket(address.ai_family, address.ai_socktype, address.ai_protocol));
}

SocketHandle Accept(SocketHandle listener)
{
    return MakeNonBlocking(::accept(Native(listener), nullptr, nullptr));
}

void Close(SocketHandle socket)
{
    (void)closesocket(Native(socket));
}

// Lingering connections are no obstacle here, and SO_REUSEADDR would let two programs listen on one port.
bool ReserveListenAddress(SocketHandle socket)
{
    const BOOL on = TRUE;
    return SetOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, &on, sizeof on);
}

bool SetOption(SocketHandle socket, int level, int name, const void* value, std::size_t size)
{
    return setsockopt(Native(socket), level, name, static_cast<const char*>(value), static_cast<int>(size)) ==
           0;
}

std::int64_t Receive(SocketHandle socket, std::span<std::uint8_t> buffer)
{
    return recv(Native(socket), reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()), 0);
}

std::int64_t Send(SocketHandle socket, std::span<const std::uint8_t> bytes)
{
    return send(Native(socket), reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()),
                0);
}

void EndSending(SocketHandle socket)
{
    (void)shutdown(Native(socket), SD_SEND);
}

bool WaitFor(SocketHandle socket, Until state, Milliseconds wait)
{
    fd_set watched;
    watched.fd_count = 1;
    watched.fd_array[0] = Native(socket);
    fd_set failed = watched;  // tells of a connect that came to nothing
    timeval limit;
    limit.tv_sec = static_cast<long>(wait.count() / 1000);
    limit.tv_usec = static_cast<long>(wait.count() % 1000 * 1000);
    return select(0, state == Until::Readable ? &watched : nullptr,
                  state == Until::Writable ? &watched : nullptr, &failed, &limit) > 0;
}

int LastError()
{
    return WSAGetLastError();
}

bool WouldBlock()
{
    return WSAGetLastError() == WSAEWOULDBLOCK;
}

bool IsAddressInUse(int error)
{
    return error == WSAEADDRINUSE;
}

bool NeedsRights(int error)
{
    return error == WSAEACCES;
}

std::string ErrorText(int error)
{
    return std::system_category().message(error);
}

}  // namespace printserver::system_sockets
