#pragma once

#include "platform/platform.h"

// What a new port has, in seconds.
constexpr WORD kDefaultKeepAlivePeriod = 5;
constexpr WORD kDefaultKeepAliveTimeout = 20;

// A port's settings that a change may touch, read or written as one: nobody sees half a change.
struct krelPortSettings {
    WCHAR server[49];
    WORD portNumber;        // of the data channel; the command channel's follows from it
    WORD keepAlivePeriod;   // seconds
    WORD keepAliveTimeout;  // seconds
};
