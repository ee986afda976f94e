#pragma once

#include <string>
#include <vector>

#include "farlink/ports/port_entry.h"

namespace farlink {

struct Reach {
    bool answers = false;
    std::string text;  // one sentence without a full stop
};

// Whether the port's print server takes connections on its command channel, which is let go without a byte.
// The data channel is left alone: a connection to it takes a place in the server's queue. At most 5 s, and
// the system's look-up of the name.
Reach TryPort(const PortSettings& port);

// The same for many at once, in their order.
std::vector<Reach> TryPorts(const std::vector<PortEntry>& ports);

}  // namespace farlink
