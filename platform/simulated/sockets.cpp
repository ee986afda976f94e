// Windows Sockets over the network in memory.

#include <bit>
#include <cstring>
#include <map>

#include "platform/simulated/network.h"

using simulated::Endpoint;
using simulated::Network;
using simulated::Scheduler;
using Use = simulated::Network::Use;

namespace {

std::map<SOCKET, Endpoint*> table;
int startups = 0;

int Fail(int error)
{
    WSASetLastError(error);
    return SOCKET_ERROR;
}

// The socket's side of its connection; null, with the last error set, when there is none.
Endpoint* Find(SOCKET socket, const char* call)
{
    Scheduler::Current().Point(call);
    const auto found = table.find(socket);
    if (found != table.end())
        return found->second;
    WSASetLastError(WSAENOTSOCK);
    return nullptr;
}

}  // namespace

namespace simulated {

std::size_t OpenSockets()
{
    return table.size();
}

int SocketStartups()
{
    return startups;
}

void ForgetSockets()
{
    table.clear();
    startups = 0;
}

}  // namespace simulated

int WSAStartup(WORD version, WSADATA* data)
{
    Scheduler::Current().Point("WSAStartup");
    *data = {};
    data->wVersion = version;
    ++startups;
    return 0;
}

int WSACleanup()
{
    if (startups == 0)
        return Fail(WSANOTINITIALISED);
    --startups;
    return 0;
}

int WSAGetLastError()
{
    return static_cast<int>(GetLastError());
}

void WSASetLastError(int error)
{
    SetLastError(static_cast<DWORD>(error));
}

// The lowest number that is free, as systems do: one that is used too long meets somebody else's connection.
SOCKET socket(int, int, int)
{
    Scheduler::Current().Point("socket");
    SOCKET number = 4;
    while (table.contains(number))
        number += 4;
    table[number] = &Network::Current().NewEndpoint();
    return number;
}

int connect(SOCKET socket, const SOCKADDR* address, int)
{
    Endpoint* const used = Find(socket, "connect");
    if (!used)
        return SOCKET_ERROR;
    SOCKADDR_IN target;
    std::memcpy(&target, address, sizeof target);
    Network& network = Network::Current();
    network.onUse(*used, Use::Connect);
    const int error = network.Connect(*used, ntohl(target.sin_addr.s_addr) & 0xFF, ntohs(target.sin_port));
    return error == 0 ? 0 : Fail(error);
}

int send(SOCKET socket, const char* buffer, int length, int)
{
    Endpoint* const used = Find(socket, "send");
    if (!used)
        return SOCKET_ERROR;
    Network::Current().onUse(*used, Use::Send);
    const int sent = used->Send(buffer, static_cast<std::size_t>(length));
    Scheduler::Current().Point("send");
    return sent >= 0 ? sent : Fail(used->Error());
}

int recv(SOCKET socket, char* buffer, int length, int flags)
{
    Endpoint* const used = Find(socket, "recv");
    if (!used)
        return SOCKET_ERROR;
    Network::Current().onUse(*used, Use::Receive);
    const int received = used->Receive(buffer, static_cast<std::size_t>(length), flags == MSG_PEEK);
    Scheduler::Current().Point("recv");
    if (received == 0)
        SetLastError(ERROR_SUCCESS);
    return received >= 0 ? received : Fail(used->Error());
}

int shutdown(SOCKET socket, int)
{
    Endpoint* const used = Find(socket, "shutdown");
    if (!used)
        return SOCKET_ERROR;
    used->ShutDown();
    return 0;
}

int closesocket(SOCKET socket)
{
    Endpoint* const used = Find(socket, "closesocket");
    if (!used)
        return SOCKET_ERROR;
    Network::Current().onUse(*used, Use::Close);
    used->Close();
    table.erase(socket);
    return 0;
}

int ioctlsocket(SOCKET socket, long, ULONG* value)
{
    Endpoint* const used = Find(socket, "ioctlsocket");
    if (!used)
        return SOCKET_ERROR;
    *value = static_cast<ULONG>(used->Unread());
    return 0;
}

void WakeBlockedCalls(SOCKET socket)
{
    const DWORD lastError = GetLastError();
    if (Endpoint* const used = Find(socket, "WakeBlockedCalls")) {
        Network::Current().onUse(*used, Use::Wake);
        used->ShutDown();
    }
    SetLastError(lastError);
}

bool IsWritable(SOCKET socket)
{
    Endpoint* const used = Find(socket, "IsWritable");
    return used && used->SendWouldNotBlock();
}

USHORT htons(USHORT value)
{
    return static_cast<USHORT>(__builtin_bswap16(value));
}

USHORT ntohs(USHORT value)
{
    return htons(value);
}

ULONG htonl(ULONG value)
{
    return __builtin_bswap32(value);
}

ULONG ntohl(ULONG value)
{
    return htonl(value);
}
