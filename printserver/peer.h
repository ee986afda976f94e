#pragma once

#include "printserver/events.h"
#include "printserver/tcp.h"
#include "printserver/wire.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <span>
#include <vector>

namespace printserver {

// How long a thread of the simulator sits in one call before it looks whether it is to end, and how coarse
// its keep-alives and notifications are.
inline constexpr Milliseconds kSlice{5};

enum class Ending { StillOpen, ByMonitor, ByMonitorReset, ByServer, ByServerReset };
const char* NameOf(Ending ending);

enum class Direction { FromMonitor, ToMonitor };

// Told each message of one connection, in the order in which the server saw it, on any thread, one at a time.
// A message that a fault cut up or changed is told as it really left. The document's bytes are not told.
using Recorder = std::function<void(Direction, const Bytes&)>;

// One accepted connection. One thread, its owner, reads it and ends it. Any thread may send on it, ask for
// its end or look at it.
class Peer {
public:
    Peer(TcpConnection accepted, Channel side, int count, Recorder toTell = {})
        : connection(std::move(accepted)), channel(side), number(count), recorder(std::move(toTell))
    {
    }

    Channel Side() const { return channel; }
    int Number() const { return number; }
    Ending TheEnding() const { return ending; }
    bool IsOpen() const { return ending == Ending::StillOpen; }

    // Owner only. Carries out an end that was asked for. A reset by the monitor ends the peer; after an
    // orderly end the owner does that, when it has nothing more to send.
    ReadResult Read(std::span<std::uint8_t> buffer, Milliseconds wait);
    // Owner only. False when the connection was ended from elsewhere before the time had passed.
    bool Pause(Milliseconds wait);
    // Owner only.
    void End(Ending how);

    // All bytes go out before any other thread's. True also when the connection is muted. False when it is
    // gone, or when the monitor takes nothing for long.
    bool Send(const Bytes& bytes);
    bool SendSingly(const Bytes& bytes);
    // Owner only: the bytes leave with a SendDue() after the wait.
    void SendLater(Bytes bytes, Milliseconds wait);
    bool SendDue();

    // Owner only: the system takes little ahead of the reading from now on.
    void TakeLittle() { connection.TakeLittle(); }

    void Mute() { muted = true; }
    void AskToHangUp() { wish = Ending::ByServer; }
    void AskToReset() { wish = Ending::ByServerReset; }
    bool IsAskedToEnd() const { return wish != Ending::StillOpen; }

    void Record(Direction direction, const Bytes& bytes);

private:
    struct Delayed {
        std::chrono::steady_clock::time_point due;
        Bytes bytes;
    };

    bool Write(std::span<const std::uint8_t> bytes);
    bool GrantWish();

    std::mutex sendLock;  // guards writing to and closing of `connection`; outside `recordLock`
    TcpConnection connection;
    const Channel channel;
    const int number;
    const Recorder recorder;
    std::atomic<Ending> ending{Ending::StillOpen};
    std::atomic<Ending> wish{Ending::StillOpen};
    std::atomic<bool> muted{false};
    std::vector<Delayed> delayed;
    std::mutex recordLock;
};

}  // namespace printserver
