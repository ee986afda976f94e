#pragma once

#include <atomic>

#include "platform/platform.h"

// What the log lets through: independent bits, not levels of one scale.
constexpr DWORD krelpmEventEntry = 0x01;    // names of spooler entry functions; attach and detach
constexpr DWORD krelpmEventTrace = 0x02;    // entry and exit of every scope, failures included
constexpr DWORD krelpmEventError = 0x04;    // failures alone, while krelpmEventTrace is off
constexpr DWORD krelpmEventWarning = 0x08;  // CFunctionTrace::Log
constexpr DWORD krelpmEventInfo = 0x10;     // CFunctionTrace::Log
constexpr DWORD krelpmEventData = 0x20;     // byte dumps of the sockets' traffic

// The bits that are on, at first all six. Any thread reads it; a monitor that initialises sets it.
extern std::atomic<DWORD> gEventTypesToLog;

// True when at least one of the bits in `eventTypes` is on.
inline bool EventIsOn(DWORD eventTypes)
{
    return (gEventTypesToLog.load(std::memory_order_relaxed) & eventTypes) != 0;
}
