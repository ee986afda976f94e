#pragma once

#include <string>
#include <vector>

#include "farlink/commands.h"
#include "farlink/ports/spooler_lists.h"
#include "spooler/spooler.h"

namespace farlink {

// The option --attempts, and its use: failed attempts after which this process gives a document up.
void AddAttempts(CLI::App& command, DWORD& attempts);
void LimitAttempts(DWORD attempts);

struct FollowedJob {
    DWORD id;
    std::string document;
};

// Shows each job until it is done, in the order given, and gives the status that the worst of them
// asks for. Ctrl-C deletes those that aren't done, SIGTERM leaves them queued.
// CatchInterrupts comes first.
ExitStatus FollowJobs(const PrinterHandle& server, const std::vector<FollowedJob>& jobs, bool json);

// Waits until the jobs of others that this process runs on its ports are through, since breaking one off
// would leave half a document at the print server; or until the process is asked to end.
void AwaitOtherJobs(bool json);

// One word for programs and lists: "queued", "sending", "waiting-for-card" ... "sent", "unconfirmed".
const char* StateWordOf(const JOB_PROGRESS& progress);

// Why a job is in its state, for people, with the error's name; empty if there is nothing to say.
std::string ReasonOf(const JOB_PROGRESS& progress);

// False when there is no such job.
bool ReadProgress(const PrinterHandle& server, DWORD jobId, JOB_PROGRESS& progress);

}  // namespace farlink
