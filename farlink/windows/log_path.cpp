#include "farlink/log/log_path.h"

#include <array>

namespace farlink {

// The monitor runs in the spooler's service, whose temporary folder is the system's and not the caller's.
std::string LogPath(const MonitorEntry& monitor)
{
    std::array<WCHAR, MAX_PATH> folder{};
    GetSystemWindowsDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return ToUtf8(folder.data() + (TEXT("\\Temp\\") + monitor.library)) + ".log";
}

}  // namespace farlink
