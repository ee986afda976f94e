#include "printserver/job.h"

namespace printserver {

void Job::End(bool isCancelled)
{
    const std::scoped_lock scope(lock);
    ended = std::chrono::steady_clock::now();
    cancelled = isCancelled;
}

Progress Job::TheProgress() const
{
    const std::scoped_lock scope(lock);
    Progress progress{.received = received, .cancelled = cancelled};
    if (ended)
        progress.sinceEnd =
            std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - *ended);
    return progress;
}

std::shared_ptr<Job> JobTable::Begin(const std::shared_ptr<Peer>& data)
{
    const std::scoped_lock scope(lock);
    std::erase_if(jobs, [](const auto& entry) { return entry.second.expired(); });
    while (jobs.contains(next))
        ++next;
    auto job = std::make_shared<Job>(next++, data);
    jobs.emplace(job->session, job);
    return job;
}

std::shared_ptr<Job> JobTable::Find(unsigned session)
{
    const std::scoped_lock scope(lock);
    const auto found = jobs.find(session);
    auto job = found == jobs.end() ? nullptr : found->second.lock();
    return job && job->data->IsOpen() ? job : nullptr;
}

}  // namespace printserver
