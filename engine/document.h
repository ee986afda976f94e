#pragma once

#include <atomic>
#include <memory>

#include "diagnostics/locks.h"
#include "engine/port_settings.h"
#include "link/channel_owner.h"
#include "platform/platform.h"

class CCommandChannel;
class CDataChannel;
class CDocument;
class CFunctionTrace;

// What a document asks of its port and tells it. Any thread, with locks of the document's channels held;
// none of these waits. The port outlives every call and every worker of its documents.
class CDocumentOwner {
public:
    virtual krelPortSettings Settings() const = 0;

    // Another call or worker is inside the port, or has left it. The last call out of a deleted port ends
    // its document.
    virtual void CallBegins() = 0;
    virtual void CallEnds() = 0;
    virtual void WorkerBegins() = 0;
    virtual void WorkerEnds() = 0;

    // The spooler has been asked to restart the job: its next run is to be told from a first one.
    // Job 0 is no job, and a document that isn't the port's current one is not heard.
    virtual void RememberRestart(const CDocument& asking) = 0;
    // True when its job is the one remembered. Any other job ends that memory; the same exceptions.
    virtual bool IsSecondRun(const CDocument& asking) = 0;

protected:
    ~CDocumentOwner() = default;
};

// The printer handle of a document. Whoever works with the handle holds a reference, and the last one
// gives it back to the spooler, so that a worker stuck in a spooler call never finds it closed.
class CPrinterHandle {
public:
    CPrinterHandle() = default;
    ~CPrinterHandle();
    CPrinterHandle(const CPrinterHandle&) = delete;
    CPrinterHandle& operator=(const CPrinterHandle&) = delete;

    HANDLE handle = nullptr;  // set once, before the object is shared
};

// For the spooler's calls, which refuse null.
inline HANDLE HandleOf(const std::shared_ptr<CPrinterHandle>& printer)
{
    return printer ? printer->handle : nullptr;
}

// One document on a port, from gStartDocPort to gEndDocPort: its job in the spooler and its channels. Its
// address is its identity. A call of the spooler's takes the port's document once and keeps it, so that
// whatever it still does when the document is over touches no later one.
//
// Its state moves forward only. Open: channels may be made, and a call that fails restarts the job.
// Finishing: gEndDocPort waits for the card. Ending: the channels and the printer are on their way out.
// Ended: nothing is left. A call that fails from Finishing on has lost its connection to the document's own
// end, and leaves the job alone.
//
// Spooler threads call it, each counted in the port. The scopes bear the port's name in the log.
class CDocument final : public CChannelOwner, public std::enable_shared_from_this<CDocument> {
public:
    CDocument(CDocumentOwner& owner, DWORD jobId, bool inChannelMode);
    // The document of a port that has had none yet: it has ended.
    explicit CDocument(CDocumentOwner& owner);

    // A print job that hasn't ended: it keeps the port's settings still and other print jobs out.
    bool HoldsPort() const;
    // Nobody needs to end it any more.
    bool IsOver() const;

    // --- document.cpp ---

    // Gets the printer's handle; false also when the document was ended meanwhile. A failure, an exception
    // included, ends the document.
    bool OpenDocumentPrinter(LPCWSTR printerName);

    // gEndDocPort: tells the print server that the document is whole, waits for the card, tells the
    // spooler what became of it, and ends. Does no harm to a document that is over.
    void Finish();

    // The one way out: ends the worker (waiting at most 10 s for it), drops both channels and gives the
    // printer back. Any thread, any number of times. The only lock that may be held meanwhile is setupLock,
    // by a set-up; no worker waits for that one.
    void End();

    // Ends what blocks the calls inside, and lets them make no connection any more; for them the channels
    // are gone. The document itself stays as it is, to be ended. Any thread, under any lock.
    void Abandon();

    // --- setup.cpp ---

    // Makes the channels and connects them. A failure, an exception included, ends the document.
    bool SetupCommunicationChannels(bool useDataChannel);

