#include "printserver/tcp.h"

#include <array>
#include <memory>

#include "printserver/system_sockets.h"

namespace printserver {
namespace {

using system_sockets::Native;
using system_sockets::Until;

constexpr int kBacklog = 128;
constexpr int kPairTries = 200;

void PrepareConnected(SocketHandle socket)
{
    const int on = 1;
    // Single bytes and half frames have to leave as they are written.
    (void)system_sockets::SetOption(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList Resolve(const std::string& address, std::uint16_t port, int family = AF_UNSPEC)
{
    system_sockets::Start();
    addrinfo hints{};
    hints.ai_family = family;
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
    if (getsockname(Native(socket), reinterpret_cast<sockaddr*>(&name), &size) != 0)
        return 0;
    // The port stands at the same place in both families' addresses.
    return ntohs(reinterpret_cast<const sockaddr_in*>(&name)->sin_port);
}

std::string WhyNot(const std::string& address, std::uint16_t port, int error)
{
    const std::string where = "port " + std::to_string(port) + " on " + address;
    if (system_sockets::IsAddressInUse(error))
        return "Cannot listen: " + where +
               " is in use. Stop the program that has it, or choose another port; the port and the port plus "
               "2 "
               "must both be free.";
    if (system_sockets::NeedsRights(error))
        return "Cannot listen: " + where + " needs special rights. Choose a port from 1024 to 65533.";
    return "Cannot listen: " + where + ": " + system_sockets::ErrorText(error) +
           ". Choose an address of this machine.";
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
        const std::int64_t count = system_sockets::Receive(socket, buffer);
        if (count > 0)
            return {ReadState::Bytes, static_cast<std::size_t>(count)};
        if (count == 0)
            return {ReadState::End};
        if (!system_sockets::WouldBlock())
            return {ReadState::Broken};
        if (attempt > 0 || !system_sockets::WaitFor(socket, Until::Readable, wait))
            return {ReadState::Nothing};
    }
    return {ReadState::Closed};
}

std::optional<std::size_t> TcpConnection::Write(std::span<const std::uint8_t> bytes, Milliseconds wait)
{
    for (int attempt = 0; IsOpen(); ++attempt) {
        const std::int64_t count = system_sockets::Send(socket, bytes);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (!system_sockets::WouldBlock())
            return std::nullopt;
        if (attempt > 0 || !system_sockets::WaitFor(socket, Until::Writable, wait))
            return 0;
    }
    return std::nullopt;
}

void TcpConnection::TakeLittle()
{
    const int bytes = 16 * 1024;
    (void)system_sockets::SetOption(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

void TcpConnection::HangUp()
{
    if (!IsOpen())
        return;
    // A close with unread bytes would reset the connection, so the end goes out first and the bytes are
    // taken.
    system_sockets::EndSending(socket);
    std::array<std::uint8_t, 4096> ignored;
    for (int round = 0; round < 1024 && system_sockets::Receive(socket, ignored) > 0; ++round) {
    }
    system_sockets::Close(std::exchange(socket, kNoSocket));
}

void TcpConnection::Reset()
{
    if (!IsOpen())
        return;
    const linger atOnce{1, 0};
    (void)system_sockets::SetOption(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    system_sockets::Close(std::exchange(socket, kNoSocket));
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
    listener.socket = system_sockets::New(*found);
    if (listener.socket == kNoSocket || !system_sockets::ReserveListenAddress(listener.socket) ||
        bind(Native(listener.socket), found->ai_addr, static_cast<socklen_t>(found->ai_addrlen)) != 0 ||
        listen(Native(listener.socket), kBacklog) != 0) {
        throw ListenError(WhyNot(address, port, system_sockets::LastError()));
    }
    listener.port = BoundPort(listener.socket);
    return listener;
}

std::optional<TcpConnection> TcpListener::Accept(Milliseconds wait)
{
    if (socket == kNoSocket || !system_sockets::WaitFor(socket, Until::Readable, wait))
        return std::nullopt;
    const SocketHandle accepted = system_sockets::Accept(socket);
    if (accepted == kNoSocket)
        return std::nullopt;
    return TcpConnection(accepted);
}

void TcpListener::ShrinkBacklog()
{
    (void)listen(Native(socket), 0);
}

void TcpListener::Close()
{
    if (socket != kNoSocket)
        system_sockets::Close(std::exchange(socket, kNoSocket));
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

namespace {

// Gives the socket's error once it is settled; nothing when it isn't within the wait.
std::optional<int> AwaitConnect(SocketHandle socket, Milliseconds wait)
{
    if (!system_sockets::WaitFor(socket, Until::Writable, wait))
        return std::nullopt;
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) != 0)
        return -1;
    return error;
}

}  // namespace

std::optional<TcpConnection> ConnectTo(const std::string& address, std::uint16_t port, Milliseconds wait,
                                       NoConnection* why)
{
    const auto fail = [why](NoConnection reason) {
        if (why != nullptr)
            *why = reason;
        return std::nullopt;
    };
    const AddressList found = Resolve(address, port, AF_INET);
    if (!found)
        return fail(NoConnection::UnknownName);
    const SocketHandle socket = system_sockets::New(*found);
    if (socket == kNoSocket)
        return fail(NoConnection::Refused);
    TcpConnection connection(socket);
    if (connect(Native(socket), found->ai_addr, static_cast<socklen_t>(found->ai_addrlen)) == 0)
        return connection;
    if (!system_sockets::WouldBlock())
        return fail(NoConnection::Refused);
    const std::optional<int> error = AwaitConnect(socket, wait);
    if (error == 0)
        return connection;
    return fail(error ? NoConnection::Refused : NoConnection::Silence);
}

}  // namespace printserver
