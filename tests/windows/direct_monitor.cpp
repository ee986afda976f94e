#include "tests/windows/direct_monitor.h"

#include <stdexcept>
#include <vector>

#include "tests/windows/registry_callbacks.h"
#include "tests/windows/xcv_cases.h"

namespace {

constexpr const wchar_t* kRoot = L"Software\\Farlink check";

using Initialize = LPMONITOR2(WINAPI*)(PMONITORINIT, PHANDLE);

void Require(bool holds, const char* what)
{
    if (!holds)
        throw std::runtime_error(std::string(what) + ", error " + std::to_string(GetLastError()));
}

}  // namespace

HKEY SettingsRoot()
{
    HKEY root = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, kRoot, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root, nullptr);
    return root;
}

void EmptySettings()
{
    RegDeleteTreeW(HKEY_CURRENT_USER, kRoot);
}

DirectMonitor::DirectMonitor(const std::wstring& path) : library(LoadLibraryW(path.c_str()))
{
    Require(library != nullptr, "the library doesn't load");
    MONITORINIT init{};
    init.cbSize = sizeof init;
    init.pMonitorReg = &registryCallbacks;
    settings = SettingsRoot();
    init.hckRegistryRoot = settings;
    init.bLocal = TRUE;
    table = FunctionCast<Initialize>(GetProcAddress(library, "InitializePrintMonitor2"))(&init, &monitor);
    Require(table != nullptr, "the monitor doesn't start");
}

DWORD DirectMonitor::Ask(const std::wstring& object, LPCWSTR command, const std::wstring& port,
                         WORD number) const
{
    HANDLE session = nullptr;
    if (!table->pfnXcvOpenPort(monitor, object.c_str(), SERVER_ACCESS_ADMINISTER, &session))
        return GetLastError();
    std::vector<BYTE> record = PortRecord(port, L"127.0.0.1", number);
    DWORD needed = 0;
    const DWORD word = table->pfnXcvDataPort(session, command, record.data(),
                                             static_cast<DWORD>(record.size()), nullptr, 0, &needed);
    table->pfnXcvClosePort(session);
    return word;
}

DWORD DirectMonitor::PointPort(const std::wstring& port, WORD number) const
{
    const DWORD word = Ask({}, L"AddPort", port, number);
    // The spooler knows nothing of this monitor, so only the monitor itself tells that it has the port.
    return word == ERROR_ALREADY_EXISTS ? Ask(port, L"SetPortProperties", port, number) : word;
}

bool DirectMonitor::Unload()
{
    RegCloseKey(settings);
    return FreeLibrary(library) != FALSE;
}

HANDLE DirectMonitor::OpenPort(std::wstring port) const
{
    HANDLE handle = nullptr;
    return table->pfnOpenPort(monitor, port.data(), &handle) ? handle : nullptr;
}
