#include "farlink/log/log_path.h"

#include <array>

namespace farlink {

namespace {

// A variable of the machine's own, which a service gets, and not of the caller's; empty when it isn't set.
WideString MachineVariable(LPCWSTR name)
{
    std::array<WCHAR, MAX_PATH> value{};
    DWORD size = sizeof value;
    // A value with other variables in it comes expanded.
    const LSTATUS word = RegGetValueW(
        HKEY_LOCAL_MACHINE, TEXT("SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment"), name,
        RRF_RT_REG_SZ, nullptr, value.data(), &size);
    return word == ERROR_SUCCESS ? value.data() : WideString();
}

// As GetTempPathW finds it for a service of the system's own account.
WideString ServiceTempFolder()
{
    for (const LPCWSTR name : {TEXT("TMP"), TEXT("TEMP")})
        if (const WideString folder = MachineVariable(name); !folder.empty())
            return folder.back() == TEXT('\\') ? folder : folder + TEXT("\\");
    std::array<WCHAR, MAX_PATH> windows{};
    GetSystemWindowsDirectoryW(windows.data(), static_cast<UINT>(windows.size()));
    return windows.data() + WideString(TEXT("\\Temp\\"));
}

}  // namespace

std::string LogPath(const MonitorEntry& monitor)
{
    return ToUtf8(ServiceTempFolder() + monitor.library) + ".log";
}

}  // namespace farlink
