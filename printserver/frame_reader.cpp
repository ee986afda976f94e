#include "printserver/frame_reader.h"

#include <array>

namespace printserver {

bool FrameReader::IsMalformed() const
{
    if (gathered.size() < kHeaderSize)
        return false;
    const std::uint32_t type = GetU32(gathered);
    return (type != kTypePrinterData && type != kTypeIoctl) ||
           GetU32(std::span(gathered).subspan(12)) > kMaxPayload;
}

bool FrameReader::TakeFrame(CommandFrame* frame)
{
    auto whole = ParseFrame(gathered);
    if (!whole)
        return false;
    const auto end = gathered.begin() + static_cast<std::ptrdiff_t>(kHeaderSize + whole->payload.size());
    peer.Record(Direction::FromMonitor, Bytes(gathered.begin(), end));
    gathered.erase(gathered.begin(), end);
    *frame = std::move(*whole);
    return true;
}

FrameState FrameReader::Next(CommandFrame* frame, Milliseconds wait)
{
    for (;;) {
        if (IsMalformed()) {
            peer.Record(Direction::FromMonitor, gathered);
            return FrameState::Malformed;
        }
        if (TakeFrame(frame))
            return FrameState::Frame;

        std::array<std::uint8_t, std::size_t{16} * 1024> piece;
        const ReadResult result = peer.Read(piece, wait);
        if (result.state == ReadState::Nothing)
            return FrameState::Nothing;
        if (result.state == ReadState::End)
            peer.End(Ending::ByMonitor);
        if (result.state != ReadState::Bytes)
            return FrameState::Over;
        gathered.insert(gathered.end(), piece.begin(),
                        piece.begin() + static_cast<std::ptrdiff_t>(result.count));
    }
}

}  // namespace printserver
