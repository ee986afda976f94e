#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/platform.h"
#include "spooler/job_store.h"
#include "spooler/monitor_host.h"
#include "spooler/run_control.h"
#include "spooler/spooler_error.h"
#include "spooler/state_folder.h"

namespace spooler {

// The threads that run jobs: one for each port that has work, in the order of the job numbers, until
// the port has none left. The thread holds the port's lock while it runs jobs; while another process
// has it, the thread waits, as it may have to take over. Any thread.
class Runners : public std::enable_shared_from_this<Runners> {
public:
    Runners(StateFolder where, std::shared_ptr<JobStore> store, std::shared_ptr<MonitorHost> host);

    // Sees to it that a thread looks at the port's jobs. Nothing once Stop has been called.
    void Start(std::int64_t portNumber);
    // Starts all ports that have work; gives their number.
    DWORD StartAll();
    DWORD Active();
    // Has all runs end and waits for them. False if some haven't after `waitMs`.
    bool Stop(DWORD waitMs);

    // Runs `action` on the calling thread with the port's lock held: no process runs a job of the port
    // meanwhile. Throws SpoolerError, with ERROR_BUSY when the lock is taken, and what `action` throws.
    void WhileIdle(const WideString& port, const std::function<void()>& action);

    // Drops a job that is marked as being deleted, now or as soon as whoever runs its port gets to it.
    void Drop(const Job& job);
    // Of a job that this process is running at this moment.
    std::optional<RunControl::Progress> ProgressOf(DWORD jobId);
    // Keeps a command in mind for the end of the attempt, when there is no room to store it. False when no
    // attempt at the job is under way in this process.
    bool Remember(DWORD jobId, DWORD command);
    // Throws what ended the port's last thread before its jobs were through, if anything did and no other
    // process runs the port.
    void RequireNoFailure(std::int64_t portNumber);

private:
    struct Runner {
        Runner(std::int64_t port, JobStore& store) : portNumber(port), control(store) {}
        const std::int64_t portNumber;
        RunControl control;
        std::optional<std::vector<DWORD>> commands;  // remembered in the present attempt, if there is one
    };

    void RunPort(Runner& runner);
    void RunQueue(Runner& runner);
    void RunOne(Runner& runner, const Job& job);
    RunResult Attempt(Runner& runner, const Job& job);
    RunResult Run(const Job& job, RunControl& control);
    Job EndRun(Runner& runner, const Job& job, const RunResult& result);
    void DropNow(DWORD jobId);
    void DropMarked(std::int64_t portNumber);
    bool Leave(const Runner& runner);
    void Fail(const Runner& runner);

    const StateFolder folder;
    const std::shared_ptr<JobStore> jobs;
    const std::shared_ptr<MonitorHost> monitors;

    std::mutex lock;  // the rest; the database's own lock may be taken inside
    bool stopping = false;
    std::map<std::int64_t, std::shared_ptr<Runner>> active;
    std::map<std::int64_t, SpoolerError> failures;  // of ports that are not active
};

}  // namespace spooler
