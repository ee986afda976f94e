#pragma once

#include "ports/port_table.h"

// The object behind the spooler's monitor handle: the table of ports, with what its start and its tools'
// sessions need. A process may have several.
class krelPortMonitor final : public krelPortTable {
public:
    using krelPortTable::krelPortTable;
    // Takes every port down; see DeleteAllPorts.
    ~krelPortMonitor();

    // Reads the log settings and makes the persisted ports. Before the spooler knows the monitor.
    bool init();

    // Makes a session for a tool on any object name. Throws std::bad_alloc.
    bool xcvOpenPort(LPCWSTR object, ACCESS_MASK grantedAccess, HANDLE* handle);
};
