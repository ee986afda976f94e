#pragma once

// Where the systems' sockets differ, under one set of names. Sockets made here are non-blocking and are not
// inherited by child processes. Each system has its own source file.

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

#include <cstdint>
#include <span>
#include <string>

#include "printserver/tcp.h"

namespace printserver::system_sockets {

// The system's own type, for the calls that are the same everywhere.
#ifdef _WIN32
inline SOCKET Native(SocketHandle socket)
{
    return static_cast<SOCKET>(socket);
}
#else
inline int Native(SocketHandle socket)
{
    return static_cast<int>(socket);
}
#endif

// Comes before every other call.
void Start();

// kNoSocket when the system refuses.
SocketHandle New(const addrinfo& address);
SocketHandle Accept(SocketHandle listener);
void Close(SocketHandle socket);

// A port whose last connections still linger can be listened on again at once, one with a listener can't.
bool ReserveListenAddress(SocketHandle socket);
bool SetOption(SocketHandle socket, int level, int name, const void* value, std::size_t size);

// The number of bytes, 0 at the peer's end (Receive only), or -1.
std::int64_t Receive(SocketHandle socket, std::span<std::uint8_t> buffer);
std::int64_t Send(SocketHandle socket, std::span<const std::uint8_t> bytes);
// Ends the sending direction.
void EndSending(SocketHandle socket);

enum class Until { Readable, Writable };
// Writable is also a connect that has come to its end, well or badly. False when the wait ran out.
bool WaitFor(SocketHandle socket, Until state, Milliseconds wait);

// What the failed call before it came to.
int LastError();
bool WouldBlock();  // a connect: is under way
bool IsAddressInUse(int error);
bool NeedsRights(int error);
std::string ErrorText(int error);

}  // namespace printserver::system_sockets
