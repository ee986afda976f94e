#include "printserver/peer.h"

#include <algorithm>
#include <thread>

namespace printserver {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kSendLimit{60};

}  // namespace

const char* NameOf(Ending ending)
{
    static constexpr const char* names[] = {"still open", "closed by the monitor", "reset by the monitor",
                                            "closed by the server", "reset by the server"};
    return names[static_cast<std::size_t>(ending)];
}

void Peer::End(Ending how)
{
    const std::scoped_lock scope(sendLock);
    if (!IsOpen())
        return;
    ending = how;
    if (how == Ending::ByServerReset)
        connection.Reset();
    else
        connection.HangUp();
}

bool Peer::GrantWish()
{
    if (!IsAskedToEnd())
        return false;
    End(wish);
    return true;
}

ReadResult Peer::Read(std::span<std::uint8_t> buffer, Milliseconds wait)
{
    if (GrantWish())
        return {ReadState::Closed};
    const ReadResult result = connection.Read(buffer, wait);
    if (result.state == ReadState::Broken)
        End(Ending::ByMonitorReset);
    return result;
}

bool Peer::Pause(Milliseconds wait)
{
    const auto until = Clock::now() + wait;
    while (Clock::now() < until) {
        if (!IsOpen() || GrantWish())
            return false;
        std::this_thread::sleep_for(std::min<Clock::duration>(kSlice, until - Clock::now()));
    }
    return IsOpen();
}

bool Peer::Write(std::span<const std::uint8_t> bytes)
{
    const auto limit = Clock::now() + kSendLimit;
    while (!bytes.empty()) {
        const auto count = connection.Write(bytes, kSlice);
        if (!count || IsAskedToEnd() || Clock::now() > limit)
            return false;
        bytes = bytes.subspan(*count);
    }
    return true;
}

bool Peer::Send(const Bytes& bytes)
{
    const std::scoped_lock scope(sendLock);
    if (!IsOpen())
        return false;
    if (muted)
        return true;
    Record(Direction::ToMonitor, bytes);
    return Write(bytes);
}

bool Peer::SendSingly(const Bytes& bytes)
{
    const std::scoped_lock scope(sendLock);
    if (!IsOpen())
        return false;
    if (muted)
        return true;
    Record(Direction::ToMonitor, bytes);
    return std::all_of(bytes.begin(), bytes.end(), [this](const std::uint8_t& byte) {
        // Gives the reader a chance to see each byte alone.
        std::this_thread::sleep_for(Milliseconds(1));
        return Write(std::span(&byte, 1));
    });
}

void Peer::SendLater(Bytes bytes, Milliseconds wait)
{
    delayed.push_back({Clock::now() + wait, std::move(bytes)});
}

bool Peer::SendDue()
{
    for (auto message = delayed.begin(); message != delayed.end();) {
        if (message->due > Clock::now()) {
            ++message;
            continue;
        }
        if (!Send(message->bytes))
            return false;
        message = delayed.erase(message);
    }
    return true;
}

void Peer::Record(Direction direction, const Bytes& bytes)
{
    if (!recorder)
        return;
    const std::scoped_lock scope(recordLock);
    recorder(direction, bytes);
}

}  // namespace printserver
