#pragma once

#include <string>

#include "spooler/job_store.h"
#include "spooler/monitor.h"
#include "spooler/run_control.h"

namespace spooler {

// Puts a job's document through its port once, as a print spooler does: OpenPort, StartDocPort,
// WritePort until all is taken, EndDocPort, ClosePort. A write that takes nothing is tried again after
// a pause, for as long as the port answers so. Ends early, but always through EndDocPort and ClosePort,
// when a call fails or `control` says stop. On the port's own thread; calls into the monitor.
RunResult RunJob(const Monitor& monitor, const Job& job, const std::string& documentPath,
                 RunControl& control);

}  // namespace spooler
