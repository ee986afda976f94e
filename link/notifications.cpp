// Keep-alives and LPQInfo notifications: the messages that the server sends unasked, and the one
// routine through which all of them pass.

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/command_channel_message.h"
#include "link/thread_mark.h"
#include "link/wire_codes.h"

namespace {

constexpr LONG kCancelledAtServer = 9;

// A pass of the worker's over the socket that lasts longer goes on in another tick, at once: notifications
// without end must not keep it from testing the silence, or from sending its own keep-alives.
constexpr DWORD kLongestPassMs = 1000;

bool IsIoctl(const CCommandChannelMessage& message, DWORD requestId)
{
    return message.type == COMMAND_TYPE_IOCTL && message.requestId == requestId;
}

}  // namespace

LPQInfo CCommandChannel::GetLPQInfo()
{
    CLockScope state(stateLock);
    return lpqInfo;
}

// Under the first version the server's keep-alives carry the number of the request that started them.
DWORD CCommandChannel::KeepAliveId() const
{
    return FirstProtocolVersion() < GetProtocolVersion() ? IOCTL_KREL_KEEP_ALIVE
                                                         : IOCTL_KREL_START_KEEP_ALIVES;
}

// receiveLock is held from before the request goes out: the first record has the number of any
// notification, and the worker would take it for one.
bool CCommandChannel::StartLPQInfoNotifications()
{
    CFunctionTrace trace("CCommandChannel::StartLPQInfoNotifications");
    CLockScope requesting(requestLock);
    CLockScope receiving(receiveLock);
    const CCommandChannelMessage request(COMMAND_TYPE_IOCTL, IOCTL_KREL_LPQINFO, LPQInfo::kWireSize);
    if (!request.Send(*this)) {
        trace.Fail("Failed to send request to start LPQInfo notifications.");
        return false;
    }
    return AwaitFirstRecord(trace);
}

bool CCommandChannel::AwaitFirstRecord(CFunctionTrace& trace)
{
    for (;;) {
        CCommandChannelMessage message;
        if (!message.Receive(*this)) {
            trace.Fail("Failed to receive a response to 'start LPQInfo notifications' request.");
            return false;
        }
        if (!IsIoctl(message, KeepAliveId()))
            return StoreFirstRecord(message, trace);
        if (message.replyLengthOrError != 0) {
            trace.Fail(
                "Received asynchronous keep-alive message while waiting for a response to 'start LPQInfo "
                "notifications' request - but the message indicated an error %i.",
                message.replyLengthOrError);
            return false;
        }
        lastKeepAliveReceived = GetTickCount();
        trace.Log(krelpmEventInfo,
                  "Received asynchronous keep-alive message while waiting for a response to 'start LPQInfo "
                  "notifications' request.");
    }
}

bool CCommandChannel::StoreFirstRecord(const CCommandChannelMessage& message, CFunctionTrace& trace)
{
    const bool answers = IsIoctl(message, IOCTL_KREL_LPQINFO);
    if (answers && message.replyLengthOrError != 0) {
        trace.Fail("Response to 'start LPQInfo notifications' request reported error %i.",
                   message.replyLengthOrError);
        return false;
    }
    CLockScope state(stateLock);
    if (!answers || !lpqInfo.Decode(message.data.get(), message.length)) {
        trace.Fail(
            "Received an unexpected response to 'start LPQInfo notifications' request: type %i, request id "
            "%i.",
            message.type, message.requestId);
        return false;
    }
    trace.Log(krelpmEventInfo, "Received initial LPQInfo notification: %s.", lpqInfo.ToString().text);
    return true;
}

bool CCommandChannel::ProcessAsyncMessages(CCommandChannelMessage* reply)
{
    CFunctionTrace trace("CCommandChannel::ProcessAsyncMessages");
    if (reply) {
        CLockScope receiving(receiveLock);
        return TakeAsyncMessages(reply, trace);
    }
    // A spooler's thread may sit in recv with this lock until the printer answers. It takes the
    // asynchronous messages meanwhile, and this thread has a silence to notice.
    CTryLockScope receiving(receiveLock);
    return !receiving.IsHeld() || TakeAsyncMessages(nullptr, trace);
}

bool CCommandChannel::TakeAsyncMessages(CCommandChannelMessage* reply, CFunctionTrace& trace)
{
    const bool blocking = reply != nullptr;
    DWORD begun = GetTickCount();
    while (IsConnected()) {
        CCommandChannelMessage message;
        if (!NextMessage(message, blocking)) {
            if (blocking)
                trace.Fail("Failed to extract the next message.");
            return !blocking;
        }
        const bool isKeepAlive = IsIoctl(message, KeepAliveId());
        if (!isKeepAlive && !IsIoctl(message, IOCTL_KREL_LPQINFO)) {
            if (reply)
                *reply = std::move(message);
            return true;
        }
        if (!blocking && !message.Receive(*this))
            return true;
        if (isKeepAlive) {
            trace.Log(krelpmEventInfo, "Received a keep-alive.");
            lastKeepAliveReceived = GetTickCount();
        } else if (StoreNotification(message, trace)) {
            begun = GetTickCount();  // the pass isn't over: a keep-alive may have come meanwhile
        }
        if (!blocking && GetTickCount() - begun >= kLongestPassMs) {
            passCutShort = true;
            return true;
        }
    }
    return !blocking;
}

bool CCommandChannel::NextMessage(CCommandChannelMessage& message, bool blocking)
{
    if (blocking)
        return message.Receive(*this);
    return BytesAvailable() >= static_cast<LONG>(CCommandChannelMessage::kHeaderSize) && message.Peek(*this);
}

// True when it had the spooler delete the job, which may take any time.
bool CCommandChannel::StoreNotification(const CCommandChannelMessage& message, CFunctionTrace& trace)
{
    CLockScope state(stateLock);
    if (!lpqInfo.Decode(message.data.get(), message.length)) {
        trace.Log(krelpmEventWarning, "Ignoring an LPQInfo notification of %i bytes.", message.length);
        return false;
    }
    trace.Log(krelpmEventInfo, "Received asynchronous LPQInfo notification: %s.", lpqInfo.ToString().text);
    if (lpqInfo.boundJobState != kCancelledAtServer)
        return false;
    const std::shared_ptr<CChannelOwner> document = owner.lock();
    if (!document)
        return false;
    const CThreadMark cancelling(cancellingThread);
    document->CancelCurrentPrintJob();
    return true;
}
