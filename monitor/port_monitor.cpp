#include "monitor/port_monitor.h"

#include <new>

#include "admin/log_settings.h"
#include "admin/registry_agent.h"
#include "admin/xcv_handler.h"
#include "diagnostics/function_trace.h"
#include "monitor/ini_port.h"
#include "monitor/port_enumeration.h"

namespace {

constexpr DWORD kLastCallsMs = 10000;

}  // namespace

krelPortMonitor::krelPortMonitor(const MONITORINIT& fromSpooler) : monitorInit(fromSpooler) {}

krelPortMonitor::~krelPortMonitor()
{
    CFunctionTrace trace("krelPortMonitor::~krelPortMonitor");

    DeleteAllPorts();
    FreeDeletedPorts();
}

bool krelPortMonitor::init()
{
    CFunctionTrace trace("krelPortMonitor::init");

    krelMonRegistryAgent agent(*this);
    LoadLogSettings(agent);
    return agent.loadPortsFromRegistry() >= 0;
}

bool krelPortMonitor::openPort(LPCWSTR name, HANDLE* handle)
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

bool krelPortMonitor::xcvOpenPort(LPCWSTR object, ACCESS_MASK grantedAccess, HANDLE* handle)
{
    CFunctionTrace trace("krelPortMonitor::xcvOpenPort");

    if (handle == nullptr)
        return false;
    *handle = new krelPortMonitorXcvHandler(*this, object, grantedAccess);
    return true;
}

bool krelPortMonitor::EnumeratePorts(DWORD level, BYTE* buffer, DWORD size, DWORD* needed, DWORD* returned)
{
    CLockScope held(section);
    return enumPorts(ports, level, buffer, size, needed, returned);
}

krelIniPort* krelPortMonitor::FindPort(LPCWSTR name) const
{
    krelIniPort* port = ports;
    while (port != nullptr && _wcsicmp(port->portName, name) != 0)
        port = port->next;
    return port;
}

bool krelPortMonitor::HasPortOfName(LPCWSTR name) const
{
    const krelIniPort* port = ports;
    while (port != nullptr && lstrcmpiW(port->portName, name) != 0)
        port = port->next;
    return port != nullptr;
}

krelIniPort* krelPortMonitor::CreatePortEntry(LPCWSTR portName, LPCWSTR server, WORD portNumber)
{
    CFunctionTrace trace("krelPortMonitor::CreatePortEntry");

    krelIniPort* port = new (std::nothrow) krelIniPort(ports, portName, server, portNumber);
    if (port != nullptr)
        ports = port;
    return port;
}

bool krelPortMonitor::deletePortEntry(LPCWSTR portName)
{
    CFunctionTrace trace("krelPortMonitor::deletePortEntry");

    krelIniPort* port = UnlinkPort(portName);
    if (port == nullptr) {
        SetLastError(ERROR_UNKNOWN_PORT);
        return false;
    }
    port->next = deletedPorts;
    deletedPorts = port;
    section.Leave();
    port->Delete();
    section.Enter();
    return true;
}

krelIniPort* krelPortMonitor::UnlinkPort(LPCWSTR name)
{
    krelIniPort** link = &ports;
    while (*link != nullptr && _wcsicmp((*link)->portName, name) != 0)
        link = &(*link)->next;
    krelIniPort* port = *link;
    if (port != nullptr)
        *link = port->next;
    return port;
}

void krelPortMonitor::DeleteAllPorts()
{
    CLockScope changing(changes);
    CLockScope held(section);
    for (krelIniPort* port = ports; port != nullptr; port = port->next)
        port->WakeForDeletion();  // all at once, before any is waited for
    while (ports != nullptr)
        deletePortEntry(ports->portName);
}

void krelPortMonitor::FreeDeletedPorts()
{
    const DWORD deadline = GetTickCount() + kLastCallsMs;
    while (deletedPorts != nullptr) {
        krelIniPort* port = deletedPorts;
        deletedPorts = port->next;
        if (port->AwaitLastCall(deadline))
            delete port;
    }
}
