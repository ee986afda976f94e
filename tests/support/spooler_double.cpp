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

void SpoolerDouble::DetachMonitor(HANDLE monitor)
{
    std::lock_guard held(lock);
    std::erase_if(monitors, [&](const auto& attached) { return attached.second == monitor; });
}

std::vector<SpoolerCall> SpoolerDouble::Calls(Spooler call) const
{
    std::vector<SpoolerCall> found = Copy(calls);
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

bool SpoolerDouble::Play(SpoolerCall call, const std::function<bool()>& work)
{
    call.threadId = GetCurrentThreadId();
    const Orders ordered = Locked([&] {
        calls.push_back(call);
        return orders[call.call];
    });
    if (ordered.before)
        ordered.before();
    if (ordered.gate)
        ordered.gate->Pass();
    if (IsRefused(call.call) || !work())
        return false;
    if (ordered.after)
        ordered.after();
    return true;
}

bool SpoolerDouble::IsRefused(Spooler call)
{
    const std::lock_guard held(lock);
    Orders& order = orders[call];
    if (order.refusals == 0)
        return false;
    order.refusals--;
    SetLastError(order.error);
    return true;
}

bool SpoolerDouble::IsPrinter(HANDLE printer, const char* caller)
{
    if (printers.contains(printer))
        return true;
    if (printer != nullptr)  // null is a handle that was never opened: refused, and no harm done
        faults.push_back(std::string(caller) + " on a printer that is not open");
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
}

BOOL SpoolerDouble::DoOpenPrinter(LPWSTR name, LPHANDLE printer)
{
    return PlayLocked({.call = Spooler::OpenPrinter, .printerName = name != nullptr ? Narrow(name) : "NULL"},
                      [&] {
                          *printer = reinterpret_cast<HANDLE>(++printersMade + 0x500000);
                          return printers.insert(*printer).second;
                      });
}

BOOL SpoolerDouble::DoClosePrinter(HANDLE printer)
{
    return PlayLocked({.call = Spooler::ClosePrinter},
                      [&] { return IsPrinter(printer, "ClosePrinter") && printers.erase(printer) != 0; });
}

BOOL SpoolerDouble::DoGetJob(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed)
{
    return PlayLocked({.call = Spooler::GetJob, .jobId = jobId, .level = level}, [&] {
        if (!IsPrinter(printer, "GetJobW"))
            return false;
        *needed = jobSize;
        if (size < *needed || job == nullptr) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return false;
        }
        JOB_INFO_2W record{};
        record.JobId = jobId;
        record.Status = jobStatus;
        std::memcpy(job, &record, std::min<std::size_t>(size, sizeof(record)));
        return true;
    });
}

BOOL SpoolerDouble::DoSetJob(HANDLE printer, DWORD jobId, DWORD level, DWORD command)
{
    return PlayLocked({.call = Spooler::SetJob, .jobId = jobId, .command = command, .level = level},
                      [&] { return IsPrinter(printer, "SetJobW"); });
}

std::vector<WideString> SpoolerDouble::ListPorts()
{
    std::vector<WideString> names = Copy(foreignPorts);
    for (const auto& [table, monitor] : Copy(monitors)) {
        for (WideString& name : ListPortNames(*table, monitor))
            names.push_back(std::move(name));
    }
    return names;
}

BOOL SpoolerDouble::DoEnumPorts(DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned)
{
    return Play({.call = Spooler::EnumPorts, .level = level}, [&] {
        const std::vector<WideString> names = ListPorts();
        std::size_t bytes = 0;
        for (const WideString& name : names)
            bytes += sizeof(PORT_INFO_1W) + (name.size() + 1) * sizeof(WCHAR);
        *needed = static_cast<DWORD>(bytes);
        if (bytes > size) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return false;
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
        return true;
    });
}

bool SpoolerDouble::DoLoadSpoolss()
{
    return PlayLocked({.call = Spooler::LoadSpoolss}, [&] { return ++libraries > 0; });
}

bool SpoolerDouble::DoFind(Spooler call)
{
    return Play({.call = call}, [] { return true; });
}

HANDLE SpoolerDouble::DoRevert()
{
    const bool hasReverted = PlayLocked({.call = Spooler::Revert}, [&] {
        if (!revertedThreads.insert(GetCurrentThreadId()).second)
            faults.push_back("RevertToPrinterSelf on a thread that has reverted already");
        return true;
    });
    return hasReverted ? TokenOf(GetCurrentThreadId()) : nullptr;
}

BOOL SpoolerDouble::DoImpersonate(HANDLE token)
{
    return PlayLocked({.call = Spooler::Impersonate}, [&] {
        if (token != TokenOf(GetCurrentThreadId()) || revertedThreads.erase(GetCurrentThreadId()) == 0)
            faults.push_back("ImpersonatePrinterClient with a token that is not this thread's");
        return true;
    });
}

void SpoolerDouble::DoFreeSpoolss()
{
    (void)PlayLocked({.call = Spooler::FreeSpoolss}, [&] {
        if (--libraries < 0)
            faults.push_back("FreeLibrary of a library that is not loaded");
        return true;
    });
}
