#include "printserver/sessions.h"

#include <algorithm>
#include <string>
#include <thread>

namespace printserver {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kSlicesPerSecond = 10;  // of a slow server's reading
constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr Milliseconds kForGood = std::chrono::hours(24 * 365);

// Opens a data connection and takes its document.
class DataSession {
public:
    DataSession(ServerState& server, std::shared_ptr<Peer> connection)
        : state(server), peer(std::move(connection)), job(state.jobs.Begin(peer))
    {
        if (state.options.bytesPerSecond > 0)
            peer->TakeLittle();
    }
    DataSession(const DataSession&) = delete;
    DataSession& operator=(const DataSession&) = delete;

    void Run()
    {
        if (!PlayMoment(state, *peer, Step::AcceptData)) {
            HoldUntilClosed();
            return;
        }
        state.Raise(EventKind::SessionAssigned, *peer, job->session,
                    "session " + std::to_string(job->session));
        if (SendMessage(state, *peer, Step::SessionId, SessionId(job->session)) &&
            SendMessage(state, *peer, Step::TransMode, TransMode())) {
            ReceiveDocument();
        }
    }

private:
    // A connection that fell silent stays open until one side closes it; nothing is sent, all is thrown away.
    void HoldUntilClosed()
    {
        Bytes ignored(4096);
        while (peer->IsOpen()) {
            if (peer->Read(ignored, kSlice).state == ReadState::End)
                peer->End(Ending::ByMonitor);
        }
    }

    void ReceiveDocument()
    {
        Bytes buffer(kBufferSize);
        while (peer->IsOpen()) {
            if (middle && received >= middle->Threshold()) {
                if (!PlayMoment(state, *peer, Step::DataMiddle, *middle))
                    (void)peer->Pause(kForGood);  // silence here is a server that stops reading
                middle.reset();
                continue;
            }
            if (IsForsaken() || !KeepToRate())
                continue;
            const auto part = std::span(buffer).first(Room(buffer.size()));
            const ReadResult result = peer->Read(part, kSlice);
            if (result.state == ReadState::Bytes)
                Take(part.first(result.count));
            else if (result.state == ReadState::End)
                EndOfData();
        }
        BreakDocument();
    }

    std::size_t Room(std::size_t size) const
    {
        const std::uint64_t rate = state.options.bytesPerSecond;
        if (rate > 0)
            size = std::min<std::size_t>(size, std::max<std::uint64_t>(rate / kSlicesPerSecond, 1));
        return middle ? std::min<std::size_t>(size, middle->Threshold() - received) : size;
    }

    // Waits until so many bytes are due. False when the connection ended meanwhile.
    bool KeepToRate()
    {
        if (state.options.bytesPerSecond == 0 || received == 0)
            return true;
        const Milliseconds due(received * 1000 / state.options.bytesPerSecond);
        return peer->Pause(std::chrono::duration_cast<Milliseconds>(firstByte + due - Clock::now()));
    }

    // Ends a connection for which no command connection came.
    bool IsForsaken()
    {
        if (job->WasBound() || state.settings.commandIsScripted ||
            Clock::now() - opened < state.options.bindWait) {
            return false;
        }
        state.Raise(EventKind::Forsaken, *peer, job->session, "dropped: no command connection came");
        peer->End(Ending::ByServer);
        return true;
    }

    void Take(std::span<const std::uint8_t> bytes)
    {
        if (!writer) {
            firstByte = Clock::now();
            writer = state.documents.Begin();
            state.Raise(EventKind::Receiving, *peer, job->session, "receiving a document");
        }
        writer->Append(bytes);
        received += bytes.size();
        job->CountReceived(received);
    }

    // An orderly end is no proof of a whole document: a client that is killed ends so too.
    void EndOfData()
    {
        if (!PlayMoment(state, *peer, Step::EndOfData)) {
            (void)peer->Pause(kForGood);
            return;
        }
        if (job->IsQueued()) {
            job->Cancel();
        } else if (IsAwaited()) {
            if (writer)
                state.RaiseDocument(*peer, job->session, std::exchange(writer, nullptr)->Complete());
            job->EndInOrder();
        }
        peer->End(Ending::ByMonitor);
    }

    bool IsAwaited() const
    {
        if (state.settings.commandIsScripted || job->IsTalk())
            return true;
        for (const auto until = Clock::now() + state.options.settle; job->IsBound() && Clock::now() < until;)
            std::this_thread::sleep_for(kSlice);
        return job->IsBound();
    }

    void BreakDocument()
    {
        if (writer)
            state.RaiseDocument(*peer, job->session, std::exchange(writer, nullptr)->Break());
    }

    ServerState& state;
    const std::shared_ptr<Peer> peer;
    const std::shared_ptr<Job> job;
    // Taken before the opening goes out, so that a client which waits for that has its turn before the next
    // one's.
    std::optional<Fault> middle = state.faults.Take(Step::DataMiddle);
    const Clock::time_point opened = Clock::now();
    Clock::time_point firstByte;
    std::unique_ptr<DocumentWriter> writer;  // from the document's first byte on
    std::uint64_t received = 0;
};

}  // namespace

void ServeData(ServerState& state, const std::shared_ptr<Peer>& peer)
{
    DataSession(state, peer).Run();
}

}  // namespace printserver
