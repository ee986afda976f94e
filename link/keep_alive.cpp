// The worker of CCommandChannel: watches the server's silence and keeps the link alive.

#include "diagnostics/function_trace.h"
#include "diagnostics/thread_port_tag.h"
#include "link/command_channel.h"
#include "link/command_channel_message.h"
#include "link/data_channel.h"
#include "link/wire_codes.h"

namespace {

constexpr DWORD kTickMs = 1000;
constexpr DWORD kBreathMs =
    1;  // between passes over a socket that never gets empty: others want to read it too
constexpr DWORD kWorkerEndMs = 10000;

// True when more than `seconds` have passed since `stamp`. Differences of 32 bits survive the wrap of the
// tick count. A setting with bit 15 set is negative here: its limit lies before any stamp.
bool HasExpired(DWORD stamp, SHORT seconds)
{
    const DWORD now = GetTickCount();
    return seconds < 0 || now - stamp > static_cast<DWORD>(seconds) * 1000;
}

}  // namespace

// What a worker keeps alive. The owner hears of its end when its channel is gone, and nothing else of this
// library runs on its thread then.
struct CCommandChannel::WorkerReferences {
    explicit WorkerReferences(CCommandChannel& watched)
        : channel(watched.shared_from_this()), owner(watched.owner.lock())
    {
        if (owner)
            owner->WorkerBegins();
    }
    ~WorkerReferences()
    {
        channel.reset();
        if (owner)
            owner->WorkerEnds();
    }
    WorkerReferences(const WorkerReferences&) = delete;
    WorkerReferences& operator=(const WorkerReferences&) = delete;

    std::shared_ptr<CCommandChannel> channel;
    const std::shared_ptr<CChannelOwner> owner;
};

bool CCommandChannel::InitializeKeepAlives(std::shared_ptr<CDataChannel> channel)
{
    CFunctionTrace trace("CCommandChannel::InitializeKeepAlives");
    auto references = std::make_unique<WorkerReferences>(*this);
    CLockScope starting(workerLock);
    dataChannel = std::move(channel);
    exitEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!exitEvent) {
        trace.Fail("Failed to create event to signal worker thread to exit.");
        return false;
    }
    const HANDLE started = IsAbandoned() ? nullptr
                                         : CreateThread(nullptr, 0, &CCommandChannel::ThreadProc,
                                                        references.get(), 0, &workerThreadId);
    if (!started) {
        trace.Fail("Failed to create worker thread.");
        return false;
    }
    (void)references.release();  // the worker's own
    workerThread = started;
    return true;
}

DWORD WINAPI CCommandChannel::ThreadProc(LPVOID argument)
{
    const std::unique_ptr<WorkerReferences> references(static_cast<WorkerReferences*>(argument));
    CCommandChannel& channel = *references->channel;
    const CThreadPortTag tag(references->owner ? channel.ServerName().c_str() : nullptr,
                             static_cast<WORD>(channel.ServerPort() - kCommandPortOffset));
    channel.RunWorker();
    return 0;
}

void CCommandChannel::RunWorker()
{
    CFunctionTrace trace("CCommandChannel::ThreadProc");
    for (;;) {
        const DWORD waited = WaitForSingleObject(exitEvent, passCutShort ? kBreathMs : kTickMs);
        if (waited == WAIT_OBJECT_0)
            break;
        if (waited == WAIT_FAILED)
            Sleep(kTickMs);
        try {
            Tick(trace);
        } catch (...) {
            // Out of memory: the message stays on the socket for the next tick, and the silence test
            // needs none.
        }
    }
    trace.Log(krelpmEventInfo, "Received signal to exit.");
}

void CCommandChannel::Tick(CFunctionTrace& trace)
{
    passCutShort = false;
    if (HasExpired(lastKeepAliveReceived, keepAliveTimeout)) {
        trace.Log(krelpmEventInfo, "Failed to receive keep-alives => disconnecting.");
        DisconnectBoth();
    } else if (IsAbandoned()) {
        DisconnectBoth();  // once more, for a call that was not yet blocked when it was to be woken
    }
    // In this order: the mark is set before the socket can be there.
    if (!IsConnected() || opening)
        return;
    (void)ProcessAsyncMessages(nullptr);
    if (FirstProtocolVersion() < GetProtocolVersion() && HasExpired(lastKeepAliveSent, keepAlivePeriod))
        SendDueKeepAlive(trace);
}

// Never waits: a frame that another thread has under way, or a peer that takes no bytes, puts the
// keep-alive off to the next tick, because this thread is the one that has to notice the peer's silence.
void CCommandChannel::SendDueKeepAlive(CFunctionTrace& trace)
{
    CTryLockScope sending(sendLock);
    if (!sending.IsHeld() || !CanSendAtOnce())
        return;
    if (SendKeepAlive()) {
        trace.Log(krelpmEventInfo, "Sent keep-alive.");
    } else {
        trace.Log(krelpmEventInfo, "Failed to send keep-alives => disconnecting.");
        DisconnectBoth();
    }
}

bool CCommandChannel::SendKeepAlive()
{
    CFunctionTrace trace("CCommandChannel::SendKeepAlive");
    const CCommandChannelMessage message(COMMAND_TYPE_IOCTL, IOCTL_KREL_KEEP_ALIVE, 0);
    if (!message.Send(*this)) {
        trace.Fail("Failed to send keep-alive message.");
        return false;
    }
    lastKeepAliveSent = GetTickCount();
    return true;
}

std::shared_ptr<CDataChannel> CCommandChannel::Companion()
{
    CLockScope starting(workerLock);
    return dataChannel;
}

void CCommandChannel::DisconnectBoth()
{
    CFunctionTrace trace("CCommandChannel::~Disconnect");
    if (const std::shared_ptr<CDataChannel> data = Companion())
        data->Close();
    Disconnect();
}

void CCommandChannel::Shutdown()
{
    CFunctionTrace trace("CCommandChannel::~CCommandChannel");
    Close();
}

void CCommandChannel::Close()
{
    CFunctionTrace trace("CCommandChannel::Close");
    if (const std::shared_ptr<CDataChannel> data = Companion())
        data->Abandon();
    Abandon();
    DisconnectBoth();
    HANDLE worker;
    bool isWorker;
    {
        CLockScope starting(workerLock);
        worker = workerThread;
        isWorker = workerThreadId == GetCurrentThreadId();
    }
    if (!worker)
        return;
    (void)SetEvent(exitEvent);
    // A worker that is still out comes back into this code, whatever the spooler unloads by then.
    if (isWorker || WaitForSingleObject(worker, kWorkerEndMs) != WAIT_OBJECT_0)
        PinModule(reinterpret_cast<const void*>(&CCommandChannel::ThreadProc));
}
