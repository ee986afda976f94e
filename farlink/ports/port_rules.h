#pragma once

#include <string>

#include "farlink/ports/port_administration.h"

// What the monitor would take and what yet makes no sense. The first two throw Failure with the usage status.
namespace farlink {

void CheckName(const WideString& name);
// The Failure says what would do instead: an address or a host's name alone.
void CheckServer(const std::string& server);

// Complains, on standard error, of times by which a link that is well is given up.
void WarnOfShortTimeout(const std::string& port, KeepAlive values);

}  // namespace farlink
