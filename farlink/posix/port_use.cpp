#include "farlink/ports/port_use.h"

#include <algorithm>

#include "farlink/failure.h"
#include "farlink/job_following.h"
#include "farlink/ports/spooler_lists.h"
#include "spooler/spooler.h"

namespace farlink {

namespace {

std::vector<JobEntry> JobsOn(const WideString& port, const PrinterHandle& server)
{
    const std::vector<PrinterEntry> printers = ListPrinters();
    std::vector<JobEntry> jobs = ListJobs(server);
    std::erase_if(jobs, [&](const JobEntry& job) {
        return std::ranges::none_of(printers, [&](const PrinterEntry& printer) {
            return SameName(printer.port, port) && SameName(printer.name, job.printer);
        });
    });
    return jobs;
}

}  // namespace

std::vector<WaitingJob> WaitingJobsOn(const WideString& port)
{
    const PrinterHandle server(WideString{});
    std::vector<WaitingJob> jobs;
    for (const JobEntry& job : JobsOn(port, server)) {
        JOB_PROGRESS progress{};
        if (ReadProgress(server, job.id, progress) && progress.outcome != JOB_OUTCOME_SENT &&
            progress.outcome != JOB_OUTCOME_DELETED)
            jobs.push_back({job.id, StateWordOf(progress), ReasonOf(progress)});
    }
    return jobs;
}

void RequireIdle(const WideString& port)
{
    const PrinterHandle server(WideString{});
    for (const JobEntry& job : JobsOn(port, server)) {
        JOB_PROGRESS progress{};
        if (ReadProgress(server, job.id, progress) && progress.phase >= JOB_PHASE_STARTING &&
            progress.phase <= JOB_PHASE_ENDING)
            throw PlatformFailure("Port '" + ToUtf8(port) + "'", ERROR_BUSY);
    }
}

// The port's printers were made for it by 'print', and go with it. They refuse while they have jobs.
void FreeOfPrinters(const WideString& port, const std::string& what)
{
    for (const PrinterEntry& printer : ListPrinters()) {
        if (!SameName(printer.port, port))
            continue;
        const PrinterHandle handle(printer.name, true);
        if (!DeletePrinter(handle.Get()))
            throw SpoolerFailure(what);
    }
}

}  // namespace farlink
