#include "spooler/runners.h"

#include <algorithm>
#include <exception>
#include <new>
#include <thread>
#include <utility>

#include "platform/posix/utf.h"
#include "spooler/document_file.h"
#include "spooler/job_run.h"
#include "spooler/options.h"
#include "spooler/port_lock.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr DWORD kFirstRetryPauseMs = 1000;
constexpr DWORD kLongestRetryPauseMs = 60000;
constexpr DWORD kLockPollMs = 200;
constexpr DWORD kStopPollMs = 20;
constexpr int kEndRunTries = 10;

DWORD PauseAfter(DWORD failures)
{
    const DWORD doublings = std::min<DWORD>(failures - 1, 10);
    return std::min(kFirstRetryPauseMs << doublings, kLongestRetryPauseMs);
}

}  // namespace

Runners::Runners(StateFolder where, std::shared_ptr<JobStore> store, std::shared_ptr<MonitorHost> host)
    : folder(std::move(where)), jobs(std::move(store)), monitors(std::move(host))
{
}

void Runners::Start(std::int64_t portNumber)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (stopping || active.contains(portNumber))
        return;
    const auto runner = std::make_shared<Runner>(portNumber, *jobs);
    // Nobody joins the thread: that it is gone from the table is its end. It keeps all it uses alive.
    std::thread([self = shared_from_this(), runner] { self->RunPort(*runner); }).detach();
    active.emplace(portNumber, runner);
    failures.erase(portNumber);
}

DWORD Runners::StartAll()
{
    const std::vector<std::int64_t> ports = jobs->PortsWithWork();
    for (const std::int64_t port : ports)
        Start(port);
    return static_cast<DWORD>(ports.size());
}

DWORD Runners::Active()
{
    const std::lock_guard<std::mutex> guard(lock);
    return static_cast<DWORD>(active.size());
}

bool Runners::Stop(DWORD waitMs)
{
    {
        const std::lock_guard<std::mutex> guard(lock);
        stopping = true;
        for (const auto& [port, runner] : active)
            runner->control.ShutDown();
    }
    const DWORD begun = GetTickCount();
    while (Active() != 0) {
        if (waitMs != INFINITE && GetTickCount() - begun >= waitMs)
            return false;
        Sleep(kStopPollMs);
    }
    return true;
}

void Runners::RunPort(Runner& runner)
{
    try {
        PortLock portLock(folder.LockPath(), runner.portNumber);
        do {
            if (portLock.TryTake()) {
                RunQueue(runner);
                portLock.Release();
            } else {
                runner.control.Pause(kLockPollMs);
            }
        } while (!Leave(runner));
    } catch (...) {
        // The database or the lock file is out of reach. The jobs stay where they are, and whoever follows
        // them here is told.
        Fail(runner);
    }
}

// Looks once more after the lock is free: a job may have been added, or marked for deletion, by
// someone who found the lock taken.
bool Runners::Leave(const Runner& runner)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (!stopping && jobs->NextFor(runner.portNumber))
        return false;
    active.erase(runner.portNumber);
    return true;
}

// In a handler, on the port's own thread.
void Runners::Fail(const Runner& runner)
{
    const std::lock_guard<std::mutex> guard(lock);
    const std::int64_t portNumber = runner.portNumber;
    active.erase(portNumber);
    try {
        failures.insert_or_assign(portNumber, CurrentError());
    } catch (const std::bad_alloc&) {
        // Whoever follows a job of the port sees that it waits, and not why.
    }
}

void Runners::RequireNoFailure(std::int64_t portNumber)
{
    const std::lock_guard<std::mutex> guard(lock);
    const auto found = failures.find(portNumber);
    if (found != failures.end() && PortLock(folder.LockPath(), portNumber).TryTake())
        throw SpoolerError(found->second);
}

void Runners::RunQueue(Runner& runner)
{
    while (!runner.control.IsShuttingDown()) {
        const std::optional<Job> job = jobs->NextFor(runner.portNumber);
        if (!job)
            return;
        if (job->deleting)
            DropNow(job->id);
        else
            RunOne(runner, *job);
    }
}

