#pragma once

#include <memory>
#include <span>

#include "platform/platform.h"
#include "spooler/monitor.h"
#include "spooler/port_settings.h"

namespace spooler {

// One port in a monitor of its own, whose registry lives in memory and holds nothing else: what happens
// here reaches neither the stored settings nor another port. The scope's end ends its document, if one is
// open, and shuts the monitor down. One thread uses it, but for Delete.
//
// Each call clears the thread's last error first, so that what is found there after a failure is the
// monitor's own word, or 0.
class PrivatePort {
public:
    // Loads the library, starts the monitor and opens the port. Throws SpoolerError.
    PrivatePort(const PortSettings& port, const LogSettings& log, DWORD moreEventTypes);
    ~PrivatePort();
    PrivatePort(const PrivatePort&) = delete;
    PrivatePort& operator=(const PrivatePort&) = delete;

    bool StartJob(const WideString& printer, DWORD jobId, const WideString& title);
    // In channel mode: no job, and no network before the first Query.
    bool StartChannel();
    bool Write(std::span<BYTE> bytes, std::size_t* taken);
    bool Read(std::span<BYTE> buffer, std::size_t* got);
    bool Query(DWORD controlId, std::span<const BYTE> input, std::span<BYTE> output, DWORD* returned);
    bool ServesReading() const { return calls.pfnReadPort != nullptr; }
    bool ServesQueries() const { return calls.pfnGetPrinterDataFromPort != nullptr; }
    // May wait for half a minute for the print server's last word.
    void End();

    // Deletes the port, which ends whatever is blocked in it: calls that are inside fail at once, and later
    // ones fail too. Any thread, any number of times.
    void Delete();

private:
    const std::shared_ptr<Monitor> monitor;
    const MONITOR2& calls;
    WideString name;
    HANDLE port = nullptr;
    bool started = false;
};

}  // namespace spooler
