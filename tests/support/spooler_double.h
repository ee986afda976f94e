#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/platform.h"
#include "tests/support/gate.h"

// What the monitor asks of the spooler.
enum class Spooler {
    OpenPrinter,
    ClosePrinter,
    GetJob,
    SetJob,
    EnumPorts,
    LoadSpoolss,      // LoadLibraryW("spoolss.dll")
    FindRevert,       // GetProcAddress of RevertToPrinterSelf
    FindImpersonate,  // GetProcAddress of ImpersonatePrinterClient
    Revert,           // RevertToPrinterSelf
    Impersonate,      // ImpersonatePrinterClient
    FreeSpoolss,      // FreeLibrary
};

struct SpoolerCall {
    Spooler call;
    DWORD threadId = 0;
    std::string printerName = {};  // OpenPrinter; "NULL" for none
    DWORD jobId = 0;               // GetJob, SetJob
    DWORD command = 0;             // SetJob
    DWORD level = 0;               // GetJob, SetJob, EnumPorts
};

// The spooler as the test binary's own definitions of its calls (OpenPrinterW, SetJobW ...) show it to the
// monitor. Records each call, and does in it what the test ordered, in this sequence: the `before` hook, the
// gate, the refusal; then the call's work and the `after` hook. Hooks run on the monitor's thread without any
// lock held and may call back into the monitor. Any thread.
class SpoolerDouble {
public:
    static SpoolerDouble& Instance();

    // Back to a friendly spooler with no printer open, no ports and an empty record.
    void Reset();

    // --- orders ---

    // The next `times` such calls fail with the error (calls with a pointer as result give null).
    void Refuse(Spooler call, DWORD error, int times = 1000000);
    // Such calls stop at the gate until it is opened.
    Gate Block(Spooler call)
    {
        return Locked([&] { return orders[call].gate.emplace(); });
    }
    void Before(Spooler call, const std::function<void()>& hook)
    {
        Locked([&] { orders[call].before = hook; });
    }
    void After(Spooler call, const std::function<void()>& hook)
    {
        Locked([&] { orders[call].after = hook; });
    }
    // The Status of every job from now on, and the size that GetJobW asks for.
    void ServeJobStatus(DWORD status)
    {
        Locked([&] { jobStatus = status; });
    }
    void ServeJobSize(DWORD bytes)
    {
        Locked([&] { jobSize = bytes; });
    }
    // A port of another monitor, listed by EnumPortsW together with those of the attached monitors.
    void AddForeignPort(const WideString& name)
    {
        Locked([&] { foreignPorts.push_back(name); });
    }
    void AttachMonitor(const MONITOR2* table, HANDLE monitor)
    {
        Locked([&] { monitors.emplace_back(table, monitor); });
    }
    void DetachMonitor(HANDLE monitor);

    // --- the record ---

    std::vector<SpoolerCall> Calls(Spooler call) const;
    int Count(Spooler call) const { return static_cast<int>(Calls(call).size()); }
    // The commands of SetJobW in order.
    std::vector<DWORD> JobCommands() const;
    // Those for one job, whose calls are dropped from the record.
    std::vector<DWORD> TakeJobCommands(DWORD jobId);
    int OpenPrinters() const { return static_cast<int>(Copy(printers).size()); }
    // Threads that still run under the spooler's identity, and libraries not given back.
    int IdentitiesOut() const { return static_cast<int>(Copy(revertedThreads).size()); }
    int LibrariesLoaded() const { return Copy(libraries); }
    // What no monitor may do: a use of a closed printer, a second close ... Empty when all is well.
    std::vector<std::string> Faults() const { return Copy(faults); }

    // --- called by the definitions of the spooler's calls ---

    BOOL DoOpenPrinter(LPWSTR name, LPHANDLE printer);
    BOOL DoClosePrinter(HANDLE printer);
    BOOL DoGetJob(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed);
    BOOL DoSetJob(HANDLE printer, DWORD jobId, DWORD level, DWORD command);
    BOOL DoEnumPorts(DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned);
    bool DoLoadSpoolss();
    bool DoFind(Spooler call);
    HANDLE DoRevert();
    BOOL DoImpersonate(HANDLE token);
    void DoFreeSpoolss();

private:
    struct Orders {
        DWORD error = 0;
        int refusals = 0;
        std::optional<Gate> gate;
        std::function<void()> before;
        std::function<void()> after;
    };

    template <class Work>
    std::invoke_result_t<Work> Locked(Work work) const
    {
        const std::lock_guard held(lock);
        return work();
    }
    template <class Value>
    Value Copy(const Value& value) const
    {
        return Locked([&] { return value; });
    }
    // A call from its record to its `after` hook; `work` is done in between. False if it is refused, with the
    // last error set, or if the work came to nothing.
    bool Play(SpoolerCall call, const std::function<bool()>& work);
    // The same with the work done under the lock.
    template <class Work>
    bool PlayLocked(SpoolerCall call, Work work)
    {
        return Play(std::move(call), [&] { return Locked(work); });
    }
    bool IsRefused(Spooler call);
    bool IsPrinter(HANDLE printer, const char* caller);  // the lock is held
    std::vector<WideString> ListPorts();

    mutable std::mutex lock;
    std::map<Spooler, Orders> orders;
    std::vector<SpoolerCall> calls;
    std::vector<std::string> faults;
    std::set<HANDLE> printers;
    std::size_t printersMade = 0;
    std::set<DWORD> revertedThreads;
    int libraries = 0;
    DWORD jobStatus = 0;
    DWORD jobSize = 0;
    std::vector<WideString> foreignPorts;
    std::vector<std::pair<const MONITOR2*, HANDLE>> monitors;
};

// The names of a monitor's ports as a spooler asks for them: again with more room while ports are added.
std::vector<WideString> ListPortNames(const MONITOR2& table, HANDLE monitor);
