#pragma once

#include "platform/posix/win32_types.h"

namespace posix_layer {

// What the test switches ask for; see test_switches.h.
void SetReportedVersion(DWORD major, DWORD minor);
void ResetReportedVersion();

}  // namespace posix_layer
