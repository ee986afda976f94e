#include <memory>
#include <new>

#include "ports/port_table.h"

bool krelPortTable::portNameExists(LPCWSTR portName, DWORD* error)
{
    *error = ERROR_SUCCESS;
    DWORD needed = 0;
    DWORD returned = 0;
    if (EnumPortsW(nullptr, 1, nullptr, 0, &needed, &returned) != FALSE)
        return false;  // no port at all
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        *error = GetLastError();
        return false;
    }
    const std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[needed]);
    if (buffer == nullptr || EnumPortsW(nullptr, 1, buffer.get(), needed, &needed, &returned) == FALSE)
        return false;
    const auto* records = reinterpret_cast<const PORT_INFO_1W*>(buffer.get());
    bool exists = false;
    for (DWORD i = 0; i < returned; i++)
        exists |= lstrcmpiW(records[i].pName, portName) == 0;
    return exists;
}
