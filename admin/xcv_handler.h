#pragma once

#include "admin/xcv_records.h"
#include "platform/platform.h"

class krelIniPort;
class krelPortTable;

// What one command came with. Any of the pointers may be null.
struct krelXcvBuffers {
    const BYTE* input;
    DWORD inputSize;
    BYTE* output;
    DWORD outputSize;
    DWORD* outputNeeded;
};

// One Xcv session: the object behind a tool's handle on the monitor or on a port. It holds a name and no
// reference to a port, so it may outlive its port and reach a later one of that name. Its fields never
// change; spooler threads may run several commands on one session at once. Every command gives a
// platform error word, and one that fails leaves the output buffer as it was.
class krelPortMonitorXcvHandler {
public:
    // A null `object` is the empty name; a longer name than 66 characters is cut there.
    krelPortMonitorXcvHandler(krelPortTable& owner, LPCWSTR object, ACCESS_MASK access);

    DWORD XcvDataPort(LPCWSTR pszDataName, const krelXcvBuffers& buffers);
    // The session's last line in the log; the entry function frees the object afterwards, if there is one.
    static void xcvClosePort();

private:
    struct Command {
        LPCWSTR name;
        bool needsAdminister;
        const char* scopeName;  // null: runs in the dispatcher's scope alone
        DWORD (krelPortMonitorXcvHandler::*run)(const krelXcvBuffers& buffers);
    };
    static const Command commands[];

    // about_commands.cpp
    DWORD getMonitorUI(const krelXcvBuffers& buffers);
    DWORD xcvGetAboutString(const krelXcvBuffers& buffers);
    DWORD xcvGetVersionInfo(const krelXcvBuffers& buffers);
    DWORD xcvGetDebug(const krelXcvBuffers& buffers);

    // port_commands.cpp, port_error_command.cpp
    DWORD xcvAddPort(const krelXcvBuffers& buffers);
    DWORD xcvDeletePort(const krelXcvBuffers& buffers);
    DWORD xcvGetPortError(const krelXcvBuffers& buffers);
    DWORD xcvGetPortProperties(const krelXcvBuffers& buffers);
    DWORD xcvSetPortProperties(const krelXcvBuffers& buffers);

    // keep_alive_commands.cpp
    DWORD xcvSetKeepAliveValues(const krelXcvBuffers& buffers);
    DWORD xcvGetKeepAliveValues(const krelXcvBuffers& buffers);
    DWORD xcvGetDefaultKeepAliveValues(const krelXcvBuffers& buffers);

    DWORD RegisterPort(const krelXcvPortData& record);
    DWORD ChangeServer(krelIniPort& port, const krelXcvPortData& record);
    DWORD ChangeKeepAlive(krelIniPort& port, const krelXcvKeepAliveValues& values);
    void StoreKeepAlive(const krelXcvKeepAliveValues& values) noexcept;
    bool IsOpenOnMonitor() const;

    WCHAR portName[67];
    krelPortTable& monitor;
    const ACCESS_MASK grantedAccess;
};
