#include "farlink/windows/monitor_installation.h"

#include <array>

#include "farlink/failure.h"
#include "farlink/windows/system_library.h"

namespace farlink {

namespace {

constexpr LPCWSTR kEnvironment = TEXT("Windows x64");
constexpr LPCWSTR kDefaultName = TEXT("Remote TCP/IP Card Printer Port");

// The name by which the monitor will call itself; installed under another one its ports wouldn't be found.
WideString ConfiguredName()
{
    std::array<WCHAR, 2048> name{};
    GetPrivateProfileStringW(TEXT("Farlink"), TEXT("Name"), kDefaultName, name.data(),
                             static_cast<DWORD>(name.size()), (SystemFolder() + TEXT("Farlink.ini")).c_str());
    return name.data();
}

Failure MonitorFailure(const std::string& what)
{
    const DWORD word = GetLastError();
    if (word == ERROR_ACCESS_DENIED || word == ERROR_PRIVILEGE_NOT_HELD)
        return PlatformFailure(what, word, "it takes an administrator's rights");
    return PlatformFailure(what, word);
}

// A spooler in protected print mode loads no library but its own, whatever its error word.
Failure InstallFailure()
{
    const Failure failure = MonitorFailure("The monitor was not installed");
    return Failure(failure.what() +
                   std::string("; if Windows protected print mode is on, switch it off first: "
                               "the spooler then loads nobody's monitor"));
}

// The environment that the spooler serves; it takes a monitor for no other. One that doesn't tell is of our
// own.
WideString ServedEnvironment()
{
    const PrinterHandle spooler({});
    std::array<WCHAR, 64> name{};
    DWORD type = 0;
    DWORD needed = 0;
    WideString entry = TEXT("Architecture");
    const DWORD word =
        GetPrinterDataW(spooler.Get(), entry.data(), &type, reinterpret_cast<BYTE*>(name.data()),
                        sizeof name - sizeof(WCHAR), &needed);
    return word == ERROR_SUCCESS && name[0] != 0 ? name.data() : kEnvironment;
}

}  // namespace

MonitorEntry InstallMonitor()
{
    RequireSystemLibrary();
    const WideString served = ServedEnvironment();
    if (!SameName(served, kEnvironment))
        throw Failure("This spooler is of '" + ToUtf8(served) + "' and loads no library for '" +
                      ToUtf8(kEnvironment) + "', which Farlink.dll is; there is none for other processors");
    WideString name = ConfiguredName();
    WideString environment = kEnvironment;
    WideString library = kLibrary;
    MONITOR_INFO_2W record{name.data(), environment.data(), library.data()};
    if (!AddMonitorW(nullptr, 2, reinterpret_cast<LPBYTE>(&record)))
        throw InstallFailure();
    return {name, TEXT("Farlink")};
}

MonitorEntry UninstallMonitor()
{
    MonitorEntry monitor = FindMonitor();
    WideString environment = kEnvironment;
    if (!DeleteMonitorW(nullptr, environment.data(), monitor.name.data()))
        throw MonitorFailure("The monitor was not removed");
    return monitor;
}

}  // namespace farlink
