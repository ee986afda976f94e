// A document's bytes, to the printer and back.

#include <algorithm>

#include "diagnostics/function_trace.h"
#include "engine/document.h"
#include "link/command_channel.h"
#include "link/data_channel.h"

namespace {

// The spooler may leave out its count.
void Store(DWORD* count, DWORD value)
{
    if (count)
        *count = value;
}

}  // namespace

// The job waits in the print server's queue: nothing is taken from it, and the spooler asks again.
bool CDocument::IsQueued(CCommandChannel* command)
{
    return command && command->GetLPQInfo().queuePosition > 0;
}

bool CDocument::Write(const BYTE* buffer, DWORD size, DWORD* written)
{
    CFunctionTrace trace("krelIniPort::writePort");
    if (!ConnectForData()) {
        trace.Fail("Failed to setup communication channels.");
        return false;
    }
    const auto [data, command] = ChannelsInUse();
    if (!data) {
        trace.Fail("Data channel not setup.");
        return false;
    }
    if (IsQueued(command.get())) {
        Store(written, 0);
        return true;
    }
    DWORD sent = 0;
    const bool allSent = data->Send(buffer, size, &sent);
    Store(written, sent);
    if (!allSent) {
        HandleErrorInPrintJob(State::Open);
        trace.Fail("Failed to send data to command channel.");
    }
    return allSent;
}

bool CDocument::Read(BYTE* buffer, DWORD size, DWORD* read)
{
    CFunctionTrace trace("krelIniPort::readPort");
    if (!ConnectForData()) {
        trace.Fail("Failed to setup communication channels.");
        return false;
    }
    const auto [data, command] = ChannelsInUse();
    if (!data || !command) {
        trace.Fail("Data or command channel not setup.");
        return false;
    }
    if (IsQueued(command.get())) {
        Store(read, 0);
        return true;
    }
    DWORD available = 0;
    if (!command->StartParallelRead(static_cast<SHORT>(size & 0xFFFF), &available)) {
        HandleErrorInPrintJob(State::Open);
        trace.Fail("Failed to initiate parallel read.");
        return false;
    }
    // What the server offers beyond the buffer stays on the socket for the next read.
    const DWORD wanted = std::min(available, size);
    DWORD received = 0;
    if (wanted != 0 && !data->Receive(buffer, wanted, &received)) {
        HandleErrorInPrintJob(State::Open);
        trace.Fail("Failed to receive data from the printer.");
        return false;
    }
    Store(read, received);
    return true;
}
