#pragma once

#include "fuzz/attached_library.h"
#include "tests/support/registry_double.h"

// A monitor on a registry of its own, from its start to its shutdown.
class FuzzedMonitor {
public:
    explicit FuzzedMonitor(RegistryDouble& registry)
    {
        AttachLibrary();
        MONITORINIT init = registry.Init();
        registry.SetDword("Ports", "LogToDebugOutput", 1);
        table = InitializePrintMonitor2(&init, &monitor);
        if (table == nullptr)
            __builtin_trap();
    }
    ~FuzzedMonitor() { table->pfnShutdown(monitor); }
    FuzzedMonitor(const FuzzedMonitor&) = delete;
    FuzzedMonitor& operator=(const FuzzedMonitor&) = delete;

    MONITOR2* table;
    HANDLE monitor = nullptr;
};
