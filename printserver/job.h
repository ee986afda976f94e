#pragma once

#include "printserver/course.h"
#include "printserver/peer.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace printserver {

// What the two connections of one session know of each other. Safe for both connections' threads.
class Job {
public:
    Job(std::uint16_t id, std::shared_ptr<Peer> connection) : session(id), data(std::move(connection)) {}

    const std::uint16_t session;
    const std::shared_ptr<Peer> data;

    // --- by the data connection's thread
    void CountReceived(std::uint64_t total) { received = total; }
    // The data has ended in order, and the course runs to its end: the document is whole and safe, or there
    // was none.
    void EndInOrder() { End(false); }
    // The data has ended in order while the job waited in the queue: it is given up.
    void Cancel() { End(true); }
    bool WasBound() const { return wasBound; }
    bool IsBound() const { return bound; }  // somebody waits for the card
    bool IsTalk() const { return talk; }
    bool IsQueued() const { return position > 0; }

    // --- by the thread of the command connection that is bound, or wants to be
    bool Bind() { return !wasBound.exchange(true) && (bound = true); }  // false: there has been one
    void Unbind() { bound = false; }
    // No print job: the client only talks to the printer, and waits for no card.
    void MakeTalk() { talk = true; }
    void TellPosition(int told) { position = told; }
    Progress TheProgress() const;  // but for sinceStart

private:
    void End(bool isCancelled);

    std::atomic<bool> wasBound{false};
    std::atomic<bool> bound{false};
    std::atomic<bool> talk{false};
    std::atomic<int> position{0};
    std::atomic<std::uint64_t> received{0};
    mutable std::mutex lock;  // guards the next two
    std::optional<std::chrono::steady_clock::time_point> ended;
    bool cancelled = false;
};

// The jobs of one server by session id. Safe for many threads.
class JobTable {
public:
    explicit JobTable(std::uint16_t first) : next(first) {}

    // With the next free id, counting on from the first and around at 65536. An id is free again when both
    // connections have let go of the job.
    std::shared_ptr<Job> Begin(const std::shared_ptr<Peer>& data);
    std::shared_ptr<Job> Find(unsigned session);  // null unless its data connection stands

private:
    std::mutex lock;
    std::uint16_t next;
    std::map<unsigned, std::weak_ptr<Job>> jobs;
};

}  // namespace printserver
