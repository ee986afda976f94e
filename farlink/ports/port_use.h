#pragma once

#include <optional>
#include <string>
#include <vector>

#include "farlink/ports/port_administration.h"

// Who uses a port, beyond what the monitor itself tells. Every function throws Failure when the spooler does
// not answer.
namespace farlink {

struct WaitingJob {
    DWORD id;
    std::string state;
    std::string reason;
};

// What is neither sent nor deleted, of all the port's printers. Nothing where the queues belong to others,
// who aren't asked.
std::optional<std::vector<WaitingJob>> WaitingJobsOn(const WideString& port);

// The port of the printer of this name, where the spooler has printers of its own.
std::optional<WideString> PortOfPrinter(const WideString& name);

// Before a port is deleted: no printer may be left on it. `what` names the port in the Failure.
void FreeOfPrinters(const WideString& port, const std::string& what);

}  // namespace farlink