    // --- data_path.cpp, printer_data.cpp: as their entry functions; results go to the spooler unchanged ---

    bool Write(const BYTE* buffer, DWORD size, DWORD* written);
    bool Read(BYTE* buffer, DWORD size, DWORD* read);
    bool Query(DWORD controlId, const void* input, DWORD inputSize, void* output, DWORD outputSize,
               DWORD* returned);

    // --- job_status.cpp: for its channel ---

    void CancelCurrentPrintJob() override;
    void WorkerBegins() override { owner.WorkerBegins(); }
    void WorkerEnds() override { owner.WorkerEnds(); }

    const DWORD jobId;
    const bool inChannelMode;

private:
    enum class State { Open, Finishing, Ending, Ended };

    // Kept alive for the call that asked.
    struct Channels {
        std::shared_ptr<CDataChannel> data;
        std::shared_ptr<CCommandChannel> command;
    };

    // document.cpp
    Channels ChannelsInUse() const;
    bool IsStill(State expected) const;
    bool MayWait() const;
    bool IsAbandoned() const;
    bool TakePrinter(LPCWSTR printerName);
    State BeginFinishing(std::shared_ptr<CPrinterHandle>& used);
    void CloseDataChannel();
    bool TellSpooler(HANDLE usedPrinter, CFunctionTrace& trace);
    bool AwaitFinalState(CCommandChannel& channel, HANDLE usedPrinter, CFunctionTrace& trace);
    void MarkAsSent(HANDLE usedPrinter, CFunctionTrace& trace);
    void ReportJobStatus(HANDLE usedPrinter, CFunctionTrace& trace);
    static void ShutDown(Channels dropped);

    // setup.cpp
    void DropChannels();
    bool MakeChannels(bool useDataChannel, CFunctionTrace& trace);
    template <class Channel, class... Args>
    std::shared_ptr<Channel> MakeChannel(std::shared_ptr<Channel> CDocument::*field, const Args&... args);
    bool OpenChannels(CCommandChannel& command, CDataChannel* data, CFunctionTrace& trace);
    bool MayConnect() const;
    bool NeedsSetupLock() const;
    bool ConnectForData();
    bool ConnectForQueries(CFunctionTrace& trace) THREAD_ANNOTATION(requires_capability(setupLock));

    // data_path.cpp, printer_data.cpp
    static bool IsQueued(CCommandChannel* command);
    bool Ask(DWORD controlId, const void* input, DWORD inputSize, void* output, DWORD outputSize,
             DWORD* returned, CFunctionTrace& trace);

    // job_status.cpp
    std::shared_ptr<CPrinterHandle> Printer() const;
    bool MarkInError(State during, std::shared_ptr<CPrinterHandle>& used);
    void HandleErrorInPrintJob(State during);
    void RestartJob(HANDLE usedPrinter, CFunctionTrace& trace);

    CDocumentOwner& owner;

    // In channel mode, held while channels are made, so that two calls don't both make them; and through a
    // query over a command channel alone, which the first write or read drops for a pair.
    CLock setupLock;
    std::atomic<DWORD> cancellingThread{0};  // that is asking the spooler to delete the job; none while 0

    mutable CLock lock;  // leaf lock, guards the fields below
    State state THREAD_ANNOTATION(guarded_by(lock)) = State::Open;
    bool abandoned THREAD_ANNOTATION(guarded_by(lock)) = false;
    bool bothStand THREAD_ANNOTATION(guarded_by(lock)) = false;  // both channels are connected, or were
    bool jobInError THREAD_ANNOTATION(guarded_by(lock)) = false;
    bool jobIsRestarted THREAD_ANNOTATION(guarded_by(lock)) = false;
    std::shared_ptr<CDataChannel> dataChannel THREAD_ANNOTATION(guarded_by(lock));
    std::shared_ptr<CCommandChannel> commandChannel THREAD_ANNOTATION(guarded_by(lock));
    std::shared_ptr<CPrinterHandle> printer THREAD_ANNOTATION(guarded_by(lock));
};
