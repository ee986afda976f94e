#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "spooler/handles.h"
#include "spooler/registry_callbacks.h"

namespace spooler {

// One loaded monitor. The last user's leaving shuts it down and unloads its library. The members call
// into the monitor, so none of the spooler's locks may be held around them. Failures throw
// SpoolerError.
class Monitor {
public:
    struct Port {
        WideString name;
        WideString monitor;
        WideString description;
        DWORD type = 0;
    };

    // Loads the library and starts the monitor: ERROR_MOD_NOT_FOUND, ERROR_PROC_NOT_FOUND when the
    // export is missing or gives nothing. A library name without a slash is looked for beside this
    // library.
    Monitor(std::shared_ptr<Registry> registry, WideString monitorName, const WideString& library);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    const WideString& Name() const { return name; }
    const MONITOR2& Calls() const { return *table; }
    HANDLE Handle() const { return handle; }

    // At level 1 only the names are filled in.
    std::vector<Port> Ports(DWORD level) const;
    bool HasPort(WideStringView port) const;

private:
    struct Library {
        Library(const WideString& path, const std::string& monitorName);
        ~Library();
        Library(const Library&) = delete;
        Library& operator=(const Library&) = delete;
        HMODULE module;
    };

    WideString name;
    Library library;
    RegistryAccess settings;
    MONITOR2* table = nullptr;
    HANDLE handle = nullptr;
};

// An Xcv session with a monitor.
class XcvSession : public HandleObject {
public:
    // `object` is the monitor's or port's name as the caller typed it. Throws SpoolerError.
    XcvSession(std::shared_ptr<Monitor> owner, LPCWSTR object, ACCESS_MASK access);
    ~XcvSession() override;

    // The caller's own pointers reach the monitor.
    DWORD Call(LPCWSTR dataName, PBYTE input, DWORD inputSize, PBYTE output, DWORD outputSize,
               PDWORD outputNeeded) const;

private:
    const std::shared_ptr<Monitor> monitor;
    HANDLE session = nullptr;
};

// The absolute path of a library name as AddMonitorW or the database gives it.
WideString LibraryPath(const WideString& library);

}  // namespace spooler
