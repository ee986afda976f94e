#include "tests/windows/job_control.h"

#include <mutex>

#include "tests/windows/checks.h"
#include "tests/windows/direct_monitor.h"
#include "tests/windows/import_hooks.h"

// Wine's spooler takes a job's commands and does nothing, so what the monitor asks of a spooler is recorded
// in front of it: the library's imports are replaced.
namespace {

constexpr const wchar_t* kPort = L"job control";
constexpr const wchar_t* kPrinterName = L"Front desk";
constexpr DWORD kSleepAtMostMs = 80;

int printerPlace = 0;
const HANDLE kPrinter = &printerPlace;

// What the spooler was asked, as text: the monitor's worker asks too.
std::mutex lock;
std::string asked;
DWORD jobStatus = 0;

void Record(const std::string& text)
{
    const std::lock_guard<std::mutex> guard(lock);
    asked += asked.empty() ? text : ", " + text;
}

BOOL WINAPI OpenPrinterHook(LPWSTR name, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults)
{
    Record("open " + (name == nullptr ? std::string("nothing") : ToUtf8(name)) +
           (defaults == nullptr ? "" : " with defaults"));
    *printer = kPrinter;
    return TRUE;
}

BOOL WINAPI ClosePrinterHook(HANDLE printer)
{
    Record(printer == kPrinter ? "close" : "close of another handle");
    return TRUE;
}

BOOL WINAPI SetJobHook(HANDLE printer, DWORD job, DWORD level, LPBYTE record, DWORD command)
{
    const bool asItShould = printer == kPrinter && level == 0 && record == nullptr;
    Record("job " + std::to_string(job) + " command " + std::to_string(command) +
           (asItShould ? "" : " with a wrong handle, level or record"));
    return TRUE;
}

BOOL WINAPI GetJobHook(HANDLE, DWORD, DWORD, LPBYTE record, DWORD size, LPDWORD needed)
{
    *needed = sizeof(JOB_INFO_2W);
    if (size < *needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    JOB_INFO_2W job{};
    job.Status = jobStatus;
    *reinterpret_cast<JOB_INFO_2W*>(record) = job;
    return TRUE;
}

// The wait for the card, 30 times a second, made shorter; long enough for the worker, which looks once a
// second.
void WINAPI SleepHook(DWORD milliseconds)
{
    Sleep(milliseconds < kSleepAtMostMs ? milliseconds : kSleepAtMostMs);
}

void ReplaceImports(HMODULE library)
{
    const struct {
        const char* function;
        void* replacement;
    } hooks[] = {{"OpenPrinterW", reinterpret_cast<void*>(OpenPrinterHook)},
                 {"ClosePrinter", reinterpret_cast<void*>(ClosePrinterHook)},
                 {"SetJobW", reinterpret_cast<void*>(SetJobHook)},
                 {"GetJobW", reinterpret_cast<void*>(GetJobHook)},
                 {"Sleep", reinterpret_cast<void*>(SleepHook)}};
    for (const auto& hook : hooks)
        checks::Check(ReplaceImport(library, hook.function, hook.replacement),
                      std::string("the library imports ") + hook.function, "it doesn't");
}

struct JobCase {
    const char* what;
    std::size_t server;  // which of the print servers
    DWORD job;
    DWORD status;  // what the spooler says of the job
    const char* asked;
    bool isFailure;  // then the spooler is to see ERROR_GEN_FAILURE
};

bool PrintDocument(const MONITOR2& table, HANDLE port, DWORD job)
{
    std::wstring printer = kPrinterName;
    std::wstring title = L"A card";
    DOC_INFO_1W document{title.data(), nullptr, nullptr};
    if (!table.pfnStartDocPort(port, printer.data(), job, 1, reinterpret_cast<LPBYTE>(&document)))
        return false;
    std::vector<BYTE> bytes(5000, 0x5A);
    DWORD written = 0;
    return table.pfnWritePort(port, bytes.data(), static_cast<DWORD>(bytes.size()), &written) &&
           written == bytes.size();
}

void Play(const DirectMonitor& monitor, const JobCase& each, WORD server)
{
    checks::CheckEqual(monitor.PointPort(kPort, server), 0,
                       std::string("a port for a job that is ") + each.what);
    const HANDLE port = monitor.OpenPort(kPort);
    asked.clear();
    jobStatus = each.status;
    const bool printed = port != nullptr && PrintDocument(monitor.Table(), port, each.job);
    SetLastError(ERROR_SUCCESS);
    const BOOL ended = monitor.Table().pfnEndDocPort(port);
    const DWORD error = GetLastError();
    checks::Check(printed && ended, std::string("a document that is ") + each.what,
                  printed ? "not ended" : "not printed");
    checks::Check(asked == "open Front desk, " + std::string(each.asked),
                  std::string("what the spooler is asked for a job that is ") + each.what, asked);
    checks::Check((error == ERROR_GEN_FAILURE) == each.isFailure,
                  std::string("the last error of a job that is ") + each.what, std::to_string(error));
}

}  // namespace

void CheckJobControl(const std::vector<std::string>& words)
{
    enum : std::size_t { kFinishing, kCancelling, kNeverEnding };
    constexpr JobCase kCases[] = {
        {"sent", kFinishing, 7, 0, "job 7 command 6, close", false},
        {"cancelled at the print server", kCancelling, 8, 0, "job 8 command 5, job 8 command 6, close",
         false},
        {"never ended", kNeverEnding, 9, 0, "job 9 command 4, close", true},
        {"restarted, and then sent", kFinishing, 9, 0, "job 9 command 6, job 9 command 5, close", false},
        {"never ended, but being deleted", kNeverEnding, 10, JOB_STATUS_DELETING, "close", true},
    };
    EmptySettings();
    DirectMonitor monitor(ToUtf16(words.at(0)));
    ReplaceImports(monitor.Library());
    for (const JobCase& each : kCases)
        Play(monitor, each, static_cast<WORD>(std::stoul(words.at(1 + each.server))));
    monitor.ShutDown();
    checks::Check(monitor.Unload(), "the library goes", "it stays");
    EmptySettings();
}
