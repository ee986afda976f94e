#include "farlink/failure.h"

namespace farlink {

Failure SpoolerFailure(const std::string& what)
{
    return PlatformFailure(what.empty() ? "The spooler failed" : what, GetLastError());
}

}  // namespace farlink
