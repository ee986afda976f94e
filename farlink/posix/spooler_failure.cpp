#include <array>

#include "farlink/failure.h"
#include "spooler/spooler.h"

namespace farlink {

Failure SpoolerFailure(const std::string& what)
{
    const DWORD word = GetLastError();
    std::array<char, 1024> text{};
    GetSpoolerErrorText(text.data(), static_cast<DWORD>(text.size()));
    if (text[0] == '\0')
        return PlatformFailure(what.empty() ? "The spooler failed" : what, word);
    return PlatformFailure(what, word, text.data());
}

}  // namespace farlink
