#pragma once

#include <string>

#include "farlink/ports/port_administration.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

// Where the monitor writes its log when this system's spooler runs it.
std::string LogPath(const MonitorEntry& monitor);

// The tag of the lines that belong to a port: "10.0.0.7:9100".
inline std::string LogTagOf(const PortSettings& port)
{
    return ToUtf8(port.server) + ":" + std::to_string(port.number);
}

// How to switch the log on, for people.
inline constexpr const char* kLogHint = "'farlink log level --file on --limit 10240'";

}  // namespace farlink
