#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

// What the spooler knows, as plain lists. Every function throws Failure when the spooler does not answer.
namespace farlink {

// A printer, a port, a monitor, or the print server itself.
class PrinterHandle {
public:
    // `name` as OpenPrinterW takes it; empty means the print server. `administer` asks for the right to
    // change things.
    explicit PrinterHandle(const WideString& name, bool administer = false);
    // Takes over a handle that is open.
    explicit PrinterHandle(HANDLE open) : handle(open) {}
    ~PrinterHandle();
    PrinterHandle(const PrinterHandle&) = delete;
    PrinterHandle& operator=(const PrinterHandle&) = delete;

    HANDLE Get() const { return handle; }

private:
    HANDLE handle = nullptr;
};

// Names in the order of their letters, letter case apart; those of our monitor.
std::vector<WideString> ListPorts();

bool SameName(const WideString& left, const WideString& right);

struct MonitorEntry {
    WideString name;
    WideString library;  // file name without folder and extension
};

// The monitor whose library is Farlink.dll.
MonitorEntry FindMonitor();

}  // namespace farlink
