// What a port tells the spooler about a job that didn't go well.

#include <algorithm>
#include <cstring>
#include <new>

#include "diagnostics/function_trace.h"
#include "engine/job_record.h"
#include "monitor/ini_port.h"

bool CJobRecord::Read(HANDLE printer, DWORD jobId)
{
    size = 0;
    (void)GetJobW(printer, jobId, 2, nullptr, 0, &size);
    if (size == 0)
        return false;
    buffer.reset(new (std::nothrow) BYTE[std::max<std::size_t>(size, sizeof(JOB_INFO_2W))]());
    return buffer && ReadAgain(printer, jobId);
}

bool CJobRecord::ReadAgain(HANDLE printer, DWORD jobId)
{
    DWORD got = 0;
    return GetJobW(printer, jobId, 2, buffer.get(), size, &got) != FALSE;
}

DWORD CJobRecord::Status() const
{
    DWORD status;
    std::memcpy(&status, buffer.get() + offsetof(JOB_INFO_2W, Status), sizeof status);
    return status;
}

krelJobReference krelIniPort::Job() const
{
    CLockScope state(stateSection);
    return {printer, jobId};
}

namespace {

// Sends the command and reads the job again, for the log. The texts are the operation's own.
void ControlJob(const krelJobReference& job, CJobRecord& record, DWORD command, const char* refused,
                const char* statusAfter, CFunctionTrace& trace)
{
    if (!SetJobW(job.PrinterHandle(), job.jobId, 0, nullptr, command))
        trace.Log(krelpmEventWarning, refused);
    if (record.ReadAgain(job.PrinterHandle(), job.jobId))
        trace.Log(krelpmEventInfo, statusAfter, record.Status());
    else
        trace.Log(krelpmEventWarning, "Call to GetJob() failed");
}

}  // namespace

// Leaves ERROR_GEN_FAILURE as the thread's last error, whatever becomes of the job.
void krelIniPort::HandleErrorInPrintJob()
{
    CFunctionTrace trace("krelIniPort::HandleErrorInPrintJob");
    {
        CLockScope state(stateSection);
        jobInError = true;
    }
    const krelJobReference job = Job();
    CJobRecord record;
    if (!record.Read(job.PrinterHandle(), job.jobId)) {
        trace.Log(krelpmEventWarning,
                  "Call to getJob() failed - unable to mark print job as being in error state.");
    } else if (!record.IsGoing()) {
        trace.Log(krelpmEventInfo, "Job status when first entering: 0x%X.", record.Status());
        if (job.jobId != 0) {
            CLockScope state(stateSection);
            restartedJobId = job.jobId;
        }
        ControlJob(job, record, JOB_CONTROL_RESTART, "Call to SetJob() failed - unable to restart.",
                   "Job status after restarting job 0x%X.", trace);
    }
    SetLastError(ERROR_GEN_FAILURE);
}

void krelIniPort::CancelCurrentPrintJob()
{
    CFunctionTrace trace("krelIniPort::CancelCurrentPrintJob");
    const krelPortCall inside(this);
    if (IsDeleted())
        return;
    const krelJobReference job = Job();
    CJobRecord record;
    if (!record.Read(job.PrinterHandle(), job.jobId)) {
        trace.Log(krelpmEventWarning, "Call to getJob() failed - unable to cancel print job.");
    } else if (!record.IsGoing()) {
        trace.Log(krelpmEventInfo, "Job status when first entering: 0x%X.", record.Status());
        ControlJob(job, record, JOB_CONTROL_DELETE, "Call to SetJob() failed - unable to cancel.",
                   "Job status after cancelling job 0x%X.", trace);
    }
}
