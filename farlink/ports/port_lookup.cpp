#include "farlink/ports/port_lookup.h"

#include "farlink/failure.h"
#include "farlink/ports/port_use.h"
#include "farlink/ports/spooler_lists.h"
#include "farlink/similar_word.h"

namespace farlink {

WideString FindPortByName(const std::string& name)
{
    const WideString wanted = ToUtf16(name);
    std::vector<std::string> names;
    for (const WideString& port : ListPorts()) {
        if (SameName(port, wanted))
            return port;
        names.push_back(ToUtf8(port));
    }
    throw PlatformFailure("Port '" + name + "'", ERROR_UNKNOWN_PORT,
                          "there is no such port" + DidYouMean(name, names));
}

WideString FindPort(const std::string& name)
{
    const WideString wanted = ToUtf16(name);
    for (const WideString& port : ListPorts())
        if (SameName(port, wanted))
            return port;
    if (const std::optional<WideString> port = PortOfPrinter(wanted))
        return *port;
    throw PlatformFailure("'" + name + "'", ERROR_INVALID_PRINTER_NAME);
}

}  // namespace farlink
