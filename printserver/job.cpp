#include "printserver/job.h"

namespace printserver {

void Job::EndInOrder()
{
    const std::scoped_lock scope(lock);
    ended = std::chrono::steady_clock::now();
}

std::optional<Milliseconds> Job::SinceEnd() const
{
    const std::scoped_lock scope(lock);
    if (!ended)
        return std::nullopt;
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - *ended);
}

std::shared_ptr<Job> JobTable::Begin(const std::shared_ptr<Peer>& data)
{
    const std::scoped_lock scope(lock);
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
    return found == jobs.end() ? nullptr : found->second;
}

void JobTable::End(const Job& job)
{
    const std::scoped_lock scope(lock);
    jobs.erase(job.session);
}

}  // namespace printserver
