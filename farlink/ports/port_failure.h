#pragma once

#include "farlink/failure.h"

namespace farlink {

// Of the calling thread's last failed QueryPort. A word of the monitor's sockets says more
// than the spooler's text.
Failure PortFailure(const WideString& port);

}  // namespace farlink
