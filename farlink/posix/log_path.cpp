#include "farlink/log/log_path.h"

#include <array>

namespace farlink {

std::string LogPath(const MonitorEntry& monitor)
{
    std::array<WCHAR, 1024> folder{};
    GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    return ToUtf8(folder.data() + monitor.library) + ".log";
}

}  // namespace farlink
