#pragma once

// How a call of the layer meets the switches of test_switches.h, and how it keeps exceptions to itself.

#include <exception>

#include "platform/call_watch.h"
#include "platform/posix/win32_inline.h"

namespace posix_layer {

using call_orders::CallFails;

// For the calls that can't fail: they are only counted.
inline void CountCall(const char* name)
{
    (void)CallFails(name);
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
