#include <optional>

#include "admin/record_io.h"
#include "admin/registry_agent.h"
#include "admin/revert_to_printer_self.h"
#include "admin/xcv_handler.h"
#include "ports/ini_port.h"
#include "ports/port_table.h"

namespace {

// The input as a text, which must end inside it. Nothing when it doesn't.
std::optional<WideString> ReadText(const krelXcvBuffers& buffers)
{
    WideString text;
    for (DWORD at = 0; buffers.input != nullptr && buffers.inputSize - at >= sizeof(WCHAR);
         at += sizeof(WCHAR)) {
        WCHAR character;
        std::memcpy(&character, buffers.input + at, sizeof(character));
        if (character == 0)
            return text;
        text.push_back(character);
    }
    return std::nullopt;
}

}  // namespace

DWORD krelPortMonitorXcvHandler::xcvAddPort(const krelXcvBuffers& buffers)
{
    krelXcvPortData record;
    if (!ReadRecord(buffers, &record))
        return ERROR_INVALID_PARAMETER;
    // An empty name's registry key would be that of all ports.
    if (!IsTerminated(record.server) || !IsTerminated(record.portName) || record.portName[0] == 0)
        return ERROR_INVALID_PARAMETER;
    if (record.version != kXcvRecordVersion)
        return ERROR_NOT_SUPPORTED;
    // Asks every monitor of the spooler, ours included: outside `section`, and as the client.
    DWORD error = ERROR_SUCCESS;
    if (monitor.portNameExists(record.portName, &error))
        return ERROR_ALREADY_EXISTS;
    if (error != ERROR_SUCCESS)
        return error;
    return RegisterPort(record);
}

DWORD krelPortMonitorXcvHandler::RegisterPort(const krelXcvPortData& record)
{
    CLockScope changing(monitor.changes);
    CLockScope held(monitor.section);
    if (monitor.HasPortOfName(record.portName))
        return ERROR_ALREADY_EXISTS;  // another command of this name was faster
    krelRevertToPrinterSelf spoolerIdentity;
    const krelIniPort* port = monitor.CreatePortEntry(record.portName, record.server, record.portNumber);
    if (port == nullptr)
        return ERROR_ACCESS_DENIED;
    bool isStored = false;
    try {
        isStored = krelMonRegistryAgent(monitor).addPortToRegistry(*port);
    } catch (...) {
        monitor.deletePortEntry(record.portName);
        throw;
    }
    if (isStored)
        return ERROR_SUCCESS;
    monitor.deletePortEntry(record.portName);
    return ERROR_ACCESS_DENIED;
}

DWORD krelPortMonitorXcvHandler::xcvDeletePort(const krelXcvBuffers& buffers)
{
    const std::optional<WideString> name = ReadText(buffers);
    if (!name)
        return ERROR_INVALID_PARAMETER;
    CLockScope changing(monitor.changes);
    CLockScope held(monitor.section);
    krelRevertToPrinterSelf spoolerIdentity;
    if (!monitor.deletePortEntry(name->c_str()))
        return ERROR_FILE_NOT_FOUND;
    krelMonRegistryAgent(monitor).deletePortFromRegistry(name->c_str());
    return ERROR_SUCCESS;
}

DWORD krelPortMonitorXcvHandler::xcvGetPortProperties(const krelXcvBuffers& buffers)
{
    if (!IsVersionQuery(buffers))
        return ERROR_INVALID_PARAMETER;
    if (buffers.outputSize < sizeof(krelXcvPortData)) {
        StoreNeeded(buffers, sizeof(krelXcvPortData));
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (buffers.output == nullptr)
        return ERROR_INVALID_PARAMETER;
    CLockScope held(monitor.section);
    const krelIniPort* port = monitor.FindPort(portName);
    if (port == nullptr)
        return ERROR_UNKNOWN_PORT;
    const krelPortSettings settings = port->Settings();
    // A persisted name may be one character longer than its field.
    WriteText(buffers.output, WideStringView(port->portName).substr(0, 65));
    WriteText(buffers.output + offsetof(krelXcvPortData, server), settings.server);
    std::memcpy(buffers.output + offsetof(krelXcvPortData, version), &kXcvRecordVersion, sizeof(DWORD));
    std::memcpy(buffers.output + offsetof(krelXcvPortData, portNumber), &settings.portNumber, sizeof(WORD));
    return ERROR_SUCCESS;
}

DWORD krelPortMonitorXcvHandler::xcvSetPortProperties(const krelXcvBuffers& buffers)
{
    krelXcvPortData record;
    if (!ReadRecord(buffers, &record) || record.version != kXcvRecordVersion || !IsTerminated(record.server))
        return ERROR_INVALID_PARAMETER;
    CLockScope changing(monitor.changes);
    CLockScope held(monitor.section);
    krelIniPort* port = monitor.FindPort(portName);
    if (port == nullptr)
        return ERROR_UNKNOWN_PORT;
    krelRevertToPrinterSelf spoolerIdentity;
    return ChangeServer(*port, record);
}

// The registry first: the port keeps its old settings when the registry refuses one of the new.
DWORD krelPortMonitorXcvHandler::ChangeServer(krelIniPort& port, const krelXcvPortData& record)
{
    if (port.IsLockedForPrinting())
        return ERROR_BUSY;
    krelMonRegistryAgent registry(monitor);
    if (!registry.setPortStringValue(portName, TEXT("Print Server"), record.server) ||
        !registry.setPortDwordValue(portName, TEXT("Port Number"), record.portNumber))
        return ERROR_ACCESS_DENIED;
    krelPortSettings settings = port.Settings();
    std::memcpy(settings.server, record.server, sizeof(settings.server));
    settings.portNumber = record.portNumber;
    port.SetSettings(settings);
    return ERROR_SUCCESS;
}
