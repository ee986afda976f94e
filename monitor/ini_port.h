#pragma once

#include <memory>
#include <string>

#include "diagnostics/locks.h"
#include "platform/platform.h"

class CCommandChannel;
class CDataChannel;
class CFunctionTrace;

// What a new port has, in seconds.
constexpr WORD kDefaultKeepAlivePeriod = 5;
constexpr WORD kDefaultKeepAliveTimeout = 20;

// A port's settings that a change may touch, read or written as one: nobody sees half a change.
struct krelPortSettings {
    WCHAR server[49];
    WORD portNumber;        // of the data channel; the command channel has this number plus 2
    WORD keepAlivePeriod;   // seconds
    WORD keepAliveTimeout;  // seconds
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

// A document's job in the spooler.
struct krelJobReference {
    std::shared_ptr<CPrinterHandle> printer;  // null without a document
    DWORD jobId;

    HANDLE PrinterHandle() const { return printer ? printer->handle : nullptr; }
};

// One configured port and at most one document on it. The spooler's handle of an open port is this
// object's plain address, so a deleted port stays allocated until its monitor is destroyed; once the calls
// that the deletion met are out it has no channels, and every call on it fails or does nothing.
//
// Spooler threads call the document operations, each inside a krelPortCall. `section` guards the busy
// mark; `stateSection` is a leaf lock: nothing is called and nothing is waited for under it.
class krelIniPort {
public:
    // `server` is cut to 48 characters, `portName` to 66; the callers refuse longer ones before.
    krelIniPort(krelIniPort* next, LPCWSTR portName, LPCWSTR server, WORD portNumber);
    ~krelIniPort();
    krelIniPort(const krelIniPort&) = delete;
    krelIniPort& operator=(const krelIniPort&) = delete;

    // --- the record, in monitor/ini_port.cpp ---

    // The settings as they stand, or all of them at once anew. Any thread.
    krelPortSettings Settings() const;
    void SetSettings(const krelPortSettings& changed);
    // True while a print job holds the port.
    bool IsLockedForPrinting();

    // Marks the port as deleted and ends what blocks its calls. Any thread, under any lock.
    void WakeForDeletion();
    // The same, and runs Cleanup at once when no call is
    // inside; otherwise the last call out runs it. Called once, with the port out of the table; never under
    // the monitor's section, since a worker that is waited for may want that.
    void Delete();
    // Waits until no call and no worker is inside a deleted port, at most until the tick count reaches
    // `deadline`. False when one still is: the object must not be freed then, and the library stays
    // loaded for good. The caller holds no lock.
    bool AwaitLastCall(DWORD deadline);

    // --- a document, in engine/ ---

    // Called by the entry functions on the spooler's threads. Results go to the spooler unchanged.
    bool startDocPort(LPCWSTR pPrinterName, DWORD JobId, DWORD Level, const BYTE* pDocInfo);
    bool writePort(const BYTE* pBuffer, DWORD cbBuf, DWORD* pcbWritten);
    bool readPort(BYTE* pBuffer, DWORD cbBuffer, DWORD* pcbRead);
    bool endDocPort();
    bool getPrinterDataFromPort(DWORD ControlID, LPCWSTR pValueName, const void* lpInBuffer, DWORD cbInBuffer,
                                void* lpOutBuffer, DWORD cbOutBuffer, DWORD* lpcbReturned);

    // The one way back to an idle port. Ends the worker (waiting at most 10 s for it), drops both
    // channels, gives the printer back, clears the busy mark. Any thread; holds no lock while waiting.
    void Cleanup();

    // The print server has cancelled the job: deletes it in the spooler. On the thread that reads the
    // command channel, with its receiveLock and stateLock held.
    void CancelCurrentPrintJob();

    // Takes the busy mark: 5 tries, a second apart.
    bool LockPortForPrinting();

    krelIniPort* next;
    WCHAR portName[67];

private:
    friend class krelPortCall;
    friend class krelPortWorker;

