// How a port connects to its print server.

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/data_channel.h"
#include "monitor/ini_port.h"

namespace {

constexpr DWORD kCommandPortOffset = 2;

}  // namespace

// Any failure, an exception included, takes the whole port back to idle, unless another document has begun
// on it meanwhile.
bool krelIniPort::SetupCommunicationChannels(bool useDataChannel, DWORD document)
{
    CFunctionTrace trace("krelIniPort::SetupCommunicationChannels");
    try {
        // A query in channel mode may have left a command channel without a data channel.
        if (DropChannels(document, document) && SetUpAndOpen(useDataChannel, document, trace))
            return true;
    } catch (...) {
        CleanUpDocument(document);
        throw;
    }
    CleanUpDocument(document);
    return false;
}

bool krelIniPort::SetUpAndOpen(bool useDataChannel, DWORD document, CFunctionTrace& trace)
{
    const krelPortSettings used = Settings();
    std::shared_ptr<CDataChannel> data;
    if (useDataChannel) {
        data = MakeDataChannel(used, document);
        if (!data) {
            trace.Fail("Failed to open data channel.");
            return false;
        }
    }
    const std::shared_ptr<CCommandChannel> command = MakeCommandChannel(used, document);
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
std::shared_ptr<CDataChannel> krelIniPort::MakeDataChannel(const krelPortSettings& used, DWORD document)
{
    try {
        auto made = std::make_shared<CDataChannel>(used.server, used.portNumber);
        CLockScope state(stateSection);
        if (deleted || document != documentNumber)
            return nullptr;
        dataChannel = made;
        return made;
    } catch (const char*) {
        return nullptr;  // the reason stands in the log
    }
}

std::shared_ptr<CCommandChannel> krelIniPort::MakeCommandChannel(const krelPortSettings& used, DWORD document)
{
    try {
        auto made = std::make_shared<CCommandChannel>(this, used.server, used.portNumber + kCommandPortOffset,
                                                      static_cast<SHORT>(used.keepAlivePeriod),
                                                      static_cast<SHORT>(used.keepAliveTimeout));
        CLockScope state(stateSection);
        if (deleted || document != documentNumber)
            return nullptr;
        commandChannel = made;
        return made;
    } catch (const char*) {
        return nullptr;
    }
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

// Only a document in channel mode makes its channels on demand. Gives that document's number.
bool krelIniPort::CanSetUp(DWORD* document) const
{
    CLockScope state(stateSection);
    *document = documentNumber;
    return channelMode && !deleted;
}

// The first write or read of a document in channel mode makes both channels; later ones find them.
bool krelIniPort::SetUpDataChannelOnce()
{
    if (!IsInChannelMode())
        return true;
    CLockScope setup(setupSection);
    DWORD document;
    return !CanSetUp(&document) || DataChannel() || SetupCommunicationChannels(true, document);
}
