#include "farlink/ports/port_use.h"

namespace farlink {

// Documents wait in the processes that print them, and in CUPS.
std::optional<std::vector<WaitingJob>> WaitingJobsOn(const WideString&)
{
    return std::nullopt;
}

std::optional<WideString> PortOfPrinter(const WideString&)
{
    return std::nullopt;
}

void FreeOfPrinters(const WideString&, const std::string&) {}

}  // namespace farlink
