#pragma once

#include "printserver/acceptor.h"
#include "printserver/document_store.h"
#include "printserver/events.h"
#include "printserver/faults.h"
#include "printserver/options.h"
#include "printserver/server_state.h"
#include "printserver/wire.h"

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace printserver {

// A print server with card printers that are not there: a real TCP server on a data port and, two above it, a
// command port. It serves as many documents at once as come, by the options' course, on threads of its own:
//
//   Server server;                                             // any free pair of ports on 127.0.0.1
//   server.FaultAt(Step::BindReply, Fault::Delay(Milliseconds(300)));
//   ... a document is printed to server.Port() ...
//   ASSERT_TRUE(server.WaitFor(EventKind::DocumentComplete));
//   EXPECT_EQ(card, server.Documents().at(0).bytes);
//
// All calls may come from any thread but for Welcome, Refuse, Hang and Stop, which want one thread at a time.
// Connections are numbered from 1 per channel, as they are accepted.
class Server {
public:
    // Listens on return. Throws ListenError, or std::filesystem::filesystem_error for the folder.
    explicit Server(PrintServerOptions options = {});
    ~Server() { Stop(); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t Port() const { return dataAcceptor.Port(); }  // of the data channel

    // Hangs up everywhere, ends all threads and gives the ports up. Documents under way are broken. What
    // happened stays readable. Any number of times.
    void Stop();

    // What is served from now on, on open connections too.
    void SetVersion(std::string text) { state.settings.SetVersion(std::move(text)); }
    void SetCourse(const Course& course) { state.settings.SetCourse(course); }
    void OfferParallelData(const Bytes& more) { state.settings.OfferParallelData(more); }
    void SetQueryAnswer(QueryAnswer answer) { state.settings.SetQueryAnswer(std::move(answer)); }

    // Faults of the free server; see FaultTable::Add.
    void FaultAt(Step step, Fault fault, int occurrence = 0)
    {
        state.faults.Add(step, std::move(fault), occurrence);
    }
    void ClearFaults() { state.faults.Clear(); }

    // By hand, on that channel's newest open connection. False when there is none or it takes nothing.
    bool Push(Channel channel, const Bytes& bytes);
    bool PushKeepAlive();
    bool Notify(const Lpq& record) { return Push(Channel::Command, Notification(record)); }

    // Keep-alives by the server's own clock; they are on at the start.
    void StopKeepAlives() { state.settings.sendsKeepAlives = false; }
    void StartKeepAlives() { state.settings.sendsKeepAlives = true; }

    // On all open connections of that channel; happens within milliseconds of the call.
    void HangUp(Channel channel);
    void Reset(Channel channel);
    void Silence(Channel channel);  // nothing is sent any more, keep-alives included

    // New connections. They are welcome at the start; see Acceptor.
    void Welcome(Channel channel) { AcceptorOf(channel).Welcome(); }
    void Refuse(Channel channel) { AcceptorOf(channel).Refuse(); }
    void Hang(Channel channel) { AcceptorOf(channel).Hang(); }

    // What happened. Waits end with true as soon as the thing is so, and with false at the limit.
    bool WaitFor(EventKind kind, int count = 1, Milliseconds limit = Milliseconds(30000)) const;
    bool WaitFor(const std::function<bool()>& predicate, Milliseconds limit = Milliseconds(30000)) const;
    std::vector<Event> Events() const { return state.events.Events(); }
    int Count(EventKind kind) const { return state.events.Count(kind); }
    std::vector<Document> Documents() const { return state.documents.Documents(); }
    int Connections(Channel channel) const;  // accepted so far
    int OpenConnections(Channel channel) const;
    Ending EndingOf(Channel channel, int number) const;  // throws std::out_of_range

protected:
    Settings& TheSettings() { return state.settings; }

private:
    struct Worker {
        std::shared_ptr<Peer> peer;
        std::shared_ptr<std::atomic<bool>> done;
        std::thread thread;
    };
    // One channel's connections.
    struct Side {
        int accepted = 0;
        std::vector<std::shared_ptr<Peer>> peers;  // without history: the open ones
    };

    Server(PrintServerOptions options, ListenerPair listeners);
    Acceptor& AcceptorOf(Channel channel)
    {
        return channel == Channel::Data ? dataAcceptor : commandAcceptor;
    }
    Side& SideOf(Channel channel) { return sides[channel == Channel::Data ? 0 : 1]; }
    const Side& SideOf(Channel channel) const { return sides[channel == Channel::Data ? 0 : 1]; }
    void Take(Channel channel, TcpConnection connection);
    void Serve(const std::shared_ptr<Peer>& peer);
    void JoinFinished();
    void ForOpen(Channel channel, const std::function<void(Peer&)>& action);

    ServerState state;
    mutable std::mutex lock;  // guards the next two
    Side sides[2];
    std::list<Worker> workers;
    // Last, so that nobody is taken in before the rest stands.
    Acceptor dataAcceptor;
    Acceptor commandAcceptor;
};

}  // namespace printserver
