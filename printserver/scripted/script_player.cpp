#include "printserver/scripted/script_player.h"

#include <algorithm>

namespace printserver {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kStepLimit{60};
const char* const kTooLate = "nothing came for a minute";

}  // namespace

std::string ScriptPlayer::EndText() const
{
    return std::string("the connection was ") + NameOf(peer->TheEnding());
}

std::string ScriptPlayer::Send(const Bytes& bytes)
{
    if (peer->Send(bytes))
        return "";
    return peer->IsOpen() ? "the monitor takes nothing" : EndText();
}

std::string ScriptPlayer::NextFrame(CommandFrame* frame, bool passOverKeepAlives)
{
    const auto limit = Clock::now() + kStepLimit;
    while (Clock::now() < limit) {
        switch (reader.Next(frame, kSlice)) {
            case FrameState::Frame:
                if (!passOverKeepAlives || Frame(*frame) != KeepAlive())
                    return "";
                break;
            case FrameState::Malformed:
                return "no message of this protocol arrived";
            case FrameState::Over:
                return EndText();
            case FrameState::Nothing:
                break;
        }
    }
    return kTooLate;
}

std::string ScriptPlayer::Expect(const Bytes& bytes)
{
    if (peer->Side() == Channel::Data)
        return ExpectBytes(bytes);
    CommandFrame frame;
    if (auto failure = NextFrame(&frame, bytes != KeepAlive()); !failure.empty())
        return failure;
    return Frame(frame) == bytes ? "" : "arrived: " + Hex(Frame(frame));
}

std::string ScriptPlayer::ExpectFrame(std::uint32_t type, std::uint32_t requestId, CommandFrame* frame)
{
    if (auto failure = NextFrame(frame, type != kTypeIoctl || requestId != kKeepAlive); !failure.empty())
        return failure;
    return frame->type == type && frame->requestId == requestId ? "" : "arrived: " + Hex(Frame(*frame));
}

std::string ScriptPlayer::AnswerStartKeepAlives()
{
    CommandFrame frame;
    if (auto failure = ExpectFrame(kTypeIoctl, kStartKeepAlives, &frame); !failure.empty())
        return failure;
    const std::size_t size = KeepAliveId(version) == kKeepAlive ? 4 : 2;
    if (frame.payload.size() != size || frame.replyLengthOrError != 0)
        return "arrived: " + Hex(Frame(frame));
    return Send(Reply(kStartKeepAlives));
}

std::string ScriptPlayer::ReadPiece(std::size_t most, Bytes* piece)
{
    const auto limit = Clock::now() + kStepLimit;
    piece->resize(most);
    while (Clock::now() < limit) {
        const ReadResult result = peer->Read(*piece, kSlice);
        if (result.state == ReadState::Nothing)
            continue;
        if (result.state == ReadState::End)
            peer->End(Ending::ByMonitor);
        if (result.state != ReadState::Bytes)
            return EndText();
        piece->resize(result.count);
        return "";
    }
    return kTooLate;
}

std::string ScriptPlayer::ExpectBytes(const Bytes& bytes)
{
    Bytes arrived;
    while (arrived.size() < bytes.size()) {
        Bytes piece;
        if (auto failure = ReadPiece(bytes.size() - arrived.size(), &piece); !failure.empty())
            return failure;
        arrived = Join(std::move(arrived), piece);
    }
    return arrived == bytes ? "" : "arrived: " + Hex(arrived);
}

void ScriptPlayer::Keep(const Bytes& bytes)
{
    if (!writer)
        writer = state.documents.Begin();
    writer->Append(bytes);
}

std::string ScriptPlayer::ReceiveDocument(std::uint64_t count)
{
    while (count > 0) {
        Bytes piece;
        if (auto failure = ReadPiece(std::min<std::uint64_t>(count, 65536), &piece); !failure.empty()) {
            SettleDocument();
            return failure;
        }
        Keep(piece);
        count -= piece.size();
    }
    return "";
}

std::string ScriptPlayer::ReceiveWholeDocument()
{
    const std::string end = ReceiveDocument(UINT64_MAX);
    return peer->TheEnding() == Ending::ByMonitor ? "" : end;
}

void ScriptPlayer::SettleDocument()
{
    if (!writer)
        return;
    const bool whole = peer->TheEnding() == Ending::ByMonitor;
    const auto settling = std::exchange(writer, nullptr);
    state.RaiseDocument(*peer, -1, whole ? settling->Complete() : settling->Break());
}

std::string ScriptPlayer::WaitUntil(const std::function<bool()>& predicate)
{
    const auto limit = Clock::now() + kStepLimit;
    while (!predicate()) {
        if (Clock::now() >= limit)
            return "the gate stayed closed for a minute";
        if (!peer->Pause(kSlice))
            return EndText();
    }
    return "";
}

std::string ScriptPlayer::End(Ending how)
{
    peer->End(how);
    return peer->TheEnding() == how ? "" : EndText();
}

std::string ScriptPlayer::AwaitHangUp()
{
    std::string arrived;
    if (peer->Side() == Channel::Data) {
        Bytes piece;
        if (ReadPiece(64, &piece).empty())
            arrived = Hex(piece);
    } else {
        CommandFrame frame;
        if (NextFrame(&frame, true).empty())
            arrived = Hex(Frame(frame));
    }
    SettleDocument();
    if (!arrived.empty())
        return "arrived: " + arrived;
    const Ending ending = peer->TheEnding();
    return ending == Ending::ByMonitor || ending == Ending::ByMonitorReset ? "" : EndText();
}

}  // namespace printserver
