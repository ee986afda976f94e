#pragma once

#include "printserver/course.h"
#include "printserver/peer.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace printserver {

// One data connection as the command connection bound to it sees it. Written by the data connection's thread,
// read by the command connection's.
class Job {
public:
    Job(std::uint16_t id, std::shared_ptr<Peer> connection) : session(id), data(std::move(connection)) {}

    const std::uint16_t session;
    const std::shared_ptr<Peer> data;

    void CountReceived(std::uint64_t total) { received = total; }
    // The document is whole and safe: from now on the course runs to its end.
    void EndInOrder();

    std::uint64_t Received() const { return received; }
    std::optional<Milliseconds> SinceEnd() const;

private:
    std::atomic<std::uint64_t> received{0};
    mutable std::mutex lock;
    std::optional<std::chrono::steady_clock::time_point> ended;
};

// The jobs whose data connection is open, by session id. Safe for many threads.
class JobTable {
public:
    explicit JobTable(std::uint16_t first) : next(first) {}

    // The next free id, counting on from the first and around at 65536.
    std::shared_ptr<Job> Begin(const std::shared_ptr<Peer>& data);
    std::shared_ptr<Job> Find(unsigned session);  // null when there is none
    void End(const Job& job);

private:
    std::mutex lock;
    std::uint16_t next;
    std::map<unsigned, std::shared_ptr<Job>> jobs;
};

}  // namespace printserver
