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
