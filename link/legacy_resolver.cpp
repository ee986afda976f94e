#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "link/resolver.h"

namespace {

// One block per address: the entry and the address that it points to.
struct LegacyEntry {
    ADDRINFOA info;
    SOCKADDR_IN address;
};

ADDRINFOA* NewEntry(const ADDRINFOA& hints, const void* address, USHORT port)
{
    auto* entry = new (std::nothrow) LegacyEntry();
    if (!entry)
        return nullptr;
    entry->address.sin_family = AF_INET;
    entry->address.sin_port = ::htons(port);
    std::memcpy(&entry->address.sin_addr, address, sizeof entry->address.sin_addr);
    entry->info.ai_family = AF_INET;
    entry->info.ai_socktype = hints.ai_socktype;
    entry->info.ai_protocol = hints.ai_protocol;
    entry->info.ai_addrlen = sizeof entry->address;
    entry->info.ai_addr = reinterpret_cast<SOCKADDR*>(&entry->address);
    return &entry->info;
}

}  // namespace

int LegacyGetAddrInfo(const char* node, const char* service, const ADDRINFOA* hints, ADDRINFOA** result)
{
    *result = nullptr;
    const unsigned long port = std::strtoul(service, nullptr, 10);
    if (port > 0xFFFF)
        return WSATYPE_NOT_FOUND;
    const HOSTENT* host = ::gethostbyname(node);
    if (!host)
        return WSAGetLastError();
    ADDRINFOA** end = result;
    for (char** address = host->h_addr_list; *address; ++address) {
        *end = NewEntry(*hints, *address, static_cast<USHORT>(port));
        if (!*end) {
            LegacyFreeAddrInfo(*result);
            *result = nullptr;
            return WSAENOBUFS;
        }
        end = &(*end)->ai_next;
    }
    return 0;
}

int LegacyGetNameInfo(const SOCKADDR* address, int length, char* host, DWORD hostSize, char* service,
                      DWORD serviceSize, int)
{
    if (length < static_cast<int>(sizeof(SOCKADDR_IN)))
        return WSAEFAULT;
    SOCKADDR_IN ip;
    std::memcpy(&ip, address, sizeof ip);
    const ULONG value = ::ntohl(ip.sin_addr.s_addr);
    (void)std::snprintf(host, hostSize, "%u.%u.%u.%u", static_cast<unsigned>(value >> 24),
                        static_cast<unsigned>((value >> 16) & 0xFF),
                        static_cast<unsigned>((value >> 8) & 0xFF), static_cast<unsigned>(value & 0xFF));
    (void)std::snprintf(service, serviceSize, "%u", static_cast<unsigned>(::ntohs(ip.sin_port)));
    return 0;
}

void LegacyFreeAddrInfo(ADDRINFOA* list)
{
    while (list) {
        ADDRINFOA* next = list->ai_next;
        delete reinterpret_cast<LegacyEntry*>(list);
        list = next;
    }
}
