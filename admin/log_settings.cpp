#include "admin/log_settings.h"

#include "admin/registry_agent.h"
#include "diagnostics/diagnostic_log.h"

void LoadLogSettings(krelMonRegistryAgent& agent)
{
    const krelMonRegistryKey ports = agent.CreatePortsKey();
    if (!ports.IsOpen())
        return;
    LogSettings settings = CurrentLogSettings();
    agent.QueryDword(ports, TEXT("EventTypesToLog"), &settings.eventTypesToLog);
    agent.QueryDword(ports, TEXT("LogToFile"), &settings.logToFile);
    agent.QueryDword(ports, TEXT("LogToDebugOutput"), &settings.logToDebugOutput);
    agent.QueryDword(ports, TEXT("MaxLogFileSize"), &settings.maxLogFileSize);
    ApplyLogSettings(settings);
}
