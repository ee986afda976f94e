#include "spooler/run_control.h"

#include <algorithm>

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr DWORD kExchangePeriodMs = 500;

}  // namespace

RunControl::RunControl(JobStore& store) : jobs(store), wake(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
    if (wake == nullptr)
        Throw(GetLastError(), "There are no resources to run a port.");
}

RunControl::~RunControl()
{
    (void)CloseHandle(wake);
}

void RunControl::Begin(DWORD jobId)
{
    deleting = false;
    askedToStop = false;
    phase = JOB_PHASE_STARTING;
    written = 0;
    job = jobId;
    lastExchange = GetTickCount();
}

void RunControl::End()
{
    job = 0;
}

void RunControl::Report(JOB_PHASE nextPhase, std::uint64_t bytesWritten)
{
    phase = nextPhase;
    written = bytesWritten;
    if (nextPhase == JOB_PHASE_ENDING)
        Exchange();
}

void RunControl::Exchange()
{
    lastExchange = GetTickCount();
    lookNow = false;
    try {
        deleting = !jobs.SaveProgress(job, phase, written);
    } catch (const SpoolerError&) {
        // Only progress is lost; a database that stays out of reach shows at the run's end.
    }
}

bool RunControl::MustStop()
{
    if (job != 0 && (lookNow || GetTickCount() - lastExchange >= kExchangePeriodMs))
        Exchange();
    return deleting || askedToStop || shuttingDown;
}

void RunControl::Pause(DWORD milliseconds)
{
    const DWORD begun = GetTickCount();
    for (DWORD past = 0; past < milliseconds && !MustStop(); past = GetTickCount() - begun)
        (void)WaitForSingleObject(wake, std::min(milliseconds - past, kExchangePeriodMs));
}

void RunControl::ShutDown()
{
    shuttingDown = true;
    (void)SetEvent(wake);
}

void RunControl::Wake()
{
    lookNow = true;
    (void)SetEvent(wake);
}

void RunControl::AskToStop()
{
    askedToStop = true;
    (void)SetEvent(wake);
}

std::optional<RunControl::Progress> RunControl::Of(DWORD jobId) const
{
    if (job != jobId)
        return std::nullopt;
    return Progress{phase, written};
}

}  // namespace spooler
