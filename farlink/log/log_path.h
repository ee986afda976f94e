#pragma once

#include <string>

#include "farlink/ports/spooler_lists.h"

namespace farlink {

// Where the monitor writes its log when this system's spooler runs it.
std::string LogPath(const MonitorEntry& monitor);

}  // namespace farlink
