#pragma once

// For a host of monitors that has to hear what they say. Monitors never see this header.

#include <functional>

#include "platform/platform.h"

// From here on `listener` is called with each text of OutputDebugStringA, which then goes nowhere else; an
// empty one ends that, and when the call returns none is inside the old one any more. It is called on the
// thread that writes the text, by several at a time, which may hold locks of the monitor: it must not call
// the monitor, nor this function. Process-wide.
void SetDebugOutputListener(std::function<void(LPCSTR text)> listener);
