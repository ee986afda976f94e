// Names: those that the world has given, and 10.0.0.n.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/simulated/network.h"

using simulated::Scheduler;

namespace {

struct Found {
    ADDRINFOA info;
    SOCKADDR_IN address;
};

}  // namespace

int getaddrinfo(const char* node, const char* service, const ADDRINFOA*, ADDRINFOA** result)
{
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Point("getaddrinfo");
    const auto& names = simulated::Network::Current().names;
    const auto known = names.find(node);
    simulated::Name name;
    if (known != names.end())
        name = known->second;
    else if (std::sscanf(node, "10.0.0.%u", &name.address) != 1)
        return WSAHOST_NOT_FOUND;
    if (name.delay > 0)
        (void)scheduler.Wait(nullptr, scheduler.Now() + name.delay);
    if (name.error != 0)
        return name.error;
    const long port = std::strtol(service, nullptr, 10);
    if (port > 0xFFFF)
        return WSATYPE_NOT_FOUND;
    auto* const found = new Found{};
    found->address.sin_family = AF_INET;
    found->address.sin_port = htons(static_cast<USHORT>(port));
    found->address.sin_addr.s_addr = htonl(0x0A000000 + name.address);
    found->info.ai_family = AF_INET;
    found->info.ai_addrlen = sizeof found->address;
    found->info.ai_addr = reinterpret_cast<SOCKADDR*>(&found->address);
    *result = &found->info;
    return 0;
}

void freeaddrinfo(ADDRINFOA* list)
{
    delete reinterpret_cast<Found*>(list);
}

int getnameinfo(const SOCKADDR* address, int, char* host, DWORD hostSize, char* service, DWORD serviceSize,
                int)
{
    SOCKADDR_IN from;
    std::memcpy(&from, address, sizeof from);
    (void)std::snprintf(host, hostSize, "10.0.0.%u", ntohl(from.sin_addr.s_addr) & 0xFF);
    (void)std::snprintf(service, serviceSize, "%u", ntohs(from.sin_port));
    return 0;
}

// Only systems without the three calls above are asked so.
HOSTENT* gethostbyname(const char*)
{
    WSASetLastError(WSAHOST_NOT_FOUND);
    return nullptr;
}
