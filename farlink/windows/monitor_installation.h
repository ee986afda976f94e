#pragma once

#include "farlink/ports/spooler_lists.h"

namespace farlink {

// Tells the spooler of the library in its system folder, which takes an administrator's rights and copies no
// file, or removes the monitor and its ports. Both give what the spooler knows, or knew. Throw Failure.
MonitorEntry InstallMonitor();
MonitorEntry UninstallMonitor();

}  // namespace farlink
