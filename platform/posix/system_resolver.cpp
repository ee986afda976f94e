#include "platform/posix/system_resolver.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/posix/system_sockets.h"
#include "platform/posix/win32_socket_errors.h"

namespace {

int WsaErrorOf(int result)
{
    switch (result) {
        case 0:
            return 0;
        case EAI_AGAIN:
            return WSATRY_AGAIN;
        case EAI_FAIL:
            return WSANO_RECOVERY;
        case EAI_MEMORY:
            return WSA_NOT_ENOUGH_MEMORY;
        case EAI_FAMILY:
            return WSAEAFNOSUPPORT;
        case EAI_OVERFLOW:
            return WSAEFAULT;
        case EAI_SYSTEM:
            return system_sockets::WsaError(errno);
        default:
            return WSAHOST_NOT_FOUND;
    }
}

}  // namespace

namespace system_resolver {

int FindAddresses(const char* name, std::vector<ULONG>* addresses)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (const int result = getaddrinfo(name, nullptr, &hints, &list); result != 0)
        return WsaErrorOf(result);
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        sockaddr_in address{};
        std::memcpy(&address, entry->ai_addr, sizeof address);
        addresses->push_back(address.sin_addr.s_addr);
    }
    return 0;
}

int FindNames(const sockaddr* address, int length, char* host, DWORD hostSize, char* service,
              DWORD serviceSize, bool numericHost, bool numericService)
{
    const int flags = (numericHost ? NI_NUMERICHOST : 0) | (numericService ? NI_NUMERICSERV : 0);
    return WsaErrorOf(
        getnameinfo(address, static_cast<socklen_t>(length), host, hostSize, service, serviceSize, flags));
}

}  // namespace system_resolver
