#include <array>
#include <cstdio>
#include <memory>

#include "farlink/commands.h"
#include "farlink/interrupts.h"
#include "farlink/job_following.h"
#include "farlink/sizes.h"
#include "farlink/wide_text.h"

namespace farlink {

namespace {

struct JobsOptions {
    bool all = false;
    std::vector<DWORD> ids;
    DWORD attempts = 10;
};

// In UTC, as the spooler keeps it.
std::string TimeText(const SYSTEMTIME& time)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04u-%02u-%02uT%02u:%02u:%02uZ", time.wYear, time.wMonth,
                  time.wDay, time.wHour, time.wMinute, time.wSecond);
    return text.data();
}

bool IsHistory(const JOB_PROGRESS& progress)
{
    return progress.outcome == JOB_OUTCOME_SENT || progress.outcome == JOB_OUTCOME_DELETED;
}

std::string StateOf(const JobEntry& job, const JOB_PROGRESS& progress)
{
    const bool deleting = (job.status & JOB_STATUS_DELETING) != 0 && progress.phase != JOB_PHASE_DONE;
    return deleting ? "cancelling" : StateWordOf(progress);
}

Json JsonOf(const JobEntry& job, const JOB_PROGRESS& progress)
{
    return {{"job", job.id},
            {"document", ToUtf8(job.document)},
            {"printer", ToUtf8(job.printer)},
            {"user", ToUtf8(job.user)},
            {"submitted", TimeText(job.submitted)},
            {"state", StateOf(job, progress)},
            {"attempt", progress.attempt},
            {"bytes", progress.bytesTotal},
            {"written", progress.bytesWritten},
            {"error", progress.lastError},
            {"reason", ReasonOf(progress)}};
}

void List(const Run& run, const JobsOptions& options)
{
    const PrinterHandle server(WideString{});
    Json jobs = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const JobEntry& job : ListJobs(server)) {
        JOB_PROGRESS progress{};
        // A job may be forgotten between the two calls.
        if (!ReadProgress(server, job.id, progress) || (IsHistory(progress) && !options.all))
            continue;
        jobs.push_back(JsonOf(job, progress));
        rows.push_back({std::to_string(job.id), StateOf(job, progress), SizeText(progress.bytesTotal),
                        ToUtf8(job.printer), ToUtf8(job.document), ReasonOf(progress)});
    }
    if (run.json) {
        PrintJson(jobs);
    } else if (rows.empty()) {
        PrintLine(options.all ? "No jobs." : "No jobs; --all shows those of the last week too.");
    } else {
        rows.insert(rows.begin(), {"ID", "STATE", "SIZE", "PRINTER", "DOCUMENT", "REASON"});
        PrintTable(rows);
    }
}

void Command(const PrinterHandle& server, DWORD id, DWORD command)
{
    if (!SetJobW(server.Get(), id, 0, nullptr, command))
        throw SpoolerFailure();
}

void Cancel(const Run& run, const JobsOptions& options)
{
    const PrinterHandle server(WideString{});
    for (const DWORD id : options.ids) {
        Command(server, id, JOB_CONTROL_DELETE);
        if (run.json)
            PrintJsonLine({{"job", id}, {"state", "cancelling"}});
        else
            PrintLine("Job " + std::to_string(id) + " is cancelled");
    }
}

void RunAndFollow(Run& run, const PrinterHandle& server, const std::vector<FollowedJob>& jobs, DWORD attempts)
{
    CatchInterrupts();
    LimitAttempts(attempts);
    if (!RunPendingJobs(nullptr))
        throw SpoolerFailure();
    run.status = FollowJobs(server, jobs, run.json);
    AwaitOtherJobs(run.json);
}

void Retry(Run& run, const JobsOptions& options)
{
    const PrinterHandle server(WideString{});
    std::vector<FollowedJob> jobs;
    for (const JobEntry& job : ListJobs(server))
        if (std::ranges::find(options.ids, job.id) != options.ids.end())
            jobs.push_back({job.id, ToUtf8(job.document)});
    for (const DWORD id : options.ids)
        Command(server, id, JOB_CONTROL_RESTART);
    RunAndFollow(run, server, jobs, options.attempts);
}

void RunAll(Run& run, const JobsOptions& options)
{
    const PrinterHandle server(WideString{});
    std::vector<FollowedJob> jobs;
    for (const JobEntry& job : ListJobs(server)) {
        JOB_PROGRESS progress{};
        if (ReadProgress(server, job.id, progress) && progress.phase != JOB_PHASE_DONE &&
            progress.phase != JOB_PHASE_SPOOLING)
            jobs.push_back({job.id, ToUtf8(job.document)});
    }
    if (jobs.empty() && !run.json)
        PrintLine("No jobs wait.");
    RunAndFollow(run, server, jobs, options.attempts);
}

void AddIds(CLI::App& command, JobsOptions& options)
{
    command.add_option("ID", options.ids, "Numbers from 'farlink jobs'")->required();
}

}  // namespace

void AddJobsCommands(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<JobsOptions>();
    CLI::App* jobs =
        farlink.add_subcommand("jobs", "List, cancel, retry and run jobs")->require_subcommand(0, 1);
    AddJsonFlag(*jobs, run);
    jobs->add_flag("--all", options->all, "Those of the last week that were sent or cancelled, too");
    AddExamples(*jobs,
                "farlink jobs\nfarlink jobs --all --json\nfarlink jobs cancel 17\nfarlink jobs retry 17");
    jobs->callback([&run, options, jobs] {
        if (jobs->get_subcommands().empty())
            List(run, *options);
    });

    CLI::App* list = jobs->add_subcommand("list", "The same as 'farlink jobs'");
    AddJsonFlag(*list, run);
    list->add_flag("--all", options->all, "Those of the last week that were sent or cancelled, too");
    AddExamples(*list, "farlink jobs list --all");
    list->callback([&run, options] { List(run, *options); });

    CLI::App* cancel = jobs->add_subcommand("cancel", "Cancel jobs, those that are printing too");
    AddJsonFlag(*cancel, run);
    AddIds(*cancel, *options);
    AddExamples(*cancel, "farlink jobs cancel 17 18");
    cancel->callback([&run, options] { Cancel(run, *options); });

    CLI::App* retry =
        jobs->add_subcommand("retry", "Print jobs again that failed or are unconfirmed, and follow them");
    AddJsonFlag(*retry, run);
    AddIds(*retry, *options);
    AddAttempts(*retry, options->attempts);
    AddExamples(*retry, "farlink jobs retry 17");
    retry->footer(retry->get_footer() + "\n\n" + kExitStatusHelp);
    retry->callback([&run, options] { Retry(run, *options); });

    CLI::App* all = jobs->add_subcommand("run", "Go on with the jobs that wait and that no process runs");
    AddJsonFlag(*all, run);
    AddAttempts(*all, options->attempts);
    AddExamples(*all, "farlink jobs run");
    all->footer(all->get_footer() + "\n\n" + kExitStatusHelp);
    all->callback([&run, options] { RunAll(run, *options); });
}

}  // namespace farlink
