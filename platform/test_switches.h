#pragma once

// Switches for tests of what a healthy machine seldom does. The monitor never sees this header.
// All are process-wide, may be set from any thread, and hold until reset. The POSIX layer has them built in;
// on Windows the test binary stands in front of the system's calls.

#include <string>
#include <vector>

#include "platform/platform.h"

namespace test_switches {

// The version that GetVersionExW reports and VerifyVersionInfoW compares with. At first 10.0.
void SetReportedVersion(DWORD major, DWORD minor);

// Real time taken per millisecond of Sleep, of every wait, and of the tick count: with 0.02 a second
// takes 20 ms. At first 1. The tick count goes on from where it stands.
void SetTimeScale(double scale);

// Makes the tick count read `tick` now and go on from there; for its wrap at 32 bits.
void SetTickCount(DWORD tick);

// Makes the call of this name (as in the headers, "CreateEventW") fail with `error`, after letting
// `skip` calls through, `times` times. One order per name at a time; a new one replaces the old. Calls
// that can't fail take no notice.
void FailCall(const char* name, DWORD error, int skip = 0, int times = 1);

// How often the named call was made since CountCalls was called for it. All calls count, but for
// GetLastError, SetLastError, the ids of thread and process, strings and byte order.
void CountCalls(const char* name);
int CallsCounted(const char* name);

// Makes a host name, whatever its letter case, resolve to these dotted addresses in this order. With
// none, the look-up succeeds with an empty list.
void SetResolution(const std::string& name, const std::vector<std::string>& addresses);

// Back to the state at start.
void Reset();

}  // namespace test_switches
