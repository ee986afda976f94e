#include "admin/port_loader.h"

#include "ports/ini_port.h"
#include "ports/port_table.h"

namespace {

// What a port holds. A longer name, cut, would no longer be the name of its key.
constexpr std::size_t kMaxPortName = 66;
constexpr std::size_t kMaxServer = 48;

constexpr DWORD kServerSize = 1000;  // bytes; a value that fills them is taken as cut

}  // namespace

bool loadPortFromRegistryCallback::onSubkey(const krelMonRegistryKey& parentKey, LPCWSTR subkeyName)
{
    const krelMonRegistryKey portKey = agent.OpenKey(parentKey, subkeyName);
    if (!portKey.IsOpen())
        return true;
    krelIniPort* port = MakePort(portKey, subkeyName);
    if (port != nullptr)
        ReadKeepAlive(portKey, *port);
    return true;
}

krelIniPort* loadPortFromRegistryCallback::MakePort(const krelMonRegistryKey& portKey, LPCWSTR portName)
{
    WCHAR server[kServerSize / sizeof(WCHAR) + 1] = {};  // a value may be stored without its NUL
    DWORD size = kServerSize;
    if (!agent.QueryValue(portKey, TEXT("Print Server"), server, &size) || size >= kServerSize)
        return nullptr;
    const auto number = agent.QueryDword(portKey, TEXT("Port Number"));
    if (!number)
        return nullptr;
    if (WideStringView(portName).size() > kMaxPortName || WideStringView(server).size() > kMaxServer)
        return nullptr;
    return monitor.CreatePortEntry(portName, server, static_cast<WORD>(*number));
}

void loadPortFromRegistryCallback::ReadKeepAlive(const krelMonRegistryKey& portKey, krelIniPort& port)
{
    krelPortSettings settings = port.Settings();
    if (const auto period = agent.QueryDword(portKey, TEXT("Keep Alive Msg Interval")))
        settings.keepAlivePeriod = static_cast<WORD>(*period);
    if (const auto timeout = agent.QueryDword(portKey, TEXT("Keep Alive Timeout")))
        settings.keepAliveTimeout = static_cast<WORD>(*timeout);
    port.SetSettings(settings);
}
