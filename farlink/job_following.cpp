#include "farlink/job_following.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "farlink/error_words.h"
#include "farlink/interrupts.h"
#include "farlink/progress_view.h"
#include "farlink/wide_text.h"

namespace farlink {

namespace {

constexpr std::chrono::milliseconds kLookAtJobEvery{50};
constexpr std::chrono::seconds kTellAfter{1};

// The higher, the more it asks of the person.
int Weight(ExitStatus status)
{
    switch (status) {
        case ExitStatus::Done:
            return 0;
        case ExitStatus::Queued:
            return 1;
        case ExitStatus::Deleted:
            return 2;
        case ExitStatus::Unconfirmed:
            return 3;
        default:
            return 4;
    }
}

ExitStatus StatusOf(const JOB_PROGRESS& progress)
{
    switch (progress.outcome) {
        case JOB_OUTCOME_SENT:
            return ExitStatus::Done;
        case JOB_OUTCOME_DELETED:
            return ExitStatus::Deleted;
        case JOB_OUTCOME_UNCONFIRMED:
            return ExitStatus::Unconfirmed;
        default:
            return ExitStatus::Failed;
    }
}

class Follower {
public:
    Follower(const PrinterHandle& toServer, const std::vector<FollowedJob>& followed, ProgressView& shown)
        : server(toServer), jobs(followed), view(shown)
    {
    }

    ExitStatus Run()
    {
        ExitStatus worst = ExitStatus::Done;
        for (const FollowedJob& job : jobs)
            worst = std::max(worst, FollowOne(job),
                             [](auto left, auto right) { return Weight(left) < Weight(right); });
        return worst;
    }

private:
    ExitStatus FollowOne(const FollowedJob& job)
    {
        for (;;) {
            JOB_PROGRESS progress{};
            if (!ReadProgress(server, job.id, progress))
                throw SpoolerFailure("Job " + std::to_string(job.id) + " is kept for 'farlink jobs run'");
            view.Show(job, progress);
            if (progress.phase == JOB_PHASE_DONE)
                return StatusOf(progress);
            if (EndAsked())
                return ExitStatus::Queued;
            if (InterruptAsked() && !cancelled)
                Cancel();
            std::this_thread::sleep_for(kLookAtJobEvery);
        }
    }

    // A job that is done refuses, and needs no cancelling any more.
    void Cancel()
    {
        cancelled = true;
        view.Note("Cancelling; the port lets go within half a minute. Ctrl-C again leaves at once.");
        for (const FollowedJob& job : jobs)
            (void)SetJobW(server.Get(), job.id, 0, nullptr, JOB_CONTROL_DELETE);
    }

    const PrinterHandle& server;
    const std::vector<FollowedJob>& jobs;
    ProgressView& view;
    bool cancelled = false;
};

}  // namespace

void AddAttempts(CLI::App& command, DWORD& attempts)
{
    command.add_option("--attempts", attempts, "Failed attempts after which a document is given up")
        ->capture_default_str()
        ->check(CLI::Range(1U, 1000U))
        ->type_name("N");
}

void LimitAttempts(DWORD attempts)
{
    const SPOOLER_OPTIONS options{sizeof options, TRUE, attempts};
    if (!SetSpoolerOptions(&options))
        throw SpoolerFailure("--attempts");
}

ExitStatus FollowJobs(const PrinterHandle& server, const std::vector<FollowedJob>& jobs, bool json)
{
    const std::unique_ptr<ProgressView> view = MakeProgressView(json);
    return Follower(server, jobs, *view).Run();
}

void AwaitOtherJobs(bool json)
{
    const auto begin = std::chrono::steady_clock::now();
    bool told = json;
    while (CountActivePorts() > 0 && !InterruptAsked() && !EndAsked()) {
        if (!told && std::chrono::steady_clock::now() - begin > kTellAfter) {
            PrintLine("Other jobs wait on this port and print now; Ctrl-C leaves them queued.");
            told = true;
        }
        std::this_thread::sleep_for(kLookAtJobEvery);
    }
}

const char* StateWordOf(const JOB_PROGRESS& progress)
{
    switch (progress.phase) {
        case JOB_PHASE_SPOOLING:
            return "spooling";
        case JOB_PHASE_QUEUED:
            return "queued";
        case JOB_PHASE_STARTING:
            return "connecting";
        case JOB_PHASE_WRITING:
            return "sending";
        case JOB_PHASE_WAITING:
            return "waiting-in-queue";
        case JOB_PHASE_ENDING:
            return "waiting-for-card";
        case JOB_PHASE_KEEPING:
            return "waiting-for-disk";
        case JOB_PHASE_RETRYING:
            return "retrying";
        default:
            break;
    }
    switch (progress.outcome) {
        case JOB_OUTCOME_SENT:
            return "sent";
        case JOB_OUTCOME_DELETED:
            return "cancelled";
        case JOB_OUTCOME_UNCONFIRMED:
            return "unconfirmed";
        default:
            return "failed";
    }
}

std::string ReasonOf(const JOB_PROGRESS& progress)
{
    std::string reason = progress.reason;
    const std::string bareNumber = " (error " + std::to_string(progress.lastError) + ")";
    if (!reason.ends_with(bareNumber))
        return reason;
    reason.resize(reason.size() - bareNumber.size());
    if (reason.ends_with('.'))
        reason.pop_back();
    const ErrorWord* known = FindErrorWord(progress.lastError);
    return reason + (known == nullptr ? "" : std::string(": ") + known->meaning) + " (" +
           NameOfWord(progress.lastError) + ")";
}

bool ReadProgress(const PrinterHandle& server, DWORD jobId, JOB_PROGRESS& progress)
{
    progress = {};
    progress.cbSize = sizeof progress;
    return GetJobProgress(server.Get(), jobId, &progress) != FALSE;
}

}  // namespace farlink
