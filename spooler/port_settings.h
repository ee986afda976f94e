#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "spooler/api_visibility.h"

namespace spooler {

// What a port is to the monitor. Text is UTF-8.
struct PortSettings {
    std::string name;                      // at most 66 UTF-16 units
    std::string server;                    // a host name or an IPv4 address, at most 48 units
    WORD number = 0;                       // TCP port of the data channel, 1 to 65533
    std::optional<WORD> keepAlivePeriod;   // seconds; without one the monitor's default stands
    std::optional<WORD> keepAliveTimeout;  // the same
    std::string library = "Farlink.dll";   // the monitor's; without a slash it lies beside this library
};

// The monitor's log, as it is stored for all of its ports.
struct LogSettings {
    std::optional<DWORD> eventTypes;
    bool toFile = false;
    DWORD maxFileSize = 0;  // KiB; 0: no limit
};

// Both are read anew at each call, from the state folder, without loading a monitor. They throw SpoolerError:
// ERROR_UNKNOWN_PORT, or what keeps the state folder from being used.
SPOOLER_API PortSettings StoredPort(const std::string& name);
SPOOLER_API LogSettings StoredLogSettings();
// The names of all ports that are stored.
SPOOLER_API std::vector<std::string> StoredPortNames();

}  // namespace spooler
