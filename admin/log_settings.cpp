#include "admin/log_settings.h"

#include "admin/registry_agent.h"
#include "diagnostics/diagnostic_log.h"

void LoadLogSettings(krelMonRegistryAgent& agent)
{
    const krelMonRegistryKey ports = agent.CreatePortsKey();
    if (!ports.IsOpen())
        return;
    LogSettings settings;
    settings.eventTypesToLog = agent.QueryDword(ports, TEXT("EventTypesToLog"));
    settings.logToFile = agent.QueryDword(ports, TEXT("LogToFile"));
    settings.logToDebugOutput = agent.QueryDword(ports, TEXT("LogToDebugOutput"));
    settings.maxLogFileSize = agent.QueryDword(ports, TEXT("MaxLogFileSize"));
    ApplyLogSettings(settings);
}
