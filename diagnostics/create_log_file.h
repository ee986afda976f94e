#pragma once

#include "platform/platform.h"

// Opens the log file for writing; others may read it meanwhile. A new file lets everyone read and change
// it: the spooler's account makes it and an administrator reads and deletes it. An existing file keeps
// its content and its access. INVALID_HANDLE_VALUE on any failure.
HANDLE CreateLogFile(LPCWSTR path);
