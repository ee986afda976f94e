#pragma once

#include "printserver/document_store.h"
#include "printserver/events.h"
#include "printserver/faults.h"
#include "printserver/job.h"
#include "printserver/options.h"
#include "printserver/peer.h"

#include <atomic>
#include <mutex>
#include <string>

namespace printserver {

// What may change while the server runs. Tests change it at any moment, so sessions look at it each time
// anew.
class Settings {
public:
    explicit Settings(const PrintServerOptions& options)
        : version(options.version),
          course(options.course),
          parallelData(options.parallelData),
          queryAnswer(options.queryAnswer)
    {
    }

    void SetVersion(std::string text);
    void SetCourse(const Course& next);
    void OfferParallelData(const Bytes& more);
    void SetQueryAnswer(QueryAnswer answer);

    std::string TheVersion() const;
    Course TheCourse() const;
    Bytes TakeParallelData(std::size_t most);
    Bytes AnswerQuery(std::uint32_t control, const Bytes& input) const;

    std::atomic<bool> sendsKeepAlives{true};
    std::atomic<bool> bindsAnySession{false};    // a scripted data channel gives ids that nobody else knows
    std::atomic<bool> commandIsScripted{false};  // nobody binds then, and a document counts without that

private:
    mutable std::mutex lock;
    std::string version;
    Course course;
    Bytes parallelData;
    QueryAnswer queryAnswer;
};

// What the connections of one server share. Each member is safe for many threads.
struct ServerState {
    explicit ServerState(PrintServerOptions chosen)
        : options(std::move(chosen)),
          settings(options),
          events(options.observer, options.keepHistory),
          jobs(options.firstSession),
          documents(options.folder, options.keepHistory)
    {
    }

    // An event on one connection; session -1 when it belongs to no job.
    void Raise(EventKind kind, const Peer& peer, int session, std::string text, int number = 0);
    void RaiseHangUp(const Peer& peer);
    void RaiseDocument(const Peer& peer, int session, const Document& document);

    const PrintServerOptions options;
    Settings settings;
    EventLog events;
    FaultTable faults;
    JobTable jobs;
    DocumentStore documents;
};

// Sends one message of the server with the fault that is due at its step, if any. Owner's thread only. False
// when the connection is over, by the fault or by the monitor.
bool SendMessage(ServerState& state, Peer& peer, Step step, const Bytes& message);

// Plays the fault that is due at a moment that is no message. False when the connection is over or fell
// silent.
bool PlayMoment(ServerState& state, Peer& peer, Step step);
bool PlayMoment(ServerState& state, Peer& peer, Step step, const Fault& fault);

}  // namespace printserver
