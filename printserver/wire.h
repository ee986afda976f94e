#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The bytes of both channels as the print server sees them: every message in both directions has its builder
// here, so a test compares what arrived with what should have, byte for byte. All numbers are big-endian.
// This is deliberately written apart from the monitor's own reading and writing of the same bytes: the two
// check each other.
//
//   data channel:     SessionId(7) TransMode() <document bytes>
//   command channel:  monitor VersionRequest()              server VersionReply("1.10")
//                     monitor BindRequest(7)                server Reply(kBindSession)
//                     monitor StartKeepAlivesRequest(5, 20) server Reply(kStartKeepAlives)
//                     monitor LpqRequest()                  server Notification(Lpq(0, 2))
namespace printserver {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kTypePrinterData = 1;
inline constexpr std::uint32_t kTypeIoctl = 2;

inline constexpr std::uint32_t kBindSession = 1;
inline constexpr std::uint32_t kParallelRead = 2;
inline constexpr std::uint32_t kLpqInfo = 4;
inline constexpr std::uint32_t kSuppressSyslog = 7;
inline constexpr std::uint32_t kStartKeepAlives =
    16;                                          // also the server's keep-alive itself up to version 1.0
inline constexpr std::uint32_t kKeepAlive = 18;  // both sides' keep-alive above version 1.0
inline constexpr std::uint32_t kProtocolVersion = 33;

inline constexpr std::uint32_t kErrorNoVersion = 4;  // firmware that cannot tell its version; it speaks 1.0
inline constexpr std::uint32_t kErrorUnknownSession = 2;
inline constexpr std::uint32_t kErrorUnknownRequest = 1;
inline constexpr std::uint32_t kErrorSessionTaken = 3;

inline constexpr std::uint32_t kMaxPayload = 16 * 1024 * 1024;
inline constexpr std::size_t kHeaderSize = 16;

// The status record of 10 bytes: 16, 16, 16 and 32 bits. A position above 0 means the job waits in the queue.
struct Lpq {
    constexpr Lpq() = default;
    constexpr Lpq(int position, int bound) : Lpq(position, bound, bound, 0) {}
    constexpr Lpq(int position, int bound, int active, std::uint32_t printer)
        : queuePosition(static_cast<std::int16_t>(position)),
          boundJobState(static_cast<std::uint16_t>(bound)),
          activeJobState(static_cast<std::uint16_t>(active)),
          printerState(printer)
    {
    }
    bool operator==(const Lpq&) const = default;

    std::int16_t queuePosition = 0;
    std::uint16_t boundJobState = 0;
    std::uint16_t activeJobState = 0;
    std::uint32_t printerState = 0;
};

// One whole message of the command channel in host order.
struct CommandFrame {
    std::uint32_t type = kTypeIoctl;
    std::uint32_t requestId = 0;
    std::uint32_t replyLengthOrError = 0;
    Bytes payload;
    bool operator==(const CommandFrame&) const = default;
};

// The protocol version as both sides order it: numerically, the major number first.
struct Version {
    unsigned long major = 0;
    unsigned long minor = 0;
    auto operator<=>(const Version&) const = default;  // NOLINT(modernize-use-nullptr): its 0 is none
};
// Numbers as in C source, so that 010 is eight. What the text does not deliver stays 0.
Version ParseVersion(const std::string& text);
// The request id of the server's keep-alive: 18 above version 1.0, else 16.
std::uint32_t KeepAliveId(const Version& version);

// Pieces.
Bytes U16(unsigned value);
Bytes U32(std::uint32_t value);
Bytes Text(std::string_view text);
Bytes Join(Bytes front, const Bytes& behind);
Bytes Payload(const Lpq& record);
std::uint32_t GetU32(std::span<const std::uint8_t> bytes);  // the first 4 bytes
unsigned GetU16(std::span<const std::uint8_t> bytes);       // the first 2 bytes

// Any frame of the command channel; the header's length is the payload's.
Bytes Frame(std::uint32_t type, std::uint32_t requestId, std::uint32_t replyLengthOrError = 0,
            const Bytes& payload = {});
Bytes Frame(const CommandFrame& frame);
// The message at the front, or nothing while it is not whole.
std::optional<CommandFrame> ParseFrame(std::span<const std::uint8_t> bytes);

// The data channel's two opening messages.
Bytes SessionId(unsigned id);
Bytes TransMode();

// From the server.
Bytes VersionReply(std::string_view text);
Bytes Reply(std::uint32_t requestId, std::uint32_t error = 0, const Bytes& payload = {});  // any IOCTL reply
Bytes QueryReply(std::uint32_t control, const Bytes& payload, std::uint32_t error = 0);
Bytes Notification(const Lpq& record);  // also the first record
Bytes KeepAlive(std::uint32_t requestId = kKeepAlive);

// From the monitor (whose keep-alive is KeepAlive() as well).
Bytes VersionRequest();
Bytes BindRequest(unsigned session);
Bytes StartKeepAlivesRequest(unsigned period);                    // up to version 1.0
Bytes StartKeepAlivesRequest(unsigned period, unsigned timeout);  // above
Bytes LpqRequest();
Bytes SuppressRequest();
Bytes ParallelReadRequest(int wanted);
Bytes QueryRequest(std::uint32_t control, std::uint32_t outputSize, const Bytes& input = {});

// "00000002 00000021 00000000 00000004 312e3130": the header's words and the payload; anything shorter
// unparted.
std::string Hex(std::span<const std::uint8_t> frame);

}  // namespace printserver
