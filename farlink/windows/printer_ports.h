#pragma once

#include <sstream>

#include "farlink/ports/spooler_lists.h"

namespace farlink {

// Whether the printer prints on the port, alone or among others: a pooled printer's record has its ports with
// commas between them (PRINTER_INFO_2W).
inline bool PrintsOn(const PrinterEntry& printer, const WideString& port)
{
    std::wistringstream ports(printer.port);
    for (WideString each; std::getline(ports, each, TEXT(','));)
        if (SameName(each, port))
            return true;
    return false;
}

}  // namespace farlink
