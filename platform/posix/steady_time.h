#pragma once

// The steady clock behind Sleep, the waits and the tick count, with the scale that tests may put on it.

#include <chrono>

#include "platform/posix/win32_types.h"

namespace posix_layer {

using RealTime = std::chrono::steady_clock::time_point;

// The real moment at which a wait of this many milliseconds that begins now is over. Not for INFINITE.
RealTime DeadlineAfter(DWORD milliseconds);

// What the test switches ask for; see test_switches.h.
void SetTimeScale(double scale);
void SetTickCount(DWORD tick);
void ResetTime();

}  // namespace posix_layer
