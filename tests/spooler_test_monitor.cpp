#include "tests/spooler_test_monitor.h"

#include <cstring>
#include <thread>

namespace {

struct Port {
    WideString name;
    HANDLE printer = nullptr;
    DWORD jobId = 0;
    bool failed = false;
    std::size_t document = 0;  // index in the controls' list
};

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

BOOL OpenPort(HANDLE, LPWSTR name, PHANDLE handle)
{
    return Controls().Locked([&](TestMonitorScript& controls) -> BOOL {
        for (const WideString& port : controls.ports) {
            if (port == name) {
                *handle = new Port{.name = port};
                return TRUE;
            }
        }
        return FALSE;
    });
}

BOOL StartDocPort(HANDLE handle, LPWSTR printer, DWORD jobId, DWORD level, LPBYTE info)
{
    auto* port = static_cast<Port*>(handle);
    const bool channel = level == 2 && reinterpret_cast<DOC_INFO_2W*>(info)->dwMode == DI_CHANNEL;
    const bool starts = Controls().Locked([&](TestMonitorScript& controls) {
        controls.documents.push_back({port->name, jobId, GetTickCount(), "", false, channel});
        port->document = controls.documents.size() - 1;
        return controls.failingStarts == 0 || controls.failingStarts-- == 0;
    });
    port->jobId = jobId;
    return starts && OpenPrinterW(printer, &port->printer, nullptr);
}

void Command(const Port& port, const std::vector<DWORD>& commands, bool fromAnotherThread)
{
    const auto send = [&] {
        for (const DWORD command : commands)
            (void)SetJobW(port.printer, port.jobId, 0, nullptr, command);
    };
    if (fromAnotherThread)
        std::thread(send).join();
    else
        send();
}

BOOL WritePort(HANDLE handle, LPBYTE data, DWORD size, LPDWORD written)
{
    auto* port = static_cast<Port*>(handle);
    Controls().Locked([](TestMonitorScript& all) { ++all.writes; });
    Controls().Await([&](const TestMonitorScript& all) {
        return all.heldPort != port->name || all.writes <= all.heldAfter;
    });
    const bool done = Controls().Locked([&](TestMonitorScript& all) {
        *written = 0;
        if (all.emptyWrites > 0) {
            --all.emptyWrites;
            return true;
        }
        *written = all.takeAtMost != 0 && all.takeAtMost < size ? all.takeAtMost : size;
        all.documents[port->document].bytes.append(reinterpret_cast<char*>(data), *written);
        return all.failingWrites == 0 || all.failingWrites-- == 0;
    });
    if (!done) {
        port->failed = true;
        Command(*port, Controls().Locked([](TestMonitorScript& all) { return all.onFailedWrite; }), false);
        SetLastError(ERROR_GEN_FAILURE);
    }
    return done;
}

BOOL GetPrinterDataFromPort(HANDLE, DWORD controlId, LPWSTR, LPWSTR input, DWORD inputSize, LPWSTR output,
                            DWORD outputSize, LPDWORD returned)
{
    Controls().Locked([&](TestMonitorScript& all) {
        all.queries.push_back({controlId, std::string(reinterpret_cast<char*>(input), inputSize)});
    });
    Controls().Await([](const TestMonitorScript& all) { return !all.heldQuery; });
    return Controls().Locked([&](TestMonitorScript& all) -> BOOL {
        SetLastError(all.queryError);
        *returned = static_cast<DWORD>(all.answer.copy(reinterpret_cast<char*>(output), outputSize));
        return all.queryError == 0;
    });
}

BOOL EndDocPort(HANDLE handle)
{
    auto* port = static_cast<Port*>(handle);
    DWORD needed = 0;
    DWORD returned = 0;
    std::vector<BYTE> buffer(4096);
    (void)EnumPortsW(nullptr, 1, buffer.data(), static_cast<DWORD>(buffer.size()), &needed, &returned);
    const TestMonitorScript script = Controls().Locked([&](TestMonitorScript& all) {
        all.portsSeenFromWithin = returned;
        return all;
    });
    if (!port->failed)
        Command(*port, script.onEnd, script.commandsFromAnotherThread);
    (void)ClosePrinter(port->printer);
    Controls().Locked([&](TestMonitorScript& all) { all.documents[port->document].ended = true; });
    return TRUE;
}

BOOL ClosePort(HANDLE handle)
{
    delete static_cast<Port*>(handle);
    return TRUE;
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
    .pfnOpenPort = OpenPort,
    .pfnOpenPortEx = nullptr,
    .pfnStartDocPort = StartDocPort,
    .pfnWritePort = WritePort,
    .pfnReadPort = nullptr,
    .pfnEndDocPort = EndDocPort,
    .pfnClosePort = ClosePort,
    .pfnAddPort = nullptr,
    .pfnAddPortEx = nullptr,
    .pfnConfigurePort = nullptr,
    .pfnDeletePort = nullptr,
    .pfnGetPrinterDataFromPort = GetPrinterDataFromPort,
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
