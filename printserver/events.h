#pragma once

#include "printserver/tcp.h"
#include "printserver/wire.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace printserver {

enum class Channel { Data, Command };
const char* NameOf(Channel channel);  // "data", "command"

enum class EventKind {
    Connected,
    SessionAssigned,  // the data channel's opening goes out
    VersionAsked,
    Bound,
    KeepAlivesStarted,
    NotificationsStarted,
    QueuePosition,  // a notification, or the first record, with another position than the last
    JobState,       // the same for the bound job state
    Receiving,      // the document's first byte is there
    DocumentComplete,
    DocumentBroken,
    SyslogSuppressed,
    ParallelRead,
    PrinterDataQuery,
    ClientKeepAlive,
    ClientSilent,  // no keep-alive from the client within the timeout that it announced
    FaultPlayed,
    Forsaken,   // the connection's other half never came; it is dropped
    Malformed,  // hostile or broken input; the connection is dropped
    Trouble,    // the simulator's own: disk full, out of memory
    HungUp      // the connection is over; the text says who ended it and how
};

struct Event {
    EventKind kind{};
    Channel channel = Channel::Command;
    int connection = 0;  // counted from 1, per channel
    int session = -1;    // of the job, once known
    int number = 0;      // queue position or job state
    std::string text;    // for people: "queue position 2"
    std::chrono::system_clock::time_point time;
    std::string document;  // the last three: DocumentComplete and DocumentBroken
    std::uint64_t size = 0;
    Bytes bytes;  // only of a server that keeps documents in memory
};

// Called for one event at a time, on the server's own threads. It must not wait for a further event.
using Observer = std::function<void(const Event&)>;

// Everything that happened, and the place to wait for it. Safe for many threads.
class EventLog {
public:
    EventLog(Observer watcher, bool rememberThem) : observer(std::move(watcher)), remember(rememberThem) {}

    void Raise(Event event);
    std::vector<Event> Events() const;
    int Count(EventKind kind) const;

    // The predicate is asked again after each event and every few milliseconds, with no lock held.
    bool WaitFor(const std::function<bool()>& predicate, Milliseconds limit) const;

private:
    const Observer observer;
    const bool remember;
    std::mutex order;  // outside `lock`: the observer may look at the events
    mutable std::mutex lock;
    mutable std::condition_variable happened;
    std::vector<Event> events;
};

}  // namespace printserver
