#include "printserver/wire.h"

#include <cstdlib>

namespace printserver {

Version ParseVersion(const std::string& text)
{
    Version version;
    char* end = nullptr;
    version.major = std::strtoul(text.c_str(), &end, 0);
    if (*end == '.')
        version.minor = std::strtoul(end + 1, nullptr, 0);
    return version;
}

std::uint32_t KeepAliveId(const Version& version)
{
    return version > Version{1, 0} ? kKeepAlive : kStartKeepAlives;
}

Bytes U16(unsigned value)
{
    return {static_cast<std::uint8_t>(value >> 8 & 0xFF), static_cast<std::uint8_t>(value & 0xFF)};
}

Bytes U32(std::uint32_t value)
{
    return Join(U16(value >> 16), U16(value & 0xFFFF));
}

Bytes Text(std::string_view text)
{
    return Bytes(text.begin(), text.end());
}

Bytes Join(Bytes front, const Bytes& behind)
{
    front.insert(front.end(), behind.begin(), behind.end());
    return front;
}

Bytes Payload(const Lpq& record)
{
    Bytes payload = Join(U16(static_cast<std::uint16_t>(record.queuePosition)), U16(record.boundJobState));
    return Join(Join(std::move(payload), U16(record.activeJobState)), U32(record.printerState));
}

unsigned GetU16(std::span<const std::uint8_t> bytes)
{
    return static_cast<unsigned>(bytes[0] << 8 | bytes[1]);
}

std::uint32_t GetU32(std::span<const std::uint8_t> bytes)
{
    return GetU16(bytes) << 16 | GetU16(bytes.subspan(2));
}

Bytes Frame(std::uint32_t type, std::uint32_t requestId, std::uint32_t replyLengthOrError,
            const Bytes& payload)
{
    Bytes header = Join(Join(U32(type), U32(requestId)), U32(replyLengthOrError));
    return Join(Join(std::move(header), U32(static_cast<std::uint32_t>(payload.size()))), payload);
}

Bytes Frame(const CommandFrame& frame)
{
    return Frame(frame.type, frame.requestId, frame.replyLengthOrError, frame.payload);
}

std::optional<CommandFrame> ParseFrame(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < kHeaderSize)
        return std::nullopt;
    const auto payload = bytes.subspan(kHeaderSize);
    const std::size_t length = GetU32(bytes.subspan(12));
    if (payload.size() < length)
        return std::nullopt;
    return CommandFrame{GetU32(bytes), GetU32(bytes.subspan(4)), GetU32(bytes.subspan(8)),
                        Bytes(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(length))};
}

Bytes SessionId(unsigned id)
{
    return Join({2, 0, 2}, U16(id));
}
Bytes TransMode()
{
    return {1, 0, 0};
}

Bytes VersionReply(std::string_view text)
{
    return Reply(kProtocolVersion, 0, Text(text));
}

Bytes Reply(std::uint32_t requestId, std::uint32_t error, const Bytes& payload)
{
    return Frame(kTypeIoctl, requestId, error, payload);
}

Bytes QueryReply(std::uint32_t control, const Bytes& payload, std::uint32_t error)
{
    return Frame(kTypePrinterData, control, error, payload);
}

Bytes Notification(const Lpq& record)
{
    return Reply(kLpqInfo, 0, Payload(record));
}
Bytes KeepAlive(std::uint32_t requestId)
{
    return Frame(kTypeIoctl, requestId);
}

Bytes VersionRequest()
{
    return Frame(kTypeIoctl, kProtocolVersion, 32);
}
Bytes BindRequest(unsigned session)
{
    return Frame(kTypeIoctl, kBindSession, 0, U16(session));
}
Bytes StartKeepAlivesRequest(unsigned period)
{
    return Frame(kTypeIoctl, kStartKeepAlives, 0, U16(period));
}

Bytes StartKeepAlivesRequest(unsigned period, unsigned timeout)
{
    return Frame(kTypeIoctl, kStartKeepAlives, 0, Join(U16(period), U16(timeout)));
}

Bytes LpqRequest()
{
    return Frame(kTypeIoctl, kLpqInfo, 10);
}
Bytes SuppressRequest()
{
    return Frame(kTypeIoctl, kSuppressSyslog);
}

Bytes ParallelReadRequest(int wanted)
{
    return Frame(kTypeIoctl, kParallelRead, static_cast<std::uint32_t>(wanted));
}

Bytes QueryRequest(std::uint32_t control, std::uint32_t outputSize, const Bytes& input)
{
    return Frame(kTypePrinterData, control, outputSize, input);
}

std::string Hex(std::span<const std::uint8_t> frame)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t at = 0; at < frame.size(); ++at) {
        if (frame.size() >= kHeaderSize && at > 0 && at <= kHeaderSize && at % 4 == 0)
            text += ' ';
        text += digits[frame[at] >> 4];
        text += digits[frame[at] & 15];
    }
    return text;
}

}  // namespace printserver
