#include "tests/support/spooler_double.h"

#include <algorithm>
#include <cstring>

#include "tests/support/text.h"

namespace {

constexpr DWORD kUsualJobSize = 200;  // the record and its strings

HANDLE TokenOf(DWORD threadId)
{
    return reinterpret_cast<HANDLE>(std::uintptr_t{threadId} + 0x10000);
}

}  // namespace

std::vector<WideString> ListPortNames(const MONITOR2& table, HANDLE monitor)
{
    std::vector<PORT_INFO_1W> buffer;
    DWORD needed = 0;
    DWORD returned = 0;
    const auto size = [&] { return static_cast<DWORD>(buffer.size() * sizeof(PORT_INFO_1W)); };
    while (!table.pfnEnumPorts(monitor, nullptr, 1, reinterpret_cast<LPBYTE>(buffer.data()), size(), &needed,
                               &returned) &&
           GetLastError() == ERROR_INSUFFICIENT_BUFFER)
        buffer.resize(needed / sizeof(PORT_INFO_1W) + 1);
    std::vector<WideString> names;
    for (DWORD i = 0; i < returned; i++)
        names.emplace_back(buffer[i].pName);
    return names;
}

SpoolerDouble& SpoolerDouble::Instance()
{
    static SpoolerDouble* const instance = new SpoolerDouble;
    return *instance;
}

void SpoolerDouble::Reset()
{
    std::lock_guard held(lock);
    orders.clear();
    calls.clear();
    faults.clear();
    printers.clear();
    revertedThreads.clear();
    libraries = 0;
    jobStatus = 0;
    jobSize = kUsualJobSize;
    foreignPorts.clear();
    monitors.clear();
}

void SpoolerDouble::Refuse(Spooler call, DWORD error, int times)
{
    std::lock_guard held(lock);
    orders[call].error = error;
    orders[call].refusals = times;
}

Gate SpoolerDouble::Block(Spooler call)
{
    std::lock_guard held(lock);
    return orders[call].gate.emplace();
}

void SpoolerDouble::Before(Spooler call, std::function<void()> hook)
{
    std::lock_guard held(lock);
    orders[call].before = std::move(hook);
}

void SpoolerDouble::After(Spooler call, std::function<void()> hook)
{
    std::lock_guard held(lock);
    orders[call].after = std::move(hook);
}

void SpoolerDouble::ServeJobStatus(DWORD status)
{
    std::lock_guard held(lock);
    jobStatus = status;
}

void SpoolerDouble::ServeJobSize(DWORD bytes)
{
    std::lock_guard held(lock);
    jobSize = bytes;
}

void SpoolerDouble::AddForeignPort(const WideString& name)
{
    std::lock_guard held(lock);
    foreignPorts.push_back(name);
}

void SpoolerDouble::AttachMonitor(const MONITOR2* table, HANDLE monitor)
{
    std::lock_guard held(lock);
    monitors.emplace_back(table, monitor);
}

void SpoolerDouble::DetachMonitor(HANDLE monitor)
{
    std::lock_guard held(lock);
    std::erase_if(monitors, [&](const auto& attached) { return attached.second == monitor; });
}

std::vector<SpoolerCall> SpoolerDouble::Calls() const
{
    std::lock_guard held(lock);
    return calls;
}

std::vector<SpoolerCall> SpoolerDouble::Calls(Spooler call) const
{
    std::vector<SpoolerCall> found = Calls();
    std::erase_if(found, [&](const SpoolerCall& one) { return one.call != call; });
    return found;
}

std::vector<DWORD> SpoolerDouble::JobCommands() const
{
    std::vector<DWORD> commands;
    for (const SpoolerCall& call : Calls(Spooler::SetJob))
        commands.push_back(call.command);
    return commands;
}

std::vector<DWORD> SpoolerDouble::TakeJobCommands(DWORD jobId)
{
    std::lock_guard held(lock);
    std::vector<DWORD> commands;
    std::erase_if(calls, [&](const SpoolerCall& call) {
        if (call.call == Spooler::SetJob && call.jobId == jobId)
            commands.push_back(call.command);
        return call.jobId == jobId;
    });
    return commands;
}

int SpoolerDouble::OpenPrinters() const
{
    std::lock_guard held(lock);
    return static_cast<int>(printers.size());
}

int SpoolerDouble::IdentitiesOut() const
{
    std::lock_guard held(lock);
    return static_cast<int>(revertedThreads.size());
}

int SpoolerDouble::LibrariesLoaded() const
{
    std::lock_guard held(lock);
    return libraries;
}

std::vector<std::string> SpoolerDouble::Faults() const
{
    std::lock_guard held(lock);
    return faults;
}

bool SpoolerDouble::Begin(SpoolerCall call)
{
    call.threadId = GetCurrentThreadId();
    std::function<void()> before;
    std::optional<Gate> gate;
    {
        std::lock_guard held(lock);
        calls.push_back(call);
        before = orders[call.call].before;
        gate = orders[call.call].gate;
    }
    if (before)
        before();
    if (gate)
        gate->Pass();
    std::lock_guard held(lock);
    Orders& order = orders[call.call];
    if (order.refusals == 0)
        return true;
    order.refusals--;
    SetLastError(order.error);
    return false;
}

void SpoolerDouble::End(Spooler call)
{
    std::function<void()> after;
    {
        std::lock_guard held(lock);
        after = orders[call].after;
    }
    if (after)
        after();
}

