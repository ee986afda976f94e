#pragma once

#include <optional>

#include "farlink/ports/spooler_lists.h"

// The log settings that are stored for a monitor. It reads them when it starts. Every function throws
// Failure.
namespace farlink {

// Nothing if it was never stored.
std::optional<DWORD> ReadLogSetting(const MonitorEntry& monitor, LPCWSTR name);
void StoreLogSetting(const MonitorEntry& monitor, LPCWSTR name, DWORD value);
void RemoveLogSetting(const MonitorEntry& monitor, LPCWSTR name);

// From when on a change counts with this system's spooler, as a sentence.
extern const char* const kWhenSettingsCount;

}  // namespace farlink
