#include "spooler/job.h"

#include <mutex>

#include "spooler/spooler_error.h"

namespace spooler {

namespace {

std::mutex currentLock;
std::weak_ptr<Job> current;
std::atomic<DWORD> lastId = 0;

}  // namespace

Job::Job(WideString printerName, WideString documentTitle, std::uint64_t bytes)
    : id(++lastId), printer(std::move(printerName)), title(std::move(documentTitle)), size(bytes)
{
}

std::shared_ptr<Job> Job::Begin(WideString printer, WideString title, std::uint64_t size)
{
    auto job = std::make_shared<Job>(std::move(printer), std::move(title), size);
    const std::lock_guard<std::mutex> guard(currentLock);
    if (!current.expired())
        Throw(ERROR_BUSY, "This process is printing another document.");
    current = job;
    return job;
}

std::shared_ptr<Job> Job::Current()
{
    const std::lock_guard<std::mutex> guard(currentLock);
    return current.lock();
}

void Job::Command(DWORD command)
{
    // A job that is to be printed again may still be cancelled.
    DWORD before = 0;
    if (!first.compare_exchange_strong(before, command) && command == JOB_CONTROL_DELETE &&
        before == JOB_CONTROL_RESTART)
        (void)first.compare_exchange_strong(before, command);
}

}  // namespace spooler
