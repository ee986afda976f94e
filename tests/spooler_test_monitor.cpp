#include "tests/spooler_test_monitor.h"

#include <cstring>

namespace {

TestMonitorControls& Controls()
{
    return *TestMonitor();
}

// The list grows behind the size query, as when an administrator adds a port between two calls.
void GrowPorts(TestMonitorScript& controls)
{
    for (const WideString& added : controls.portsAddedByNextEnumeration)
        controls.ports.push_back(added);
    controls.portsAddedByNextEnumeration.clear();
}

std::size_t RecordSize(DWORD level)
{
    return level == 1 ? sizeof(PORT_INFO_1W) : sizeof(PORT_INFO_2W);
}

BOOL EnumPorts(HANDLE, LPWSTR, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned)
{
    return Controls().Locked([&](TestMonitorScript& controls) -> BOOL {
        std::size_t sum = 0;
        for (const WideString& port : controls.ports)
            sum += RecordSize(level) + (port.size() + 1) * sizeof(WCHAR);
        *needed = static_cast<DWORD>(sum);
        if (sum > size) {
            GrowPorts(controls);
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        BYTE* end = buffer + size;
        for (const WideString& port : controls.ports) {
            std::memset(buffer, 0, RecordSize(level));
            end -= (port.size() + 1) * sizeof(WCHAR);
            std::memcpy(end, port.c_str(), (port.size() + 1) * sizeof(WCHAR));
            std::memcpy(buffer, &end, sizeof(end));
            buffer += RecordSize(level);
        }
        *returned = static_cast<DWORD>(controls.ports.size());
        return TRUE;
    });
}

BOOL XcvOpenPort(HANDLE, LPCWSTR, ACCESS_MASK access, PHANDLE session)
{
    *session = new ACCESS_MASK(access);
    return TRUE;
}

DWORD XcvDataPort(HANDLE session, LPCWSTR, PBYTE input, DWORD, PBYTE output, DWORD, PDWORD)
{
    const auto command = Controls().Locked([&](TestMonitorScript& controls) {
        controls.xcvPointers = {input, output};
        return controls.command;
    });
    if (*static_cast<ACCESS_MASK*>(session) != SERVER_ACCESS_ADMINISTER)
        return ERROR_ACCESS_DENIED;
    return command ? command() : 1234;
}

BOOL XcvClosePort(HANDLE session)
{
    delete static_cast<ACCESS_MASK*>(session);
    return TRUE;
}

void Shutdown(HANDLE)
{
    Controls().Locked([](TestMonitorScript& controls) { --controls.running; });
}

MONITOR2 table = {
    .cbSize = sizeof(MONITOR2),
    .pfnEnumPorts = EnumPorts,
    .pfnOpenPort = nullptr,
    .pfnOpenPortEx = nullptr,
    .pfnStartDocPort = nullptr,
    .pfnWritePort = nullptr,
    .pfnReadPort = nullptr,
    .pfnEndDocPort = nullptr,
    .pfnClosePort = nullptr,
    .pfnAddPort = nullptr,
    .pfnAddPortEx = nullptr,
    .pfnConfigurePort = nullptr,
    .pfnDeletePort = nullptr,
    .pfnGetPrinterDataFromPort = nullptr,
    .pfnSetPortTimeOuts = nullptr,
    .pfnXcvOpenPort = XcvOpenPort,
    .pfnXcvDataPort = XcvDataPort,
    .pfnXcvClosePort = XcvClosePort,
    .pfnShutdown = Shutdown,
    .pfnSendRecvBidiDataFromPort = nullptr,
};

}  // namespace

extern "C" TestMonitorControls* TestMonitor()
{
    static TestMonitorControls controls;
    return &controls;
}

extern "C" MONITOR2* InitializePrintMonitor2(MONITORINIT* init, PHANDLE handle)
{
    return Controls().Locked([&](TestMonitorScript& controls) -> MONITOR2* {
        controls.init = *init;
        ++controls.running;
        *handle = &controls;
        return &table;
    });
}
