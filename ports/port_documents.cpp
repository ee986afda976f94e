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

bool krelIniPort::writePort(const BYTE* pBuffer, DWORD cbBuf, DWORD* pcbWritten)
{
    return Document()->Write(pBuffer, cbBuf, pcbWritten);
}

bool krelIniPort::readPort(BYTE* pBuffer, DWORD cbBuffer, DWORD* pcbRead)
{
    return Document()->Read(pBuffer, cbBuffer, pcbRead);
}

bool krelIniPort::endDocPort()
{
    Document()->Finish();
    return true;
}

bool krelIniPort::getPrinterDataFromPort(DWORD ControlID, LPCWSTR, const void* lpInBuffer, DWORD cbInBuffer,
                                         void* lpOutBuffer, DWORD cbOutBuffer, DWORD* lpcbReturned)
{
    return Document()->Query(ControlID, lpInBuffer, cbInBuffer, lpOutBuffer, cbOutBuffer, lpcbReturned);
}

void krelIniPort::Cleanup()
{
    Document()->End();
}

void krelIniPort::RememberRestart(DWORD jobId)
{
    CLockScope held(lock);
    restartedJobId = jobId;
}

bool krelIniPort::IsSecondRun(DWORD jobId)
{
    CLockScope held(lock);
    const bool isSecondRun = jobId != 0 && jobId == restartedJobId;
    if (jobId != 0 && !isSecondRun)
        restartedJobId = 0;
    return isSecondRun;
}
