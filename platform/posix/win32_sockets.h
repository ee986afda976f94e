#pragma once

// Windows Sockets 2: the blocking stream-socket calls. A failed call leaves the Windows Sockets
// number (10054, 10061, 11001 ...) in the thread's last-error word, so that a log reads the same on
// both builds. send never raises SIGPIPE.

#include "win32_socket_errors.h"
#include "win32_types.h"

using SOCKET = std::uint64_t;
constexpr SOCKET INVALID_SOCKET = ~SOCKET{0};
constexpr int SOCKET_ERROR = -1;

struct sockaddr;
using SOCKADDR = sockaddr;

struct ADDRINFOA {
    int ai_flags;
    int ai_family;
    int ai_socktype;
    int ai_protocol;
    std::size_t ai_addrlen;
    char* ai_canonname;
    SOCKADDR* ai_addr;
    ADDRINFOA* ai_next;
};

struct HOSTENT {
    char* h_name;
    char** h_aliases;
    short h_addrtype;
    short h_length;
    char** h_addr_list;
};

struct IN_ADDR {
    ULONG s_addr;  // network order
};
struct SOCKADDR_IN {
    short sin_family;
    USHORT sin_port;  // network order
    IN_ADDR sin_addr;
    char sin_zero[8];
};

struct WSADATA {
    WORD wVersion;
    WORD wHighVersion;
    char szDescription[257];
    char szSystemStatus[129];
};

// Macros as in the C library's headers, with the platform's values. A file that talks to the C library's
// own sockets doesn't include this header: the two declare `socket` and its sisters differently.
#define AF_INET 2
#define SOCK_STREAM 1
#define IPPROTO_TCP 6
#define MSG_PEEK 2
#define SD_RECEIVE 0
#define SD_SEND 1
#define SD_BOTH 2
#define FIONREAD 0x4004667FL
#define NI_MAXHOST 1025
#define NI_MAXSERV 32
#define NI_NUMERICHOST 2
#define NI_NUMERICSERV 8

// Counted per process; socket calls without a startup fail with WSANOTINITIALISED.
int WSAStartup(WORD version, WSADATA* data);
int WSACleanup();
int WSAGetLastError();
void WSASetLastError(int error);

// AF_INET, SOCK_STREAM and protocol 0 or IPPROTO_TCP only. Not inherited by child processes.
SOCKET socket(int family, int type, int protocol);
// Blocks until the connection stands or the system gives up; see also WakeBlockedCalls.
int connect(SOCKET socket, const SOCKADDR* address, int length);
// Flags 0. Blocks until all is taken, unless the connection breaks on the way.
int send(SOCKET socket, const char* buffer, int length, int flags);
// Flags 0 or MSG_PEEK. 0 when the peer has closed in order; the last error is then 0 too.
int recv(SOCKET socket, char* buffer, int length, int flags);
int shutdown(SOCKET socket, int how);
// Wakes nobody; see WakeBlockedCalls.
int closesocket(SOCKET socket);
// FIONREAD only.
int ioctlsocket(SOCKET socket, long request, ULONG* value);

// Results are 0 or a Windows Sockets number. IPv4 only. Services are numbers; one beyond 16 bits wraps,
// as on the platform.
int getaddrinfo(const char* node, const char* service, const ADDRINFOA* hints, ADDRINFOA** result);
void freeaddrinfo(ADDRINFOA* list);
// Flags: NI_NUMERICHOST and NI_NUMERICSERV.
int getnameinfo(const SOCKADDR* address, int length, char* host, DWORD hostSize, char* service,
                DWORD serviceSize, int flags);
// IPv4 addresses of a name, valid until the thread's next call; null with the last error set.
HOSTENT* gethostbyname(const char* name);

USHORT htons(USHORT value);
USHORT ntohs(USHORT value);
ULONG htonl(ULONG value);
ULONG ntohl(ULONG value);