    // monitor/port_calls.cpp
    krelPortSettings EnterCall();
    void LeaveCall();
    void CountWorker(int change);
    void Destroy();
    void DisconnectChannels();
    bool IsDeleted() const;
    bool IsInUse();

    // engine/setup.cpp
    bool SetupCommunicationChannels(bool useDataChannel, DWORD document);
    bool SetUpAndOpen(bool useDataChannel, DWORD document, CFunctionTrace& trace);
    bool OpenChannels(CCommandChannel& command, CDataChannel* data, CFunctionTrace& trace);
    bool SetUpDataChannelOnce();
    std::shared_ptr<CDataChannel> MakeDataChannel(const krelPortSettings& used, DWORD document);
    std::shared_ptr<CCommandChannel> MakeCommandChannel(const krelPortSettings& used, DWORD document);
    bool CanSetUp(DWORD* document) const;

    // engine/document.cpp
    DWORD BeginDocument(DWORD newJobId, bool inChannelMode);
    bool OpenDocumentPrinter(LPCWSTR printerName);
    void CleanUpDocument(DWORD document);
    bool DropChannels(DWORD document, DWORD nextDocument);
    static void ShutDown(std::shared_ptr<CCommandChannel> command, const std::shared_ptr<CDataChannel>& data);
    bool AwaitFinalState(CCommandChannel& channel, CFunctionTrace& trace);
    void MarkAsSent(CFunctionTrace& trace);
    void ReportJobStatus(CFunctionTrace& trace);

    // engine/job_status.cpp
    void HandleErrorInPrintJob();
    krelJobReference Job() const;

    // engine/printer_data.cpp
    bool OpenCommandChannelOnce(CFunctionTrace& trace);

    // Kept alive for the call that asked; none on a deleted port.
    struct ChannelsInUse {
        std::shared_ptr<CDataChannel> data;
        std::shared_ptr<CCommandChannel> command;
    };
    ChannelsInUse Channels() const;
    std::shared_ptr<CCommandChannel> CommandChannel() const;
    std::shared_ptr<CDataChannel> DataChannel() const;
    bool IsInChannelMode() const;
    bool IsQueued(CCommandChannel* channel) const;

    CLock section;  // guards the busy mark
    bool lockedForPrinting = false;
    DWORD marksTaken = 0;  // tells one document's mark from the next one's

    // Held while a document in channel mode makes its channels, so that two calls don't both make them.
    CLock setupSection;

    mutable CLock stateSection;  // leaf lock, guards the fields below
    krelPortSettings settings;
    DWORD documentNumber = 0;  // another one from each Cleanup on, so that a late set-up or Cleanup sees it
    bool channelMode = false;
    std::shared_ptr<CCommandChannel> commandChannel;
    std::shared_ptr<CDataChannel> dataChannel;
    std::shared_ptr<CPrinterHandle> printer;
    bool jobInError = false;
    DWORD restartedJobId = 0;  // survives Cleanup
    bool jobIsRestarted = false;
    DWORD jobId = 0;
    int callsInside = 0;
    bool deleted = false;
    bool destroyed = false;  // the clean-up of the deletion has begun
    int workersInside = 0;   // as a rule one while a document has channels
};

// One call inside a port: keeps the port from being cleaned up under it. A null port is no call.
class krelPortCall {
public:
    explicit krelPortCall(krelIniPort* port);
    ~krelPortCall();
    krelPortCall(const krelPortCall&) = delete;
    krelPortCall& operator=(const krelPortCall&) = delete;

    // As the call found them; empty without a port.
    const krelPortSettings& Settings() const { return settings; }

private:
    krelIniPort* const port;
    const krelPortSettings settings;
};

// One keep-alive worker of a port's channel: it may outlive its channel's place in the port, but never
// the port. A null port has no worker.
class krelPortWorker {
public:
    explicit krelPortWorker(krelIniPort* port);
    ~krelPortWorker();
    krelPortWorker(const krelPortWorker&) = delete;
    krelPortWorker& operator=(const krelPortWorker&) = delete;

private:
    krelIniPort* const port;
};
