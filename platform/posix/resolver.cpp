#include <cstring>
#include <string_view>

#include "platform/call_orders.h"
#include "platform/platform.h"
#include "platform/posix/call_switch.h"
#include "platform/posix/socket_startup.h"
#include "platform/posix/system_resolver.h"

namespace {

// An entry of a list and the address that it points to, in one piece.
struct Entry {
    ADDRINFOA info;
    SOCKADDR_IN address;
};

// A host name has labels of 1 to 63 characters and at most 253 in all; a dot may end it. What is no
// name is said to be unknown without asking the network for it.
bool IsWellFormed(std::string_view name)
{
    if (name.ends_with('.'))
        name.remove_suffix(1);
    if (name.empty() || name.size() > 253)
        return false;
    for (;;) {
        const std::size_t length = std::min(name.find('.'), name.size());
        if (length == 0 || length > 63)
            return false;
        if (length == name.size())
            return true;
        name.remove_prefix(length + 1);
    }
}

int FindAddresses(const char* name, std::vector<ULONG>* addresses)
{
    if (const auto ordered = call_orders::Resolution(name)) {
        for (const std::string& dotted : *ordered) {
            if (const int error = system_resolver::FindAddresses(dotted.c_str(), addresses); error != 0)
                return error;
        }
        return 0;
    }
    return IsWellFormed(name) ? system_resolver::FindAddresses(name, addresses) : WSAHOST_NOT_FOUND;
}

// The port that a decimal text names, 0 for none. False for other texts and for what is no port number: cut
// to 16 bits it would be somebody else's.
bool ReadPort(const char* service, USHORT* port)
{
    unsigned value = 0;
    for (const char* digit = service; digit != nullptr && *digit != 0; ++digit) {
        if (*digit < '0' || *digit > '9')
            return false;
        value = value * 10 + static_cast<unsigned>(*digit - '0');
        if (value > 0xFFFF)
            return false;
    }
    *port = static_cast<USHORT>(value);
    return true;
}

ADDRINFOA* NewEntry(ULONG address, USHORT port, const ADDRINFOA& hints)
{
    auto* entry = new Entry{};
    entry->address.sin_family = AF_INET;
    entry->address.sin_port = htons(port);
    entry->address.sin_addr.s_addr = address;
    entry->info.ai_family = AF_INET;
    entry->info.ai_socktype = hints.ai_socktype;
    entry->info.ai_protocol = hints.ai_protocol;
    entry->info.ai_addrlen = sizeof entry->address;
    entry->info.ai_addr = reinterpret_cast<SOCKADDR*>(&entry->address);
    return &entry->info;
}

// The list may have begun when memory runs out.
int Resolve(const char* node, const char* service, const ADDRINFOA& hints, ADDRINFOA** result)
{
    USHORT port = 0;
    if (!ReadPort(service, &port))
        return WSATYPE_NOT_FOUND;
    if (hints.ai_family != AF_INET && hints.ai_family != 0)
        return WSAEAFNOSUPPORT;
    std::vector<ULONG> addresses;
    if (const int error = FindAddresses(node, &addresses); error != 0)
        return error;
    for (auto address = addresses.rbegin(); address != addresses.rend(); ++address) {
        ADDRINFOA* entry = NewEntry(*address, port, hints);
        entry->ai_next = *result;
        *result = entry;
    }
    return 0;
}

}  // namespace

int getaddrinfo(const char* node, const char* service, const ADDRINFOA* hints, ADDRINFOA** result)
{
    *result = nullptr;
    const int resolved = posix_layer::GuardedCall("getaddrinfo", -1, [&] {
        if (!posix_layer::SocketsAreStarted())
            return WSANOTINITIALISED;
        if (node == nullptr)
            return WSAHOST_NOT_FOUND;
        return Resolve(node, service, hints != nullptr ? *hints : ADDRINFOA{}, result);
    });
    if (resolved >= 0)
        return resolved;
    const int error = WSAGetLastError();
    if (*result != nullptr)
        freeaddrinfo(*result);
    *result = nullptr;
    return error;
}

void freeaddrinfo(ADDRINFOA* list)
{
    posix_layer::CountCall("freeaddrinfo");
    while (list != nullptr) {
        const auto* entry = reinterpret_cast<Entry*>(list);
        list = list->ai_next;
        delete entry;
    }
}

int getnameinfo(const SOCKADDR* address, int length, char* host, DWORD hostSize, char* service,
                DWORD serviceSize, int flags)
{
    if (posix_layer::CallFails("getnameinfo"))
        return WSAGetLastError();
    if (!posix_layer::SocketsAreStarted())
        return WSANOTINITIALISED;
    if ((flags & ~(NI_NUMERICHOST | NI_NUMERICSERV)) != 0)
        return WSAEINVAL;
    return system_resolver::FindNames(address, length, host, hostSize, service, serviceSize,
                                      (flags & NI_NUMERICHOST) != 0, (flags & NI_NUMERICSERV) != 0);
}

HOSTENT* gethostbyname(const char* name)
{
    return posix_layer::GuardedCall("gethostbyname", static_cast<HOSTENT*>(nullptr), [&]() -> HOSTENT* {
        struct Answer {
            HOSTENT entry;
            std::string name;
            std::vector<ULONG> addresses;
            std::vector<char*> pointers;
            char* noAliases;
        };
        static thread_local Answer answer{};
        answer.addresses.clear();
        const int error = !posix_layer::SocketsAreStarted() ? WSANOTINITIALISED
                          : name == nullptr                 ? WSAHOST_NOT_FOUND
                                                            : FindAddresses(name, &answer.addresses);
        if (error != 0) {
            WSASetLastError(error);
            return nullptr;
        }
        answer.name = name;
        answer.pointers.clear();
        for (ULONG& address : answer.addresses)
            answer.pointers.push_back(reinterpret_cast<char*>(&address));
        answer.pointers.push_back(nullptr);
        answer.entry = {.h_name = answer.name.data(),
                        .h_aliases = &answer.noAliases,
                        .h_addrtype = AF_INET,
                        .h_length = sizeof(ULONG),
                        .h_addr_list = answer.pointers.data()};
        return &answer.entry;
    });
}
