#pragma once

#include <atomic>
#include <memory>

#include "diagnostics/locks.h"
#include "link/channel_owner.h"
#include "link/comm_protocol_version.h"
#include "link/lpq_info.h"
#include "link/sync_socket.h"

class CCommandChannelMessage;
class CDataChannel;
class CFunctionTrace;

// The command channel's TCP port number is the data channel's plus this.
constexpr DWORD kCommandPortOffset = 2;

// One document's command connection to the print server: version, session, keep-alives, notifications
// and requests. Its worker thread watches the link from InitializeKeepAlives to Shutdown and is the only
// time limit that a blocked call on either channel has.
//
// Life: made with std::make_shared by a document's set-up; InitializeKeepAlives; Open; any mix of the
// others; Shutdown, once, by whoever takes it out of the document. Calls and the worker hold references, so
// that it lives until the last of them is out. It is not reopened.
//
// Locks, in the order in which they are taken: requestLock, receiveLock, stateLock; sendLock and the
// socket's handle lock and workerLock are leaves. The worker waits for none that is held while somebody waits
// for the peer.
class CCommandChannel : public CSyncSocket, public std::enable_shared_from_this<CCommandChannel> {
public:
    // No network traffic. The keep-alive clocks run from here. Periods are in seconds; the worker takes
    // their 16 bits with their sign. `owner` may be null.
    CCommandChannel(const std::shared_ptr<CChannelOwner>& owner, LPCWSTR address, DWORD port,
                    SHORT keepAlivePeriod, SHORT keepAliveTimeout);
    ~CCommandChannel();

    // --- opening.cpp: on the spooler's thread that sets the channels up ---

    // Connects, asks for the version, binds to the data channel's session and starts keep-alives. Doesn't
    // disconnect when it fails. The worker ends an attempt that hangs longer than keepAliveTimeout.
    bool Open();
    CCommProtocolVersion GetProtocolVersion() const { return protocolVersion; }

    // --- keep_alive.cpp ---

    // Starts the worker, before anything is connected. The data channel, which may be null, is closed
    // together with this one when the link is lost. False also when the channel was shut down before.
    bool InitializeKeepAlives(std::shared_ptr<CDataChannel> dataChannel);

    // Closes both connections, the data channel first. Any thread.
    void DisconnectBoth();

    // Ends the channel: both connections and the worker, for which it waits at most 10 s (not at all on
    // the worker's own thread). A worker that is still running then, as a rule stuck in a call of the
    // spooler's, holds its own references and finds nothing destroyed. The caller holds no lock that
    // such a call could need.
    void Shutdown();

    // --- notifications.cpp ---

    // Asks for LPQInfo notifications and takes the first record. Blocks until the server answers.
    bool StartLPQInfoNotifications();

    // Takes keep-alives and notifications off the socket. With a reply message: blocks until any other
    // message comes and hands it over; false when the link is gone. With null, for the worker: takes what
    // is there in whole, leaves anything else on the socket, never blocks and never fails.
    bool ProcessAsyncMessages(CCommandChannelMessage* reply);

    // The last record; all -1 before the first. Any thread.
    LPQInfo GetLPQInfo();

    // True on the thread that is telling the owner of a cancelled job. It holds the locks of this channel,
    // which another thread may be waiting for: it must wait for none of what that one holds, and its requests
    // fail at once.
    bool IsCancelling() const { return cancellingThread == GetCurrentThreadId(); }

    // --- requests.cpp: on the spooler's threads, one request and its reply at a time ---

    // Passes a query through to the printer. Copies at most `outputLength` bytes of the reply and stores
    // their number; on failure the outputs are as they were. The input is copied before anything is sent.
    bool GetPrinterDataFromPort(DWORD controlId, const void* input, DWORD inputLength, void* output,
                                DWORD outputLength, DWORD* returned);
    // Keeps this session's work out of the server's system log.
    bool SuppressSysLogMessage();
    // Asks for bytes from the printer; `available` tells how many follow on the data channel.
    bool StartParallelRead(SHORT requestedLength, DWORD* available);

    // --- command_channel.cpp: the socket for messages ---

    // One frame at a time: two senders' bytes never mix.
    bool Send(const void* bytes, DWORD count, DWORD* sent);
    // The caller holds receiveLock, if any other thread may read.
    LONG Receive(void* buffer, DWORD count, bool peek);
    LONG BytesAvailable();

private:
    friend class COpeningMark;
    struct WorkerReferences;

    bool GetCommProtocolVersion() THREAD_ANNOTATION(requires_capability(receiveLock));
    bool BindSession(WORD sessionId) THREAD_ANNOTATION(requires_capability(receiveLock));
    bool StartKeepAliveNotifications() THREAD_ANNOTATION(requires_capability(receiveLock));
    bool PollForMessage(CCommandChannelMessage& message, int polls)
        THREAD_ANNOTATION(requires_capability(receiveLock));

    static DWORD WINAPI ThreadProc(LPVOID references);
    void RunWorker();
    void Tick(CFunctionTrace& trace);
    void SendDueKeepAlive(CFunctionTrace& trace);
    bool SendKeepAlive();
    void Close();

    bool AwaitFirstRecord(CFunctionTrace& trace) THREAD_ANNOTATION(requires_capability(receiveLock));
    bool StoreFirstRecord(const CCommandChannelMessage& message, CFunctionTrace& trace);
    bool TakeAsyncMessages(CCommandChannelMessage* reply, CFunctionTrace& trace);
    bool NextMessage(CCommandChannelMessage& message, bool blocking);
    bool StoreNotification(const CCommandChannelMessage& message, CFunctionTrace& trace);
    DWORD KeepAliveId() const;

    // Whether the reply belongs to the request, and is without an error; `complaint` begins the failure text
    // otherwise, which differs from request to request.
    static bool Answers(const CCommandChannelMessage& request, const CCommandChannelMessage& reply,
                        const char* complaint, CFunctionTrace& trace);
    static bool HasSucceeded(const CCommandChannelMessage& reply, const char* complaint,
                             CFunctionTrace& trace);
    bool Exchange(const CCommandChannelMessage& request, CCommandChannelMessage& reply);
    bool SendMessageAndGetResponse(const CCommandChannelMessage& request, CCommandChannelMessage& reply);

    std::shared_ptr<CDataChannel> Companion();

    const std::weak_ptr<CChannelOwner> owner;
    const SHORT keepAlivePeriod;
    const SHORT keepAliveTimeout;

    // The worker's silence test reads them without a lock, because Open may hold stateLock for as long
    // as the peer is silent.
    std::atomic<DWORD> lastKeepAliveReceived;
    std::atomic<DWORD> lastKeepAliveSent;
    std::atomic<bool> opening{false};
    bool passCutShort = false;  // the worker's own: there may be more to take than a tick had time for
    std::atomic<CCommProtocolVersion> protocolVersion{CCommProtocolVersion()};

    CLock workerLock;  // leaf lock, guards the next four: a shutdown may come before the worker's start
    std::shared_ptr<CDataChannel> dataChannel;
    HANDLE workerThread = nullptr;
    DWORD workerThreadId = 0;
    HANDLE exitEvent = nullptr;  // stays from the worker's start to the destructor

    std::atomic<DWORD> cancellingThread{0};  // none while 0

    CLock requestLock;  // a request and its reply are one exchange
    CLock receiveLock;  // held by whoever reads messages from the socket
    CLock stateLock;    // guards lpqInfo
    CLock sendLock;     // held while one frame goes out
    LPQInfo lpqInfo THREAD_ANNOTATION(guarded_by(stateLock));
};
