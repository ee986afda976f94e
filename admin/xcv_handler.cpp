#include "admin/xcv_handler.h"

#include "diagnostics/function_trace.h"

const krelPortMonitorXcvHandler::Command krelPortMonitorXcvHandler::commands[] = {
    {TEXT("MonitorUI"), false, &krelPortMonitorXcvHandler::getMonitorUI},
    {TEXT("AddPort"), true, &krelPortMonitorXcvHandler::xcvAddPort},
    {TEXT("DeletePort"), true, &krelPortMonitorXcvHandler::xcvDeletePort},
    {TEXT("GetPortError"), false, &krelPortMonitorXcvHandler::xcvGetPortError},
    {TEXT("GetPortProperties"), false, &krelPortMonitorXcvHandler::xcvGetPortProperties},
    {TEXT("SetPortProperties"), false, &krelPortMonitorXcvHandler::xcvSetPortProperties},
    {TEXT("GetVersionInfo"), false, &krelPortMonitorXcvHandler::xcvGetVersionInfo},
    {TEXT("GetDebug"), false, &krelPortMonitorXcvHandler::xcvGetDebug},
    {TEXT("GetAboutString"), false, &krelPortMonitorXcvHandler::xcvGetAboutString},
    {TEXT("SetKeepAliveValues"), true, &krelPortMonitorXcvHandler::xcvSetKeepAliveValues},
    {TEXT("GetKeepAliveValues"), false, &krelPortMonitorXcvHandler::xcvGetKeepAliveValues},
    {TEXT("GetDefaultKeepAliveValues"), false, &krelPortMonitorXcvHandler::xcvGetDefaultKeepAliveValues},
};

krelPortMonitorXcvHandler::krelPortMonitorXcvHandler(krelPortMonitor& owner, LPCWSTR object,
                                                     ACCESS_MASK access)
    : portName{}, monitor(owner), grantedAccess(access)
{
    if (object != nullptr)
        WideStringView(object).copy(portName, 66);
}

DWORD krelPortMonitorXcvHandler::XcvDataPort(LPCWSTR pszDataName, const krelXcvBuffers& buffers)
{
    CFunctionTrace trace("krelPortMonitorXcvHandler::XcvDataPort");

    if (pszDataName == nullptr)
        return ERROR_INVALID_PARAMETER;
    const WideStringView name(pszDataName);
    for (const Command& command : commands) {
        if (name != command.name)
            continue;
        if (command.needsAdminister && (grantedAccess & SERVER_ACCESS_ADMINISTER) == 0)
            return ERROR_ACCESS_DENIED;
        return (this->*command.run)(buffers);
    }
    return ERROR_INVALID_PARAMETER;
}

void krelPortMonitorXcvHandler::xcvClosePort()
{
    CFunctionTrace trace("krelPortMonitorXcvHandler::xcvClosePort");
}
