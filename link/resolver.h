#pragma once

#include "platform/platform.h"

// The three name-resolution calls of the socket library, looked up at their first use, once for the
// process. A library without them is served by gethostbyname instead (IPv4 only), and callers see no
// difference: results are 0 or a Windows Sockets number.
struct CResolver {
    using GetAddrInfo = decltype(&::getaddrinfo);
    using GetNameInfo = decltype(&::getnameinfo);
    using FreeAddrInfo = decltype(&::freeaddrinfo);

    GetAddrInfo getAddrInfo;
    GetNameInfo getNameInfo;
    FreeAddrInfo freeAddrInfo;

    // The calls to use. Any thread.
    static CResolver Bound();
    // A fresh look-up: the library's three calls, or the substitutes when one of them is missing.
    static CResolver LookUp();
};

// The substitutes. Numeric services only, which is all that the monitor asks for.
int LegacyGetAddrInfo(const char* node, const char* service, const ADDRINFOA* hints, ADDRINFOA** result);
int LegacyGetNameInfo(const SOCKADDR* address, int length, char* host, DWORD hostSize, char* service,
                      DWORD serviceSize, int flags);
void LegacyFreeAddrInfo(ADDRINFOA* list);
