#include "admin/xcv_handler.h"

#include <optional>

#include "diagnostics/function_trace.h"

const krelPortMonitorXcvHandler::Command krelPortMonitorXcvHandler::commands[] = {
    {TEXT("MonitorUI"), false, "krelPortMonitorXcvHandler::getMonitorUI",
     &krelPortMonitorXcvHandler::getMonitorUI},
    {TEXT("AddPort"), true, "krelPortMonitorXcvHandler::xcvAddPort", &krelPortMonitorXcvHandler::xcvAddPort},
    {TEXT("DeletePort"), true, nullptr, &krelPortMonitorXcvHandler::xcvDeletePort},
    {TEXT("GetPortError"), false, nullptr, &krelPortMonitorXcvHandler::xcvGetPortError},
    {TEXT("GetPortProperties"), false, nullptr, &krelPortMonitorXcvHandler::xcvGetPortProperties},
    {TEXT("SetPortProperties"), false, nullptr, &krelPortMonitorXcvHandler::xcvSetPortProperties},
    {TEXT("GetVersionInfo"), false, nullptr, &krelPortMonitorXcvHandler::xcvGetVersionInfo},
    {TEXT("GetDebug"), false, nullptr, &krelPortMonitorXcvHandler::xcvGetDebug},
    {TEXT("GetAboutString"), false, "krelPortMonitorXcvHandler::xcvGetAboutString",
     &krelPortMonitorXcvHandler::xcvGetAboutString},
    {TEXT("SetKeepAliveValues"), true, nullptr, &krelPortMonitorXcvHandler::xcvSetKeepAliveValues},
    {TEXT("GetKeepAliveValues"), false, nullptr, &krelPortMonitorXcvHandler::xcvGetKeepAliveValues},
    {TEXT("GetDefaultKeepAliveValues"), false, nullptr,
     &krelPortMonitorXcvHandler::xcvGetDefaultKeepAliveValues},
};

krelPortMonitorXcvHandler::krelPortMonitorXcvHandler(krelPortTable& owner, LPCWSTR object, ACCESS_MASK access)
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
        std::optional<CFunctionTrace> scope;
        if (command.scopeName != nullptr)
            scope.emplace(command.scopeName);
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
