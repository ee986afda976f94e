#pragma once

#include "platform/platform.h"

// The life of the diagnostics, driven by the library entry. Outside it both sinks are off: scopes can
// open and lines can be written, and nothing comes of it.

// Reason DLL_PROCESS_ATTACH: makes locks, tables and the slot of the trace depth. Any other reason: the
// calling thread's trace depth becomes 0.
void DiagnosticsStartup(DWORD reason);

// Turns the sinks off, closes the log file and frees everything. No other thread may be in the monitor;
// a process that ends with threads in it doesn't call this.
void DiagnosticsShutdown();
