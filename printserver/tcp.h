#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

// All that the simulator knows of sockets. No call here blocks longer than the wait it is given, so a thread
// that looks at a flag between two calls ends promptly without anybody closing a socket under it.
namespace printserver {

using Milliseconds = std::chrono::milliseconds;
using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

enum class ReadState {
    Bytes,    // count bytes arrived
    Nothing,  // the wait ran out
    End,      // the peer closed in an orderly way
    Broken,   // the peer reset the connection, or the network did
    Closed    // this side has closed
};

struct ReadResult {
    ReadState state;
    std::size_t count = 0;
};

// One connected socket. Reading belongs to one thread; the owner keeps writing and closing apart by a lock.
class TcpConnection {
public:
    TcpConnection() = default;
    explicit TcpConnection(SocketHandle connected);
    TcpConnection(TcpConnection&& other) noexcept : socket(std::exchange(other.socket, kNoSocket)) {}
    TcpConnection& operator=(TcpConnection&& other) noexcept;
    ~TcpConnection() { HangUp(); }

    bool IsOpen() const { return socket != kNoSocket; }
    ReadResult Read(std::span<std::uint8_t> buffer, Milliseconds wait);

    // The count of bytes that went out, 0 when the wait ran out first, nothing when the connection is gone.
    std::optional<std::size_t> Write(std::span<const std::uint8_t> bytes, Milliseconds wait);

    // The system holds few bytes that nobody has read yet, so that a slow reader slows the sender down.
    void TakeLittle();

    // Orderly: the peer reads what was sent, then the end. What the peer had sent is thrown away.
    void HangUp();
    // The peer's next call on its socket fails.
    void Reset();

private:
    SocketHandle socket = kNoSocket;
};

// The text is one sentence for the person at the terminal, with what to do about it.
class ListenError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class TcpListener {
public:
    TcpListener() = default;
    TcpListener(TcpListener&& other) noexcept;
    TcpListener& operator=(TcpListener&& other) noexcept;
    ~TcpListener() { Close(); }

    // Port 0 lets the system choose. Throws ListenError.
    static TcpListener Listen(const std::string& address, std::uint16_t port);

    std::uint16_t Port() const { return port; }
    std::optional<TcpConnection> Accept(Milliseconds wait);

    // Shrinks the backlog to one for somebody who fills it and never accepts: further connects then hang.
    void ShrinkBacklog();
    void Close();

private:
    SocketHandle socket = kNoSocket;
    std::uint16_t port = 0;
};

struct ListenerPair {
    TcpListener data;
    TcpListener command;  // on the data port plus 2
};

// With port 0 it looks for a free pair. Throws ListenError.
ListenerPair ListenOnPair(const std::string& address, std::uint16_t port);

enum class NoConnection { UnknownName, Refused, Silence };

// To the name's first IPv4 address. Nothing when the connection was refused or not established within the
// wait; `why` tells which.
std::optional<TcpConnection> ConnectTo(const std::string& address, std::uint16_t port, Milliseconds wait,
                                       NoConnection* why = nullptr);

}  // namespace printserver
