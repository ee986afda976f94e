#include "ports/port_table.h"

#include <new>

#include "diagnostics/function_trace.h"
#include "ports/ini_port.h"
#include "ports/port_enumeration.h"

namespace {

constexpr DWORD kLastCallsMs = 10000;

}  // namespace

krelPortTable::krelPortTable(const MONITORINIT& fromSpooler) : monitorInit(fromSpooler) {}

bool krelPortTable::openPort(LPCWSTR name, HANDLE* handle)
{
    CFunctionTrace trace("krelPortMonitor::openPort");

    if (handle == nullptr)
        return false;
    CLockScope held(section);
    krelIniPort* port = name != nullptr ? FindPort(name) : nullptr;
    *handle = port;
    if (port == nullptr)
        return false;
    CFunctionTrace opened("krelIniPort::Open");
    return true;
}

bool krelPortTable::EnumeratePorts(DWORD level, BYTE* buffer, DWORD size, DWORD* needed, DWORD* returned)
{
    CLockScope held(section);
    return enumPorts(ports, level, buffer, size, needed, returned);
}

krelIniPort* krelPortTable::FindPort(LPCWSTR name) const
{
    krelIniPort* port = ports;
    while (port != nullptr && _wcsicmp(port->portName, name) != 0)
        port = port->next;
    return port;
}

bool krelPortTable::HasPortOfName(LPCWSTR name) const
{
    const krelIniPort* port = ports;
    while (port != nullptr && lstrcmpiW(port->portName, name) != 0)
        port = port->next;
    return port != nullptr;
}

krelIniPort* krelPortTable::CreatePortEntry(LPCWSTR portName, LPCWSTR server, WORD portNumber)
{
    CFunctionTrace trace("krelPortMonitor::CreatePortEntry");

    try {
        ports = new krelIniPort(ports, portName, server, portNumber);
        return ports;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool krelPortTable::deletePortEntry(LPCWSTR portName)
{
    CFunctionTrace trace("krelPortMonitor::deletePortEntry");

    krelIniPort* port = UnlinkPort(portName);
    if (port == nullptr) {
        SetLastError(ERROR_UNKNOWN_PORT);
        return false;
    }
    port->next = deletedPorts;
    deletedPorts = port;
    CUnlockScope left(section);
    port->Delete();
    return true;
}

krelIniPort* krelPortTable::UnlinkPort(LPCWSTR name)
{
    krelIniPort** link = &ports;
    while (*link != nullptr && _wcsicmp((*link)->portName, name) != 0)
        link = &(*link)->next;
    krelIniPort* port = *link;
    if (port != nullptr)
        *link = port->next;
    return port;
}

void krelPortTable::DeleteAllPorts()
{
    {
        CLockScope changing(changes);
        CLockScope held(section);
        for (krelIniPort* port = ports; port != nullptr; port = port->next)
            port->WakeForDeletion();  // all at once, before any is waited for
        while (ports != nullptr)
            deletePortEntry(ports->portName);
    }
    FreeDeletedPorts();
}

void krelPortTable::FreeDeletedPorts()
{
    const DWORD deadline = GetTickCount() + kLastCallsMs;
    while (deletedPorts != nullptr) {
        krelIniPort* port = deletedPorts;
        deletedPorts = port->next;
        if (port->AwaitLastCall(deadline))
            delete port;
    }
}
