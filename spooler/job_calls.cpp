// Jobs: what is known of them, what they are told, and running them.

#include <algorithm>
#include <cstring>
#include <ctime>

#include "platform/posix/utf.h"
#include "spooler/api.h"
#include "spooler/options.h"
#include "spooler/printer_handle.h"
#include "spooler/record_writer.h"
#include "spooler/spooler.h"

namespace spooler {

namespace {

constexpr DWORD kDefaultPriority = 1;

// The job, if the handle may speak of it.
Job JobOf(Instance& spooler, HANDLE printer, DWORD jobId)
{
    const std::shared_ptr<PrinterHandle> handle = Opened<PrinterHandle>(printer);
    std::optional<Job> job = spooler.jobs->Find(jobId);
    if (!job || (!handle->IsServer() && lstrcmpiW(job->printer.c_str(), handle->PrinterName().c_str()) != 0))
        Throw(ERROR_INVALID_PARAMETER, "There is no job " + std::to_string(jobId) + ".");
    return *std::move(job);
}

DWORD StatusOf(const Job& job)
{
    static constexpr DWORD kBits[] = {
        JOB_STATUS_SPOOLING,                       // Spooling
        0,                                         // Queued
        JOB_STATUS_PRINTING,                       // Running
        JOB_STATUS_ERROR,                          // Error
        JOB_STATUS_COMPLETE,                       // Unconfirmed: sent, but perhaps not printed
        JOB_STATUS_PRINTED | JOB_STATUS_COMPLETE,  // Sent
        JOB_STATUS_DELETED,                        // Deleted
    };
    return kBits[static_cast<DWORD>(job.state)] | (job.restart ? JOB_STATUS_RESTART : 0) |
           (job.deleting ? JOB_STATUS_DELETING : 0) | (job.sent ? JOB_STATUS_PRINTED : 0);
}

SYSTEMTIME SystemTimeOf(std::int64_t unixSeconds)
{
    const auto seconds = static_cast<std::time_t>(unixSeconds);
    std::tm utc = {};
    gmtime_r(&seconds, &utc);
    return {.wYear = static_cast<WORD>(utc.tm_year + 1900),
            .wMonth = static_cast<WORD>(utc.tm_mon + 1),
            .wDayOfWeek = static_cast<WORD>(utc.tm_wday),
            .wDay = static_cast<WORD>(utc.tm_mday),
            .wHour = static_cast<WORD>(utc.tm_hour),
            .wMinute = static_cast<WORD>(utc.tm_min),
            .wSecond = static_cast<WORD>(utc.tm_sec),
            .wMilliseconds = 0};
}

void AddJobRecord(RecordWriter& records, const Job& job, DWORD position)
{
    JOB_INFO_2W record = {};
    record.JobId = job.id;
    record.Status = StatusOf(job);
    record.Priority = kDefaultPriority;
    record.Position = position;
    record.Size = static_cast<DWORD>(std::min<std::uint64_t>(job.bytes, 0xFFFFFFFF));
    record.Submitted = SystemTimeOf(job.submitted);
    records.Add(record, {{&JOB_INFO_2W::pPrinterName, job.printer},
                         {&JOB_INFO_2W::pMachineName, job.machine},
                         {&JOB_INFO_2W::pUserName, job.user},
                         {&JOB_INFO_2W::pDocument, job.document},
                         {&JOB_INFO_2W::pNotifyName, job.user},
                         {&JOB_INFO_2W::pDatatype, TEXT("RAW")},
                         {&JOB_INFO_2W::pStatus, ToUtf16(job.reason)}});
}

// A printer's or all jobs with their places in the printer's queue, from 1; 0 when finished.
std::vector<std::pair<Job, DWORD>> Queue(Instance& spooler, WideStringView printer)
{
    std::map<WideString, DWORD> places;
    std::vector<std::pair<Job, DWORD>> queue;
    for (Job& job : spooler.jobs->List(printer)) {
        const DWORD place = job.IsFinished() ? 0 : ++places[job.printer];
        queue.emplace_back(std::move(job), place);
    }
    return queue;
}

bool IsServed(DWORD command)
{
    return command == JOB_CONTROL_RESTART || command == JOB_CONTROL_DELETE || command == JOB_CONTROL_CANCEL ||
           command == JOB_CONTROL_SENT_TO_PRINTER;
}

// Of a job that runs here, nothing that its monitor says is lost to a full disk.
void Command(Instance& spooler, DWORD jobId, DWORD command)
{
    try {
        const Job now = spooler.jobs->Command(jobId, command);
        if (now.deleting)
            spooler.runners->Drop(now);
    } catch (const SpoolerError& error) {
        if (error.word != ERROR_DISK_FULL || !spooler.runners->Remember(jobId, command))
            throw;
    }
}

void FillProgress(JOB_PROGRESS* progress, const Job& job, const std::optional<RunControl::Progress>& live)
{
    progress->phase = job.phase;
    progress->bytesWritten = job.written;
    if (live && job.Outcome() == JOB_OUTCOME_NONE) {
        progress->phase = live->phase;
        progress->bytesWritten = live->written;
    }
    progress->outcome = job.Outcome();
    progress->attempt = job.attempts;
    progress->bytesTotal = job.bytes;
    progress->lastError = job.lastError;
    std::memset(progress->reason, 0, sizeof(progress->reason));
    job.reason.copy(progress->reason, sizeof(progress->reason) - 1);
}

}  // namespace

SPOOLER_EXPORT BOOL GetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed)
{
    return BoolCall([&] {
        RequireReference(needed);
        *needed = 0;
        const std::shared_ptr<Instance> spooler = Instance::Get();
        const Job found = JobOf(*spooler, printer, jobId);
        RequireLevel(level == 2);
        RecordWriter records;
        AddJobRecord(records, found, spooler->jobs->PlaceOf(found));
        records.Write(job, size, needed, nullptr);
    });
}

