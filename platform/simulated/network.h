#pragma once

// A network in memory, with TCP's own manners: bytes travel in segments that take their time, buffers fill,
// an end is orderly or a reset, and what was still on its way at a reset is lost.

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/simulated/random.h"
#include "platform/simulated/scheduler.h"

namespace simulated {

// The way to one host and back.
struct Route {
    Micros latency = 200;
    Micros jitter = 0;                // up to so much more for each segment
    std::size_t segment = 64 * 1024;  // the largest
    bool tearsSegments = false;       // their sizes are drawn
    std::size_t sendBuffer = 64 * 1024;
    std::size_t receiveBuffer = 64 * 1024;
    bool resetDropsUnread = false;  // what came before a reset can't be read any more
    // Nothing arrives in that direction before then; kForever: never again.
    Micros cutToServer = 0;
    Micros cutToClient = 0;
    bool refuses = false;  // connects
    bool hangs = false;    // connects, until the system gives them up
};

class Host;

// One side of a connection. A call waits in the calling thread.
class Endpoint {
public:
    static constexpr int kFailed = -1;    // see Error()
    static constexpr int kTimedOut = -2;  // nothing has come by `until`

    // The number of bytes, 0 at the orderly end.
    int Receive(char* buffer, std::size_t length, bool peeks, Micros until = kForever);
    // Waits until all has been taken. The number of bytes that were, or kFailed.
    int Send(const char* bytes, std::size_t length);
    // No more is sent and no more received; wakes who waits in a call.
    void ShutDown();
    // The end of the handle: in order, or a reset if bytes were not read.
    void Close();
    void Reset();
    // As after a restart of the host: it knows nothing of the connection, and tells nobody.
    void Forget();

    int Error() const { return error; }
    std::size_t Unread() const { return unread.size() - consumed; }
    bool SendWouldNotBlock() const;
    bool IsOpen() const { return !isClosed && error == 0; }

    std::uint64_t document = 0;  // whose connection it is: the world's number
    unsigned short port = 0;     // of the host
    Micros lastArrival = 0;      // of bytes here

private:
    friend class Network;

    void Pump();
    void Launch(std::size_t length);
    void Travel(std::function<void(Endpoint&)> arrival);
    void Arrive(const std::string& bytes);
    void ArriveEnd();
    void ArriveReset();
    void Break(int reason);
    void Wake();

    Endpoint* peer = nullptr;  // null: never connected
    Host* host = nullptr;
    bool isServer = false;
    int error = 0;
    bool isConnecting = false;
    bool isClosed = false;
    bool isShutDown = false;
    // Outgoing.
    std::string unsent;
    std::size_t onTheWay = 0;  // sent, and not read by the peer yet
    bool endIsSent = false;
    Micros lastDeparture = 0;  // when the last segment arrives: none overtakes another
    // Incoming.
    std::string unread;
    std::size_t consumed = 0;
    bool hasEnded = false;
};

// A machine that print servers run on.
class Host {
public:
    explicit Host(std::uint64_t seed) : random(seed) {}

    // Is called for each connection to the port, at the moment at which it stands.
    void Listen(unsigned short port, std::function<void(Endpoint&)> accepted)
    {
        listeners[port] = std::move(accepted);
    }
    // From now on connects are refused, and the connections are known to nobody.
    void Stop() { listeners.clear(); }

    Route route;
    Random random;
    std::map<unsigned short, std::function<void(Endpoint&)>> listeners;
};

// What the names of the network stand for.
struct Name {
    unsigned address = 0;  // 10.0.0.n
    Micros delay = 0;      // of its look-up
    int error = 0;
};

class Network {
public:
    enum class Use { Connect, Send, Receive, Wake, Close };

    static Network& Current() { return *current; }
    Network() { current = this; }
    ~Network() { current = nullptr; }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    Host& AddHost(unsigned address, std::uint64_t seed);
    Host* Find(unsigned address);

    // Endpoints live as long as the network: what was sent arrives after its socket is closed.
    Endpoint& NewEndpoint() { return endpoints.emplace_back(); }
    // From a thread of the process; waits. 0, or an error of Windows Sockets.
    int Connect(Endpoint& made, unsigned address, unsigned short port);

    std::map<std::string, Name> names;
    // Told of each call that a thread of the process makes on a connection.
    std::function<void(Endpoint&, Use)> onUse = [](Endpoint&, Use) {};
    // Bytes have come to one that the process has ended.
    std::function<void(Endpoint&)> onLateBytes = [](Endpoint&) {};

private:
    static Network* current;
    std::map<unsigned, std::unique_ptr<Host>> hosts;
    std::deque<Endpoint> endpoints;
};

// Sockets of the process that are open, and how often the library was started and not given back.
std::size_t OpenSockets();
int SocketStartups();
void ForgetSockets();

}  // namespace simulated
