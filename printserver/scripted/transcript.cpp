#include "printserver/scripted/transcript.h"

namespace printserver {

Bytes Transcript::Stream(Direction direction) const
{
    Bytes stream;
    for (const Entry& entry : entries) {
        if (entry.direction == direction)
            stream.insert(stream.end(), entry.bytes.begin(), entry.bytes.end());
    }
    return stream;
}

std::string Transcript::ToString() const
{
    std::string text;
    for (const Entry& entry : entries)
        text +=
            (entry.direction == Direction::FromMonitor ? "monitor " : "server ") + Hex(entry.bytes) + "\n";
    return text;
}

}  // namespace printserver
