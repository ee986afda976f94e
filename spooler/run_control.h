#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "platform/platform.h"
#include "spooler/job_store.h"

namespace spooler {

// Between the thread that runs a port's jobs and everybody else: what the run is at, and whether it is
// to stop. The first group is for the running thread alone, the second for any thread.
class RunControl {
public:
    struct Progress {
        JOB_PHASE phase;
        std::uint64_t written;
    };

    explicit RunControl(JobStore& store);
    ~RunControl();
    RunControl(const RunControl&) = delete;
    RunControl& operator=(const RunControl&) = delete;

    void Begin(DWORD jobId);
    void End();
    // What other processes see is saved twice a second, and at once when all bytes are out, as the port
    // then may say nothing for long.
    void Report(JOB_PHASE phase, std::uint64_t written);
    // True when the job is being deleted, by whatever process, or asked to stop, or the spooler shuts down.
    bool MustStop();
    // Waits; shorter when MustStop turns true.
    void Pause(DWORD milliseconds);

    void ShutDown();
    bool IsShuttingDown() const { return shuttingDown; }
    // Has the run look at once whether its job is being deleted.
    void Wake();
    // Has the run end as if its job were being deleted.
    void AskToStop();
    // Of the job, if it is the one that runs.
    std::optional<Progress> Of(DWORD jobId) const;

private:
    void Exchange();

    JobStore& jobs;
    HANDLE wake;
    std::atomic<bool> shuttingDown = false;
    std::atomic<bool> lookNow = false;
    std::atomic<bool> askedToStop = false;
    std::atomic<DWORD> job = 0;  // 0 while none runs
    std::atomic<JOB_PHASE> phase = JOB_PHASE_STARTING;
    std::atomic<std::uint64_t> written = 0;
    bool deleting = false;
    DWORD lastExchange = 0;  // tick
};

}  // namespace spooler
