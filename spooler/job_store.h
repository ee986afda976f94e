#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "spooler/database.h"
#include "spooler/printers.h"
#include "spooler/spooler.h"

namespace spooler {

// As kept in the database. A job in Running whose port's lock nobody holds was left by a killed process.
enum class JobState : DWORD {
    Spooling = 0,
    Queued = 1,
    Running = 2,
    Error = 3,
    Unconfirmed = 4,
    Sent = 5,
    Deleted = 6
};

// From this state on a job is history, and its document is gone.
constexpr DWORD kFirstFinishedState = static_cast<DWORD>(JobState::Sent);

struct Job {
    DWORD id = 0;
    WideString printer;
    std::int64_t portNumber = 0;
    WideString port;
    WideString monitor;
    WideString document;
    WideString user;
    WideString machine;
    std::int64_t submitted = 0;  // Unix time
    std::uint64_t bytes = 0;
    JobState state = JobState::Spooling;
    bool restart = false;   // the present run is to be followed by another
    bool deleting = false;  // to be dropped when the present run is over
    bool sent = false;      // the present run was marked as sent
    DWORD attempts = 0;
    DWORD failures = 0;  // in a row, since the user last asked to run it again
    JOB_PHASE phase = JOB_PHASE_SPOOLING;
    std::uint64_t written = 0;  // of the present run, as last saved
    DWORD lastError = 0;
    std::string reason;

    bool IsFinished() const { return static_cast<DWORD>(state) >= kFirstFinishedState; }
    JOB_OUTCOME Outcome() const;
};

// How a run of a job ended, as far as the port's calls tell.
struct RunResult {
    bool complete = false;  // the port took every byte
    bool failed = false;    // a call of the port failed
    DWORD error = 0;
    std::string reason;
    std::vector<DWORD> commands;  // given during the run, that there was no room to keep
};

// The jobs in the database. Every change is a transaction of its own, so that processes which share
// the folder see whole steps. Throws SpoolerError.
class JobStore {
public:
    explicit JobStore(std::shared_ptr<Database> owner) : database(std::move(owner)) {}

    // Makes a job in state Spooling. `makeDocument` gets its number and runs within the transaction.
    DWORD Create(const Printer& printer, const WideString& document, const WideString& user,
                 const WideString& machine, const std::function<void(DWORD)>& makeDocument);
    // The document is on disk: from here on the job is kept whatever happens. False if the job was
    // deleted meanwhile.
    bool Accept(DWORD id, std::uint64_t bytes);
    // Forgets a job that was never accepted.
    void Forget(DWORD id);

    std::optional<Job> Find(DWORD id);
    // Of one printer, or of all for the empty name; oldest first.
    std::vector<Job> List(WideStringView printer);
    DWORD CountUnfinished(WideStringView printer);
    // In its printer's queue, from 1; 0 for a finished job.
    DWORD PlaceOf(const Job& job);

    // The port's number, by which its lock goes; given to the name at first use.
    std::int64_t NumberOfPort(const WideString& port);
    // The oldest job of the port that is to be run or dropped.
    std::optional<Job> NextFor(std::int64_t portNumber);
    std::vector<std::int64_t> PortsWithWork();

    // Carries out a JOB_CONTROL command; how they work on each other stands at the definition. Throws
    // ERROR_INVALID_PARAMETER for a job that the command can't be meant for any more.
    Job Command(DWORD id, DWORD command);

    // A run: begun, saved now and then (which tells whether it is to stop because the job is being
    // deleted), and ended; gives the job as it then stands.
    void BeginRun(DWORD id);
    bool SaveProgress(DWORD id, JOB_PHASE phase, std::uint64_t written);
    Job EndRun(DWORD id, const RunResult& result, DWORD attemptLimit);
    // The run was broken off by a shutdown: the job waits as if it had not been tried.
    void BreakOffRun(DWORD id);
    void FinishAsDeleted(DWORD id);

    // Forgets jobs that `isAbandoned` holds for among those being taken in, and old history. Then
    // `removeStray` gets the chance to look at each document's job number, with a test of whether
    // it still belongs to a job; nobody makes a job meanwhile.
    void CleanUp(const std::function<bool(DWORD)>& isAbandoned,
                 const std::function<void(const std::function<bool(DWORD)>&)>& removeStray);

private:
    std::shared_ptr<Database> database;
};

}  // namespace spooler
