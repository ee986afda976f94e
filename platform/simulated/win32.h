#pragma once

// The same declarations as on Linux, over a world of our own: time, threads, network and files are simulated.
// One thread runs at a time, and each call is a point where another may go on; see scheduler.h.

#include "platform/posix/win32_types.h"

#include "platform/posix/win32_kernel.h"
#include "platform/posix/win32_security.h"
#include "platform/posix/win32_sockets.h"
#include "platform/posix/win32_spooler.h"
