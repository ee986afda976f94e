#include "link/lpq_info.h"

#include <cstdio>

#include "link/wire_format.h"

bool LPQInfo::Decode(const BYTE* payload, DWORD size)
{
    if (size < kWireSize)
        return false;
    queuePosition = static_cast<SHORT>(LoadBig16(payload));
    boundJobState = LoadBig16(payload + 2);
    activeJobState = LoadBig16(payload + 4);
    printerState = static_cast<LONG>(LoadBig32(payload + 6));
    return true;
}

LPQInfoText LPQInfo::ToString() const
{
    LPQInfoText result;
    (void)std::snprintf(
        result.text, sizeof result.text,
        "queue position = %i, bound job state = %i, active job state = %i, printer state = %i",
        static_cast<int>(queuePosition), static_cast<int>(boundJobState), static_cast<int>(activeJobState),
        static_cast<int>(printerState));
    return result;
}
