#include "ports/port_enumeration.h"

#include <cstddef>
#include <cstring>

#include "ports/display_names.h"
#include "ports/ini_port.h"

namespace {

constexpr DWORD kHighestLevel = 2;
constexpr DWORD kRecordSize[] = {0, sizeof(PORT_INFO_1W), sizeof(PORT_INFO_2W)};
constexpr std::size_t kStringCount[] = {0, 1, 3};

// Offsets of a record's string pointers; at level 1 only the first.
constexpr std::size_t kStringOffset[] = {offsetof(PORT_INFO_2W, pPortName),
                                         offsetof(PORT_INFO_2W, pMonitorName),
                                         offsetof(PORT_INFO_2W, pDescription)};
static_assert(offsetof(PORT_INFO_1W, pName) == kStringOffset[0]);

struct PortStrings {
    LPCWSTR text[3];
};

PortStrings StringsOf(const krelIniPort& port)
{
    return {{port.portName, Name, Description}};
}

std::size_t SizeInBytes(LPCWSTR text)
{
    return (WideStringView(text).size() + 1) * sizeof(WCHAR);
}

std::size_t SizeOfRecord(const krelIniPort& port, DWORD level)
{
    std::size_t size = kRecordSize[level];
    const PortStrings strings = StringsOf(port);
    for (std::size_t i = 0; i < kStringCount[level]; i++)
        // NOLINTNEXTLINE(clang-analyzer-core.*): the table says 3 at most
        size += strings.text[i] != nullptr ? SizeInBytes(strings.text[i]) : 0;
    return size;
}

void Store(DWORD* target, std::size_t value)
{
    if (target != nullptr)
        *target = static_cast<DWORD>(value);
}

}  // namespace

bool enumPorts(const krelIniPort* head, DWORD Level, BYTE* pPorts, DWORD cbBuf, DWORD* pcbNeeded,
               DWORD* pcReturned)
{
    if (Level > kHighestLevel) {
        SetLastError(ERROR_INVALID_LEVEL);
        return false;
    }
    std::size_t needed = 0;
    for (const krelIniPort* port = head; port != nullptr; port = port->next)
        needed += SizeOfRecord(*port, Level);
    Store(pcbNeeded, needed);
    if (needed > cbBuf || (needed > 0 && pPorts == nullptr)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return false;
    }
    std::size_t returned = 0;
    BYTE* record = pPorts;
    BYTE* stringEnd = pPorts != nullptr ? pPorts + cbBuf : nullptr;
    for (const krelIniPort* port = head; port != nullptr; port = port->next) {
        stringEnd = packPortRecord(*port, Level, record, stringEnd);
        record += kRecordSize[Level];
        returned++;
    }
    Store(pcReturned, returned);
    return true;
}

// The tables say that there is a record at levels 1 and 2 alone, with 3 strings at most.
// NOLINTBEGIN(clang-analyzer-core.*)
BYTE* packPortRecord(const krelIniPort& port, DWORD Level, BYTE* record, BYTE* stringEnd)
{
    if (Level == 2) {
        const DWORD typeAndReserved[] = {PORT_TYPE_WRITE, 0};
        static_assert(offsetof(PORT_INFO_2W, Reserved) == offsetof(PORT_INFO_2W, fPortType) + sizeof(DWORD));
        std::memcpy(record + offsetof(PORT_INFO_2W, fPortType), typeAndReserved, sizeof(typeAndReserved));
    }
    const PortStrings strings = StringsOf(port);
    for (std::size_t i = 0; i < kStringCount[Level]; i++) {
        const BYTE* stored = nullptr;
        if (strings.text[i] != nullptr) {
            const std::size_t size = SizeInBytes(strings.text[i]);
            stringEnd -= size;
            std::memcpy(stringEnd, strings.text[i], size);
            stored = stringEnd;
        }
        std::memcpy(record + kStringOffset[i], &stored, sizeof(stored));
    }
    return stringEnd;
}
// NOLINTEND(clang-analyzer-core.*)
