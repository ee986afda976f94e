#include "farlink/ports/spooler_records.h"

namespace farlink {

std::vector<WideString> ListPorts()
{
    std::vector<BYTE> buffer;
    const auto records =
        Ask<PORT_INFO_1W>(buffer, [](BYTE* ports, DWORD size, DWORD* needed, DWORD* returned) {
            return EnumPortsW(nullptr, 1, ports, size, needed, returned);
        });
    std::vector<WideString> names;
    for (const PORT_INFO_1W& record : records)
        names.push_back(TextOf(record.pName));
    std::ranges::sort(names, NameLess);
    return names;
}

}  // namespace farlink
