#include "tools/printserver/tcp.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace printserver {
namespace {

constexpr int kBacklog = 128;
constexpr int kPairTries = 200;

int Raw(SocketHandle socket)
{
    return static_cast<int>(socket);
}

bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

bool WaitFor(SocketHandle socket, short events, Milliseconds wait)
{
    pollfd entry{Raw(socket), events, 0};
    return poll(&entry, 1, static_cast<int>(wait.count())) > 0;
}

void PrepareConnected(SocketHandle socket)
{
    const int on = 1;
    // Single bytes and half frames have to leave as they are written.
    (void)setsockopt(Raw(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

SocketHandle NewSocket(const addrinfo& address)
{
    return ::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                    address.ai_protocol);
}

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList Resolve(const std::string& address, std::uint16_t port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        found = nullptr;
    return AddressList(found, &freeaddrinfo);
}

std::uint16_t BoundPort(SocketHandle socket)
{
    sockaddr_storage name{};
    socklen_t size = sizeof name;
    if (getsockname(Raw(socket), reinterpret_cast<sockaddr*>(&name), &size) != 0)
        return 0;
    // The port stands at the same place in both families' addresses.
    return ntohs(reinterpret_cast<const sockaddr_in*>(&name)->sin_port);
}

std::string WhyNot(const std::string& address, std::uint16_t port, int error)
{
    const std::string where = "port " + std::to_string(port) + " on " + address;
    if (error == EADDRINUSE)
        return "Cannot listen: " + where +
               " is in use. Stop the program that has it, or choose another port; the port and the port plus "
               "2 "
               "must both be free.";
    if (error == EACCES)
        return "Cannot listen: " + where + " needs special rights. Choose a port from 1024 to 65533.";
    return "Cannot listen: " + where + ": " + std::strerror(error) + ". Choose an address of this machine.";
}

}  // namespace

TcpConnection::TcpConnection(SocketHandle connected) : socket(connected)
{
    PrepareConnected(socket);
}

TcpConnection& TcpConnection::operator=(TcpConnection&& other) noexcept
{
    if (this != &other) {
        HangUp();
        socket = std::exchange(other.socket, kNoSocket);
    }
    return *this;
}

ReadResult TcpConnection::Read(std::span<std::uint8_t> buffer, Milliseconds wait)
{
    for (int attempt = 0; IsOpen(); ++attempt) {
        const ssize_t count = recv(Raw(socket), buffer.data(), buffer.size(), 0);
        if (count > 0)
            return {ReadState::Bytes, static_cast<std::size_t>(count)};
        if (count == 0)
            return {ReadState::End};
        if (!WouldBlock())
            return {ReadState::Broken};
        if (attempt > 0 || !WaitFor(socket, POLLIN, wait))
            return {ReadState::Nothing};
    }
    return {ReadState::Closed};
}

std::optional<std::size_t> TcpConnection::Write(std::span<const std::uint8_t> bytes, Milliseconds wait)
{
    for (int attempt = 0; IsOpen(); ++attempt) {
        const ssize_t count = send(Raw(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (!WouldBlock())
            return std::nullopt;
        if (attempt > 0 || !WaitFor(socket, POLLOUT, wait))
            return 0;
    }
    return std::nullopt;
}

void TcpConnection::HangUp()
{
    if (!IsOpen())
        return;
    // A close with unread bytes would reset the connection, so the end goes out first and the bytes are
    // taken.
    (void)shutdown(Raw(socket), SHUT_WR);
    std::array<std::uint8_t, 4096> ignored;
    for (int round = 0; round < 1024 && recv(Raw(socket), ignored.data(), ignored.size(), 0) > 0; ++round) {
    }
    (void)close(Raw(std::exchange(socket, kNoSocket)));
}

void TcpConnection::Reset()
{
    if (!IsOpen())
        return;
    const linger atOnce{1, 0};
    (void)setsockopt(Raw(socket), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    (void)close(Raw(std::exchange(socket, kNoSocket)));
}

TcpListener::TcpListener(TcpListener&& other) noexcept
    : socket(std::exchange(other.socket, kNoSocket)), port(other.port)
{
}

TcpListener& TcpListener::operator=(TcpListener&& other) noexcept
{
    if (this != &other) {
        Close();
        socket = std::exchange(other.socket, kNoSocket);
        port = other.port;
    }
    return *this;
}

TcpListener TcpListener::Listen(const std::string& address, std::uint16_t port)
{
    const AddressList found = Resolve(address, port);
    if (!found)
        throw ListenError("Cannot listen: " + address +
                          " is no address of this machine. Choose another address.");

    TcpListener listener;
    listener.socket = NewSocket(*found);
    const int on = 1;
    // A port whose last connections still linger can be listened on again at once.
    if (listener.socket == kNoSocket ||
        setsockopt(Raw(listener.socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(Raw(listener.socket), found->ai_addr, found->ai_addrlen) != 0 ||
        listen(Raw(listener.socket), kBacklog) != 0) {
        throw ListenError(WhyNot(address, port, errno));
    }
    listener.port = BoundPort(listener.socket);
    return listener;
}

std::optional<TcpConnection> TcpListener::Accept(Milliseconds wait)
{
    if (socket == kNoSocket || !WaitFor(socket, POLLIN, wait))
        return std::nullopt;
    const int accepted = accept4(Raw(socket), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (accepted < 0)
        return std::nullopt;
    return TcpConnection(accepted);
}

void TcpListener::ShrinkBacklog()
{
    (void)listen(Raw(socket), 0);
}

void TcpListener::Close()
{
    if (socket != kNoSocket)
        (void)close(Raw(std::exchange(socket, kNoSocket)));
}

ListenerPair ListenOnPair(const std::string& address, std::uint16_t port)
{
    if (port > 65533)
        throw ListenError(
            "Cannot listen: the command channel is on the port plus 2. Choose a port up to 65533.");
    for (int attempt = 1;; ++attempt) {
        ListenerPair pair;
        pair.data = TcpListener::Listen(address, port);
        try {
            if (pair.data.Port() <= 65533) {
                pair.command = TcpListener::Listen(address, static_cast<std::uint16_t>(pair.data.Port() + 2));
                return pair;
            }
        } catch (const ListenError&) {
            if (port != 0 || attempt == kPairTries)
                throw;
        }
    }
}

std::optional<TcpConnection> ConnectTo(const std::string& address, std::uint16_t port, Milliseconds wait)
{
    const AddressList found = Resolve(address, port);
    if (!found)
        return std::nullopt;
    const SocketHandle socket = NewSocket(*found);
    if (socket == kNoSocket)
        return std::nullopt;
    TcpConnection connection(socket);
    if (connect(Raw(socket), found->ai_addr, found->ai_addrlen) == 0)
        return connection;
    if (errno != EINPROGRESS || !WaitFor(socket, POLLOUT, wait))
        return std::nullopt;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(Raw(socket), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0)
        return std::nullopt;
    return connection;
}

}  // namespace printserver
