#pragma once

#include "printserver/frame_reader.h"
#include "printserver/server_state.h"

#include <memory>
#include <string>

namespace printserver {

// The steps of a script as done on its connection, by the thread that owns the peer. Each operation gives ""
// or what came about instead, and none lasts longer than a minute.
class ScriptPlayer {
public:
    ScriptPlayer(ServerState& server, std::shared_ptr<Peer> connection)
        : state(server), peer(std::move(connection)), reader(*peer)
    {
    }

    std::string Send(const Bytes& bytes);
    std::string SendKeepAlive() { return Send(KeepAlive(KeepAliveId(version))); }

    std::string Expect(const Bytes& bytes);
    // Takes the next message and compares its type and request id.
    std::string ExpectFrame(std::uint32_t type, std::uint32_t requestId, CommandFrame* frame);
    std::string ReceiveDocument(std::uint64_t count);
    std::string ReceiveWholeDocument();
    std::string AnswerStartKeepAlives();
    void SetVersion(const std::string& text) { version = ParseVersion(text); }

    std::string WaitUntil(const std::function<bool()>& predicate);
    std::string End(Ending how);
    std::string AwaitHangUp();

private:
    std::string NextFrame(CommandFrame* frame, bool passOverKeepAlives);
    std::string ReadPiece(std::size_t most, Bytes* piece);
    std::string ExpectBytes(const Bytes& bytes);
    std::string EndText() const;
    void SettleDocument();
    void Keep(const Bytes& bytes);

    ServerState& state;
    const std::shared_ptr<Peer> peer;
    FrameReader reader;
    Version version;
    std::unique_ptr<DocumentWriter> writer;
};

}  // namespace printserver
