#include "admin/registry_agent.h"

#include "admin/port_loader.h"
#include "ports/ini_port.h"
#include "ports/port_table.h"

krelMonRegistryAgent::krelMonRegistryAgent(krelPortTable& owner)
    : root(reinterpret_cast<HKEYMONITOR>(owner.monitorInit.hckRegistryRoot), nullptr, nullptr),
      monitor(owner),
      spoolerHandle(owner.monitorInit.hSpooler),
      callbacks(*owner.monitorInit.pMonitorReg)
{
}

bool krelMonRegistryAgent::addPortToRegistry(const krelIniPort& port)
{
    const krelPortSettings settings = port.Settings();
    const krelMonRegistryKey ports = CreatePortsKey();
    if (!ports.IsOpen())
        return false;
    const krelMonRegistryKey portKey = CreateKey(ports, port.portName);
    return portKey.IsOpen() && SetString(portKey, TEXT("Print Server"), settings.server) &&
           SetDword(portKey, TEXT("Port Number"), settings.portNumber);
}

bool krelMonRegistryAgent::setPortStringValue(LPCWSTR portName, LPCWSTR valueName, LPCWSTR value)
{
    const krelMonRegistryKey portKey = OpenPortKey(portName);
    return portKey.IsOpen() && SetString(portKey, valueName, value);
}

bool krelMonRegistryAgent::setPortDwordValue(LPCWSTR portName, LPCWSTR valueName, DWORD value)
{
    const krelMonRegistryKey portKey = OpenPortKey(portName);
    return portKey.IsOpen() && SetDword(portKey, valueName, value);
}

void krelMonRegistryAgent::deletePortFromRegistry(LPCWSTR portName)
{
    const krelMonRegistryKey ports = OpenPortsKey();
    if (ports.IsOpen())
        (void)callbacks.fpDeleteKey(ports.Get(), portName, spoolerHandle);
}

LONG krelMonRegistryAgent::loadPortsFromRegistry()
{
    const krelMonRegistryKey ports = OpenPortsKey();
    if (!ports.IsOpen())
        return 0;
    loadPortFromRegistryCallback callback(*this, monitor);
    iterateSubkeys(ports, callback);
    return callback.Status();
}

void krelMonRegistryAgent::iterateSubkeys(const krelMonRegistryKey& key,
                                          krelMonRegistryAgentSubkeyIterationCallBack& callback)
{
    constexpr DWORD kNameSize = 1000;
    for (DWORD index = 0;; index++) {
        WCHAR name[kNameSize + 1] = {};  // ends inside, even if the spooler leaves out the NUL
        DWORD length = kNameSize;
        FILETIME lastWrite;
        if (callbacks.fpEnumKey(key.Get(), index, name, &length, &lastWrite, spoolerHandle) != ERROR_SUCCESS)
            return;
        if (!callback.onSubkey(key, name))
            return;
    }
}

krelMonRegistryKey krelMonRegistryAgent::OpenKey(const krelMonRegistryKey& parent, LPCWSTR name)
{
    HKEYMONITOR key = nullptr;
    if (callbacks.fpOpenKey(parent.Get(), name, KEY_ALL_ACCESS, &key, spoolerHandle) != ERROR_SUCCESS)
        return {};
    return {key, spoolerHandle, callbacks.fpCloseKey};
}

krelMonRegistryKey krelMonRegistryAgent::OpenPortKey(LPCWSTR portName)
{
    const krelMonRegistryKey ports = OpenPortsKey();
    if (!ports.IsOpen())
        return {};
    return OpenKey(ports, portName);
}

krelMonRegistryKey krelMonRegistryAgent::CreateKey(const krelMonRegistryKey& parent, LPCWSTR name)
{
    HKEYMONITOR key = nullptr;
    DWORD disposition = 0;
    if (callbacks.fpCreateKey(parent.Get(), name, 0, KEY_ALL_ACCESS, nullptr, &key, &disposition,
                              spoolerHandle) != ERROR_SUCCESS)
        return {};
    return {key, spoolerHandle, callbacks.fpCloseKey};
}

bool krelMonRegistryAgent::SetString(const krelMonRegistryKey& key, LPCWSTR name, LPCWSTR value)
{
    const std::size_t size = (WideStringView(value).size() + 1) * sizeof(WCHAR);
    return callbacks.fpSetValue(key.Get(), name, REG_SZ, reinterpret_cast<const BYTE*>(value),
                                static_cast<DWORD>(size), spoolerHandle) == ERROR_SUCCESS;
}

bool krelMonRegistryAgent::SetDword(const krelMonRegistryKey& key, LPCWSTR name, DWORD value)
{
    return callbacks.fpSetValue(key.Get(), name, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                                sizeof(value), spoolerHandle) == ERROR_SUCCESS;
}

bool krelMonRegistryAgent::QueryValue(const krelMonRegistryKey& key, LPCWSTR name, void* data, DWORD* size)
{
    DWORD type = REG_SZ;
    return callbacks.fpQueryValue(key.Get(), name, &type, static_cast<BYTE*>(data), size, spoolerHandle) ==
           ERROR_SUCCESS;
}

std::optional<DWORD> krelMonRegistryAgent::QueryDword(const krelMonRegistryKey& key, LPCWSTR name)
{
    DWORD read = 0;
    DWORD size = sizeof(read);
    if (!QueryValue(key, name, &read, &size))
        return std::nullopt;
    return read;
}
