#pragma once

// What a test has ordered by test_switches.h of the system's calls, as the definitions of those calls ask for
// it: the POSIX layer's own, and the ones that stand in front of Windows in the test binary. Any thread.

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace call_orders {

// True while some call is ordered to fail or to be counted.
extern std::atomic<bool> callsAreWatched;

bool WatchedCallFails(const char* name);

// Stands first in every call: counts it; true, with the ordered error as last error, when this one is to
// fail. Costs one relaxed load while no test has ordered anything.
inline bool CallFails(const char* name)
{
    return callsAreWatched.load(std::memory_order_relaxed) && WatchedCallFails(name);
}

// The dotted addresses that a test has ordered for a name; nothing when it has ordered none.
std::optional<std::vector<std::string>> Resolution(const char* name);

void Forget();

}  // namespace call_orders
