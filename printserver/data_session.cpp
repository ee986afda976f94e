#include "printserver/sessions.h"

#include <algorithm>
#include <string>

namespace printserver {
namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr Milliseconds kForGood = std::chrono::hours(24 * 365);

// Opens a data connection and takes its document.
class DataSession {
public:
    DataSession(ServerState& server, std::shared_ptr<Peer> connection)
        : state(server), peer(std::move(connection)), job(state.jobs.Begin(peer))
    {
    }
    ~DataSession() { state.jobs.End(*job); }
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
            const std::uint64_t room = middle ? middle->Threshold() - received : buffer.size();
            const auto part = std::span(buffer).first(std::min<std::size_t>(buffer.size(), room));
            const ReadResult result = peer->Read(part, kSlice);
            if (result.state == ReadState::Bytes)
                Take(part.first(result.count));
            else if (result.state == ReadState::End)
                CompleteDocument();
        }
        BreakDocument();
    }

    void Take(std::span<const std::uint8_t> bytes)
    {
        if (!writer) {
            writer = state.documents.Begin();
            state.Raise(EventKind::Receiving, *peer, job->session, "receiving a document");
        }
        writer->Append(bytes);
        received += bytes.size();
        job->CountReceived(received);
    }

    void CompleteDocument()
    {
        if (!PlayMoment(state, *peer, Step::EndOfData)) {
            (void)peer->Pause(kForGood);
            return;
        }
        if (writer) {
            const Document document = std::exchange(writer, nullptr)->Complete();
            state.RaiseDocument(*peer, job->session, document);
        }
        job->EndInOrder();
        peer->End(Ending::ByMonitor);
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
    std::unique_ptr<DocumentWriter> writer;  // from the document's first byte on
    std::uint64_t received = 0;
};

}  // namespace

void ServeData(ServerState& state, const std::shared_ptr<Peer>& peer)
{
    DataSession(state, peer).Run();
}

}  // namespace printserver
