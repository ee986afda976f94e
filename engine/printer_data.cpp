// Printer data queries of the spooler.

#include "diagnostics/function_trace.h"
#include "engine/document.h"
#include "link/command_channel.h"

bool CDocument::Query(DWORD controlId, const void* input, DWORD inputSize, void* output, DWORD outputSize,
                      DWORD* returned)
{
    CFunctionTrace trace("krelIniPort::getPrinterDataFromPort");
    if (controlId == 0) {
        trace.Fail("GetPrinterDataFromPort() should not be called with ControlID == 0.");
        return false;
    }
    const auto ask = [&] {
        return Ask(controlId, input, input ? inputSize : 0, output, output ? outputSize : 0, returned, trace);
    };
    if (!NeedsSetupLock())
        return ask();
    CLockScope connecting(setupLock);
    return ConnectForQueries(trace) && ask();
}

bool CDocument::Ask(DWORD controlId, const void* input, DWORD inputSize, void* output, DWORD outputSize,
                    DWORD* returned, CFunctionTrace& trace)
{
    const std::shared_ptr<CCommandChannel> command = ChannelsInUse().command;
    if (!command) {
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
    if (!returned)
        returned = &uncounted;
    if (!inChannelMode && IsQueued(command.get())) {
        *returned = 0;
        return true;
    }
    if (!command->GetPrinterDataFromPort(controlId, input, inputSize, output, outputSize, returned)) {
        trace.Fail("Failed to get printer data from port.");
        return false;
    }
    return true;
}
