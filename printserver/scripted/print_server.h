#pragma once

#include "printserver/scripted/script.h"
#include "printserver/scripted/transcript.h"
#include "printserver/server.h"

#include <list>
#include <map>

namespace printserver {

// How one connection went, or goes.
struct ConnectionReport {
    Ending ending = Ending::StillOpen;
    Transcript transcript;
    std::vector<CommandFrame> frames;  // command channel: the messages from the monitor
};

// What tests know of each connection, and the scripts that they have written for some. Safe for many threads.
class ScriptBook {
public:
    Script& Add(Channel channel, int accepted);
    // False for a channel without scripts. Ends a connection that came without one.
    bool Serve(ServerState& state, const std::shared_ptr<Peer>& peer);
    Recorder RecorderFor(Channel channel, int number);
    Transcript TheTranscript(Channel channel, int number) const;
    // Of those that have failed or of all; "" when there is none.
    std::string FirstStepNotPlayed(bool onlyFailed) const;

private:
    using Connection = std::pair<Channel, int>;

    mutable std::mutex lock;
    std::map<Channel, int> lastScripted;
    std::map<Connection, Script> scripts;
    std::map<Connection, Transcript> transcripts;
    std::string unexpected;
};

// The print server that tests talk to: it serves freely, or follows scripts (see Script), per channel. Once
// Data() or Command() has been called, that channel's connections play scripts and the other's are served
// freely. While the data channel is scripted, a freely served command channel accepts every session id and
// never sees the end of a document.
class PrintServer : private ScriptBook, public Server {
public:
    explicit PrintServer(PrintServerOptions options = {}) : Server(WithBook(std::move(options))) {}
    ~PrintServer() { Stop(); }
    PrintServer(const PrintServer&) = delete;
    PrintServer& operator=(const PrintServer&) = delete;

    // The script of that channel's next connection that has none yet. Lives as long as the server.
    Script& Data();
    Script& Command();
    // "" once all scripts are played, for which it waits up to the limit; else the first step that was not,
    // and why.
    std::string FirstStepNotPlayed(Milliseconds limit = Milliseconds(30000)) const;

    ConnectionReport Report(Channel channel, int number) const;  // throws std::out_of_range

private:
    PrintServerOptions WithBook(PrintServerOptions options);
};

}  // namespace printserver
