#include <optional>

#include "tests/windows/checks.h"
#include "tests/windows/process_counts.h"
#include "tests/windows/spooler_checks.h"
#include "tests/windows/xcv_session.h"

namespace {

constexpr DWORD kAlreadyInstalled = 3006;
constexpr std::size_t kMostBytesPerLoad = 20000;
constexpr DWORD kLoadsBeforeMeasuring = 10;  // what the spooler's client makes once and keeps

BOOL Add(const std::wstring& library)
{
    std::wstring name = kMonitorName;
    std::wstring path = library;
    MONITOR_INFO_2W record{name.data(), nullptr, path.data()};
    return AddMonitorW(nullptr, 2, reinterpret_cast<LPBYTE>(&record));
}

bool LoadOnce()
{
    const XcvSession session(kMonitorSession, 0);
    DWORD needed = 0;
    return session.IsOpen() && session.Ask(L"GetVersionInfo", nullptr, 0, nullptr, 0, &needed) == 50 &&
           GetModuleHandleW(L"Farlink.dll") != nullptr;
}

}  // namespace

void Install(const std::vector<std::string>& words)
{
    const std::wstring library = ToUtf16(words.at(0));
    checks::Check(Add(library) != FALSE, "AddMonitorW", "error " + std::to_string(GetLastError()));
    const BOOL again = Add(library);
    checks::CheckEqual(again ? 0 : GetLastError(), kAlreadyInstalled, "AddMonitorW of the same name again");
}

void Uninstall(const std::vector<std::string>&)
{
    std::wstring name = kMonitorName;
    checks::Check(DeleteMonitorW(nullptr, nullptr, name.data()) != FALSE, "DeleteMonitorW",
                  "error " + std::to_string(GetLastError()));
    const XcvSession session(kMonitorSession, 0);
    checks::CheckEqual(session.IsOpen() ? 0 : session.Error(), ERROR_UNKNOWN_PORT,
                       "no session with a monitor that is gone");
}

void CheckLoads(const std::vector<std::string>& words)
{
    const DWORD count = static_cast<DWORD>(std::stoul(words.at(0)));
    DWORD loaded = 0;
    DWORD unloaded = 0;
    std::optional<ProcessCounts> before;
    for (DWORD load = 0; load < count; ++load) {
        if (load == kLoadsBeforeMeasuring)
            before.emplace();
        loaded += LoadOnce() ? 1 : 0;
        unloaded += GetModuleHandleW(L"Farlink.dll") == nullptr ? 1 : 0;
    }
    checks::CheckEqual(loaded, count, "loads");
    checks::CheckEqual(unloaded, count, "unloads");
    before->CheckSame("all loads", count - kLoadsBeforeMeasuring, kMostBytesPerLoad);
}
