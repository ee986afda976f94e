#pragma once

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

// What is neither sent nor deleted, of all the port's printers.
std::vector<WaitingJob> WaitingJobsOn(const WideString& port);

// Throws Failure with ERROR_BUSY while a document prints on the port in a process whose monitor is another
// than the one that will be asked to change it: a monitor refuses only what prints in its own process.
void RequireIdle(const WideString& port);

// Before a port is deleted: no printer may be left on it. `what` names the port in the Failure.
void FreeOfPrinters(const WideString& port, const std::string& what);

}  // namespace farlink
