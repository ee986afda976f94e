// A monitor between Wine's spooler and ours: it loads the library that FARLINK_MONITOR names, and gives it
// registry callbacks that work.
#include <array>

#include "tests/windows/registry_callbacks.h"

namespace {

using Initialize = LPMONITOR2(WINAPI*)(PMONITORINIT, PHANDLE);

HMODULE library = nullptr;
HKEY root = nullptr;
MONITOR2 table;
void(WINAPI* shutDownMonitor)(HANDLE) = nullptr;

// The library goes when the spooler is done with the monitor, so that it is loaded anew as without us.
void WINAPI ShutDown(HANDLE monitor)
{
    shutDownMonitor(monitor);
    RegCloseKey(root);
    FreeLibrary(library);
}

}  // namespace

extern "C" __declspec(dllexport) LPMONITOR2 WINAPI
    InitializePrintMonitor2(PMONITORINIT given, PHANDLE monitor)
{
    std::array<WCHAR, MAX_PATH> path{};
    if (GetEnvironmentVariableW(L"FARLINK_MONITOR", path.data(), static_cast<DWORD>(path.size())) == 0)
        return nullptr;
    library = LoadLibraryW(path.data());
    if (library == nullptr)
        return nullptr;
    // Wine closes the spooler's own root when this function has returned.
    if (RegOpenKeyExW(static_cast<HKEY>(given->hckRegistryRoot), nullptr, 0, KEY_ALL_ACCESS, &root) != 0)
        return nullptr;
    MONITORINIT init = *given;
    init.pMonitorReg = &registryCallbacks;
    init.hckRegistryRoot = root;
    const LPMONITOR2 real =
        FunctionCast<Initialize>(GetProcAddress(library, "InitializePrintMonitor2"))(&init, monitor);
    if (real == nullptr)
        return nullptr;
    table = *real;
    shutDownMonitor = table.pfnShutdown;
    table.pfnShutdown = ShutDown;
    return &table;
}
