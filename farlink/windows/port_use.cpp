#include "farlink/ports/port_use.h"

#include "farlink/failure.h"
#include "farlink/windows/printer_ports.h"

namespace farlink {

namespace {

struct StateWord {
    DWORD bit;
    const char* word;
};
// The first that holds is told.
constexpr StateWord kStateWords[] = {{JOB_STATUS_DELETING, "cancelling"}, {JOB_STATUS_ERROR, "error"},
                                     {JOB_STATUS_PAUSED, "paused"},       {JOB_STATUS_RESTART, "retrying"},
                                     {JOB_STATUS_PRINTING, "printing"},   {JOB_STATUS_SPOOLING, "spooling"}};
constexpr DWORD kThrough = JOB_STATUS_DELETED | JOB_STATUS_PRINTED | JOB_STATUS_COMPLETE;

const char* StateWordOf(DWORD status)
{
    for (const StateWord& state : kStateWords)
        if ((status & state.bit) != 0)
            return state.word;
    return "queued";
}

std::vector<PrinterEntry> PrintersOn(const WideString& port)
{
    std::vector<PrinterEntry> printers = ListPrinters();
    std::erase_if(printers, [&](const PrinterEntry& printer) { return !PrintsOn(printer, port); });
    return printers;
}

}  // namespace

std::optional<std::vector<WaitingJob>> WaitingJobsOn(const WideString& port)
{
    std::vector<WaitingJob> waiting;
    for (const PrinterEntry& printer : PrintersOn(port)) {
        if (printer.jobs == 0)
            continue;
        const PrinterHandle handle(printer.name);
        for (const JobEntry& job : ListJobs(handle))
            if ((job.status & kThrough) == 0)
                waiting.push_back({job.id, StateWordOf(job.status), "on '" + ToUtf8(printer.name) + "'"});
    }
    return waiting;
}

std::optional<WideString> PortOfPrinter(const WideString& name)
{
    for (const PrinterEntry& printer : ListPrinters())
        if (SameName(printer.name, name))
            return printer.port;
    return std::nullopt;
}

// They belong to somebody, and have drivers and settings: nothing for us to delete.
void FreeOfPrinters(const WideString& port, const std::string& what)
{
    for (const PrinterEntry& printer : PrintersOn(port))
        throw Failure(what + ": printer '" + ToUtf8(printer.name) +
                      "' prints on it; delete the printer or give it another port first");
}

}  // namespace farlink
