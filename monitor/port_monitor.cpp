#include "monitor/port_monitor.h"

#include "admin/log_settings.h"
#include "admin/registry_agent.h"
#include "admin/xcv_handler.h"
#include "diagnostics/function_trace.h"

krelPortMonitor::~krelPortMonitor()
{
    CFunctionTrace trace("krelPortMonitor::~krelPortMonitor");

    DeleteAllPorts();
}

bool krelPortMonitor::init()
{
    CFunctionTrace trace("krelPortMonitor::init");

    krelMonRegistryAgent agent(*this);
    LoadLogSettings(agent);
    return agent.loadPortsFromRegistry() >= 0;
}

bool krelPortMonitor::xcvOpenPort(LPCWSTR object, ACCESS_MASK grantedAccess, HANDLE* handle)
{
    CFunctionTrace trace("krelPortMonitor::xcvOpenPort");

    if (handle == nullptr)
        return false;
    *handle = new krelPortMonitorXcvHandler(*this, object, grantedAccess);
    return true;
}
