#pragma once

#include "farlink/ports/spooler_lists.h"

// The printers of the Windows spooler and their queues. Every function throws Failure when the spooler does
// not answer.
namespace farlink {

struct PrinterEntry {
    WideString name;
    WideString port;
    DWORD jobs;  // in its queue
};

struct JobEntry {
    DWORD id;
    WideString printer;
    WideString document;
    WideString user;
    DWORD status;  // JOB_STATUS bits
    SYSTEMTIME submitted;
};

// In the order of the letters of their names.
std::vector<PrinterEntry> ListPrinters();
// Of one printer: oldest first, finished ones too, as far as the spooler keeps them.
std::vector<JobEntry> ListJobs(const PrinterHandle& printer);

// Whether the printer prints on the port, alone or among others: a pooled printer's record has its ports with
// commas between them (PRINTER_INFO_2W).
bool PrintsOn(const PrinterEntry& printer, const WideString& port);

}  // namespace farlink
