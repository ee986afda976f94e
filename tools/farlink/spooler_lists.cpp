#include "tools/farlink/spooler_lists.h"

#include <algorithm>
#include <filesystem>
#include <span>

#include "tools/farlink/failure.h"

namespace farlink {

namespace {

// The records that `call(buffer, size, needed, returned)` gives, however often the answer grows.
// They point into `buffer`.
template <typename Record, typename Call>
std::span<const Record> Ask(std::vector<BYTE>& buffer, Call call)
{
    buffer.resize(4096);
    for (;;) {
        DWORD needed = 0;
        DWORD returned = 0;
        if (call(buffer.data(), static_cast<DWORD>(buffer.size()), &needed, &returned))
            return {reinterpret_cast<const Record*>(buffer.data()), returned};
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
            throw SpoolerFailure();
        buffer.resize(std::max<std::size_t>(needed, buffer.size() * 2));
    }
}

WideString TextOf(LPCWSTR text)
{
    return text == nullptr ? WideString() : WideString(text);
}

bool NameLess(const WideString& left, const WideString& right)
{
    const int order = lstrcmpiW(left.c_str(), right.c_str());
    return order != 0 ? order < 0 : left < right;
}

}  // namespace

PrinterHandle::PrinterHandle(const WideString& name, bool administer)
{
    WideString writable = name;
    PRINTER_DEFAULTSW defaults{nullptr, nullptr, administer ? SERVER_ACCESS_ADMINISTER : 0};
    if (!OpenPrinterW(name.empty() ? nullptr : writable.data(), &handle, &defaults))
        throw SpoolerFailure();
}

PrinterHandle::~PrinterHandle()
{
    ClosePrinter(handle);
}

std::vector<WideString> ListPorts()
{
    std::vector<BYTE> buffer;
    const auto records =
        Ask<PORT_INFO_1W>(buffer, [](BYTE* ports, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumPortsW(nullptr, 1, ports, size, needed, returned);
        });
    std::vector<WideString> names;
    for (const PORT_INFO_1W& record : records)
        names.push_back(TextOf(record.pName));
    std::ranges::sort(names, NameLess);
    return names;
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
        printers.push_back({TextOf(record.pPrinterName), TextOf(record.pPortName)});
    std::ranges::sort(printers, NameLess, &PrinterEntry::name);
    return printers;
}

std::vector<JobEntry> ListJobs(const PrinterHandle& server)
{
    std::vector<BYTE> buffer;
    const auto records =
        Ask<JOB_INFO_2W>(buffer, [&](BYTE* jobs, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumJobsW(server.Get(), 0, 0x7FFFFFFF, 2, jobs, size, needed, returned);
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
        const std::filesystem::path library = TextOf(record.pDLLName);
        if (SameName(library.filename().u16string(), TEXT("Farlink.dll")))
            return {TextOf(record.pName), library.stem().u16string()};
    }
    throw PlatformFailure("Farlink.dll", ERROR_UNKNOWN_PRINT_MONITOR);
}

}  // namespace farlink
