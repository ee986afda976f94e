#pragma once

#include <memory>

#include "diagnostics/locks.h"
#include "engine/document.h"
#include "platform/platform.h"

class krelPortCall;

// One configured port: its record, who is inside it, and its current document. The spooler's handle of an
// open port is this object's plain address, so a deleted port stays allocated until its monitor is
// destroyed; once the calls that the deletion met are out its document is over, and every call on it fails
// or does nothing.
//
// Any thread; the one lock is held for a copy only. A document's own lock may be taken under it, and nothing
// else.
class krelIniPort final : public CDocumentOwner {
public:
    // `server` is cut to 48 characters, `portName` to 66; the callers refuse longer ones before.
    krelIniPort(krelIniPort* next, LPCWSTR portName, LPCWSTR server, WORD portNumber);
    ~krelIniPort();
    krelIniPort(const krelIniPort&) = delete;
    krelIniPort& operator=(const krelIniPort&) = delete;

    // --- the record: ini_port.cpp ---

    // The settings as they stand, or all of them at once anew.
    krelPortSettings Settings() const override;
    void SetSettings(const krelPortSettings& changed);
    // True while a print job holds the port.
    bool IsLockedForPrinting() const;

    // --- its documents: port_documents.cpp; each inside a krelPortCall ---

    // gStartDocPort: ends the current document and makes a new one the port's.

    bool startDocPort(LPCWSTR pPrinterName, DWORD JobId, DWORD Level, const BYTE* pDocInfo);

    // The one way back to an idle port: ends the current document (see there), if there is one.
    void Cleanup();

    // --- who is inside, and the end: port_calls.cpp ---

    // Marks the port as deleted and ends what blocks its calls. Under any lock.
    void WakeForDeletion();
    // The same, and runs Cleanup at once when no call is inside; otherwise the last call out runs it. Called
    // once, with the port out of the table; never under the table's section, since a worker that is waited
    // for may want that.
    void Delete();
    // Waits until no call and no worker is inside a deleted port, at most until the tick count reaches
    // `deadline`. False when one still is: the object must not be freed then, and the library stays
    // loaded for good. The caller holds no lock.
    bool AwaitLastCall(DWORD deadline);

    krelIniPort* next;
    WCHAR portName[67];

private:
    friend class krelPortCall;

    // port_documents.cpp
    std::shared_ptr<CDocument> Document() const;
    bool LockPortForPrinting(const std::shared_ptr<CDocument>& document);
    bool Adopt(std::shared_ptr<CDocument> document);
    void RememberRestart(const CDocument& asking) override;
    bool IsSecondRun(const CDocument& asking) override;

    // port_calls.cpp
    void CallBegins() override;
    void CallEnds() override;
    void WorkerBegins() override;
    void WorkerEnds() override;
    void EnterCall(krelPortCall& call);
    void Destroy();
    bool IsDeleted() const;
    bool IsInUse() const;

    mutable CLock lock;
    krelPortSettings settings THREAD_ANNOTATION(guarded_by(lock));
    std::shared_ptr<CDocument> document THREAD_ANNOTATION(guarded_by(lock));  // the current one, or the last
    DWORD restartedJobId THREAD_ANNOTATION(guarded_by(lock)) = 0;
    int callsInside THREAD_ANNOTATION(guarded_by(lock)) = 0;
    int workersInside THREAD_ANNOTATION(guarded_by(lock)) = 0;
    bool deleted THREAD_ANNOTATION(guarded_by(lock)) = false;
    bool destroyed THREAD_ANNOTATION(guarded_by(lock)) = false;  // the clean-up of the deletion has begun
};

// One call inside a port: keeps the port from being cleaned up under it, and has its settings and its current
// document as they were at the entry. A null port is no call.
class krelPortCall {
public:
    explicit krelPortCall(krelIniPort* port);
    ~krelPortCall();
    krelPortCall(const krelPortCall&) = delete;
    krelPortCall& operator=(const krelPortCall&) = delete;

    krelIniPort& Port() const { return *port; }
    // The one that the call is for, however late it comes to work on it.
    CDocument& Document() const { return *document; }
    // Empty without a port.
    const krelPortSettings& Settings() const { return settings; }

private:
    friend class krelIniPort;

    krelIniPort* const port;
    krelPortSettings settings{};
    std::shared_ptr<CDocument> document;
};