void Runners::RunOne(Runner& runner, const Job& job)
{
    jobs->BeginRun(job.id);
    runner.control.Begin(job.id);
    const RunResult result = Attempt(runner, job);
    if (runner.control.IsShuttingDown() && !result.complete && result.commands.empty()) {
        runner.control.End();
        jobs->BreakOffRun(job.id);
        return;
    }
    const Job after = EndRun(runner, job, result);
    if (after.IsFinished())
        RemoveDocument(folder.DocumentPath(job.id));
    if (after.state == JobState::Queued) {
        runner.control.Report(JOB_PHASE_RETRYING, 0);
        runner.control.Pause(PauseAfter(after.failures));
    }
    runner.control.End();
}

RunResult Runners::Attempt(Runner& runner, const Job& job)
{
    {
        const std::lock_guard<std::mutex> guard(lock);
        runner.commands.emplace();
    }
    RunResult result = Run(job, runner.control);
    const std::lock_guard<std::mutex> guard(lock);
    result.commands = *std::exchange(runner.commands, std::nullopt);
    return result;
}

bool Runners::Remember(DWORD jobId, DWORD command)
{
    const std::lock_guard<std::mutex> guard(lock);
    for (const auto& [port, runner] : active) {
        if (!runner->commands || !runner->control.Of(jobId))
            continue;
        runner->commands->push_back(command);
        if (command == JOB_CONTROL_DELETE || command == JOB_CONTROL_CANCEL)
            runner->control.AskToStop();
        return true;
    }
    return false;
}

RunResult Runners::Run(const Job& job, RunControl& control)
{
    try {
        const std::shared_ptr<Monitor> monitor = monitors->Load(job.monitor);
        if (monitor == nullptr)
            Throw(ERROR_UNKNOWN_PRINT_MONITOR,
                  "The monitor \"" + ToUtf8(job.monitor) + "\" is not installed.");
        return RunJob(*monitor, job, folder.DocumentPath(job.id), control);
    } catch (...) {
        const SpoolerError error = CurrentError();
        return {.complete = false, .failed = true, .error = error.word, .reason = error.text, .commands = {}};
    }
}

// A run whose outcome can't be kept would be repeated, and print the card twice: so this tries for long, and
// for as long as it takes where somebody need only make room.
Job Runners::EndRun(Runner& runner, const Job& job, const RunResult& result)
{
    for (int tries = 0;;) {
        try {
            return jobs->EndRun(job.id, result, ProcessOptions().attemptLimit);
        } catch (const SpoolerError& error) {
            const bool isFull = error.word == ERROR_DISK_FULL && !runner.control.IsShuttingDown();
            if (!isFull && ++tries == kEndRunTries)
                throw;
            if (isFull)
                runner.control.Report(JOB_PHASE_KEEPING, result.complete ? job.bytes : 0);
        }
        Sleep(kFirstRetryPauseMs);
    }
}

void Runners::DropNow(DWORD jobId)
{
    jobs->FinishAsDeleted(jobId);
    RemoveDocument(folder.DocumentPath(jobId));
}

void Runners::WhileIdle(const WideString& port, const std::function<void()>& action)
{
    const std::int64_t portNumber = jobs->NumberOfPort(port);
    std::exception_ptr failure;
    {
        PortLock portLock(folder.LockPath(), portNumber);
        if (!portLock.TryTake())
            Throw(ERROR_BUSY, "The port \"" + ToUtf8(port) + "\" is at work on a document or a query.");
        try {
            action();
        } catch (...) {
            failure = std::current_exception();
        }
    }
    DropMarked(portNumber);
    if (failure)
        std::rethrow_exception(failure);
}

// Who marks a job and finds the port's lock taken leaves the rest to the lock's holder.
void Runners::DropMarked(std::int64_t portNumber)
{
    for (const Job& job : jobs->List(TEXT("")))
        if (job.portNumber == portNumber && job.deleting && !job.IsFinished())
            Drop(job);
}

void Runners::Drop(const Job& job)
{
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (const auto found = active.find(job.portNumber); found != active.end()) {
            found->second->control.Wake();
            return;
        }
    }
    PortLock portLock(folder.LockPath(), job.portNumber);
    if (!portLock.TryTake())
        return;  // who holds it looks for deleted jobs before it leaves
    const std::optional<Job> now = jobs->Find(job.id);
    if (now && now->deleting && now->state != JobState::Spooling)
        DropNow(job.id);
}

std::optional<RunControl::Progress> Runners::ProgressOf(DWORD jobId)
{
    const std::lock_guard<std::mutex> guard(lock);
    for (const auto& [port, runner] : active)
        if (std::optional<RunControl::Progress> progress = runner->control.Of(jobId))
            return progress;
    return std::nullopt;
}

}  // namespace spooler
