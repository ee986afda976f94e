#pragma once

#include "diagnostics/locks.h"
#include "platform/platform.h"

class krelIniPort;

// The ports of one monitor, and the values of the spooler's through which they are kept.
//
// The order of locks: `changes`, then `section`, then the identity scope of the changing commands, then a
// port's own lock.
class krelPortTable {
public:
    // Keeps the values of MONITORINIT, whose pointers stay the spooler's.
    explicit krelPortTable(const MONITORINIT& fromSpooler);
    krelPortTable(const krelPortTable&) = delete;
    krelPortTable& operator=(const krelPortTable&) = delete;

    // Stores the port of that name, or null, in `handle`. Opening changes nothing in the port.
    bool openPort(LPCWSTR name, HANDLE* handle);
    // Packs the port records for the spooler; see enumPorts.
    bool EnumeratePorts(DWORD level, BYTE* ports, DWORD size, DWORD* needed, DWORD* returned);

    // A port of that name, ignoring case; null when there is none.
    krelIniPort* FindPort(LPCWSTR name) const THREAD_ANNOTATION(requires_capability(section));

    // True when a port of ours bears the name, by the spooler's own rule (lstrcmpiW), which knows more
    // letters than FindPort: two ports that it takes for one would share a registry key.
    bool HasPortOfName(LPCWSTR name) const THREAD_ANNOTATION(requires_capability(section));

    // Puts a port at the head of the table, whatever its name. Null when memory is short. Under `section`,
    // or while the monitor starts, which runs alone.
    krelIniPort* CreatePortEntry(LPCWSTR portName, LPCWSTR server, WORD portNumber);

    // Takes a port out of the table and cleans it up; `section` is left meanwhile, since a worker or call
    // that is waited for may want it. `changes` keeps the name from being added again until the caller is
    // through. Its object stays allocated to the monitor's end: the spooler may still hold its address. False
    // with ERROR_UNKNOWN_PORT when there is none.
    bool deletePortEntry(LPCWSTR portName) THREAD_ANNOTATION(requires_capability(changes, section));

    // True when any port of the system bears the name, ignoring case. When the spooler can't list its
    // ports, false with its error word in `error`, else 0 there. The spooler asks back for our own ports on
    // this thread: not to be called under `section`.
    bool portNameExists(LPCWSTR portName, DWORD* error);

    const MONITORINIT monitorInit;

    CLock changes;  // held by each command that changes ports, from its first look to its end
    CLock section;  // guards the table; held briefly, never while waiting for a port

protected:
    // DeleteAllPorts must have run.
    ~krelPortTable() = default;

    // Takes every port down. Wakes the calls that are still inside ports and waits for them, at most 10 s
    // for all together; a port with a call in it after that is left allocated. No call on the table itself
    // may be under way.
    void DeleteAllPorts();

private:
    krelIniPort* UnlinkPort(LPCWSTR name) THREAD_ANNOTATION(requires_capability(section));
    void FreeDeletedPorts();

    krelIniPort* ports = nullptr;         // newest first
    krelIniPort* deletedPorts = nullptr;  // out of the table, their addresses not yet free for others
};
