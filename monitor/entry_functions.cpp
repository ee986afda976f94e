#include "monitor/entry_functions.h"

#include "admin/xcv_handler.h"
#include "diagnostics/diagnostic_log.h"
#include "diagnostics/function_trace.h"
#include "diagnostics/thread_port_tag.h"
#include "monitor/port_monitor.h"
#include "ports/ini_port.h"

namespace {

void WriteEntryLine(const char* function)
{
    if (EventIsLogged(krelpmEventEntry))
        vexkitTypeDiagnosticPuts(function);
}

// Runs one forward; the spooler can't take an exception.
template <class Result, class Forward>
Result WithoutExceptions(Result afterException, Forward forward)
{
    try {
        return forward();
    } catch (...) {
        return afterException;
    }
}

template <class Forward>
BOOL CallPort(HANDLE hPort, const char* function, Forward forward)
{
    // To the last: the library may be unloaded when no call is inside.
    const krelPortCall inside(static_cast<krelIniPort*>(hPort));
    const CThreadPortTag tag(hPort ? inside.Settings().server : nullptr, inside.Settings().portNumber);
    WriteEntryLine(function);
    if (hPort == nullptr)
        return FALSE;
    return WithoutExceptions(FALSE, [&] { return forward(inside) ? TRUE : FALSE; });
}

template <class Forward>
BOOL CallMonitor(HANDLE hMonitor, const char* function, Forward forward)
{
    WriteEntryLine(function);
    if (hMonitor == nullptr)
        return FALSE;
    return WithoutExceptions(
        FALSE, [&] { return forward(*static_cast<krelPortMonitor*>(hMonitor)) ? TRUE : FALSE; });
}

}  // namespace

BOOL gEnumPorts(HANDLE hMonitor, LPWSTR, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
                LPDWORD pcReturned)
{
    return CallMonitor(hMonitor, "gEnumPorts", [&](krelPortMonitor& monitor) {
        return monitor.EnumeratePorts(Level, pPorts, cbBuf, pcbNeeded, pcReturned);
    });
}

BOOL gOpenPort(HANDLE hMonitor, LPWSTR pName, PHANDLE pHandle)
{
    return CallMonitor(hMonitor, "gOpenPort",
                       [&](krelPortMonitor& monitor) { return monitor.openPort(pName, pHandle); });
}

BOOL gXcvOpenPort(HANDLE hMonitor, LPCWSTR pszObject, ACCESS_MASK GrantedAccess, PHANDLE phXcv)
{
    return CallMonitor(hMonitor, "gXcvOpenPort", [&](krelPortMonitor& monitor) {
        return monitor.xcvOpenPort(pszObject, GrantedAccess, phXcv);
    });
}

void gShutdown(HANDLE hMonitor)
{
    WriteEntryLine("gShutdown");
    delete static_cast<krelPortMonitor*>(hMonitor);
}

BOOL gStartDocPort(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo)
{
    return CallPort(hPort, "gStartDocPort", [&](const krelPortCall& call) {
        return call.Port().startDocPort(pPrinterName, JobId, Level, pDocInfo);
    });
}

BOOL gWritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten)
{
    return CallPort(hPort, "gWritePort", [&](const krelPortCall& call) {
        return call.Document().Write(pBuffer, cbBuf, pcbWritten);
    });
}

BOOL gReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead)
{
    return CallPort(hPort, "gReadPort", [&](const krelPortCall& call) {
        return call.Document().Read(pBuffer, cbBuffer, pcbRead);
    });
}

BOOL gEndDocPort(HANDLE hPort)
{
    return CallPort(hPort, "gEndDocPort", [](const krelPortCall& call) {
        call.Document().Finish();
        return true;
    });
}

BOOL gClosePort(HANDLE hPort)
{
    return CallPort(hPort, "gClosePort", [](const krelPortCall&) {
        CFunctionTrace trace("krelIniPort::Close");
        return true;
    });
}

BOOL gGetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR, LPWSTR lpInBuffer, DWORD cbInBuffer,
                             LPWSTR lpOutBuffer, DWORD cbOutBuffer, LPDWORD lpcbReturned)
{
    return CallPort(hPort, "gGetPrinterDataFromPort", [&](const krelPortCall& call) {
        return call.Document().Query(ControlID, lpInBuffer, cbInBuffer, lpOutBuffer, cbOutBuffer,
                                     lpcbReturned);
    });
}

DWORD gXcvDataPort(HANDLE hXcv, LPCWSTR pszDataName, PBYTE pInputData, DWORD cbInputData, PBYTE pOutputData,
                   DWORD cbOutputData, PDWORD pcbOutputNeeded)
{
    WriteEntryLine("gXcvDataPort");
    if (hXcv == nullptr)
        return ERROR_INVALID_PARAMETER;
    const krelXcvBuffers buffers = {pInputData, cbInputData, pOutputData, cbOutputData, pcbOutputNeeded};
    return WithoutExceptions(DWORD{ERROR_NOT_ENOUGH_MEMORY}, [&] {
        return static_cast<krelPortMonitorXcvHandler*>(hXcv)->XcvDataPort(pszDataName, buffers);
    });
}

BOOL gXcvClosePort(HANDLE hXcv)
{
    WriteEntryLine("gXcvClosePort");
    krelPortMonitorXcvHandler::xcvClosePort();
    delete static_cast<krelPortMonitorXcvHandler*>(hXcv);
    return TRUE;
}
