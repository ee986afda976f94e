#pragma once

#include "platform/platform.h"

// Where the monitor keeps what it knows, below its root key.
namespace spooler {

inline constexpr const WCHAR* kPortsKey = TEXT("Ports");  // holds a key for each port, and the log's values
inline constexpr const WCHAR* kServerValue = TEXT("Print Server");
inline constexpr const WCHAR* kNumberValue = TEXT("Port Number");
inline constexpr const WCHAR* kPeriodValue = TEXT("Keep Alive Msg Interval");
inline constexpr const WCHAR* kTimeoutValue = TEXT("Keep Alive Timeout");
inline constexpr const WCHAR* kEventTypesValue = TEXT("EventTypesToLog");
inline constexpr const WCHAR* kToFileValue = TEXT("LogToFile");
inline constexpr const WCHAR* kToDebugOutputValue = TEXT("LogToDebugOutput");
inline constexpr const WCHAR* kMaxFileSizeValue = TEXT("MaxLogFileSize");

}  // namespace spooler
