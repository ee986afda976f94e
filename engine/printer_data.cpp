// Printer data queries of the spooler.

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "monitor/ini_port.h"

bool krelIniPort::getPrinterDataFromPort(DWORD ControlID, LPCWSTR, const void* lpInBuffer, DWORD cbInBuffer,
                                         void* lpOutBuffer, DWORD cbOutBuffer, DWORD* lpcbReturned)
{
    CFunctionTrace trace("krelIniPort::getPrinterDataFromPort");
    if (ControlID == 0) {
        trace.Fail("GetPrinterDataFromPort() should not be called with ControlID == 0.");
        return false;
    }
    if (!OpenCommandChannelOnce(trace))
        return false;
    const std::shared_ptr<CCommandChannel> command = CommandChannel();
    if (!command || IsDeleted()) {
        trace.Fail("Command channel not setup.");
        return false;
    }
    if (!command->IsConnected()) {
        trace.Fail(
            "Failed to get printer data from port because the data channel for the current print job is not "
            "connected.");
        return false;
    }
    DWORD uncounted;
    DWORD* const returned = lpcbReturned ? lpcbReturned : &uncounted;
    if (!IsInChannelMode() && IsQueued(command.get())) {
        *returned = 0;
        return true;
    }
    if (!command->GetPrinterDataFromPort(ControlID, lpInBuffer, lpInBuffer ? cbInBuffer : 0, lpOutBuffer,
                                         lpOutBuffer ? cbOutBuffer : 0, returned)) {
        trace.Fail("Failed to get printer data from port.");
        return false;
    }
    return true;
}

// In channel mode a query is as a rule a port's first use. Old print servers answer it only beside a data
// channel, though no byte passes through that.
bool krelIniPort::OpenCommandChannelOnce(CFunctionTrace& trace)
{
    CLockScope setup(setupSection);
    DWORD document;
    if (!CanSetUp(&document) || CommandChannel())
        return true;
    bool open = SetupCommunicationChannels(false, document);
    const std::shared_ptr<CCommandChannel> command = CommandChannel();
    if (open && command && command->GetProtocolVersion() < CommandChannelAloneVersion()) {
        trace.Log(
            krelpmEventWarning,
            "Getting printer data from port relying on (unused) data channel - consider upgrading printer "
            "firmware.");
        open = SetupCommunicationChannels(true, document);
    }
    if (!open)
        trace.Fail("Failed to setup communication channels.");
    return open;
}
