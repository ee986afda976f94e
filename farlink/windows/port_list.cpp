#include "farlink/ports/spooler_records.h"

namespace farlink {

// The spooler lists the ports of all monitors; ours say so in the name of their monitor.
std::vector<WideString> ListPorts()
{
    const WideString monitor = FindMonitor().name;
    std::vector<BYTE> buffer;
    const auto records =
        Ask<PORT_INFO_2W>(buffer, [](BYTE* ports, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumPortsW(nullptr, 2, ports, size, needed, returned);
        });
    std::vector<WideString> names;
    for (const PORT_INFO_2W& record : records)
        if (TextOf(record.pMonitorName) == monitor)
            names.push_back(TextOf(record.pPortName));
    std::ranges::sort(names, NameLess);
    return names;
}

}  // namespace farlink
