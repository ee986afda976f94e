#pragma once

// What a test has ordered by test_switches, as the definitions of the switched calls ask for it.

#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace call_orders {

// Stands first in every switched call: counts it; true, with the ordered error as last error, when this one
// is to fail.
bool CallFails(const char* name);

struct Version {
    DWORD major;
    DWORD minor;
};
std::optional<Version> ReportedVersion();

// Real milliseconds for a wait of that many; INFINITE stays.
DWORD RealWait(DWORD milliseconds);
DWORD TickCount();

std::optional<std::vector<std::string>> Resolution(const char* name);

// What SetTempFolder of real_calls.h holds; empty for the system's own.
const WideString& TempFolder();

}  // namespace call_orders
