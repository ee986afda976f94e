// The library's one export, and the table that it hands to the spooler.

#include <atomic>
#include <memory>

#include "diagnostics/diagnostic_log.h"
#include "monitor/entry_functions.h"
#include "monitor/library_entry.h"
#include "monitor/port_monitor.h"

namespace {

constexpr DWORD kTableSize = 160;        // up to pfnSendRecvBidiDataFromPort; newer headers have more
constexpr DWORD kWindows2000Size = 148;  // as that system's spooler states it

// Ports are added, deleted and configured through Xcv alone, and never layered.
MONITOR2 gMonitorTable = {
    .cbSize = kTableSize,
    .pfnEnumPorts = gEnumPorts,
    .pfnOpenPort = gOpenPort,
    .pfnOpenPortEx = nullptr,
    .pfnStartDocPort = gStartDocPort,
    .pfnWritePort = gWritePort,
    .pfnReadPort = gReadPort,
    .pfnEndDocPort = gEndDocPort,
    .pfnClosePort = gClosePort,
    .pfnAddPort = nullptr,
    .pfnAddPortEx = nullptr,
    .pfnConfigurePort = nullptr,
    .pfnDeletePort = nullptr,
    .pfnGetPrinterDataFromPort = gGetPrinterDataFromPort,
    .pfnSetPortTimeOuts = nullptr,
    .pfnXcvOpenPort = gXcvOpenPort,
    .pfnXcvDataPort = gXcvDataPort,
    .pfnXcvClosePort = gXcvClosePort,
    .pfnShutdown = gShutdown,
    .pfnSendRecvBidiDataFromPort = nullptr,
};

bool IsWindows2000()
{
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    version.dwMajorVersion = 5;
    version.dwMinorVersion = 0;
    ULONGLONG equal = VerSetConditionMask(0, VER_MAJORVERSION, VER_EQUAL);
    equal = VerSetConditionMask(equal, VER_MINORVERSION, VER_EQUAL);
    const DWORD lastError = GetLastError();
    const bool isEqual = VerifyVersionInfoW(&version, VER_MINORVERSION | VER_MAJORVERSION, equal) != FALSE;
    SetLastError(lastError);
    return isEqual;
}

MONITOR2* StartMonitor(const MONITORINIT& fromSpooler, HANDLE* handle)
{
    auto monitor = std::make_unique<krelPortMonitor>(fromSpooler);
    if (!monitor->init())
        return nullptr;
    *handle = monitor.release();
    // Several monitors may start at once.
    if (IsWindows2000())
        std::atomic_ref(gMonitorTable.cbSize).store(kWindows2000Size, std::memory_order_relaxed);
    return &gMonitorTable;
}

}  // namespace

MONITOR2* InitializePrintMonitor2(MONITORINIT* pMonitorInit, PHANDLE phMonitor)
{
    if (EventIsLogged(krelpmEventEntry))
        vexkitTypeDiagnosticPuts("gInitializePrintMonitor2");
    if (!IsLibraryAttached() || pMonitorInit == nullptr || pMonitorInit->pMonitorReg == nullptr ||
        phMonitor == nullptr)
        return nullptr;
    try {
        return StartMonitor(*pMonitorInit, phMonitor);
    } catch (...) {  // out of memory; the spooler can't take an exception
        return nullptr;
    }
}
