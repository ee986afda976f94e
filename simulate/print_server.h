#pragma once

// A print server in the simulated network: it speaks the whole protocol, in the manners and with the faults
// that its plan has drawn.

#include <map>
#include <string>
#include <vector>

#include "platform/simulated/network.h"
#include "printserver/wire.h"
#include "simulate/document.h"
#include "simulate/plan.h"

class World;

enum class Step {
    SessionId,
    TransMode,
    VersionReply,
    BindReply,
    StartKeepAlivesReply,
    KeepAlive,
    FirstRecord,
    Notification,
    SuppressReply,
    ReadReply,
    QueryReply,
    Data  // in the middle of the document
};
constexpr unsigned kSteps = 12;

enum class Fault {
    None,
    Close,
    Reset,
    Silence,  // nothing leaves any more on this connection
    Drop,     // this message is left out
    Delay,
    Garbage,
    HalfThenSilence,
    HalfThenClose,
    WrongType,
    WrongId,
    ErrorCode,
    ShortPayload,
    HugeLength,
    AnotherInFront  // a keep-alive, where none is expected
};
constexpr unsigned kFaults = 15;

// How a print server is; every manner is one that the protocol allows.
struct Manners {
    const char* version = "1.10";
    bool tellsNoVersion = false;
    int queue = 0;  // jobs in front
    simulated::Micros perPosition = simulated::kSecond;
    simulated::Micros printing = 200 * simulated::kMillisecond;
    int final = 7;
    bool cancels = false;             // in the middle of the data
    int burst = 0;                    // notifications all at once, in front of the final one
    int unasked = 0;                  // bytes on the data connection that nobody asked for
    unsigned offered = 4;             // bytes to a read
    simulated::Micros answering = 0;  // before a query's reply

    Step step = Step::SessionId;
    Fault fault = Fault::None;
    unsigned occurrence = 1;

    static Manners Draw(Plan& plan);
};

class PrintServer {
public:
    PrintServer(World& world, unsigned address, unsigned short port, const Manners& manners);

    // The machine restarts: connections are forgotten, new ones are taken.
    void Restart();
    // Closes everything: nothing waits for this server any more.
    void Stop();
    simulated::Host& Machine() { return host; }
    Manners manners;

private:
    using Bytes = printserver::Bytes;
    struct Session {
        Document* document = nullptr;
        simulated::Endpoint* data = nullptr;
        std::size_t received = 0;
        bool hasEnded = false;  // the data
        simulated::Micros endedAt = 0;
    };
    struct Command;  // one command connection

    void Take(simulated::Endpoint& connection, bool isCommand);
    void ServeData(simulated::Endpoint& connection);
    bool TakeData(simulated::Endpoint& connection, Session& session);
    void ServeCommand(simulated::Endpoint& connection);
    void Answer(Command& command, const printserver::CommandFrame& request);
    void Talk(Command& command);
    printserver::Lpq Record(Command& command) const;
    void SayRecord(Command& command, Step step);

    // Sends a message, unless the fault of this step is due. False when the connection is over.
    bool Say(simulated::Endpoint& connection, Step step, Bytes message, bool isCommand);
    bool PlayFault(simulated::Endpoint& connection, Bytes& message, bool isCommand);
    bool IsDue(Step step);

    World& world;
    simulated::Host& host;
    const unsigned short port;
    unsigned nextSession = 1;
    unsigned seen = 0;  // how often the fault's step came up
    bool isStopped = false;
    std::map<unsigned, Session> sessions;
    std::vector<simulated::Endpoint*> connections;
    std::map<simulated::Endpoint*, bool> silenced;
};
