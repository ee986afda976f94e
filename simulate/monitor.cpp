#include "simulate/monitor.h"

#include "admin/xcv_records.h"
#include "monitor/library_entry.h"
#include "simulate/call.h"
#include "simulate/world.h"

using simulated::kSecond;
using simulated::Scheduler;

namespace {

constexpr simulated::Micros kWorkerEnd = 10 * kSecond;
constexpr simulated::Micros kAtOnce = 2 * kSecond;

}  // namespace

void Monitor::Begin()
{
    (void)DllEntryPoint(nullptr, DLL_PROCESS_ATTACH, nullptr);
    MONITORINIT init = world.registry.Init();
    table = InitializePrintMonitor2(&init, &handle);
    if (table == nullptr)
        Scheduler::Current().Fail("the monitor doesn't begin");
}

// Waits for the workers of all ports at once, then for calls inside them; each has its bound.
void Monitor::End()
{
    {
        const Call call(world, "gShutdown", nullptr,
                        2 * kWorkerEnd + kAtOnce + world.PortCount() * kWorkerEnd);
        table->pfnShutdown(handle);
    }
    handle = nullptr;
}

DWORD Monitor::Command(LPCWSTR object, ACCESS_MASK access, LPCWSTR command, const void* input,
                       std::size_t size)
{
    const Call call(world, "gXcvDataPort", nullptr, 60 * kSecond);
    HANDLE session = nullptr;
    if (!table->pfnXcvOpenPort(handle, object, access, &session))
        return ERROR_INVALID_HANDLE;
    DWORD needed = 0;
    const DWORD result = table->pfnXcvDataPort(session, command, static_cast<PBYTE>(const_cast<void*>(input)),
                                               static_cast<DWORD>(size), nullptr, 0, &needed);
    table->pfnXcvClosePort(session);
    return result;
}

DWORD Monitor::AddPort(const WideString& name, const WideString& server, WORD number)
{
    krelXcvPortData record{};
    name.copy(record.portName, std::size(record.portName) - 1);
    server.copy(record.server, std::size(record.server) - 1);
    record.version = 1;
    record.portNumber = number;
    return Command(TEXT(""), SERVER_ACCESS_ADMINISTER, TEXT("AddPort"), &record, sizeof record);
}

DWORD Monitor::DeletePort(const WideString& name)
{
    return Command(TEXT(""), SERVER_ACCESS_ADMINISTER, TEXT("DeletePort"), name.c_str(),
                   (name.size() + 1) * sizeof(WCHAR));
}

DWORD Monitor::SetKeepAlive(const WideString& name, WORD period, WORD timeout)
{
    const krelXcvKeepAliveValues values{1, period, timeout};
    return Command(name.c_str(), SERVER_ACCESS_ADMINISTER, TEXT("SetKeepAliveValues"), &values,
                   sizeof values);
}

HANDLE Monitor::OpenPort(const WideString& name)
{
    const Call call(world, "gOpenPort", nullptr, kAtOnce);
    HANDLE port = nullptr;
    return table->pfnOpenPort(handle, const_cast<LPWSTR>(name.c_str()), &port) ? port : nullptr;
}

void Monitor::EnumeratePorts()
{
    const Call call(world, "gEnumPorts", nullptr, kAtOnce);
    alignas(8) BYTE buffer[4096];
    DWORD needed = 0;
    DWORD returned = 0;
    (void)EnumerateInto(2, buffer, sizeof buffer, &needed, &returned);
}

BOOL Monitor::EnumerateInto(DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned)
{
    return table->pfnEnumPorts(handle, nullptr, level, ports, size, needed, returned);
}
