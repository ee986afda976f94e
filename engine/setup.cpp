// How a port connects to its print server.

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/data_channel.h"
#include "monitor/ini_port.h"

namespace {

constexpr DWORD kCommandPortOffset = 2;

}  // namespace

// Any failure, an exception included, takes the whole port back to idle.
bool krelIniPort::SetupCommunicationChannels(bool useDataChannel)
{
    CFunctionTrace trace("krelIniPort::SetupCommunicationChannels");
    try {
        DropChannels();  // a query in channel mode may have left a command channel without a data channel
        if (SetUpAndOpen(useDataChannel, trace))
            return true;
    } catch (...) {
        Cleanup();
        throw;
    }
    Cleanup();
    return false;
}

bool krelIniPort::SetUpAndOpen(bool useDataChannel, CFunctionTrace& trace)
{
    std::shared_ptr<CDataChannel> data;
    if (useDataChannel) {
        data = MakeDataChannel();
        if (!data) {
            trace.Fail("Failed to open data channel.");
            return false;
        }
    }
    bool workerRuns = false;
    const std::shared_ptr<CCommandChannel> command = MakeCommandChannel(data, &workerRuns);
    if (!command) {
        trace.Fail("Failed to open command channel.");
        return false;
    }
    if (!workerRuns) {
        trace.Fail("Failed to initialize keep-alives.");
        return false;
    }
    return OpenChannels(*command, data.get(), trace);
}

// Null when the socket library refuses, or the port was deleted meanwhile.
std::shared_ptr<CDataChannel> krelIniPort::MakeDataChannel()
{
    const krelPortSettings used = Settings();
    try {
        auto made = std::make_shared<CDataChannel>(used.server, used.portNumber);
        CLockScope state(stateSection);
        if (deleted)
            return nullptr;
        dataChannel = made;
        return made;
    } catch (const char*) {
        return nullptr;  // the reason stands in the log
    }
}

// The worker starts before anything is connected: its silence test watches over the opening too.
std::shared_ptr<CCommandChannel> krelIniPort::MakeCommandChannel(std::shared_ptr<CDataChannel> data,
                                                                 bool* workerRuns)
{
    const krelPortSettings used = Settings();
    std::shared_ptr<CCommandChannel> made;
    try {
        made = std::make_shared<CCommandChannel>(this, used.server, used.portNumber + kCommandPortOffset,
                                                 static_cast<SHORT>(used.keepAlivePeriod),
                                                 static_cast<SHORT>(used.keepAliveTimeout));
    } catch (const char*) {
        return nullptr;
    }
    {
        CLockScope state(stateSection);
        if (deleted)
            return nullptr;
        commandChannel = made;
    }
    *workerRuns = made->InitializeKeepAlives(std::move(data));
    return made;
}

// The data channel goes first, because the command channel binds itself to its session.
bool krelIniPort::OpenChannels(CCommandChannel& command, CDataChannel* data, CFunctionTrace& trace)
{
    if (data && !data->Open()) {
        trace.Fail("Failed to open data channel.");
        return false;
    }
    if (!command.Open()) {
        trace.Fail("Failed to open command channel.");
        return false;
    }
    if (!data)
        return true;
    if (IsInChannelMode() && !command.SuppressSysLogMessage()) {
        trace.Fail("Failed to suppress system log messages.");
        return false;
    }
    if (!command.StartLPQInfoNotifications()) {
        trace.Fail("Failed to start LPQInfo notifications.");
        return false;
    }
    return true;
}

// The first write or read of a document in channel mode makes both channels; later ones find them.
bool krelIniPort::SetUpDataChannelOnce()
{
    CLockScope setup(setupSection);
    return !IsInChannelMode() || DataChannel() || SetupCommunicationChannels(true);
}
