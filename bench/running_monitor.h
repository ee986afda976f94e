#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/bare_connection.h"
#include "monitor/library_entry.h"
#include "tests/support/registry_double.h"
#include "tests/support/spooler_double.h"
#include "tests/support/text.h"

// Ends the program with the text.
inline void Require(bool condition, const char* text)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", text);
    std::exit(1);
}

// Makes the program stand in for the library, once, with no sink on.
inline void AttachLibrary()
{
    [[maybe_unused]] static const BOOL attached =
        DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_ATTACH, nullptr);
}

// A monitor with default settings between the tests' doubles of spooler and registry. It has ports "Port 0",
// "Port 1" ... on the draining peer.
class RunningMonitor {
public:
    explicit RunningMonitor(int ports, DWORD keepAliveTimeout = 20)
    {
        AttachLibrary();
        SpoolerDouble::Instance().Reset();
        for (int number = 0; number < ports; ++number) {
            const std::string name = "Port " + std::to_string(number);
            registry.AddPort(name, TEXT("127.0.0.1"), PeerPort());
            registry.SetDword("Ports/" + name, "Keep Alive Timeout", keepAliveTimeout);
        }
        Start();
    }
    ~RunningMonitor() { Stop(); }
    RunningMonitor(const RunningMonitor&) = delete;
    RunningMonitor& operator=(const RunningMonitor&) = delete;

    void Start()
    {
        MONITORINIT init{};
        init.cbSize = sizeof(init);
        init.hSpooler = registry.SpoolerHandle();
        init.hckRegistryRoot = registry.Root();
        init.pMonitorReg = registry.Callbacks();
        table = InitializePrintMonitor2(&init, &monitor);
        Require(table != nullptr, "the monitor does not start");
        SpoolerDouble::Instance().AttachMonitor(table, monitor);
    }
    void Stop()
    {
        SpoolerDouble::Instance().DetachMonitor(monitor);
        table->pfnShutdown(monitor);
        registry.ForgetCalls();  // the double's memory of them is no cost of ours
    }
    HANDLE Open(int number) const
    {
        HANDLE port = nullptr;
        (void)table->pfnOpenPort(monitor, Wide("Port " + std::to_string(number)).data(), &port);
        return port;
    }
    void StartDocument(HANDLE port) const
    {
        WideString printer = TEXT("Printer");
        int tries = 5;  // with hundreds at once the peer's answer may miss the limit of a second
        while (!table->pfnStartDocPort(port, printer.data(), 1, 1, nullptr))
            Require(--tries > 0, "the document does not start");
    }
    void Write(HANDLE port, std::vector<BYTE>& buffer) const
    {
        DWORD written = 0;
        const DWORD size = static_cast<DWORD>(buffer.size());
        Require(table->pfnWritePort(port, buffer.data(), size, &written) != FALSE && written == size,
                "the document breaks");
    }
    void EndDocument(HANDLE port) const { (void)table->pfnEndDocPort(port); }

    RegistryDouble registry;
    MONITOR2* table = nullptr;
    HANDLE monitor = nullptr;
};
