#pragma once

// What a test has ordered by test_switches.h of the system's calls, as the definitions of those calls ask for
// it: the POSIX layer's own, and the ones that stand in front of Windows in the test binary. Any thread.

#include <optional>
#include <string>
#include <vector>

#include "platform/call_watch.h"

namespace call_orders {

// The dotted addresses that a test has ordered for a name; nothing when it has ordered none.
std::optional<std::vector<std::string>> Resolution(const char* name);

void Forget();

}  // namespace call_orders
