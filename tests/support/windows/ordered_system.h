#pragma once

// What a test has ordered of the system by test_switches.h and real_calls.h, calls that fail apart: the
// definitions of the switched calls ask for it.

#include <optional>

#include "platform/platform.h"

namespace ordered_system {

struct Version {
    DWORD major;
    DWORD minor;
};
std::optional<Version> ReportedVersion();

// Real milliseconds for a wait of that many; INFINITE stays.
DWORD RealWait(DWORD milliseconds);
DWORD TickCount();

// What SetTempFolder of real_calls.h holds; empty for the system's own.
const WideString& TempFolder();

}  // namespace ordered_system
