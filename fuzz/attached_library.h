#pragma once

#include "diagnostics/diagnostic_log.h"
#include "monitor/library_entry.h"
#include "platform/platform.h"
#include "tests/support/log_lines.h"
#include "tests/support/spooler_double.h"

// The binary stands in for the library, with every event type logged: formatting a line is part of what is
// fuzzed. Called at the start of each execution; what the doubles recorded of the one before is dropped.
inline void AttachLibrary()
{
    static const bool attached = [] {
        DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_ATTACH, nullptr);
        LogSettings settings = kDefaultLogSettings;
        settings.logToDebugOutput = 1;
        ApplyLogSettings(settings);
        return true;
    }();
    (void)attached;
    LogLines::Captured().Clear();
    SpoolerDouble::Instance().Reset();
}
