#pragma once

#include <string>

#include "platform/platform.h"

// The monitor's library without a spooler: loaded by its path, with settings of its own in the registry.
class DirectMonitor {
public:
    // Throws std::runtime_error when the library doesn't load or the monitor doesn't start.
    explicit DirectMonitor(const std::wstring& path);
    DirectMonitor(const DirectMonitor&) = delete;
    DirectMonitor& operator=(const DirectMonitor&) = delete;

    HMODULE Library() const { return library; }
    const MONITOR2& Table() const { return *table; }

    // "AddPort", or "SetPortProperties" for a port that is there: the monitor's word.
    DWORD PointPort(const std::wstring& port, WORD number) const;
    // Null when there is no such port.
    HANDLE OpenPort(std::wstring port) const;

    void ShutDown() { table->pfnShutdown(monitor); }
    // The shutdown is the caller's to do or to leave. False if the library refuses to go.
    bool Unload();

private:
    DWORD Ask(const std::wstring& object, LPCWSTR command, const std::wstring& port, WORD number) const;

    HMODULE library = nullptr;
    HKEY settings = nullptr;
    MONITOR2* table = nullptr;
    HANDLE monitor = nullptr;
};

// The root that the monitor's settings lie under. It is emptied by EmptySettings.
HKEY SettingsRoot();
void EmptySettings();
