#include "farlink/ports/spooler_lists.h"

#include <algorithm>

#include "farlink/failure.h"
#include "farlink/ports/spooler_records.h"

namespace farlink {

PrinterHandle::PrinterHandle(const WideString& name, bool administer)
{
    WideString writable = name;
    PRINTER_DEFAULTSW defaults{nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
    if (!OpenPrinterW(name.empty() ? nullptr : writable.data(), &handle, administer ? &defaults : nullptr))
        throw SpoolerFailure();
}

PrinterHandle::~PrinterHandle()
{
    ClosePrinter(handle);
}

std::vector<PrinterEntry> ListPrinters()
{
    std::vector<BYTE> buffer;
    const auto records =
        Ask<PRINTER_INFO_2W>(buffer, [](BYTE* printers, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, printers, size, needed, returned);
        });
    std::vector<PrinterEntry> printers;
    for (const PRINTER_INFO_2W& record : records)
        printers.push_back({TextOf(record.pPrinterName), TextOf(record.pPortName), record.cJobs});
    std::ranges::sort(printers, NameLess, &PrinterEntry::name);
    return printers;
}

std::vector<JobEntry> ListJobs(const PrinterHandle& printer)
{
    std::vector<BYTE> buffer;
    const auto records =
        Ask<JOB_INFO_2W>(buffer, [&](BYTE* jobs, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumJobsW(printer.Get(), 0, 0x7FFFFFFF, 2, jobs, size, needed, returned);
        });
    std::vector<JobEntry> jobs;
    for (const JOB_INFO_2W& record : records)
        jobs.push_back({record.JobId, TextOf(record.pPrinterName), TextOf(record.pDocument),
                        TextOf(record.pUserName), record.Status, record.Submitted});
    return jobs;
}

bool SameName(const WideString& left, const WideString& right)
{
    return lstrcmpiW(left.c_str(), right.c_str()) == 0;
}

MonitorEntry FindMonitor()
{
    std::vector<BYTE> buffer;
    const auto records =
        Ask<MONITOR_INFO_2W>(buffer, [](BYTE* monitors, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumMonitorsW(nullptr, 2, monitors, size, needed, returned);
        });
    for (const MONITOR_INFO_2W& record : records) {
        WideString library = TextOf(record.pDLLName);
        library.erase(0, library.find_last_of(TEXT("/\\")) + 1);  // npos + 1 is 0
        if (SameName(library, TEXT("Farlink.dll")))
            return {TextOf(record.pName), library.substr(0, library.rfind(TEXT('.')))};
    }
    throw PlatformFailure("Farlink.dll", ERROR_UNKNOWN_PRINT_MONITOR);
}

}  // namespace farlink
