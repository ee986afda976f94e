#pragma once

#include <cstddef>

#include "platform/platform.h"

// The records that administration tools exchange with the monitor: plain little-endian layouts. A tool's
// buffer may lie on any address, so records are copied in and out, never pointed into.

constexpr DWORD kXcvRecordVersion = 1;

// "AddPort", "SetPortProperties", "GetPortProperties".
struct krelXcvPortData {
    WCHAR portName[66];
    DWORD version;
    WCHAR server[49];
    WORD portNumber;  // of the data channel
};
static_assert(sizeof(krelXcvPortData) == 236);
static_assert(offsetof(krelXcvPortData, version) == 132);
static_assert(offsetof(krelXcvPortData, server) == 136);
static_assert(offsetof(krelXcvPortData, portNumber) == 234);

// "SetKeepAliveValues", "GetKeepAliveValues", "GetDefaultKeepAliveValues"; in seconds.
struct krelXcvKeepAliveValues {
    DWORD version;
    WORD keepAlivePeriod;
    WORD keepAliveTimeout;
};
static_assert(sizeof(krelXcvKeepAliveValues) == 8);
static_assert(offsetof(krelXcvKeepAliveValues, keepAliveTimeout) == 6);

// "GetPortError".
struct krelXcvPortErrorQuery {
    DWORD version;
    WORD kind;  // 2
    WCHAR portName[67];
};
static_assert(sizeof(krelXcvPortErrorQuery) == 140);
static_assert(offsetof(krelXcvPortErrorQuery, portName) == 6);

// The input of the read commands.
struct krelXcvVersionWord {
    DWORD version;
};
static_assert(sizeof(krelXcvVersionWord) == 4);
