#pragma once

// The subset of the Win32 interface that the monitor, the embedded spooler and the tools call,
// with the names, values and 64-bit layouts of the platform. Calls have C linkage, except for those
// whose names the C library has too (sockets): those have C++ linkage, so that the linker can never
// take one for the other. Errors are left in the calling thread's last-error word; GetLastError and
// WSAGetLastError read the same word.

#include "win32_types.h"

#include "win32_kernel.h"
#include "win32_security.h"
#include "win32_sockets.h"
#include "win32_spooler.h"

#include "win32_inline.h"
