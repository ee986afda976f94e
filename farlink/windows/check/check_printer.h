#pragma once

#include <functional>
#include <memory>

#include "farlink/ports/port_administration.h"
#include "farlink/ports/spooler_lists.h"
#include "farlink/windows/printer_ports.h"
#include "printserver/wire.h"

namespace farlink {

// True under Wine, whose spooler prints inside the program that hands it the document, at the document's end,
// and neither waits, nor restarts, nor cancels.
bool IsWine();

// A port and a printer of the check's own in the system's spooler. What was made goes at the end, whatever
// happened. Every function throws Failure.
class CheckPrinter {
public:
    explicit CheckPrinter(std::uint16_t server);
    ~CheckPrinter();
    CheckPrinter(const CheckPrinter&) = delete;
    CheckPrinter& operator=(const CheckPrinter&) = delete;

    const PortSettings& Port() const { return port; }
    void MakePort();
    // With the system's driver for plain text, which a document of type RAW passes by.
    void MakePrinter();
    void PointTo(std::uint16_t server);
    void Remove();

    // Hands a document to the spooler; gives the job's number. Under Wine it is printed on return, or not.
    DWORD Spool(const printserver::Bytes& document);
    void Cancel(DWORD job);
    // Until the queue has nothing to print any more.
    void AwaitEmptyQueue();

private:
    bool HasJobs() const;

    PortSettings port;
    WideString name;
    std::unique_ptr<PrinterHandle> printer;
    bool hasPort = false;
};

// Waits until `holds` says so; throws Failure with `what` at the limit, and when the user wants no more.
void Await(const std::string& what, const std::function<bool()>& holds);

}  // namespace farlink
