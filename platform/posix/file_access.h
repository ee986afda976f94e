#pragma once

#include <sys/types.h>

#include "platform/posix/win32_security.h"

namespace posix_layer {

// The mode bits of a new file: its owner reads and writes; others may do what the descriptor's access
// list grants to Everyone. A null list grants all to all, as on the platform; no descriptor, nothing.
mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes);

}  // namespace posix_layer
