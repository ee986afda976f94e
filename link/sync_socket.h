#pragma once

#include <atomic>
#include <memory>

#include "diagnostics/locks.h"
#include "platform/platform.h"

// One system socket. Every thread inside a call on it holds a reference, and the last one out closes
// it, so that its number is never given to another connection under somebody's feet.
class COpenSocket {
public:
    COpenSocket() = default;
    ~COpenSocket();
    COpenSocket(const COpenSocket&) = delete;
    COpenSocket& operator=(const COpenSocket&) = delete;

    SOCKET handle = INVALID_SOCKET;  // set once, before the object is shared
    // Set before its users are woken: what they then see is our own disconnect, not the peer's.
    std::atomic<bool> disconnected{false};
    // What is unread is dropped before the close, see DisconnectInOrder.
    std::atomic<bool> endsInOrder{false};
};

// A blocking IPv4 stream socket, with the name and port of its peer held from construction. Nothing in
// it has a time limit: liveness is the keep-alive worker's business, which calls Disconnect from its
// own thread while others are blocked in here. Results tell that something failed; the reason goes to
// the log.
//
// One thread at a time sends and one receives; Disconnect, Abandon and IsConnected may come from any
// thread at any moment.
class CSyncSocket {
public:
    // Starts the use of the socket library. Throws the text "WSAStartup() failed." (const char*) when
    // that fails. A null server name counts as the empty one.
    CSyncSocket(LPCWSTR serverName, DWORD serverPort);
    ~CSyncSocket();
    CSyncSocket(const CSyncSocket&) = delete;
    CSyncSocket& operator=(const CSyncSocket&) = delete;

    // Resolves the server's name and tries its IPv4 addresses in the resolver's order; drops an old
    // connection first. A Disconnect from another thread ends the attempt.
    bool Connect();

    // Ends the connection, if there is one, and every call that is blocked on it. Repeats the wake-up
    // for a thread that a former Disconnect came too early for.
    void Disconnect();

    // The same, for an end in good order: what has come in and wasn't read is dropped first, without waiting,
    // because the system would end the connection by a reset and lose what is still on its way out.
    void DisconnectInOrder();

    // Ends blocked calls like Disconnect, and makes every later Connect fail: the channel's life is
    // over. Writes nothing to the log.
    void Abandon();
    bool IsAbandoned() const { return abandoned; }

    bool IsConnected() const;

    const WideString& ServerName() const { return serverName; }
    DWORD ServerPort() const { return serverPort; }

    // One recv: gives what is there, up to `length` bytes. 0 when the peer has closed, -1 on an error
    // or when the connection was ended here; both close the socket.
    LONG Receive(void* buffer, DWORD length, bool peek);
    // Exactly one byte, or one 16-bit number in network order, out of a single recv.
    bool Receive(char* value);
    bool Receive(short* value);

    // Sends all of the buffer, straight from where it lies. `sent` tells how far it came; a failure
    // closes the socket.
    bool Send(const void* buffer, DWORD length, DWORD* sent);

    // What can be read without waiting, or -1. Never closes the socket.
    LONG BytesAvailable();

    // True when a short send would not block, or would fail at once.
    bool CanSendAtOnce() const;

private:
    enum class Attempt { Connected, TryNext, GiveUp };

    Attempt ConnectTo(const ADDRINFOA& address, unsigned begun, class CFunctionTrace& trace);
    bool Adopt(const std::shared_ptr<COpenSocket>& opened, unsigned begun);
    bool Drop(const std::shared_ptr<COpenSocket>& opened);
    unsigned EndConnection(bool inOrder = false);
    std::shared_ptr<COpenSocket> InUse() const;

    const WideString serverName;
    const DWORD serverPort;
    bool wsaStarted = false;
    std::atomic<bool> abandoned{false};

    mutable CLock handleLock;  // leaf lock, guards the fields below
    std::shared_ptr<COpenSocket> socketHandle;
    std::weak_ptr<COpenSocket> lastDisconnected;
    unsigned disconnections = 0;
};
