#pragma once

#include <cstddef>
#include <span>

#include "platform/platform.h"
#include "spooler/job_store.h"
#include "spooler/monitor.h"

namespace spooler {

// A port of a monitor for the length of one document. The end of the scope ends a document that was begun
// and closes the port. Only with the port's lock held (spooler/port_lock.h): the start of a document takes
// the port away from whatever document is open on it.
//
// Each call clears the thread's last error first, so that what is found there after a failure is the
// monitor's own word, or 0.
class OpenedPort {
public:
    OpenedPort(const Monitor& monitor, WideString name);
    ~OpenedPort();
    OpenedPort(const OpenedPort&) = delete;
    OpenedPort& operator=(const OpenedPort&) = delete;

    bool IsOpen() const { return opened; }

    bool Start(const Job& job);
    // In channel mode: no job, and no network before the first Write or Query.
    bool StartChannel();
    bool Write(std::span<BYTE> bytes, std::size_t* taken);
    bool Query(DWORD controlId, std::span<const BYTE> input, std::span<BYTE> output, DWORD* returned);
    // Query is only for a monitor that has it.
    bool ServesQueries() const { return calls.pfnGetPrinterDataFromPort != nullptr; }
    bool End();

private:
    const MONITOR2& calls;
    HANDLE port = nullptr;
    bool opened = false;
    bool started = false;
};

}  // namespace spooler
