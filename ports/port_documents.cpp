// The port's documents, one after the other.

#include "diagnostics/function_trace.h"
#include "ports/ini_port.h"

namespace {

constexpr int kLockTries = 5;
constexpr DWORD kLockPauseMs = 1000;

bool IsChannelMode(DWORD level, const BYTE* docInfo)
{
    return level == 2 && docInfo && reinterpret_cast<const DOC_INFO_2W*>(docInfo)->dwMode == DI_CHANNEL;
}

}  // namespace

std::shared_ptr<CDocument> krelIniPort::Document() const
{
    CLockScope held(lock);
    return document;
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
    const auto started = std::make_shared<CDocument>(*this, JobId, IsChannelMode(Level, pDocInfo));
    if (!(started->inChannelMode && Adopt(started)) && !LockPortForPrinting(started)) {
        trace.Fail("Unable to get exclusive access to the port for printing.");
        return false;
    }
    if (!started->OpenDocumentPrinter(pPrinterName)) {
        trace.Fail("Failed to OpenPrinter().");
        return false;
    }
    if (!started->inChannelMode && !started->SetupCommunicationChannels(true)) {
        trace.Fail("Failed to setup communication channels.");
        return false;
    }
    return true;
}

// A document in channel mode comes here only when a print job was faster.
bool krelIniPort::LockPortForPrinting(const std::shared_ptr<CDocument>& started)
{
    CFunctionTrace trace("krelIniPort::LockPortForPrinting");
    for (int tries = 0; tries < kLockTries && !IsDeleted(); ++tries) {
        if (Adopt(started))
            return true;
        Sleep(kLockPauseMs);
    }
    trace.Fail("Failed to gain exclusive access to the port for printing.");
    return false;
}

// Makes it the port's document, unless a print job holds the port. A document in channel mode that another
// thread has started since the clean-up gives way.
bool krelIniPort::Adopt(std::shared_ptr<CDocument> started)
{
    {
        CLockScope held(lock);
        if (deleted || document->HoldsPort())
            return false;
        document.swap(started);
    }
    if (!started->IsOver())
        started->End();
    return true;
}

void krelIniPort::Cleanup()
{
    Document()->End();
}

// A document that is no longer the port's changes nothing that the next one's job goes by.
void krelIniPort::RememberRestart(const CDocument& asking)
{
    CLockScope held(lock);
    if (document.get() == &asking && asking.jobId != 0)
        restartedJobId = asking.jobId;
}

bool krelIniPort::IsSecondRun(const CDocument& asking)
{
    CLockScope held(lock);
    if (document.get() != &asking || asking.jobId == 0)
        return false;
    if (asking.jobId != restartedJobId)
        restartedJobId = 0;
    return asking.jobId == restartedJobId;
}
