// What a document tells the spooler about a job that didn't go well.

#include <algorithm>
#include <cstring>
#include <new>

#include "diagnostics/function_trace.h"
#include "engine/document.h"
#include "engine/job_record.h"
#include "link/thread_mark.h"

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

std::shared_ptr<CPrinterHandle> CDocument::Printer() const
{
    CLockScope held(lock);
    return printer;
}

namespace {

// One call more inside the port.
class CCallScope {
public:
    explicit CCallScope(CDocumentOwner& entered) : port(entered) { port.CallBegins(); }
    ~CCallScope() { port.CallEnds(); }
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;

private:
    CDocumentOwner& port;
};

// Sends the command and reads the job again, for the log. The texts are the operation's own.
void ControlJob(HANDLE printer, DWORD jobId, CJobRecord& record, DWORD command, const char* refused,
                const char* statusAfter, CFunctionTrace& trace)
{
    trace.Log(krelpmEventInfo, "Job status when first entering: 0x%X.", record.Status());
    if (!SetJobW(printer, jobId, 0, nullptr, command))
        trace.Log(krelpmEventWarning, refused);
    if (record.ReadAgain(printer, jobId))
        trace.Log(krelpmEventInfo, statusAfter, record.Status());
    else
        trace.Log(krelpmEventWarning, "Call to GetJob() failed");
}

}  // namespace

// For a call that failed in the given state. A document that has moved on took the connection away from it
// itself, and its job is left alone. The thread's last error is ERROR_GEN_FAILURE in any case.
void CDocument::HandleErrorInPrintJob(State during)
{
    CFunctionTrace trace("krelIniPort::HandleErrorInPrintJob");
    std::shared_ptr<CPrinterHandle> used;
    if (MarkInError(during, used))
        RestartJob(HandleOf(used), trace);
    SetLastError(ERROR_GEN_FAILURE);
}

// Gives the printer too: a moment later the document may have given it back.
bool CDocument::MarkInError(State during, std::shared_ptr<CPrinterHandle>& used)
{
    CLockScope held(lock);
    if (state != during)
        return false;
    jobInError = true;
    used = printer;
    return true;
}

void CDocument::RestartJob(HANDLE usedPrinter, CFunctionTrace& trace)
{
    CJobRecord record;
    if (!record.Read(usedPrinter, jobId)) {
        trace.Log(krelpmEventWarning,
                  "Call to getJob() failed - unable to mark print job as being in error state.");
    } else if (!record.IsGoing()) {
        if (inChannelMode && !IsStill(State::Open))
            return;  // its end tells the spooler that it is sent, whatever has failed in it
        owner.RememberRestart(*this);
        ControlJob(usedPrinter, jobId, record, JOB_CONTROL_RESTART,
                   "Call to SetJob() failed - unable to restart.", "Job status after restarting job 0x%X.",
                   trace);
    }
}

void CDocument::CancelCurrentPrintJob()
{
    CFunctionTrace trace("krelIniPort::CancelCurrentPrintJob");
    const CCallScope inside(owner);
    if (IsAbandoned())
        return;
    const CThreadMark cancelling(cancellingThread);
    const std::shared_ptr<CPrinterHandle> used = Printer();
    CJobRecord record;
    if (!record.Read(HandleOf(used), jobId))
        trace.Log(krelpmEventWarning, "Call to getJob() failed - unable to cancel print job.");
    else if (!record.IsGoing())
        ControlJob(HandleOf(used), jobId, record, JOB_CONTROL_DELETE,
                   "Call to SetJob() failed - unable to cancel.", "Job status after cancelling job 0x%X.",
                   trace);
}
