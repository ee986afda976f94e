#include "cups/job.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "cups/job_mark.h"
#include "cups/progress_lines.h"
#include "cups/status_lines.h"
#include "spooler/printing.h"
#include "spooler/spooler_error.h"

namespace farlink_cups {

using spooler::Outcome;

namespace {

constexpr char kLookFirst[] = "look at the printer first; release to print again";

spooler::Order OrderFor(const Job& job, const DeviceUri& uri)
{
    spooler::Order order;
    order.port = [&uri] {
        spooler::PortSettings port;
        port.name = uri.host + ' ' + std::to_string(uri.port);
        port.server = uri.host;
        port.number = uri.port;
        port.keepAlivePeriod = uri.keepAlivePeriod;
        port.keepAliveTimeout = uri.keepAliveTimeout;
        return port;
    };
    order.title = job.title;
    order.readBack = uri.readBack;
    return order;
}

std::unique_ptr<spooler::Document> Open(const Job& job, std::stop_token stop)
{
    return job.file.empty()
               ? spooler::Document::OpenDescriptor(STDIN_FILENO, "standard input", std::move(stop))
               : spooler::Document::OpenFile(job.file, std::move(stop));
}

// When cupsd asked for the end, what we say matters only if nobody cancelled the job: it waits in its queue
// then.
cups_backend_t StatusOfStop(const Requests& requests)
{
    return requests.DriverCancelled() ? CUPS_BACKEND_CANCEL : CUPS_BACKEND_RETRY;
}

// An empty document would be empty each time; whether others are tried again is the queue's policy.
cups_backend_t StatusOfUnreadable(const spooler::SpoolerError& error, const Requests& requests)
{
    if (error.word == ERROR_PRINT_CANCELLED)
        return StatusOfStop(requests);
    Error(error.text);
    return error.word == ERROR_INVALID_PARAMETER ? CUPS_BACKEND_CANCEL : CUPS_BACKEND_FAILED;
}

// An earlier run came to its end while this one waited for it. On standard input documents of one job can't
// be told apart, so that under the same cupsd it may have been another one.
bool WasPrintedMeanwhile(const Job& job, const JobMark& mark)
{
    return mark.Found() == JobMark::State::Through && mark.HadToWait() &&
           (!job.file.empty() || !mark.IsOfThisLife());
}

// cupsd begins a job of several documents with the first one whenever it runs it again.
bool IsPrintedPartOfUnfinishedJob(const Job& job)
{
    const auto isThrough = [&](const std::string& id) { return JobMark::IsThrough(job.markFolder, id); };
    return isThrough(job.id) && !std::ranges::all_of(job.documents, isThrough);
}

const char* WhyHeld(JobMark::State found)
{
    if (found == JobMark::State::InDoubt)
        return "an earlier run of this job was cut off when all bytes were out";
    return found == JobMark::State::Held
               ? "this job was held when cupsd was started again"
               : "an earlier run of this job, or of its document before, is through";
}

// An earlier run's card may be out: somebody has to look.
cups_backend_t HoldForEarlierRun(JobMark& mark)
{
    Error(std::string(WhyHeld(mark.Found())) + ": " + kLookFirst);
    mark.Note(JobMark::State::Held);
    return CUPS_BACKEND_HOLD;
}

// What becomes of the job after a copy that wasn't printed.
cups_backend_t Conclude(const spooler::Result& result, JobMark& mark, const Requests& requests)
{
    const std::string text = spooler::RuleFor(result.outcome).text;
    const std::string why = result.reason.cause.empty() ? text : text + ": " + TextOf(result.reason);
    switch (result.outcome) {
        case Outcome::Unconfirmed:
            Error((result.reason.cause.empty() ? text : result.reason.cause) + ": " + kLookFirst);
            mark.Note(JobMark::State::Held);
            return CUPS_BACKEND_HOLD;
        case Outcome::CancelledAtServer:
            Error(text);
            mark.Note(JobMark::State::Through);
            return CUPS_BACKEND_CANCEL;
        case Outcome::CancelledHere:
            Error(result.bytesWereOut ? text + "; part of a card may be printed" : text);
            return StatusOfStop(requests);
        case Outcome::DocumentFailed:
            Error(why);
            return CUPS_BACKEND_FAILED;
        default:
            Error(why);
            return CUPS_BACKEND_RETRY;
    }
}

cups_backend_t PrintCopies(const Job& job, const DeviceUri& uri, JobMark& mark, Requests& requests)
{
    std::unique_ptr<spooler::Document> document;
    try {
        document = Open(job, requests.Stop());
    } catch (const spooler::SpoolerError& error) {
        return StatusOfUnreadable(error, requests);
    }
    const spooler::Order order = OrderFor(job, uri);
    for (unsigned copy = mark.CopiesPrinted() + 1; copy <= job.copies; ++copy) {
        const std::string prefix =
            job.copies == 1 ? std::string()
                            : "copy " + std::to_string(copy) + " of " + std::to_string(job.copies) + ": ";
        ProgressLines lines(uri, prefix, mark, requests);
        const spooler::Result result = spooler::PrintDocument(order, *document, lines, requests.Stop());
        lines.RethrowMarkFailure();
        if (result.outcome != Outcome::Sent)
            return Conclude(result, mark, requests);
        mark.NotePrinted(copy == job.copies);
    }
    return CUPS_BACKEND_OK;
}

}  // namespace

cups_backend_t RunJob(const Job& job, const DeviceUri& uri, const std::string& life, Requests& requests)
{
    JobMark::RemoveOld(job.markFolder, life);
    if (IsPrintedPartOfUnfinishedJob(job))
        return CUPS_BACKEND_OK;
    try {
        JobMark mark(job.markFolder, job.id, life, requests.Stop());
        if (WasPrintedMeanwhile(job, mark))
            return CUPS_BACKEND_OK;
        if (mark.Found() != JobMark::State::Clear)
            return HoldForEarlierRun(mark);
        return PrintCopies(job, uri, mark, requests);
    } catch (const spooler::SpoolerError& error) {
        if (error.word == ERROR_PRINT_CANCELLED)
            return StatusOfStop(requests);
        Error(error.text);
        return CUPS_BACKEND_STOP;
    }
}

}  // namespace farlink_cups
