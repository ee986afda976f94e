#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/platform.h"
#include "spooler/handles.h"

namespace spooler {

// The one document that this process prints, as its monitor sees it: a job in the queue of a printer. Any
// thread.
class Job {
public:
    // ERROR_BUSY while the process has another job.
    static std::shared_ptr<Job> Begin(WideString printer, WideString title, std::uint64_t size);
    // The process's job, if it has one.
    static std::shared_ptr<Job> Current();

    Job(WideString printerName, WideString documentTitle, std::uint64_t bytes);

    const DWORD id;
    const WideString printer;
    const WideString title;
    const std::uint64_t size;

    // An attempt begins: what the last one's monitor told is forgotten.
    void Reset() { first = 0; }
    // A JOB_CONTROL command of the monitor. Only the first one counts: with SENT_TO_PRINTER the monitor may
    // go on to remove the job, and a job that it deletes it marks as sent too.
    void Command(DWORD command);
    bool IsSent() const { return first == JOB_CONTROL_SENT_TO_PRINTER; }
    bool IsDeleted() const { return first == JOB_CONTROL_DELETE; }
    bool IsToRestart() const { return first == JOB_CONTROL_RESTART; }

private:
    std::atomic<DWORD> first = 0;
};

// What OpenPrinterW gives a monitor.
class JobPrinter : public HandleObject {
public:
    explicit JobPrinter(std::shared_ptr<Job> printed) : job(std::move(printed)) {}
    const std::shared_ptr<Job> job;  // null for a document without a job
};

}  // namespace spooler
