#pragma once

#include <atomic>
#include <optional>

#include "diagnostics/event_types.h"
#include "platform/platform.h"

// The writer of diagnostic lines and its two sinks, the debugger output and a log file that can wrap.
// Both sinks are off until a monitor's settings turn one on, and a line then goes nowhere.

// Not 0: lines go to the log file; lines go to OutputDebugStringA.
extern std::atomic<DWORD> gLogToFile;
extern std::atomic<DWORD> gLogToDebugOutput;

inline bool AnySinkOn()
{
    return gLogToFile.load(std::memory_order_relaxed) != 0 ||
           gLogToDebugOutput.load(std::memory_order_relaxed) != 0;
}

// True when a message of one of these types would reach a sink: what costs time to put together is
// worth it only then.
inline bool EventIsLogged(DWORD eventTypes)
{
    return AnySinkOn() && EventIsOn(eventTypes);
}

// Writes one line: time, the thread's port tag, thread id, message, CR LF; at most 1022 bytes, cut if
// need be. The message is written whatever its type: callers test the event bits. Any thread, with any
// lock held; takes one leaf lock. The thread's last error stays as it is.
void vexkitTypeDiagnosticPuts(const char* message);

// The same for the last line of a process that is ending with its other threads still running or
// gone with locks held: waits for no lock, and drops the line where it would have to.
void DiagnosticPutsAtProcessEnd(const char* message);

// What is absent stays as it is.
struct LogSettings {
    std::optional<DWORD> eventTypesToLog;
    std::optional<DWORD> logToFile;
    std::optional<DWORD> logToDebugOutput;
    std::optional<DWORD> maxLogFileSize;  // in KiB; 0: the file grows without limit
};

constexpr LogSettings kDefaultLogSettings = {
    .eventTypesToLog = 0x3F, .logToFile = 0, .logToDebugOutput = 0, .maxLogFileSize = 0};

// A monitor that initialises calls this on the spooler's thread, while others may be writing lines or
// initialise too. Throws std::bad_alloc with the old settings in place.
void ApplyLogSettings(const LogSettings& settings);
