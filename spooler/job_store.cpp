#include "spooler/job_store.h"

#include "platform/posix/utf.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr int kHistorySeconds = 7 * 24 * 3600;

constexpr DWORD Number(JobState state)
{
    return static_cast<DWORD>(state);
}

#define JOB_COLUMNS                                                                                   \
    "SELECT jobs.id, printer, port, ports.name, monitor, document, user, machine, submitted, bytes, " \
    "state, restart, deleting, sent, attempts, failures, phase, written, last_error, reason "         \
    "FROM jobs JOIN ports ON ports.id = jobs.port "

// Jobs that a port's runner has something to do for.
#define JOB_HAS_WORK "(state IN (1, 2) OR state IN (3, 4) AND deleting)"
static_assert(Number(JobState::Queued) == 1 && Number(JobState::Running) == 2);
static_assert(Number(JobState::Error) == 3 && Number(JobState::Unconfirmed) == 4);

Job ReadJob(const Database::Statement& row)
{
    Job job;
    int column = 0;
    const auto next = [&] { return row.Integer(column++); };
    job.id = static_cast<DWORD>(next());
    job.printer = row.Text(column++);
    job.portNumber = next();
    job.port = row.Text(column++);
    job.monitor = row.Text(column++);
    job.document = row.Text(column++);
    job.user = row.Text(column++);
    job.machine = row.Text(column++);
    job.submitted = next();
    job.bytes = static_cast<std::uint64_t>(next());
    job.state = static_cast<JobState>(next());
    job.restart = next() != 0;
    job.deleting = next() != 0;
    job.sent = next() != 0;
    job.attempts = static_cast<DWORD>(next());
    job.failures = static_cast<DWORD>(next());
    job.phase = static_cast<JOB_PHASE>(next());
    job.written = static_cast<std::uint64_t>(next());
    job.lastError = static_cast<DWORD>(next());
    job.reason = row.Utf8(column++);
    return job;
}

std::optional<Job> FindIn(Database::Use& use, DWORD id)
{
    auto row = use.Ask(JOB_COLUMNS "WHERE jobs.id = ?", id);
    if (!row.Next())
        return std::nullopt;
    return ReadJob(row);
}

Job MustFind(Database::Use& use, DWORD id)
{
    std::optional<Job> job = FindIn(use, id);
    if (!job)
        Throw(ERROR_INVALID_PARAMETER, "There is no job " + std::to_string(id) + ".");
    return *std::move(job);
}

// Writes back what a command or the end of a run may change.
void Save(Database::Use& use, const Job& job)
{
    use.Do(
        "UPDATE jobs SET state = ?, restart = ?, deleting = ?, sent = ?, failures = ?, phase = ?, written = "
        "?, "
        "last_error = ?, reason = ?, finished = CASE WHEN ? THEN unixepoch() ELSE 0 END WHERE id = ?",
        Number(job.state), job.restart, job.deleting, job.sent, job.failures, static_cast<DWORD>(job.phase),
        job.written, job.lastError, job.reason, job.IsFinished(), job.id);
}

[[noreturn]] void RefuseCommand(const Job& job)
{
    Throw(ERROR_INVALID_PARAMETER,
          "Job " + std::to_string(job.id) + (job.IsFinished() ? " is done." : " is not running."));
}

void AskRestart(Job& job)
{
    if (job.IsFinished())
        RefuseCommand(job);
    if (job.state == JobState::Error || job.state == JobState::Unconfirmed) {
        job.state = JobState::Queued;
        job.phase = JOB_PHASE_QUEUED;
        job.failures = 0;
        job.lastError = 0;
        job.reason.clear();
    } else if (job.state == JobState::Running && !job.sent) {
        job.restart = true;
    }
}

// Doesn't take back that the run was marked as sent: monitors follow the mark with a deletion, to clear
// a restarted job from the queue.
void AskDelete(Job& job)
{
    if (job.IsFinished())
        RefuseCommand(job);
    job.deleting = true;
}

// A job that is being deleted stays deleted: the print server that cancelled it reports it as through,
// too.
void MarkSent(Job& job)
{
    if (job.state != JobState::Running)
        RefuseCommand(job);
    if (!job.deleting)
        job.sent = true;
}

void Apply(Job& job, DWORD command)
{
    if (command == JOB_CONTROL_RESTART)
        AskRestart(job);
    else if (command == JOB_CONTROL_SENT_TO_PRINTER)
        MarkSent(job);
    else
        AskDelete(job);
}

