// What a monitor asks about its job, and what it says of it.

#include <algorithm>

#include "spooler/api.h"
#include "spooler/job.h"
#include "spooler/record_writer.h"

namespace spooler {

namespace {

std::shared_ptr<Job> JobOf(HANDLE printer, DWORD jobId)
{
    const std::shared_ptr<JobPrinter> handle = Opened<JobPrinter>(printer);
    if (handle->job == nullptr || handle->job->id != jobId)
        Throw(ERROR_INVALID_PARAMETER, "There is no job " + std::to_string(jobId) + ".");
    return handle->job;
}

DWORD StatusOf(const Job& job)
{
    return JOB_STATUS_PRINTING | (job.IsSent() ? JOB_STATUS_PRINTED : 0) |
           (job.IsDeleted() ? JOB_STATUS_DELETING : 0) | (job.IsToRestart() ? JOB_STATUS_RESTART : 0);
}

}  // namespace

SPOOLER_EXPORT BOOL GetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed)
{
    return BoolCall([&] {
        RequireReference(needed);
        *needed = 0;
        const std::shared_ptr<Job> found = JobOf(printer, jobId);
        RequireLevel(level == 2);
        JOB_INFO_2W record = {};
        record.JobId = found->id;
        record.Status = StatusOf(*found);
        record.Priority = 1;
        record.Position = 1;
        record.Size = static_cast<DWORD>(std::min<std::uint64_t>(found->size, 0xFFFFFFFF));
        RecordWriter records;
        records.Add(record, {{&JOB_INFO_2W::pPrinterName, found->printer},
                             {&JOB_INFO_2W::pDocument, found->title},
                             {&JOB_INFO_2W::pDatatype, TEXT("RAW")}});
        records.Write(job, size, needed, nullptr);
    });
}

SPOOLER_EXPORT BOOL SetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD command)
{
    return BoolCall([&] {
        const std::shared_ptr<Job> commanded = JobOf(printer, jobId);
        RequireLevel(level == 0);
        RequireParameter(job == nullptr, "Level 0 has no record.");
        if (command == JOB_CONTROL_PAUSE || command == JOB_CONTROL_RESUME)
            Throw(ERROR_NOT_SUPPORTED, "Jobs can't be paused.");
        RequireParameter(command == JOB_CONTROL_RESTART || command == JOB_CONTROL_DELETE ||
                             command == JOB_CONTROL_CANCEL || command == JOB_CONTROL_SENT_TO_PRINTER,
                         "The job command is unknown.");
        commanded->Command(command == JOB_CONTROL_CANCEL ? JOB_CONTROL_DELETE : command);
    });
}

}  // namespace spooler
