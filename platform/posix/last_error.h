#pragma once

#include "platform/posix/win32_types.h"

namespace posix_layer {

// The platform's error word for a C library errno, for everything but sockets.
DWORD ErrorFromErrno(int code);

// Sets the last error from errno.
void SetLastErrorFromErrno();

}  // namespace posix_layer