void Conclude(Job& job, JobState state, std::string reason)
{
    job.state = state;
    job.phase = JOB_PHASE_DONE;
    job.deleting = false;
    job.reason = std::move(reason);
}

void CountFailure(Job& job, const RunResult& result, DWORD attemptLimit)
{
    ++job.failures;
    job.lastError = result.error;
    job.reason = result.failed ? result.reason : "The monitor asked to print the job again.";
    job.state = JobState::Queued;
    job.phase = JOB_PHASE_RETRYING;
    if (job.failures >= attemptLimit)
        Conclude(job, JobState::Error,
                 "Given up after " + std::to_string(job.failures) + " attempts. " + job.reason);
}

// What becomes of a job after a run. The monitor's mark counts only for a document that it took whole.
void Decide(Job& job, const RunResult& result, DWORD attemptLimit)
{
    if (job.sent && result.complete)
        Conclude(job, JobState::Sent, "");
    else if (job.deleting)
        Conclude(job, JobState::Deleted, "Deleted while it was printed.");
    else if (result.failed || job.restart || !result.complete)
        CountFailure(job, result, attemptLimit);
    else
        Conclude(job, JobState::Unconfirmed,
                 "All bytes were sent, but the print server never said what became of the job. Look at the "
                 "printer, then delete the job or print it again.");
    job.restart = false;
    job.sent = false;
}

}  // namespace

JOB_OUTCOME Job::Outcome() const
{
    switch (state) {
        case JobState::Sent:
            return JOB_OUTCOME_SENT;
        case JobState::Deleted:
            return JOB_OUTCOME_DELETED;
        case JobState::Error:
            return JOB_OUTCOME_ERROR;
        case JobState::Unconfirmed:
            return JOB_OUTCOME_UNCONFIRMED;
        default:
            return JOB_OUTCOME_NONE;
    }
}

DWORD JobStore::Create(const Printer& printer, const WideString& document, const WideString& user,
                       const WideString& machine, const std::function<void(DWORD)>& makeDocument)
{
    Database::Change change(*database);
    change.Do("INSERT OR IGNORE INTO ports (name) VALUES (?)", printer.port);
    change.Do(
        "INSERT INTO jobs (printer, port, monitor, document, user, machine, state) "
        "VALUES (?, (SELECT id FROM ports WHERE name = ?), ?, ?, ?, ?, ?)",
        printer.name, printer.port, printer.monitor, document, user, machine, Number(JobState::Spooling));
    const auto id = static_cast<DWORD>(change.LastId());
    makeDocument(id);
    change.Commit();
    return id;
}

bool JobStore::Accept(DWORD id, std::uint64_t bytes)
{
    Database::Change change(*database);
    const int accepted = change.Do(
        "UPDATE jobs SET state = ?, phase = ?, bytes = ? WHERE id = ? AND state = ? AND NOT deleting",
        Number(JobState::Queued), static_cast<DWORD>(JOB_PHASE_QUEUED), bytes, id,
        Number(JobState::Spooling));
    change.Commit();
    return accepted != 0;
}

void JobStore::Forget(DWORD id)
{
    Database::Change change(*database);
    change.Do("DELETE FROM jobs WHERE id = ? AND state = ?", id, Number(JobState::Spooling));
    change.Commit();
}

std::optional<Job> JobStore::Find(DWORD id)
{
    Database::Use use(*database);
    return FindIn(use, id);
}

std::vector<Job> JobStore::List(WideStringView printer)
{
    Database::Use use(*database);
    std::vector<Job> jobs;
    auto row = use.Ask(JOB_COLUMNS "WHERE ?1 = '' OR printer = ?1 ORDER BY jobs.id", printer);
    while (row.Next())
        jobs.push_back(ReadJob(row));
    return jobs;
}

DWORD JobStore::CountUnfinished(WideStringView printer)
{
    Database::Use use(*database);
    auto row =
        use.Ask("SELECT count(*) FROM jobs WHERE printer = ? AND state < ?", printer, kFirstFinishedState);
    row.Next();
    return static_cast<DWORD>(row.Integer(0));
}

DWORD JobStore::PlaceOf(const Job& job)
{
    if (job.IsFinished())
        return 0;
    Database::Use use(*database);
    auto row = use.Ask("SELECT count(*) FROM jobs WHERE printer = ? AND state < ? AND id <= ?", job.printer,
                       kFirstFinishedState, job.id);
    row.Next();
    return static_cast<DWORD>(row.Integer(0));
}

