#pragma once

#include "platform/platform.h"

// The full path of the log file: the temporary folder, or "c:\" on systems up to version 5, then the
// library's base name and ".log". Computed at the first call and held until ForgetLogFilePath. An empty
// text when it doesn't fit 1024 characters or memory is short: there is no file then. Any thread; takes
// no lock.
LPCWSTR GetLogFilePath();

// Called at detach, with no other thread in the monitor.
void ForgetLogFilePath();
