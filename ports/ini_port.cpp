#include "ports/ini_port.h"

#include <algorithm>

#include "diagnostics/function_trace.h"

namespace {

template <std::size_t size>
void CopyText(WCHAR (&field)[size], LPCWSTR text)
{
    const WideStringView source = text ? text : TEXT("");
    const std::size_t length = std::min(source.size(), size - 1);
    std::copy_n(source.data(), length, field);
    std::fill(field + length, field + size, WCHAR());
}

}  // namespace

krelIniPort::krelIniPort(krelIniPort* nextPort, LPCWSTR name, LPCWSTR server, WORD portNumber)
{
    CFunctionTrace trace("krelIniPort::krelIniPort", "port = %S, server = %S", name ? name : TEXT("NULL"),
                         server ? server : TEXT("NULL"));
    CopyText(portName, name);
    CopyText(settings.server, server);
    settings.portNumber = portNumber;
    next = nextPort;
    document = std::make_shared<CDocument>(*this);
    settings.keepAlivePeriod = kDefaultKeepAlivePeriod;
    settings.keepAliveTimeout = kDefaultKeepAliveTimeout;
}

// Nothing is left to do: Cleanup ran when the port was deleted.
krelIniPort::~krelIniPort() = default;

krelPortSettings krelIniPort::Settings() const
{
    CLockScope held(lock);
    return settings;
}

void krelIniPort::SetSettings(const krelPortSettings& changed)
{
    CLockScope held(lock);
    settings = changed;
}

bool krelIniPort::IsLockedForPrinting() const
{
    CLockScope held(lock);
    return document->HoldsPort();
}
