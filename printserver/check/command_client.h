#pragma once

#include "printserver/check/mismatch.h"
#include "printserver/tcp.h"
#include "printserver/wire.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace printserver::check {

// Where the server is, and how patient the check is with it.
struct Target {
    std::string host = "127.0.0.1";
    std::uint16_t port = 0;  // of the data channel
    Milliseconds atOnce{1000};
    Milliseconds turn{300000};  // until the position is 0
};

TcpConnection ConnectOrThrow(const Target& target, std::uint16_t port);

// "type 2, id 33, error 0, 4 bytes"
std::string Describe(const CommandFrame& frame);

// The monitor's side of one command connection, for one thread. Whatever it waits for, it takes keep-alives
// and status records as they come and sends its own keep-alives. Each operation throws Mismatch when the
// connection ends or the server breaks the protocol.
class CommandClient {
public:
    explicit CommandClient(const Target& server);

    // The opening, in this order; each is a point of its own.
    void AskVersion();
    void Bind(unsigned session);
    std::uint32_t TryBind(unsigned session);  // the error code
    void StartKeepAlives(unsigned period = 5, unsigned timeout = 20);
    void StartNotifications();

    // The reply, or a Mismatch when none or another message comes within the time. Errors are the caller's.
    CommandFrame Ask(const Bytes& request, Milliseconds limit);
    CommandFrame Await(std::uint32_t type, std::uint32_t id, Milliseconds limit);
    // Takes what comes for so long.
    void Pass(Milliseconds time);
    // Until the server ends the connection. False at the limit.
    bool AwaitEnd(Milliseconds limit);

    void Send(const Bytes& bytes);
    void HangUp() { connection.HangUp(); }
    void Reset() { connection.Reset(); }
    void FallSilent() { isSilent = true; }

    const Version& TheVersion() const { return version; }
    bool SendsKeepAlives() const { return version > Version{1, 0}; }
    const Lpq& Record() const { return record; }
    int KeepAlivesHeard() const { return keepAlivesHeard; }
    // What came in more than one piece though it is small; "" if nothing did.
    const std::string& Torn() const { return torn; }

private:
    using Clock = std::chrono::steady_clock;

    // Nothing within the wait.
    std::optional<CommandFrame> Next(Milliseconds wait);
    bool TakeAsynchronous(const CommandFrame& frame);
    void SendKeepAliveIfDue();
    CommandFrame AskInOpening(const char* point, const Bytes& request);
    [[noreturn]] void ThrowEnd();

    const Target* target;
    TcpConnection connection;
    Bytes gathered;
    Version version;
    Lpq record{-1, 0xFFFF};
    bool started = false;   // keep-alives
    bool notified = false;  // notifications are started
    bool isSilent = false;
    std::chrono::seconds period{5};
    Clock::time_point lastSent = Clock::now();
    int keepAlivesHeard = 0;
    std::string torn;
};

}  // namespace printserver::check
