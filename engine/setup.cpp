// How a document connects to its print server.

#include "diagnostics/function_trace.h"
#include "engine/document.h"
#include "link/command_channel.h"
#include "link/data_channel.h"

bool CDocument::SetupCommunicationChannels(bool useDataChannel)
{
    CFunctionTrace trace("krelIniPort::SetupCommunicationChannels");
    try {
        DropChannels();
        if (MakeChannels(useDataChannel, trace)) {
            CLockScope held(lock);
            bothStand = useDataChannel;
            return true;
        }
    } catch (...) {
        End();
        throw;
    }
    End();
    return false;
}

// A query in channel mode may have left a command channel without a data channel.
void CDocument::DropChannels()
{
    Channels dropped;
    {
        CLockScope held(lock);
        dropped = {std::move(dataChannel), std::move(commandChannel)};
    }
    ShutDown(std::move(dropped));
}

bool CDocument::MakeChannels(bool useDataChannel, CFunctionTrace& trace)
{
    const krelPortSettings used = owner.Settings();
    std::shared_ptr<CDataChannel> data;
    if (useDataChannel) {
        data = MakeChannel(&CDocument::dataChannel, used.server, used.portNumber);
        if (!data) {
            trace.Fail("Failed to open data channel.");
            return false;
        }
    }
    const std::shared_ptr<CCommandChannel> command = MakeChannel(
        &CDocument::commandChannel, shared_from_this(), used.server, used.portNumber + kCommandPortOffset,
        static_cast<SHORT>(used.keepAlivePeriod), static_cast<SHORT>(used.keepAliveTimeout));
    if (!command) {
        trace.Fail("Failed to open command channel.");
        return false;
    }
    // The worker starts before anything is connected: its silence test watches over the opening too.
    if (!command->InitializeKeepAlives(data)) {
        trace.Fail("Failed to initialize keep-alives.");
        return false;
    }
    return OpenChannels(*command, data.get(), trace);
}

// Null when the socket library refuses, or the document or the port has ended meanwhile.
template <class Channel, class... Args>
std::shared_ptr<Channel> CDocument::MakeChannel(std::shared_ptr<Channel> CDocument::*field,
                                                const Args&... args)
try {
    auto made = std::make_shared<Channel>(args...);
    CLockScope held(lock);
    if (state != State::Open || abandoned)
        return nullptr;
    this->*field = made;
    return made;
} catch (const char*) {
    return nullptr;  // the reason stands in the log
}

// The data channel goes first, because the command channel binds itself to its session.
bool CDocument::OpenChannels(CCommandChannel& command, CDataChannel* data, CFunctionTrace& trace)
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
    if (inChannelMode && !command.SuppressSysLogMessage()) {
        trace.Fail("Failed to suppress system log messages.");
        return false;
    }
    if (!command.StartLPQInfoNotifications()) {
        trace.Fail("Failed to start LPQInfo notifications.");
        return false;
    }
    return true;
}

bool CDocument::MayConnect() const
{
    CLockScope held(lock);
    return state == State::Open && !abandoned;
}

// In channel mode, until both channels stand. Not from inside a cancellation, of whichever channel: a thread
// with the lock may be waiting for that one, or for what it holds.
bool CDocument::NeedsSetupLock() const
{
    if (!inChannelMode)
        return false;
    CLockScope held(lock);
    return !bothStand && cancellingThread != GetCurrentThreadId();
}

// In channel mode the first write or read makes both channels, and later ones find them.
bool CDocument::ConnectForData()
{
    if (!NeedsSetupLock())
        return true;
    CLockScope connecting(setupLock);
    return !MayConnect() || ChannelsInUse().data || SetupCommunicationChannels(true);
}

// In channel mode a query is usually the first call. Old print servers answer it only beside a data
// channel, though no byte passes through that.
bool CDocument::ConnectForQueries(CFunctionTrace& trace)
{
    if (!MayConnect() || ChannelsInUse().command)
        return true;
    bool open = SetupCommunicationChannels(false);
    const std::shared_ptr<CCommandChannel> command = ChannelsInUse().command;
    if (open && command && command->GetProtocolVersion() < CommandChannelAloneVersion()) {
        trace.Log(
            krelpmEventWarning,
            "Getting printer data from port relying on (unused) data channel - consider upgrading printer "
            "firmware.");
        open = SetupCommunicationChannels(true);
    }
    if (!open)
        trace.Fail("Failed to setup communication channels.");
    return open;
}
