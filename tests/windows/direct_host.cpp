// Checks of the monitor's library without a spooler in front of it.
//
//   direct_host jobs LIBRARY FINISHING CANCELLING NEVER   what the spooler is asked for a job; the last
//                                                         words are the ports of three print servers
//   direct_host table LIBRARY SIZE     the table's size; a log is written in this version's place
//   direct_host identity LIBRARY       the log is opened as the process, whoever is first
//   direct_host unload LIBRARY         the library goes without a shutdown, and comes again
//   direct_host leave LIBRARY PORT     the process ends in the middle of a document
//   direct_host rounds LIBRARY PORT COUNT   documents that fail; nothing is left when the library is gone
#include <map>
#include <optional>
#include <stdexcept>

#include "tests/windows/checks.h"
#include "tests/windows/direct_monitor.h"
#include "tests/windows/import_hooks.h"
#include "tests/windows/job_control.h"
#include "tests/windows/process_counts.h"

namespace {

constexpr const wchar_t* kPort = L"direct";
constexpr WORD kRefused = 1;  // nothing listens there
constexpr std::size_t kMostBytesPerRound = 20000;
constexpr DWORD kRoundsBeforeMeasuring = 10;  // what the system's libraries make once and keep

void TurnLogOn(DWORD events = 0x3F)
{
    HKEY ports = nullptr;
    const DWORD on = 1;
    RegCreateKeyExW(SettingsRoot(), L"Ports", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &ports, nullptr);
    RegSetValueExW(ports, L"LogToFile", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof on);
    RegSetValueExW(ports, L"EventTypesToLog", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&events),
                   sizeof events);
    RegCloseKey(ports);
}

bool StandsForAClient()
{
    HANDLE token = nullptr;
    const bool stands = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) != FALSE;
    if (stands)
        CloseHandle(token);
    return stands;
}

int openings = 0;
int openingsForAClient = 0;

HANDLE WINAPI CreateFileHook(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                             DWORD disposition, DWORD flags, HANDLE like)
{
    ++openings;
    openingsForAClient += StandsForAClient() ? 1 : 0;
    return CreateFileW(name, access, share, security, disposition, flags, like);
}

// Errors alone are logged, so that the first line is that of a job that a client's thread prints.
void CheckIdentity(const std::vector<std::string>& words)
{
    EmptySettings();
    TurnLogOn(0x04);
    DirectMonitor monitor(ToUtf16(words.at(0)));
    ReplaceImport(monitor.Library(), "CreateFileW", reinterpret_cast<void*>(CreateFileHook));
    monitor.PointPort(kPort, kRefused);
    const HANDLE port = monitor.OpenPort(kPort);
    checks::Check(openings == 0 && ImpersonateSelf(SecurityImpersonation) && StandsForAClient(),
                  "a client before the first line", "no client, or a line before it");
    monitor.Table().pfnStartDocPort(port, nullptr, 0, 1, nullptr);
    checks::CheckEqual(openings, 1, "openings of the log");
    checks::CheckEqual(openingsForAClient, 0, "openings of the log as the client");
    checks::Check(StandsForAClient(), "the thread is the client's again", "it isn't");
    RevertToSelf();
    monitor.ShutDown();
    monitor.Unload();
    EmptySettings();
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
    std::optional<ProcessCounts> before;
    EmptySettings();
    // A spooler has these for good; Wine's own keep handles each time that they come and go.
    for (const wchar_t* library : {L"winspool.drv", L"ws2_32.dll"})
        LoadLibraryW(library);
    for (DWORD round = 0; round < count; ++round) {
        if (round == kRoundsBeforeMeasuring)
            before.emplace();
        passed += FailTwice(ToUtf16(words.at(0)), server) ? 1 : 0;
    }
    checks::CheckEqual(passed, count, "rounds of failing documents");
    before->CheckSame("all rounds", count - kRoundsBeforeMeasuring, kMostBytesPerRound);
    EmptySettings();
}

}  // namespace

int main(int count, char** words)
{
    using Action = void (*)(const std::vector<std::string>&);
    const std::map<std::string, Action> actions = {{"jobs", CheckJobControl},   {"table", CheckTable},
                                                   {"identity", CheckIdentity}, {"unload", CheckUnload},
                                                   {"leave", CheckLeaving},     {"rounds", CheckRounds}};
    const auto found = actions.find(count > 1 ? words[1] : "");
    try {
        if (checks::Check(found != actions.end(), "known action", "no such action"))
            found->second({words + 2, words + count});
    } catch (const std::exception& error) {
        checks::Check(false, words[1], error.what());
    }
    return checks::Finish();
}
