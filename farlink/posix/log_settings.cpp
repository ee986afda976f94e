#include "farlink/log/log_settings.h"
#include "farlink/failure.h"
#include "spooler/spooler.h"

namespace farlink {

const char* const kWhenSettingsCount = "This counts for each farlink that starts from now on.";

namespace {

constexpr LPCWSTR kKey = TEXT("Ports");

}  // namespace

std::optional<DWORD> ReadLogSetting(const MonitorEntry& monitor, LPCWSTR name)
{
    DWORD value = 0;
    if (GetMonitorSetting(monitor.name.c_str(), kKey, name, &value))
        return value;
    if (GetLastError() != ERROR_FILE_NOT_FOUND)
        throw SpoolerFailure("The log settings can't be read");
    return std::nullopt;
}

void StoreLogSetting(const MonitorEntry& monitor, LPCWSTR name, DWORD value)
{
    if (!SetMonitorSetting(monitor.name.c_str(), kKey, name, value))
        throw SpoolerFailure("The log settings can't be stored");
}

void RemoveLogSetting(const MonitorEntry& monitor, LPCWSTR name)
{
    if (!DeleteMonitorSetting(monitor.name.c_str(), kKey, name) && GetLastError() != ERROR_FILE_NOT_FOUND)
        throw SpoolerFailure("The log settings can't be removed");
}

}  // namespace farlink
