// Printers and the documents that are printed to them.

#include "platform/posix/utf.h"
#include "spooler/api.h"
#include "spooler/options.h"
#include "spooler/printer_handle.h"
#include "spooler/record_writer.h"

namespace spooler {

namespace {

// The job is accepted and safe: that it can't be started here (no thread to be had) doesn't change
// that. The next process that runs the port takes it.
void RunAcceptedJob(Instance& spooler, DWORD jobId)
{
    try {
        if (const std::optional<Job> job = spooler.jobs->Find(jobId))
            spooler.runners->Start(job->portNumber);
    } catch (...) {
        SetLastErrorText(CurrentError().text);
    }
}

void AddPrinterRecord(RecordWriter& records, const Printer& printer, DWORD jobCount)
{
    PRINTER_INFO_2W record = {};
    record.cJobs = jobCount;
    records.Add(record, {{&PRINTER_INFO_2W::pPrinterName, printer.name},
                         {&PRINTER_INFO_2W::pPortName, printer.port},
                         {&PRINTER_INFO_2W::pDatatype, TEXT("RAW")}});
}

}  // namespace

SPOOLER_EXPORT HANDLE AddPrinterW(LPWSTR, DWORD level, LPBYTE printer)
{
    return AtTheDoor<HANDLE>(nullptr, [&] {
        RequireLevel(level == 2);
        const auto* info = reinterpret_cast<const PRINTER_INFO_2W*>(printer);
        RequireParameter(info != nullptr && info->pPrinterName != nullptr && info->pPortName != nullptr,
                         "A printer needs a name and a port.");
        const std::shared_ptr<Instance> spooler = Instance::Get();
        spooler->RequireAdministrator();
        const std::shared_ptr<Monitor> monitor = spooler->monitors->OwnerOfPort(info->pPortName);
        if (monitor == nullptr)
            Throw(ERROR_UNKNOWN_PORT, "There is no port \"" + ToUtf8(info->pPortName) + "\".");
        spooler->printers->Add({info->pPrinterName, info->pPortName, monitor->Name()});
        return HandleTable::Instance().Add(std::make_shared<PrinterHandle>(info->pPrinterName));
    });
}

SPOOLER_EXPORT BOOL DeletePrinter(HANDLE printer)
{
    return BoolCall([&] {
        const std::shared_ptr<PrinterHandle> handle = Opened<PrinterHandle>(printer);
        const std::shared_ptr<Instance> spooler = Instance::Get();
        spooler->RequireAdministrator();
        spooler->printers->Remove(handle->PrinterName());
    });
}

SPOOLER_EXPORT BOOL EnumPrintersW(DWORD flags, LPWSTR, DWORD level, LPBYTE printers, DWORD size,
                                  LPDWORD needed, LPDWORD returned)
{
    return BoolCall([&] {
        RequireReference(needed);
        RequireReference(returned);
        RequireLevel(level == 2);
        RequireParameter(flags == PRINTER_ENUM_LOCAL, "Only local printers are known.");
        const std::shared_ptr<Instance> spooler = Instance::Get();
        RecordWriter records;
        for (const Printer& printer : spooler->printers->List())
            AddPrinterRecord(records, printer, spooler->jobs->CountUnfinished(printer.name));
        records.Write(printers, size, needed, returned);
    });
}

SPOOLER_EXPORT DWORD StartDocPrinterW(HANDLE printer, DWORD level, LPBYTE document)
{
    return AtTheDoor<DWORD>(0, [&] {
        const std::shared_ptr<PrinterHandle> handle = Opened<PrinterHandle>(printer);
        RequireLevel(level == 1);
        const auto* info = reinterpret_cast<const DOC_INFO_1W*>(document);
        RequireParameter(info != nullptr, "There is no word on the document.");
        if (info->pDatatype != nullptr && lstrcmpiW(info->pDatatype, TEXT("RAW")) != 0)
            Throw(ERROR_INVALID_DATATYPE, "Only documents of type RAW can be printed.");
        return handle->StartDocument(Instance::Get(), TextOrEmpty(info->pDocName));
    });
}

SPOOLER_EXPORT BOOL WritePrinter(HANDLE printer, LPVOID data, DWORD size, LPDWORD written)
{
    return BoolCall([&] {
        RequireReference(written);
        *written = 0;
        RequireParameter(data != nullptr || size == 0, "There are no bytes.");
        Opened<PrinterHandle>(printer)->Write({static_cast<const BYTE*>(data), size});
        *written = size;
    });
}

SPOOLER_EXPORT BOOL EndDocPrinter(HANDLE printer)
{
    return BoolCall([&] {
        const DWORD jobId = Opened<PrinterHandle>(printer)->EndDocument();
        if (ProcessOptions().runAcceptedJobs)
            RunAcceptedJob(*Instance::Get(), jobId);
    });
}

}  // namespace spooler
