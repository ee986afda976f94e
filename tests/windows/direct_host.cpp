// Checks of the monitor's library without a spooler in front of it.
//
//   direct_host jobs LIBRARY FINISHING CANCELLING NEVER   what the spooler is asked for a job; the last
//                                                         words are the ports of three print servers
//   direct_host table LIBRARY SIZE     the table's size; a log is written in this version's place
//   direct_host unload LIBRARY         the library goes without a shutdown, and comes again
//   direct_host leave LIBRARY PORT     the process ends in the middle of a document
//   direct_host rounds LIBRARY PORT COUNT   documents that fail; nothing is left when the library is gone
#include <map>
#include <stdexcept>

#include "tests/windows/checks.h"
#include "tests/windows/direct_monitor.h"
#include "tests/windows/import_hooks.h"
#include "tests/windows/job_control.h"
#include "tests/windows/process_counts.h"

namespace {

constexpr const wchar_t* kPort = L"direct";
constexpr WORD kRefused = 1;                  // nothing listens there
constexpr DWORD kRoundsBeforeMeasuring = 10;  // what the system's libraries make once and keep

void TurnLogOn()
{
    HKEY ports = nullptr;
    const DWORD on = 1;
    RegCreateKeyExW(SettingsRoot(), L"Ports", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &ports, nullptr);
    RegSetValueExW(ports, L"LogToFile", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof on);
    RegCloseKey(ports);
}

void CheckTable(const std::vector<std::string>& words)
{
    EmptySettings();
    TurnLogOn();
    DirectMonitor monitor(ToUtf16(words.at(0)));
    const MONITOR2& table = monitor.Table();
    checks::CheckEqual(table.cbSize, std::stoul(words.at(1)), "the table's size");
    checks::Check(table.pfnEnumPorts != nullptr && table.pfnXcvDataPort != nullptr &&
                      table.pfnShutdown != nullptr && table.pfnOpenPortEx == nullptr &&
                      table.pfnAddPort == nullptr && table.pfnSendRecvBidiDataFromPort == nullptr,
                  "the table's functions", "one is missing, or too many");
    monitor.ShutDown();
    checks::Check(monitor.Unload(), "the library goes", "it stays");
    EmptySettings();
}

void CheckUnload(const std::vector<std::string>& words)
{
    const std::wstring path = ToUtf16(words.at(0));
    EmptySettings();
    for (const char* time : {"first", "second"}) {
        DirectMonitor monitor(path);
        const DWORD word = monitor.PointPort(kPort, 9100);
        const bool isOpen = monitor.OpenPort(kPort) != nullptr;
        const bool unloaded = monitor.Unload() && GetModuleHandleW(path.c_str()) == nullptr;
        checks::Check(word == 0 && isOpen && unloaded, std::string("unload without a shutdown, ") + time,
                      "word " + std::to_string(word));
        EmptySettings();
    }
}

// The worker of the port's channel runs, and is ended by the system before the library is detached.
void CheckLeaving(const std::vector<std::string>& words)
{
    EmptySettings();
    static DirectMonitor monitor(ToUtf16(words.at(0)));
    const auto server = static_cast<WORD>(std::stoul(words.at(1)));
    checks::CheckEqual(monitor.PointPort(kPort, server), 0, "a port to leave");
    const HANDLE port = monitor.OpenPort(kPort);
    checks::Check(monitor.Table().pfnStartDocPort(port, nullptr, 0, 1, nullptr) != FALSE,
                  "a document to leave", "it wasn't begun");
    EmptySettings();
}

// The wait for the card's end, made short.
void WINAPI SleepHook(DWORD)
{
    Sleep(1);
}

// One document that can't be begun, and one whose end never comes.
bool FailTwice(const std::wstring& path, WORD server)
{
    DirectMonitor monitor(path);
    ReplaceImport(monitor.Library(), "Sleep", reinterpret_cast<void*>(SleepHook));
    bool asExpected = true;
    for (const WORD number : {kRefused, server}) {
        asExpected = monitor.PointPort(kPort, number) == ERROR_SUCCESS && asExpected;
        const HANDLE port = monitor.OpenPort(kPort);
        const BOOL begun = monitor.Table().pfnStartDocPort(port, nullptr, 0, 1, nullptr);
        asExpected = (begun != FALSE) == (number == server) && asExpected;
        monitor.Table().pfnEndDocPort(port);
        monitor.Table().pfnClosePort(port);
    }
    monitor.ShutDown();
    return monitor.Unload() && GetModuleHandleW(path.c_str()) == nullptr && asExpected;
}

void CheckRounds(const std::vector<std::string>& words)
{
    const auto server = static_cast<WORD>(std::stoul(words.at(1)));
    const DWORD count = static_cast<DWORD>(std::stoul(words.at(2)));
    DWORD passed = 0;
    DWORD threads = 0;
    ULONG_PTR handle = 0;
    EmptySettings();
    // A spooler has these for good; Wine's own keep handles each time that they come and go.
    for (const wchar_t* library : {L"winspool.drv", L"ws2_32.dll"})
        LoadLibraryW(library);
    for (DWORD round = 0; round < count; ++round) {
        if (round == kRoundsBeforeMeasuring) {
            threads = ThreadCount();
            handle = NextHandle();
        }
        passed += FailTwice(ToUtf16(words.at(0)), server) ? 1 : 0;
    }
    checks::CheckEqual(passed, count, "rounds of failing documents");
    checks::CheckEqual(ThreadCount(), threads, "threads after all rounds");
    checks::CheckEqual(NextHandle(), handle, "handles after all rounds");
    EmptySettings();
}

}  // namespace

int main(int count, char** words)
{
    using Action = void (*)(const std::vector<std::string>&);
    const std::map<std::string, Action> actions = {{"jobs", CheckJobControl},
                                                   {"table", CheckTable},
                                                   {"unload", CheckUnload},
                                                   {"leave", CheckLeaving},
                                                   {"rounds", CheckRounds}};
    const auto found = actions.find(count > 1 ? words[1] : "");
    try {
        if (checks::Check(found != actions.end(), "known action", "no such action"))
            found->second({words + 2, words + count});
    } catch (const std::exception& error) {
        checks::Check(false, words[1], error.what());
    }
    return checks::Finish();
}
