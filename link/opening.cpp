// What CCommandChannel does from the connect to the start of keep-alives.

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/command_channel_message.h"
#include "link/data_channel.h"
#include "link/wire_codes.h"
#include "link/wire_format.h"

namespace {

constexpr DWORD kPollPauseMs = 100;
constexpr int kVersionPolls = 30;
constexpr int kBindPolls = 10;
constexpr DWORD kLargestVersionReply = 32;

}  // namespace

// Tells the worker that the channel is being opened: it tests the silence and does nothing else.
class COpeningMark {
public:
    explicit COpeningMark(CCommandChannel& marked) : channel(marked) { channel.opening = true; }
    ~COpeningMark() { channel.opening = false; }
    COpeningMark(const COpeningMark&) = delete;
    COpeningMark& operator=(const COpeningMark&) = delete;

private:
    CCommandChannel& channel;
};

bool CCommandChannel::Open()
{
    CFunctionTrace trace("CCommandChannel::Open");
    CLockScope requesting(requestLock);
    CLockScope receiving(receiveLock);
    CLockScope state(stateLock);
    COpeningMark mark(*this);
    lastKeepAliveReceived = GetTickCount();
    if (!Connect()) {
        trace.Fail("Failed to connect underlying CSyncSocket.");
        return false;
    }
    if (!GetCommProtocolVersion()) {
        trace.Fail("Failed to get protocol version.");
        return false;
    }
    const std::shared_ptr<CDataChannel> data = Companion();
    if (data && !BindSession(static_cast<WORD>(data->sessionId & 0xFFFF))) {
        trace.Fail("Failed to bind command channel to data channel id = %i.", data->sessionId);
        return false;
    }
    if (!StartKeepAliveNotifications()) {
        trace.Fail("Failed to start notifications.");
        return false;
    }
    return true;
}

// True when a whole message lies on the socket. The pause comes after each look, the last one included.
bool CCommandChannel::PollForMessage(CCommandChannelMessage& message, int polls)
{
    for (int poll = 0; poll < polls && !IsAbandoned(); ++poll) {
        if (BytesAvailable() >= static_cast<LONG>(CCommandChannelMessage::kHeaderSize) && message.Peek(*this))
            return true;
        Sleep(kPollPauseMs);
    }
    return false;
}

bool CCommandChannel::GetCommProtocolVersion()
{
    CFunctionTrace trace("CCommandChannel::GetCommProtocolVersion");
    const CCommandChannelMessage request(COMMAND_TYPE_IOCTL, IOCTL_KREL_GET_COMM_PROTOCOL_VERSION,
                                         kLargestVersionReply);
    if (!request.Send(*this)) {
        trace.Fail("Failed to send request to get communcation protocol version.");
        return false;
    }
    CCommandChannelMessage reply;
    if (!PollForMessage(reply, kVersionPolls)) {
        trace.Fail("Timed-out while waiting for protocol version.");
        return false;
    }
    if (!reply.Receive(*this))
        return false;
    if (!Answers(request, reply, "Received unexpected response. ", trace))
        return false;
    CCommProtocolVersion version = protocolVersion;
    if (!version.Initialize(reply)) {
        trace.Fail("Failed to extract version info from received response.");
        return false;
    }
    protocolVersion = version;
    return true;
}

bool CCommandChannel::BindSession(WORD sessionId)
{
    CFunctionTrace trace("CCommandChannel::BindSession");
    CCommandChannelMessage request(COMMAND_TYPE_IOCTL, IOCTL_KREL_BIND_SESSION, 0);
    BYTE payload[2];
    StoreBig16(payload, sessionId);
    request.SetPayload(payload, sizeof payload);
    if (!request.Send(*this)) {
        trace.Fail("Failed to send request to bind session.");
        return false;
    }
    CCommandChannelMessage reply;
    if (!PollForMessage(reply, kBindPolls)) {
        trace.Fail("Timed-out while waiting for confirmation of the bind request.");
        return false;
    }
    if (!reply.Receive(*this))
        return false;
    return Answers(request, reply, "Received unexpected response.", trace) &&
           HasSucceeded(reply, "Received response indicates error", trace);
}

// Servers above the first version are told the timeout too, since they watch the monitor in turn.
bool CCommandChannel::StartKeepAliveNotifications()
{
    CFunctionTrace trace("CCommandChannel::StartKeepAliveNotifications");
    CCommandChannelMessage request(COMMAND_TYPE_IOCTL, IOCTL_KREL_START_KEEP_ALIVES, 0);
    BYTE payload[4];
    StoreBig16(payload, static_cast<WORD>(keepAlivePeriod));
    StoreBig16(payload + 2, static_cast<WORD>(keepAliveTimeout));
    request.SetPayload(payload, FirstProtocolVersion() < GetProtocolVersion() ? 4 : 2);
    if (!request.Send(*this)) {
        trace.Fail("Failed to send request to start keep alives.");
        return false;
    }
    CCommandChannelMessage reply;
    if (!reply.Receive(*this)) {
        trace.Fail("Failed to receive a response to 'start keep alives' request.");
        return false;
    }
    if (!Answers(request, reply, "Received an unexpected response to 'start keep alives' request. ", trace) ||
        !HasSucceeded(reply, "Response to 'start keep alives' request reported error", trace))
        return false;
    lastKeepAliveReceived = GetTickCount();
    return true;
}