std::int64_t JobStore::NumberOfPort(const WideString& port)
{
    Database::Change change(*database);
    change.Do("INSERT OR IGNORE INTO ports (name) VALUES (?)", port);
    std::int64_t number = 0;
    {
        auto row = change.Ask("SELECT id FROM ports WHERE name = ?", port);
        row.Next();
        number = row.Integer(0);
    }
    change.Commit();
    return number;
}

std::optional<Job> JobStore::NextFor(std::int64_t portNumber)
{
    Database::Use use(*database);
    auto row =
        use.Ask(JOB_COLUMNS "WHERE port = ? AND " JOB_HAS_WORK " ORDER BY jobs.id LIMIT 1", portNumber);
    if (!row.Next())
        return std::nullopt;
    return ReadJob(row);
}

std::vector<std::int64_t> JobStore::PortsWithWork()
{
    Database::Use use(*database);
    std::vector<std::int64_t> ports;
    auto row = use.Ask("SELECT DISTINCT port FROM jobs WHERE " JOB_HAS_WORK " ORDER BY port");
    while (row.Next())
        ports.push_back(row.Integer(0));
    return ports;
}

Job JobStore::Command(DWORD id, DWORD command)
{
    Database::Change change(*database);
    Job job = MustFind(change, id);
    Apply(job, command);
    Save(change, job);
    change.Commit();
    return job;
}

void JobStore::BeginRun(DWORD id)
{
    Database::Change change(*database, Database::Durability::Relaxed);
    change.Do(
        "UPDATE jobs SET state = ?, restart = 0, sent = 0, attempts = attempts + 1, phase = ?, written = 0 "
        "WHERE id = ?",
        Number(JobState::Running), static_cast<DWORD>(JOB_PHASE_STARTING), id);
    change.Commit();
}

bool JobStore::SaveProgress(DWORD id, JOB_PHASE phase, std::uint64_t written)
{
    Database::Change change(*database, Database::Durability::Relaxed);
    change.Do("UPDATE jobs SET phase = ?, written = ? WHERE id = ?", static_cast<DWORD>(phase), written, id);
    const bool deleting = MustFind(change, id).deleting;
    change.Commit();
    return !deleting;
}

Job JobStore::EndRun(DWORD id, const RunResult& result, DWORD attemptLimit)
{
    Database::Change change(*database);
    Job job = MustFind(change, id);
    for (const DWORD command : result.commands)
        Apply(job, command);
    if (result.complete)
        job.written = job.bytes;
    Decide(job, result, attemptLimit);
    Save(change, job);
    change.Commit();
    return job;
}

void JobStore::BreakOffRun(DWORD id)
{
    Database::Change change(*database);
    change.Do("UPDATE jobs SET state = ?, phase = ?, restart = 0, sent = 0, written = 0 WHERE id = ?",
              Number(JobState::Queued), static_cast<DWORD>(JOB_PHASE_QUEUED), id);
    change.Commit();
}

void JobStore::FinishAsDeleted(DWORD id)
{
    Database::Change change(*database);
    Job job = MustFind(change, id);
    Conclude(job, JobState::Deleted, "Deleted before it was printed.");
    Save(change, job);
    change.Commit();
}

void JobStore::CleanUp(const std::function<bool(DWORD)>& isAbandoned,
                       const std::function<void(const std::function<bool(DWORD)>&)>& removeStray)
{
    Database::Change change(*database);
    std::vector<DWORD> spooling;
    {
        auto row = change.Ask("SELECT id FROM jobs WHERE state = ?", Number(JobState::Spooling));
        while (row.Next())
            spooling.push_back(static_cast<DWORD>(row.Integer(0)));
    }
    for (const DWORD id : spooling)
        if (isAbandoned(id))
            change.Do("DELETE FROM jobs WHERE id = ?", id);
    change.Do("DELETE FROM jobs WHERE state >= ? AND finished < unixepoch() - ?", kFirstFinishedState,
              kHistorySeconds);
    removeStray([&](DWORD id) {
        return change.Ask("SELECT 1 FROM jobs WHERE id = ? AND state < ?", id, kFirstFinishedState).Next();
    });
    change.Commit();
}

}  // namespace spooler
