#include "platform/simulated/network.h"

#include <algorithm>

namespace simulated {

namespace {

constexpr Micros kConnectGivesUp = 127 * kSecond;
constexpr Micros kSendGivesUp = 924 * kSecond;  // of retries that nobody answers

}  // namespace

Network* Network::current = nullptr;

Host& Network::AddHost(unsigned address, std::uint64_t seed)
{
    return *(hosts[address] = std::make_unique<Host>(seed));
}

Host* Network::Find(unsigned address)
{
    const auto found = hosts.find(address);
    return found == hosts.end() ? nullptr : found->second.get();
}

int Network::Connect(Endpoint& made, unsigned address, unsigned short port)
{
    Scheduler& scheduler = Scheduler::Current();
    Host* const host = Find(address);
    made.host = host;
    made.port = port;
    made.isConnecting = true;
    const Route none;
    const Route& route = host != nullptr ? host->route : none;
    const bool hangs =
        host == nullptr || route.hangs || std::max(route.cutToServer, route.cutToClient) > scheduler.Now();
    const Micros until = scheduler.Now() + (hangs ? kConnectGivesUp : 2 * route.latency);
    while (!made.isShutDown && scheduler.Wait(&made, until))
        continue;
    made.isConnecting = false;
    if (made.isShutDown)
        return WSA_OPERATION_ABORTED;
    if (hangs)
        return WSAETIMEDOUT;
    const auto listener = host->listeners.find(port);
    if (route.refuses || listener == host->listeners.end())
        return WSAECONNREFUSED;
    Endpoint& other = NewEndpoint();
    other.host = host;
    other.port = port;
    other.isServer = true;
    other.peer = &made;
    other.document = made.document;
    made.peer = &other;
    listener->second(other);
    return 0;
}

void Endpoint::Wake()
{
    Scheduler::Current().Wake(this);
}

int Endpoint::Receive(char* buffer, std::size_t length, bool peeks, Micros until)
{
    for (;;) {
        if (const std::size_t count = std::min(length, Unread()); count > 0) {
            unread.copy(buffer, count, consumed);
            if (peeks)
                return static_cast<int>(count);
            consumed += count;
            if (consumed == unread.size() || consumed > 4096) {
                unread.erase(0, consumed);
                consumed = 0;
            }
            peer->onTheWay -= std::min(peer->onTheWay, count);
            peer->Pump();
            return static_cast<int>(count);
        }
        if (peer == nullptr && error == 0)
            error = WSAENOTCONN;
        if (error != 0)
            return kFailed;
        if (hasEnded || isShutDown || length == 0)
            return 0;
        if (!Scheduler::Current().Wait(this, until))
            return kTimedOut;
    }
}

int Endpoint::Send(const char* bytes, std::size_t length)
{
    std::size_t taken = 0;
    while (taken < length) {
        if (error != 0 || isShutDown || isClosed || peer == nullptr) {
            if (error == 0)
                error = peer == nullptr ? WSAENOTCONN : WSAECONNRESET;
            return taken > 0 ? static_cast<int>(taken) : kFailed;
        }
        const std::size_t room = host->route.sendBuffer - std::min(host->route.sendBuffer, unsent.size());
        const std::size_t count = std::min(room, length - taken);
        unsent.append(bytes + taken, count);
        taken += count;
        Pump();
        if (count == 0)
            (void)Scheduler::Current().Wait(this, kForever);
    }
    return static_cast<int>(taken);
}

bool Endpoint::SendWouldNotBlock() const
{
    return error != 0 || isShutDown || host == nullptr || unsent.size() < host->route.sendBuffer;
}

// Sends off what the receiver has room for.
void Endpoint::Pump()
{
    const Route& route = host->route;
    while (!unsent.empty() && onTheWay < route.receiveBuffer && error == 0) {
        std::size_t length = std::min({unsent.size(), route.segment, route.receiveBuffer - onTheWay});
        if (route.tearsSegments)
            length = 1 + host->random.Below(length);
        Launch(length);
    }
    if (unsent.empty() && isShutDown && !endIsSent && error == 0) {
        endIsSent = true;
        Travel([](Endpoint& other) { other.ArriveEnd(); });
    }
    Wake();
}

void Endpoint::Launch(std::size_t length)
{
    std::string bytes = unsent.substr(0, length);
    unsent.erase(0, length);
    onTheWay += length;
    Travel([bytes = std::move(bytes)](Endpoint& other) { other.Arrive(bytes); });
}

void Endpoint::Travel(std::function<void(Endpoint&)> arrival)
{
    Scheduler& scheduler = Scheduler::Current();
    const Route& route = host->route;
    const Micros jitter = route.jitter != 0 ? host->random.Below(route.jitter) : 0;
    Micros when = std::max(lastDeparture, scheduler.Now() + route.latency + jitter);
    const Micros cut = isServer ? route.cutToClient : route.cutToServer;
    if (cut == kForever) {
        scheduler.At(scheduler.Now() + kSendGivesUp, [this] { Break(WSAETIMEDOUT); });
        return;
    }
    if (cut > when)
        when = cut + route.latency;
    lastDeparture = when;
    scheduler.At(when, [this, arrival = std::move(arrival)] { arrival(*peer); });
}

void Endpoint::Arrive(const std::string& bytes)
{
    if (error != 0)
        return;
    if (isClosed || isShutDown) {  // nobody will read them: the peer has to know
        if (!isServer)
            Network::Current().onLateBytes(*this);
        Reset();
        return;
    }
    unread += bytes;
    lastArrival = Scheduler::Current().Now();
    Wake();
}

void Endpoint::ArriveEnd()
{
    hasEnded = true;
    Wake();
}

void Endpoint::ArriveReset()
{
    if (host->route.resetDropsUnread) {
        unread.clear();
        consumed = 0;
    }
    Break(WSAECONNRESET);
}

void Endpoint::Break(int reason)
{
    if (error == 0)
        error = reason;
    unsent.clear();
    Wake();
}

void Endpoint::ShutDown()
{
    isShutDown = true;
    if (peer != nullptr && error == 0)
        Pump();
    Wake();
}

void Endpoint::Close()
{
    if (isClosed)
        return;
    if (Unread() > 0 && error == 0)
        Reset();
    ShutDown();
    isClosed = true;
}

void Endpoint::Reset()
{
    const bool isNews = error == 0;
    Break(WSAECONNRESET);
    isClosed = true;
    if (isNews)
        Travel([](Endpoint& other) { other.ArriveReset(); });
}

void Endpoint::Forget()
{
    unsent.clear();
    isClosed = true;
    endIsSent = true;
    Wake();
}

}  // namespace simulated