bool SpoolerDouble::IsPrinter(HANDLE printer, const char* caller)
{
    std::lock_guard held(lock);
    if (printers.contains(printer))
        return true;
    if (printer != nullptr)  // null is a handle that was never opened: refused, and no harm done
        faults.push_back(std::string(caller) + " on a printer that is not open");
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
}

BOOL SpoolerDouble::DoOpenPrinter(LPWSTR name, LPHANDLE printer)
{
    if (!Begin({.call = Spooler::OpenPrinter,
                .threadId = 0,
                .printerName = name != nullptr ? Narrow(name) : "NULL"}))
        return FALSE;
    {
        std::lock_guard held(lock);
        *printer = reinterpret_cast<HANDLE>(++printersMade + 0x500000);
        printers.insert(*printer);
    }
    End(Spooler::OpenPrinter);
    return TRUE;
}

BOOL SpoolerDouble::DoClosePrinter(HANDLE printer)
{
    if (!Begin({.call = Spooler::ClosePrinter, .threadId = 0, .printerName = {}}) ||
        !IsPrinter(printer, "ClosePrinter"))
        return FALSE;
    {
        std::lock_guard held(lock);
        printers.erase(printer);
    }
    End(Spooler::ClosePrinter);
    return TRUE;
}

BOOL SpoolerDouble::DoGetJob(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed)
{
    if (!Begin({.call = Spooler::GetJob, .threadId = 0, .printerName = {}, .jobId = jobId, .level = level}) ||
        !IsPrinter(printer, "GetJobW"))
        return FALSE;
    DWORD status;
    {
        std::lock_guard held(lock);
        *needed = jobSize;
        status = jobStatus;
    }
    if (size < *needed || job == nullptr) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    JOB_INFO_2W record{};
    record.JobId = jobId;
    record.Status = status;
    std::memcpy(job, &record, std::min<std::size_t>(size, sizeof(record)));
    End(Spooler::GetJob);
    return TRUE;
}

BOOL SpoolerDouble::DoSetJob(HANDLE printer, DWORD jobId, DWORD level, DWORD command)
{
    if (!Begin({.call = Spooler::SetJob,
                .threadId = 0,
                .printerName = {},
                .jobId = jobId,
                .command = command,
                .level = level}) ||
        !IsPrinter(printer, "SetJobW"))
        return FALSE;
    End(Spooler::SetJob);
    return TRUE;
}

std::vector<WideString> SpoolerDouble::ListPorts()
{
    std::vector<WideString> names;
    std::vector<std::pair<const MONITOR2*, HANDLE>> asked;
    {
        std::lock_guard held(lock);
        names = foreignPorts;
        asked = monitors;
    }
    for (const auto& [table, monitor] : asked) {
        for (WideString& name : ListPortNames(*table, monitor))
            names.push_back(std::move(name));
    }
    return names;
}

BOOL SpoolerDouble::DoEnumPorts(DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned)
{
    if (!Begin({.call = Spooler::EnumPorts, .threadId = 0, .printerName = {}, .level = level}))
        return FALSE;
    const std::vector<WideString> names = ListPorts();
    std::size_t bytes = 0;
    for (const WideString& name : names)
        bytes += sizeof(PORT_INFO_1W) + (name.size() + 1) * sizeof(WCHAR);
    *needed = static_cast<DWORD>(bytes);
    if (bytes > size) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    LPBYTE text = ports + names.size() * sizeof(PORT_INFO_1W);
    for (std::size_t i = 0; i < names.size(); i++) {
        const std::size_t length = (names[i].size() + 1) * sizeof(WCHAR);
        const PORT_INFO_1W record = {reinterpret_cast<LPWSTR>(text)};
        std::memcpy(text, names[i].c_str(), length);
        std::memcpy(ports + i * sizeof(record), &record, sizeof(record));
        text += length;
    }
    *returned = static_cast<DWORD>(names.size());
    End(Spooler::EnumPorts);
    return TRUE;
}

bool SpoolerDouble::DoLoadSpoolss()
{
    if (!Begin({.call = Spooler::LoadSpoolss, .threadId = 0, .printerName = {}}))
        return false;
    {
        std::lock_guard held(lock);
        libraries++;
    }
    End(Spooler::LoadSpoolss);
    return true;
}

bool SpoolerDouble::DoFind(Spooler call)
{
    return Begin({.call = call, .threadId = 0, .printerName = {}});
}

HANDLE SpoolerDouble::DoRevert()
{
    if (!Begin({.call = Spooler::Revert, .threadId = 0, .printerName = {}}))
        return nullptr;
    {
        std::lock_guard held(lock);
        if (!revertedThreads.insert(GetCurrentThreadId()).second)
            faults.push_back("RevertToPrinterSelf on a thread that has reverted already");
    }
    End(Spooler::Revert);
    return TokenOf(GetCurrentThreadId());
}

BOOL SpoolerDouble::DoImpersonate(HANDLE token)
{
    if (!Begin({.call = Spooler::Impersonate, .threadId = 0, .printerName = {}}))
        return FALSE;
    {
        std::lock_guard held(lock);
        if (token != TokenOf(GetCurrentThreadId()) || revertedThreads.erase(GetCurrentThreadId()) == 0)
            faults.push_back("ImpersonatePrinterClient with a token that is not this thread's");
    }
    End(Spooler::Impersonate);
    return TRUE;
}

void SpoolerDouble::DoFreeSpoolss()
{
    (void)Begin({.call = Spooler::FreeSpoolss, .threadId = 0, .printerName = {}});
    {
        std::lock_guard held(lock);
        if (--libraries < 0)
            faults.push_back("FreeLibrary of a library that is not loaded");
    }
    End(Spooler::FreeSpoolss);
}
