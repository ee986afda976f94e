#include "admin/record_io.h"
#include "admin/xcv_handler.h"
#include "ports/display_names.h"
#include "ports/port_table.h"

namespace {

constexpr WORD kPortErrorQuery = 2;

// Names are compared as far as a session holds them.
bool IsSameName(WideStringView left, WideStringView right)
{
    return left.substr(0, 66) == right.substr(0, 66);
}

// The field's text; all of it when it has no end.
template <std::size_t Size>
WideStringView FieldText(const WCHAR (&field)[Size])
{
    return WideStringView(field, static_cast<std::size_t>(std::find(field, field + Size, WCHAR{0}) - field));
}

}  // namespace

bool krelPortMonitorXcvHandler::IsOpenOnMonitor() const
{
    return portName[0] == 0 || IsSameName(portName, Name);
}

// Tells whether a reference to a port is valid. The output buffer is asked for and never written.
DWORD krelPortMonitorXcvHandler::xcvGetPortError(const krelXcvBuffers& buffers)
{
    krelXcvPortErrorQuery query;
    StoreNeeded(buffers, sizeof(query));
    if (buffers.outputSize < sizeof(query))
        return ERROR_INSUFFICIENT_BUFFER;
    if (buffers.output == nullptr)
        return ERROR_INVALID_PARAMETER;
    if (!ReadRecord(buffers, &query) || query.version != kXcvRecordVersion || query.kind != kPortErrorQuery)
        return ERROR_INVALID_PARAMETER;

    LPCWSTR wanted = portName;
    if (query.portName[0] != 0 && IsOpenOnMonitor()) {
        if (!IsTerminated(query.portName))
            return ERROR_INVALID_PARAMETER;
        wanted = query.portName;
    } else if (query.portName[0] != 0 && !IsSameName(FieldText(query.portName), portName)) {
        return ERROR_INVALID_PARAMETER;
    }
    CLockScope held(monitor.section);
    return monitor.FindPort(wanted) != nullptr ? ERROR_SUCCESS : ERROR_UNKNOWN_PORT;
}
