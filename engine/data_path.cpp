// A document's bytes, to the printer and back.

#include <algorithm>

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/data_channel.h"
#include "monitor/ini_port.h"

namespace {

// The spooler may leave out its count.
void Store(DWORD* count, DWORD value)
{
    if (count)
        *count = value;
}

}  // namespace

// The job waits in the print server's queue: nothing is taken from it, and the spooler asks again.
bool krelIniPort::IsQueued(CCommandChannel* channel) const
{
    return channel && channel->GetLPQInfo().queuePosition > 0;
}

bool krelIniPort::writePort(const BYTE* pBuffer, DWORD cbBuf, DWORD* pcbWritten)
{
    CFunctionTrace trace("krelIniPort::writePort");
    if (!SetUpDataChannelOnce()) {
        trace.Fail("Failed to setup communication channels.");
        return false;
    }
    const auto [data, command] = Channels();
    if (!data) {
        trace.Fail("Data channel not setup.");
        return false;
    }
    if (IsQueued(command.get())) {
        Store(pcbWritten, 0);
        return true;
    }
    DWORD sent = 0;
    const bool allSent = data->Send(pBuffer, cbBuf, &sent);
    Store(pcbWritten, sent);
    if (!allSent) {
        HandleErrorInPrintJob();
        trace.Fail("Failed to send data to command channel.");
    }
    return allSent;
}

bool krelIniPort::readPort(BYTE* pBuffer, DWORD cbBuffer, DWORD* pcbRead)
{
    CFunctionTrace trace("krelIniPort::readPort");
    if (!SetUpDataChannelOnce()) {
        trace.Fail("Failed to setup communication channels.");
        return false;
    }
    const auto [data, command] = Channels();
    if (!data || !command) {
        trace.Fail("Data or command channel not setup.");
        return false;
    }
    if (IsQueued(command.get())) {
        Store(pcbRead, 0);
        return true;
    }
    DWORD available = 0;
    if (!command->StartParallelRead(static_cast<SHORT>(cbBuffer & 0xFFFF), &available)) {
        HandleErrorInPrintJob();
        trace.Fail("Failed to initiate parallel read.");
        return false;
    }
    // What the server offers beyond the buffer stays on the socket for the next read.
    const DWORD wanted = std::min(available, cbBuffer);
    DWORD received = 0;
    if (wanted != 0 && !data->Receive(pBuffer, wanted, &received)) {
        HandleErrorInPrintJob();
        trace.Fail("Failed to receive data from the printer.");
        return false;
    }
    Store(pcbRead, received);
    return true;
}
