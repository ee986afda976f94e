#pragma once

// The first look of every call at what a test has ordered by test_switches.h. Any thread.

#include <atomic>

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

}  // namespace call_orders
