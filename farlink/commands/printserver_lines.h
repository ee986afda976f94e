#pragma once

#include "printserver/events.h"

namespace farlink {

// One line on standard output for what happened at the simulated print server. Called for one event at a
// time.
void TellEvent(const printserver::Event& event, bool json);

}  // namespace farlink
