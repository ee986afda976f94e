#pragma once

#include <string>

#include "tools/farlink/spooler_lists.h"

namespace farlink {

// Where a monitor that this environment starts writes its log.
std::string LogPath(const MonitorEntry& monitor);

}  // namespace farlink
