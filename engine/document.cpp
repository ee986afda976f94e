// The start and the end of a document on a port.

#include "diagnostics/function_trace.h"
#include "engine/job_record.h"
#include "link/command_channel.h"
#include "link/data_channel.h"
#include "monitor/ini_port.h"

namespace {

constexpr int kLockTries = 5;
constexpr DWORD kLockPauseMs = 1000;
constexpr int kFinalStateLooks = 30;
constexpr DWORD kFinalStatePauseMs = 1000;
constexpr LONG kNoNotification = -1;

bool IsChannelMode(DWORD level, const BYTE* docInfo)
{
    return level == 2 && docInfo && reinterpret_cast<const DOC_INFO_2W*>(docInfo)->dwMode == DI_CHANNEL;
}

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

std::shared_ptr<CCommandChannel> krelIniPort::CommandChannel() const
{
    CLockScope state(stateSection);
    return commandChannel;
}

std::shared_ptr<CDataChannel> krelIniPort::DataChannel() const
{
    CLockScope state(stateSection);
    return dataChannel;
}

krelIniPort::ChannelsInUse krelIniPort::Channels() const
{
    CLockScope state(stateSection);
    return deleted ? ChannelsInUse{} : ChannelsInUse{dataChannel, commandChannel};
}

bool krelIniPort::IsInChannelMode() const
{
    CLockScope state(stateSection);
    return channelMode;
}

bool krelIniPort::startDocPort(LPCWSTR pPrinterName, DWORD JobId, DWORD Level, const BYTE* pDocInfo)
{
    CFunctionTrace trace("krelIniPort::startDocPort", "printer=%S, jobId=%i, level=%i",
                         pPrinterName ? pPrinterName : TEXT("NULL"), JobId, Level);
    Cleanup();
    if (IsDeleted()) {
        trace.Fail("The port has been deleted.");
        return false;
    }
    const bool inChannelMode = IsChannelMode(Level, pDocInfo);
    if (!inChannelMode && !LockPortForPrinting()) {
        trace.Fail("Unable to get exclusive access to the port for printing.");
        return false;
    }
    const DWORD document = BeginDocument(JobId, inChannelMode);
    if (!OpenDocumentPrinter(pPrinterName)) {
        Cleanup();
        trace.Fail("Failed to OpenPrinter().");
        return false;
    }
    if (!inChannelMode && !SetupCommunicationChannels(true, document)) {
        trace.Fail("Failed to setup communication channels.");
        return false;
    }
    return true;
}

// Who holds the mark needs `section` to clear it, so it is not held through the pause.
bool krelIniPort::LockPortForPrinting()
{
    CFunctionTrace trace("krelIniPort::LockPortForPrinting");
    for (int tries = 0; tries < kLockTries && !IsDeleted(); ++tries) {
        {
            CLockScope busy(section);
            if (!lockedForPrinting) {
                lockedForPrinting = true;
                ++marksTaken;
                return true;
            }
        }
        Sleep(kLockPauseMs);
    }
    trace.Fail("Failed to gain exclusive access to the port for printing.");
    return false;
}

// Gives the document's number.
DWORD krelIniPort::BeginDocument(DWORD newJobId, bool inChannelMode)
{
    CLockScope state(stateSection);
    channelMode = inChannelMode;
    jobId = newJobId;
    jobInError = false;
    return documentNumber;
}

// A job with the number of the last one that failed is its second run. Any other job ends the memory of
// that failure; a job without a number says nothing about it.
bool krelIniPort::OpenDocumentPrinter(LPCWSTR printerName)
{
    auto opened = std::make_shared<CPrinterHandle>();
    if (!OpenPrinterW(const_cast<LPWSTR>(printerName), &opened->handle, nullptr)) {
        opened->handle = nullptr;
        return false;
    }
    CLockScope state(stateSection);
    opened.swap(printer);
    jobIsRestarted = jobId != 0 && jobId == restartedJobId;
    if (jobId != 0 && !jobIsRestarted)
        restartedJobId = 0;
    return true;
}

bool krelIniPort::endDocPort()
{
    CFunctionTrace trace("krelIniPort::endDocPort");
    if (const std::shared_ptr<CDataChannel> data = DataChannel())
        data->Close();
    if (IsInChannelMode()) {
        const krelJobReference job = Job();
        (void)SetJobW(job.PrinterHandle(), job.jobId, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER);
        Cleanup();
        return true;
    }
    bool inError;
    std::shared_ptr<CCommandChannel> command;
    {
        CLockScope state(stateSection);
        inError = jobInError;
        command = commandChannel;
    }
    const bool gaveUp = !inError && command && !AwaitFinalState(*command, trace);
    command.reset();
    ReportJobStatus(trace);
    Cleanup();
    if (gaveUp)
        SetLastError(ERROR_GEN_FAILURE);  // what came after must not hide it from the spooler
    return true;
}

// Waits until the print server is through with the job and tells the spooler what became of it. False
// when the job was given up. Without any notification there is nothing to tell.
bool krelIniPort::AwaitFinalState(CCommandChannel& channel, CFunctionTrace& trace)
{
    for (int look = 0; look < kFinalStateLooks && !IsDeleted(); ++look) {
        if (IsFinal(channel.GetLPQInfo().boundJobState))
            break;
        Sleep(kFinalStatePauseMs);
    }
    const LONG boundJobState = channel.GetLPQInfo().boundJobState;
    if (boundJobState == kNoNotification)
        return true;
    if (IsFinal(boundJobState)) {
        MarkAsSent(trace);
        return true;
    }
    HandleErrorInPrintJob();
    return false;
}

// The spooler keeps a job that it was asked to restart; the second run has to remove it.
void krelIniPort::MarkAsSent(CFunctionTrace& trace)
{
    const krelJobReference job = Job();
    if (!SetJobW(job.PrinterHandle(), job.jobId, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER)) {
        trace.Log(krelpmEventWarning,
                  "Call to SetJob() failed - unable to mark print job as sent to printer.");
        return;
    }
    bool isRestarted;
    {
        CLockScope state(stateSection);
        isRestarted = jobIsRestarted;
    }
    if (isRestarted)
        (void)SetJobW(job.PrinterHandle(), job.jobId, 0, nullptr, JOB_CONTROL_DELETE);
}

void krelIniPort::ReportJobStatus(CFunctionTrace& trace)
{
    const krelJobReference job = Job();
    CJobRecord record;
    if (record.Read(job.PrinterHandle(), job.jobId))
        trace.Log(krelpmEventInfo, "Job status in EndDocPort: 0x%X.", record.Status());
    else
        trace.Log(krelpmEventWarning, "Call to GetJob() failed - unable to read job status.");
}

void krelIniPort::Cleanup()
{
    DWORD document;
    {
        CLockScope state(stateSection);
        document = documentNumber;
    }
    CleanUpDocument(document);
}

// Leaves alone what another document has on the port by now: the wait for the worker may be long.
void krelIniPort::CleanUpDocument(DWORD document)
{
    CFunctionTrace trace("krelIniPort::Cleanup");
    DWORD mark;
    {
        CLockScope busy(section);
        mark = marksTaken;
    }
    const DWORD idle = document + 1;
    if (!DropChannels(document, idle))
        return;
    std::shared_ptr<CPrinterHandle> closing;
    {
        CLockScope state(stateSection);
        if (documentNumber == idle)
            closing.swap(printer);
    }
    closing.reset();
    {
        CLockScope busy(section);
        if (marksTaken == mark)
            lockedForPrinting = false;
    }
    CLockScope state(stateSection);
    if (documentNumber == idle)
        channelMode = false;
}

// Takes the channels out of the port, which goes on under the number `nextDocument`, and ends them. False
// when the document is over already.
bool krelIniPort::DropChannels(DWORD document, DWORD nextDocument)
{
    std::shared_ptr<CCommandChannel> command;
    std::shared_ptr<CDataChannel> data;
    {
        CLockScope state(stateSection);
        if (documentNumber != document)
            return false;
        documentNumber = nextDocument;
        command.swap(commandChannel);
        data.swap(dataChannel);
    }
    ShutDown(std::move(command), data);
    return true;
}

// The command channel goes first: its worker uses the data channel and the printer.
void krelIniPort::ShutDown(std::shared_ptr<CCommandChannel> command,
                           const std::shared_ptr<CDataChannel>& data)
{
    if (command)
        command->Shutdown();
    command.reset();
    if (data)
        data->Abandon();  // for a call that is still inside it
}
