#pragma once

// The C library's name look-ups, behind names of our own, as in system_sockets.h. Results are 0 or a
// Windows Sockets number.

#include <vector>

#include "platform/posix/win32_types.h"

struct sockaddr;

namespace system_resolver {

// The IPv4 addresses of a name, in network order, in the order of preference. May ask the network, and
// then takes its time. Throws std::bad_alloc.
int FindAddresses(const char* name, std::vector<ULONG>* addresses);

// Name and service of an address; either buffer may be null.
int FindNames(const sockaddr* address, int length, char* host, DWORD hostSize, char* service,
              DWORD serviceSize, bool numericHost, bool numericService);

}  // namespace system_resolver
