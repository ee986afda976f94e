// A document's start and end.

#include "engine/document.h"

#include "diagnostics/function_trace.h"
#include "engine/job_record.h"
#include "link/command_channel.h"
#include "link/data_channel.h"

namespace {

constexpr int kFinalStateLooks = 30;
constexpr DWORD kFinalStatePauseMs = 1000;
constexpr LONG kNoNotification = -1;

// The states in which the print server is through with a job.
bool IsFinal(LONG boundJobState)
{
    return boundJobState >= 7 && boundJobState <= 9;
}

}  // namespace

CPrinterHandle::~CPrinterHandle()
{
    if (!handle)
        return;
    const DWORD lastError = GetLastError();
    (void)ClosePrinter(handle);
    SetLastError(lastError);
}

CDocument::CDocument(CDocumentOwner& port, DWORD job, bool channelMode)
    : jobId(job), inChannelMode(channelMode), owner(port)
{
}

CDocument::CDocument(CDocumentOwner& port) : jobId(0), inChannelMode(false), owner(port), state(State::Ended)
{
}

bool CDocument::HoldsPort() const
{
    return !inChannelMode && !IsStill(State::Ended);
}

bool CDocument::IsOver() const
{
    CLockScope held(lock);
    return state >= State::Ending;
}

bool CDocument::IsStill(State expected) const
{
    CLockScope held(lock);
    return state == expected;
}

// A deletion and whatever ends the document end the wait for the card.
bool CDocument::MayWait() const
{
    CLockScope held(lock);
    return state == State::Finishing && !abandoned;
}

bool CDocument::IsAbandoned() const
{
    CLockScope held(lock);
    return abandoned;
}

CDocument::Channels CDocument::ChannelsInUse() const
{
    CLockScope held(lock);
    return abandoned ? Channels{} : Channels{dataChannel, commandChannel};
}

bool CDocument::OpenDocumentPrinter(LPCWSTR printerName)
try {
    if (TakePrinter(printerName))
        return true;
    End();
    return false;
} catch (...) {
    End();
    throw;
}

// A handle that comes too late goes back at once.
bool CDocument::TakePrinter(LPCWSTR printerName)
{
    auto opened = std::make_shared<CPrinterHandle>();
    if (!OpenPrinterW(const_cast<LPWSTR>(printerName), &opened->handle, nullptr)) {
        opened->handle = nullptr;
        return false;
    }
    {
        CLockScope held(lock);
        if (state != State::Open)
            return false;
        printer = std::move(opened);
    }
    const bool isSecondRun = owner.IsSecondRun(*this);
    CLockScope held(lock);
    jobIsRestarted = isSecondRun;
    return true;
}

void CDocument::Finish()
try {
    CFunctionTrace trace("krelIniPort::endDocPort");
    std::shared_ptr<CPrinterHandle> used;
    const State found = BeginFinishing(used);
    if (found == State::Finishing)
        return;  // another call is at it
    bool gaveUp = false;
    if (found == State::Open) {
        CloseDataChannel();
        if (inChannelMode) {
            (void)SetJobW(HandleOf(used), jobId, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER);
            used.reset();
            End();
            return;
        }
        gaveUp = !TellSpooler(HandleOf(used), trace);
    }
    ReportJobStatus(HandleOf(used), trace);
    used.reset();
    End();
    if (gaveUp)
        SetLastError(ERROR_GEN_FAILURE);  // what came after must not hide it from the spooler
} catch (...) {
    End();  // a later call must not find half a document
    throw;
}

// Gives the state before, and the printer that goes with it.
CDocument::State CDocument::BeginFinishing(std::shared_ptr<CPrinterHandle>& used)
{
    CLockScope held(lock);
    const State found = state;
    used = printer;
    if (state == State::Open)
        state = State::Finishing;
    return found;
}

void CDocument::CloseDataChannel()
{
    std::shared_ptr<CDataChannel> data;
    {
        CLockScope held(lock);
        data = dataChannel;
    }
    if (data)
        data->CloseWhole();
}

// False when the job was given up.
bool CDocument::TellSpooler(HANDLE usedPrinter, CFunctionTrace& trace)
{
    std::shared_ptr<CCommandChannel> command;
    {
        CLockScope held(lock);
        if (!jobInError)
            command = commandChannel;
    }
    return !command || AwaitFinalState(*command, usedPrinter, trace);
}

// Waits until the print server is through with the job. False when the job was given up. Without any
// notification there is nothing to tell, and a document that was ended meanwhile has nobody to tell it for.
bool CDocument::AwaitFinalState(CCommandChannel& channel, HANDLE usedPrinter, CFunctionTrace& trace)
{
    for (int look = 0; look < kFinalStateLooks && MayWait(); ++look) {
        if (IsFinal(channel.GetLPQInfo().boundJobState))
            break;
        Sleep(kFinalStatePauseMs);
    }
    const LONG boundJobState = channel.GetLPQInfo().boundJobState;
    if (boundJobState == kNoNotification || !IsStill(State::Finishing))
        return true;
    if (IsFinal(boundJobState)) {
        MarkAsSent(usedPrinter, trace);
        return true;
    }
    HandleErrorInPrintJob(State::Finishing);
    return false;
}

// The spooler keeps a job that it was asked to restart; the second run has to remove it.
void CDocument::MarkAsSent(HANDLE usedPrinter, CFunctionTrace& trace)
{
    if (!SetJobW(usedPrinter, jobId, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER)) {
        trace.Log(krelpmEventWarning,
                  "Call to SetJob() failed - unable to mark print job as sent to printer.");
        return;
    }
    bool isRestarted;
    {
        CLockScope held(lock);
        isRestarted = jobIsRestarted;
    }
    if (isRestarted)
        (void)SetJobW(usedPrinter, jobId, 0, nullptr, JOB_CONTROL_DELETE);
}

void CDocument::ReportJobStatus(HANDLE usedPrinter, CFunctionTrace& trace)
{
    CJobRecord record;
    if (record.Read(usedPrinter, jobId))
        trace.Log(krelpmEventInfo, "Job status in EndDocPort: 0x%X.", record.Status());
    else
        trace.Log(krelpmEventWarning, "Call to GetJob() failed - unable to read job status.");
}

void CDocument::End()
{
    CFunctionTrace trace("krelIniPort::Cleanup");
    Channels dropped;
    {
        CLockScope held(lock);
        if (state >= State::Ending)
            return;
        state = State::Ending;
        dropped = {std::move(dataChannel), std::move(commandChannel)};
    }
    ShutDown(std::move(dropped));
    std::shared_ptr<CPrinterHandle> closing;
    {
        CLockScope held(lock);
        closing.swap(printer);
    }
    closing.reset();
    CLockScope held(lock);
    state = State::Ended;
}

void CDocument::Abandon()
{
    Channels woken;
    {
        CLockScope held(lock);
        abandoned = true;
        woken = {dataChannel, commandChannel};
    }
    if (woken.data)
        woken.data->Abandon();
    if (woken.command)
        woken.command->Abandon();
}

// The command channel goes first: its worker uses the data channel and the printer.
void CDocument::ShutDown(Channels dropped)
{
    if (dropped.command)
        dropped.command->Shutdown();
    dropped.command.reset();
    if (dropped.data)
        dropped.data->Abandon();  // for a call that is still inside it
}
