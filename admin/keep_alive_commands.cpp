#include "admin/record_io.h"
#include "admin/registry_agent.h"
#include "admin/revert_to_printer_self.h"
#include "admin/xcv_handler.h"
#include "ports/ini_port.h"
#include "ports/port_table.h"

namespace {

// The tests of the two commands that give out values, and the answer.
DWORD AnswerKeepAlive(const krelXcvBuffers& buffers, WORD period, WORD timeout)
{
    const krelXcvKeepAliveValues values = {kXcvRecordVersion, period, timeout};
    StoreNeeded(buffers, sizeof(values));
    if (buffers.output == nullptr || buffers.outputSize < sizeof(values))
        return ERROR_INSUFFICIENT_BUFFER;
    if (!IsVersionQuery(buffers))
        return ERROR_INVALID_PARAMETER;
    std::memcpy(buffers.output, &values, sizeof(values));
    return ERROR_SUCCESS;
}

}  // namespace

DWORD krelPortMonitorXcvHandler::xcvSetKeepAliveValues(const krelXcvBuffers& buffers)
{
    CLockScope changing(monitor.changes);
    CLockScope held(monitor.section);
    krelIniPort* port = monitor.FindPort(portName);
    if (port == nullptr)
        return ERROR_UNKNOWN_PORT;
    krelXcvKeepAliveValues values;
    if (!ReadRecord(buffers, &values) || values.version != kXcvRecordVersion)
        return ERROR_INVALID_PARAMETER;
    krelRevertToPrinterSelf spoolerIdentity;
    return ChangeKeepAlive(*port, values);
}

// The port first: a registry that refuses the values costs them only at the next start.
DWORD krelPortMonitorXcvHandler::ChangeKeepAlive(krelIniPort& port, const krelXcvKeepAliveValues& values)
{
    if (port.IsLockedForPrinting())
        return ERROR_BUSY;
    krelPortSettings settings = port.Settings();
    settings.keepAlivePeriod = values.keepAlivePeriod;
    settings.keepAliveTimeout = values.keepAliveTimeout;
    port.SetSettings(settings);
    StoreKeepAlive(values);
    return ERROR_SUCCESS;
}

// What becomes of it concerns nobody, memory that runs out included: the port has its new values.
void krelPortMonitorXcvHandler::StoreKeepAlive(const krelXcvKeepAliveValues& values) noexcept
try {
    krelMonRegistryAgent registry(monitor);
    (void)registry.setPortDwordValue(portName, TEXT("Keep Alive Msg Interval"), values.keepAlivePeriod);
    (void)registry.setPortDwordValue(portName, TEXT("Keep Alive Timeout"), values.keepAliveTimeout);
} catch (...) {
}

DWORD krelPortMonitorXcvHandler::xcvGetKeepAliveValues(const krelXcvBuffers& buffers)
{
    CLockScope held(monitor.section);
    const krelIniPort* port = monitor.FindPort(portName);
    if (port == nullptr)
        return ERROR_UNKNOWN_PORT;
    const krelPortSettings settings = port->Settings();
    return AnswerKeepAlive(buffers, settings.keepAlivePeriod, settings.keepAliveTimeout);
}

DWORD krelPortMonitorXcvHandler::xcvGetDefaultKeepAliveValues(const krelXcvBuffers& buffers)
{
    return AnswerKeepAlive(buffers, kDefaultKeepAlivePeriod, kDefaultKeepAliveTimeout);
}
