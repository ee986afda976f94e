#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "printserver/system_sockets.h"

namespace printserver::system_sockets {

void Start() {}

SocketHandle New(const addrinfo& address)
{
    return ::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                    address.ai_protocol);
}

SocketHandle Accept(SocketHandle listener)
{
    return accept4(Native(listener), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
}

void Close(SocketHandle socket)
{
    (void)close(Native(socket));
}

bool ReserveListenAddress(SocketHandle socket)
{
    const int on = 1;
    return SetOption(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

bool SetOption(SocketHandle socket, int level, int name, const void* value, std::size_t size)
{
    return setsockopt(Native(socket), level, name, value, static_cast<socklen_t>(size)) == 0;
}

std::int64_t Receive(SocketHandle socket, std::span<std::uint8_t> buffer)
{
    return recv(Native(socket), buffer.data(), buffer.size(), 0);
}

std::int64_t Send(SocketHandle socket, std::span<const std::uint8_t> bytes)
{
    return send(Native(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void EndSending(SocketHandle socket)
{
    (void)shutdown(Native(socket), SHUT_WR);
}

bool WaitFor(SocketHandle socket, Until state, Milliseconds wait)
{
    pollfd entry{Native(socket), static_cast<short>(state == Until::Readable ? POLLIN : POLLOUT), 0};
    return poll(&entry, 1, static_cast<int>(wait.count())) > 0;
}

int LastError()
{
    return errno;
}

bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR || errno == EINPROGRESS;
}

bool IsAddressInUse(int error)
{
    return error == EADDRINUSE;
}

bool NeedsRights(int error)
{
    return error == EACCES;
}

std::string ErrorText(int error)
{
    return std::strerror(error);
}

}  // namespace printserver::system_sockets
