#pragma once

#include <atomic>
#include <cstddef>

#include "platform/platform.h"

// The log file: the library's base name with ".log" in the temporary folder, opened at the first line
// and held until detach. With a size limit it wraps in place: behind the newest line stands the marker
// "===wrap===\r\n", and behind that what is left of the pass before. A failure never reaches the caller.

// Size limit in KiB; 0: the file grows without limit, with no marker. A limit beyond 32 bits of bytes
// is 0xFFFFFFFF bytes.
extern std::atomic<DWORD> gMaxLogFileSize;

// Made at attach; freed at detach, the lock first, with no other thread in the monitor.
void CreateLogLock();
void DestroyLogLock();
void DestroyLogFiles();

// Makes the table of open files if there is none; no file is opened. Throws std::bad_alloc. Any thread.
void CreateLogFileTable();

// Writes a line whole. Takes gLogLock, a leaf lock; with `mayWait` false a lock in use drops the line.
// Any thread.
void WriteToLogFile(const char* line, std::size_t length, bool mayWait);
