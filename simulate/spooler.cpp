#include "simulate/spooler.h"

#include <utility>

#include "simulate/world.h"

using simulated::kSecond;
using simulated::Scheduler;

Spooler::Spooler(World& its, Plan& plan) : world(its)
{
    constexpr simulated::Micros kSlow[] = {kSecond, 2 * kSecond, 12 * kSecond};
    openIsSlow = plan.Sometimes(8);
    slowOpen = plan.Sometimes(4) ? 40 * kSecond : plan.Among(kSlow);
    commandIsSlow = plan.Sometimes(8);
    slowCommand = plan.Among(kSlow);
    comesBack = plan.Sometimes(4);
    refusesOnce = plan.Sometimes(24);
    plan.mayFail |= refusesOnce;
}

// Once a run a call takes its time.
void Spooler::Linger(bool& isDue, simulated::Micros length)
{
    Scheduler& scheduler = Scheduler::Current();
    if (!isDue)
        return;
    isDue = false;
    world.Tell("the spooler is slow");
    scheduler.Excuse(length);
    (void)scheduler.Wait(nullptr, scheduler.Now() + length);
}

HANDLE Spooler::Open()
{
    Scheduler::Current().Point("OpenPrinterW");
    auto* const call = static_cast<CallUnderWay*>(Scheduler::Current().Self().work);
    if (call != nullptr && call->document != nullptr)
        call->document->hasAskedForPrinter = true;
    Linger(openIsSlow, slowOpen);
    if (comesBack)
        world.monitor.EnumeratePorts();
    if (std::exchange(refusesOnce, false) || call == nullptr || call->document == nullptr)
        return nullptr;
    const HANDLE printer = reinterpret_cast<HANDLE>(++printersMade);
    printers[printer] = call->document;
    return printer;
}

void Spooler::Close(HANDLE printer)
{
    Scheduler::Current().Point("ClosePrinter");
    if (printers.erase(printer) == 0)
        Scheduler::Current().Fail("a printer is closed that is not open");
}

bool Spooler::ReadJob(HANDLE printer, DWORD job, JOB_INFO_2W* record)
{
    Scheduler::Current().Point("GetJobW");
    if (!printers.contains(printer))
        return false;
    if (record != nullptr) {
        *record = {};
        record->JobId = job;
        record->Status = IsGoing(job) ? JOB_STATUS_DELETING : JOB_STATUS_PRINTING;
    }
    return true;
}

bool Spooler::Command(HANDLE printer, DWORD job, DWORD command)
{
    Scheduler::Current().Point("SetJobW");
    const auto found = printers.find(printer);
    if (found == printers.end())
        return false;
    Document& document = *found->second;
    constexpr const char* kNames[] = {"RESTART", "DELETE", "SENT"};
    if (command >= JOB_CONTROL_RESTART && command <= JOB_CONTROL_SENT_TO_PRINTER)
        world.Tell(std::string("the monitor says ") + kNames[command - JOB_CONTROL_RESTART] + " of job " +
                   std::to_string(job));
    world.checks.JobCommand(document, job, command);
    if (command == JOB_CONTROL_DELETE)
        going.insert(job);
    Linger(commandIsSlow, slowCommand);
    if (comesBack)
        world.monitor.EnumeratePorts();
    Scheduler::Current().Point("SetJobW");
    return true;
}

// --- the calls themselves ---

BOOL OpenPrinterW(LPWSTR, LPHANDLE printer, PRINTER_DEFAULTSW*)
{
    *printer = World::Current().spooler.Open();
    if (*printer == nullptr)
        SetLastError(ERROR_INVALID_PRINTER_NAME);
    return *printer != nullptr;
}

BOOL ClosePrinter(HANDLE printer)
{
    World::Current().spooler.Close(printer);
    return TRUE;
}

BOOL GetJobW(HANDLE printer, DWORD jobId, DWORD, LPBYTE job, DWORD size, LPDWORD needed)
{
    const bool fits = job != nullptr && size >= sizeof(JOB_INFO_2W);
    const bool exists = World::Current().spooler.ReadJob(
        printer, jobId, fits ? reinterpret_cast<JOB_INFO_2W*>(job) : nullptr);
    *needed = exists ? sizeof(JOB_INFO_2W) : 0;
    SetLastError(exists ? ERROR_INSUFFICIENT_BUFFER : ERROR_INVALID_PARAMETER);
    return exists && fits;
}

BOOL SetJobW(HANDLE printer, DWORD jobId, DWORD, LPBYTE, DWORD command)
{
    return World::Current().spooler.Command(printer, jobId, command);
}

BOOL EnumPortsW(LPWSTR, DWORD level, LPBYTE ports, DWORD size, LPDWORD needed, LPDWORD returned)
{
    return World::Current().monitor.EnumerateInto(level, ports, size, needed, returned);
}

HANDLE RevertToPrinterSelf()
{
    return reinterpret_cast<HANDLE>(1);
}

BOOL ImpersonatePrinterClient(HANDLE)
{
    return TRUE;
}
