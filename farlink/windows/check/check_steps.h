#pragma once

#include "farlink/windows/check/check_printer.h"
#include "farlink/windows/check/check_report.h"
#include "printserver/server.h"

namespace farlink {

// The print server of the check, in this process, and the port and printer that lead to it.
struct CheckBench {
    printserver::Server server;
    CheckPrinter printer{server.Port()};
    printserver::Bytes document;  // what the steps print
};

// The check's steps in their order, from the port's making to its end. With `restartsSpooler` the spooler's
// service is stopped and started on the way.
void RunCheckSteps(CheckBench& bench, CheckReport& report, bool restartsSpooler);

}  // namespace farlink
