#include "farlink/windows/printer_ports.h"

#include <algorithm>
#include <sstream>

#include "farlink/ports/spooler_records.h"

namespace farlink {

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

bool PrintsOn(const PrinterEntry& printer, const WideString& port)
{
    std::wistringstream ports(printer.port);
    for (WideString each; std::getline(ports, each, TEXT(','));)
        if (SameName(each, port))
            return true;
    return false;
}

}  // namespace farlink