SPOOLER_EXPORT BOOL SetJobW(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD command)
{
    return BoolCall([&] {
        const std::shared_ptr<Instance> spooler = Instance::Get();
        (void)JobOf(*spooler, printer, jobId);
        RequireLevel(level == 0);
        RequireParameter(job == nullptr, "Level 0 has no record.");
        if (command == JOB_CONTROL_PAUSE || command == JOB_CONTROL_RESUME)
            Throw(ERROR_NOT_SUPPORTED, "Jobs can't be paused.");
        RequireParameter(IsServed(command), "The job command is unknown.");
        Command(*spooler, jobId, command);
    });
}

SPOOLER_EXPORT BOOL EnumJobsW(HANDLE printer, DWORD first, DWORD count, DWORD level, LPBYTE jobs, DWORD size,
                              LPDWORD needed, LPDWORD returned)
{
    return BoolCall([&] {
        RequireReference(needed);
        RequireReference(returned);
        const std::shared_ptr<PrinterHandle> handle = Opened<PrinterHandle>(printer);
        RequireLevel(level == 2);
        const auto queue = Queue(*Instance::Get(), handle->PrinterName());
        RecordWriter records;
        for (std::size_t i = first; i < queue.size() && i - first < count; ++i)
            AddJobRecord(records, queue[i].first, queue[i].second);
        records.Write(jobs, size, needed, returned);
    });
}

SPOOLER_EXPORT BOOL GetJobProgress(HANDLE printer, DWORD jobId, JOB_PROGRESS* progress)
{
    return BoolCall([&] {
        RequireParameter(progress != nullptr && progress->cbSize == sizeof(JOB_PROGRESS),
                         "No place for an answer.");
        const std::shared_ptr<Instance> spooler = Instance::Get();
        // The live state first: a run that ends in between then shows by its kept outcome.
        const std::optional<RunControl::Progress> live = spooler->runners->ProgressOf(jobId);
        const Job job = JobOf(*spooler, printer, jobId);
        if (!live && (job.state == JobState::Queued || job.state == JobState::Running))
            spooler->runners->RequireNoFailure(job.portNumber);
        FillProgress(progress, job, live);
    });
}

SPOOLER_EXPORT BOOL SetSpoolerOptions(const SPOOLER_OPTIONS* options)
{
    return BoolCall([&] {
        RequireParameter(
            options != nullptr && options->cbSize == sizeof(SPOOLER_OPTIONS) && options->attemptLimit != 0,
            "The options are not valid.");
        ProcessOptions().runAcceptedJobs = options->runAcceptedJobs != FALSE;
        ProcessOptions().attemptLimit = options->attemptLimit;
    });
}

SPOOLER_EXPORT BOOL RunPendingJobs(DWORD* ports)
{
    return BoolCall([&] {
        const DWORD started = Instance::Get()->runners->StartAll();
        if (ports != nullptr)
            *ports = started;
    });
}

SPOOLER_EXPORT DWORD CountActivePorts()
{
    const std::shared_ptr<Instance> spooler = Instance::Opened();
    return spooler == nullptr ? 0 : spooler->runners->Active();
}

SPOOLER_EXPORT BOOL ShutdownSpooler(DWORD waitMs)
{
    return BoolCall([&] {
        if (!Instance::Shutdown(waitMs))
            Throw(ERROR_TIMEOUT, "A port is still at work on its job.");
    });
}

SPOOLER_EXPORT DWORD GetSpoolerErrorText(LPSTR buffer, DWORD size)
{
    const std::string& text = LastErrorText();
    if (buffer != nullptr && size != 0)
        buffer[text.copy(buffer, size - 1)] = 0;
    return static_cast<DWORD>(text.size() + 1);
}

}  // namespace spooler
