#pragma once

// How a call of the layer meets the switches of test_switches.h, and how it keeps exceptions to itself.

#include <atomic>
#include <exception>

#include "platform/posix/win32_kernel.h"

namespace posix_layer {

// True while some call is ordered to fail or to be counted.
extern std::atomic<bool> callsAreWatched;

// Counts the call.
void CountWatchedCall(const char* name);

// The same; true, with the ordered error as last error, when this one is to fail.
bool WatchedCallFails(const char* name);

// Stands first in every call. Costs one relaxed load while no test has ordered anything.
inline bool CallFails(const char* name)
{
    return callsAreWatched.load(std::memory_order_relaxed) && WatchedCallFails(name);
}

// For the calls that can't fail: they are only counted.
inline void CountCall(const char* name)
{
    if (callsAreWatched.load(std::memory_order_relaxed))
        CountWatchedCall(name);
}

// The frame of a call that allocates: `body` runs unless the call is ordered to fail, and running out
// of memory in it is ERROR_NOT_ENOUGH_MEMORY with `failure` as the result.
template <class Result, class Body>
Result GuardedCall(const char* name, Result failure, Body body)
{
    if (CallFails(name))
        return failure;
    try {
        return body();
    } catch (const std::exception&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return failure;
    }
}

}  // namespace posix_layer
