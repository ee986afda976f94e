#include <cstring>
#include <mutex>
#include <set>

#include "platform/call_orders.h"
#include "tests/support/failing_new.h"
#include "tests/support/windows/switched_calls.h"

using call_orders::CallFails;

namespace {

struct OrderedAddress {
    ADDRINFOA info;
    SOCKADDR_IN address;
};

std::mutex orderedListsLock;
std::set<const ADDRINFOA*> orderedLists;

ADDRINFOA* MakeList(const std::vector<std::string>& addresses, USHORT port, const ADDRINFOA& hints)
{
    ADDRINFOA* first = nullptr;
    ADDRINFOA** end = &first;
    for (const std::string& text : addresses) {
        auto* entry = new OrderedAddress{};
        entry->address.sin_family = AF_INET;
        entry->address.sin_port = htons(port);
        entry->address.sin_addr.s_addr = inet_addr(text.c_str());
        entry->info = hints;
        entry->info.ai_flags = 0;
        entry->info.ai_addr = reinterpret_cast<SOCKADDR*>(&entry->address);
        entry->info.ai_addrlen = sizeof entry->address;
        *end = &entry->info;
        end = &entry->info.ai_next;
    }
    return first;
}

}  // namespace

int switched_getaddrinfo(const char* node, const char* service, const ADDRINFOA* hints, ADDRINFOA** result)
{
    if (CallFails("getaddrinfo"))
        return WSAGetLastError();
    const UntouchedNew untouched;
    const auto ordered = call_orders::Resolution(node);
    if (!ordered)
        return getaddrinfo(node, service, hints, result);
    *result = MakeList(*ordered, static_cast<USHORT>(std::stoul(service)), *hints);
    const std::lock_guard lock(orderedListsLock);
    orderedLists.insert(*result);
    return 0;
}

void switched_freeaddrinfo(ADDRINFOA* list)
{
    (void)CallFails("freeaddrinfo");
    const UntouchedNew untouched;
    {
        const std::lock_guard lock(orderedListsLock);
        if (orderedLists.erase(list) == 0) {
            freeaddrinfo(list);
            return;
        }
    }
    while (list != nullptr) {
        ADDRINFOA* next = list->ai_next;
        delete reinterpret_cast<OrderedAddress*>(list);
        list = next;
    }
}

int switched_getnameinfo(const SOCKADDR* address, socklen_t length, char* host, DWORD hostSize, char* service,
                         DWORD serviceSize, int flags)
{
    if (CallFails("getnameinfo"))
        return WSAGetLastError();
    return getnameinfo(address, length, host, hostSize, service, serviceSize, flags);
}

HOSTENT* switched_gethostbyname(const char* name)
{
    if (CallFails("gethostbyname"))
        return nullptr;
    const UntouchedNew untouched;
    const auto ordered = call_orders::Resolution(name);
    if (!ordered)
        return gethostbyname(name);
    thread_local std::vector<ULONG> addresses;
    thread_local std::vector<char*> pointers;
    thread_local HOSTENT host;
    addresses.clear();
    pointers.clear();
    for (const std::string& text : *ordered)
        addresses.push_back(inet_addr(text.c_str()));
    for (ULONG& address : addresses)
        pointers.push_back(reinterpret_cast<char*>(&address));
    pointers.push_back(nullptr);
    host = {.h_name = nullptr,
            .h_aliases = nullptr,
            .h_addrtype = AF_INET,
            .h_length = sizeof(ULONG),
            .h_addr_list = pointers.data()};
    return &host;
}

int switched_WSAStartup(WORD version, WSADATA* data)
{
    return CallFails("WSAStartup") ? WSAGetLastError() : WSAStartup(version, data);
}

int switched_WSACleanup()
{
    return CallFails("WSACleanup") ? SOCKET_ERROR : WSACleanup();
}

SOCKET switched_socket(int family, int type, int protocol)
{
    return CallFails("socket") ? INVALID_SOCKET : socket(family, type, protocol);
}

int switched_connect(SOCKET socket, const SOCKADDR* address, int length)
{
    return CallFails("connect") ? SOCKET_ERROR : connect(socket, address, length);
}

int switched_send(SOCKET socket, const char* buffer, int length, int flags)
{
    return CallFails("send") ? SOCKET_ERROR : send(socket, buffer, length, flags);
}

int switched_recv(SOCKET socket, char* buffer, int length, int flags)
{
    return CallFails("recv") ? SOCKET_ERROR : recv(socket, buffer, length, flags);
}

int switched_closesocket(SOCKET socket)
{
    return CallFails("closesocket") ? SOCKET_ERROR : closesocket(socket);
}

int switched_ioctlsocket(SOCKET socket, long request, ULONG* value)
{
    return CallFails("ioctlsocket") ? SOCKET_ERROR : ioctlsocket(socket, request, value);
}
