#include "printserver/check/command_client.h"

#include <array>
#include <regex>

namespace printserver::check {
namespace {

constexpr Milliseconds kSlice{20};
constexpr std::size_t kOneSegment = 1200;  // what one send carries in one piece over any network

constexpr const char* kReplyPage =
    "A reply is known by its `type` and `requestId` and by its place in the stream.";
constexpr const char* kAtOncePage =
    "The server answers every request of type 2 at once, which is within a second.";

std::string Seconds(Milliseconds time)
{
    return std::to_string(time.count() / 1000) + " s";
}

}  // namespace

TcpConnection ConnectOrThrow(const Target& target, std::uint16_t port)
{
    auto connection = ConnectTo(target.host, port, Milliseconds(5000));
    if (!connection)
        throw Mismatch("a connection to port " + std::to_string(port), "none");
    return std::move(*connection);
}

std::string Describe(const CommandFrame& frame)
{
    return "type " + std::to_string(frame.type) + ", id " + std::to_string(frame.requestId) + ", error " +
           std::to_string(frame.replyLengthOrError) + ", " + std::to_string(frame.payload.size()) + " bytes";
}

CommandClient::CommandClient(const Target& server)
    : target(&server), connection(ConnectOrThrow(server, static_cast<std::uint16_t>(server.port + 2)))
{
}

void CommandClient::Send(const Bytes& bytes)
{
    const auto limit = Clock::now() + std::chrono::seconds(10);
    for (auto rest = std::span<const std::uint8_t>(bytes); !rest.empty();) {
        const auto count = connection.Write(rest, kSlice);
        if (!count || Clock::now() > limit)
            ThrowEnd();
        rest = rest.subspan(*count);
    }
}

void CommandClient::ThrowEnd()
{
    throw Mismatch("the command connection stands", "the server has ended it");
}

std::optional<CommandFrame> CommandClient::Next(Milliseconds wait)
{
    const auto limit = Clock::now() + wait;
    for (;;) {
        SendKeepAliveIfDue();
        if (auto frame = ParseFrame(gathered)) {
            const auto end =
                gathered.begin() + static_cast<std::ptrdiff_t>(kHeaderSize + frame->payload.size());
            gathered.erase(gathered.begin(), end);
            return frame;
        }
        std::array<std::uint8_t, std::size_t{64} * 1024> piece;
        const ReadResult result = connection.Read(piece, std::min(wait, kSlice));
        if (result.state == ReadState::Nothing && Clock::now() >= limit)
            return std::nullopt;
        if (result.state != ReadState::Nothing && result.state != ReadState::Bytes)
            ThrowEnd();
        gathered.insert(gathered.end(), piece.begin(),
                        piece.begin() + static_cast<std::ptrdiff_t>(result.count));
        if (result.count > 0 && gathered.size() < kOneSegment && !ParseFrame(gathered))
            torn = "a message of which " + std::to_string(gathered.size()) + " bytes came first";
    }
}

void CommandClient::SendKeepAliveIfDue()
{
    if (!started || isSilent || !SendsKeepAlives() || Clock::now() - lastSent < period)
        return;
    lastSent = Clock::now();
    Send(KeepAlive());
}

bool CommandClient::TakeAsynchronous(const CommandFrame& frame)
{
    if (frame.type != kTypeIoctl)
        return false;
    if (started && frame.requestId == KeepAliveId(version)) {
        ++keepAlivesHeard;
        return true;
    }
    if (!notified || frame.requestId != kLpqInfo)
        return false;
    if (frame.payload.size() < 10)
        throw Mismatch("a status record of 10 bytes or more", Describe(frame),
                       "Bytes behind the tenth are ignored.");
    const auto bytes = std::span(frame.payload);
    record = Lpq(static_cast<std::int16_t>(GetU16(bytes)), static_cast<int>(GetU16(bytes.subspan(2))));
    return true;
}

CommandFrame CommandClient::Await(std::uint32_t type, std::uint32_t id, Milliseconds limit)
{
    const std::string expected = "type " + std::to_string(type) + ", id " + std::to_string(id);
    for (const auto until = Clock::now() + limit;;) {
        const auto left = std::chrono::duration_cast<Milliseconds>(until - Clock::now());
        const auto frame = Next(std::max(left, Milliseconds(0)));
        if (!frame)
            throw Mismatch(expected + " within " + Seconds(limit), "nothing", kAtOncePage);
        if (TakeAsynchronous(*frame))
            continue;
        if (frame->type != type || frame->requestId != id)
            throw Mismatch(expected, Describe(*frame), kReplyPage);
        return *frame;
    }
}

CommandFrame CommandClient::Ask(const Bytes& request, Milliseconds limit)
{
    Send(request);
    const auto asked = ParseFrame(request);
    return Await(asked->type, asked->requestId, limit);
}

CommandFrame CommandClient::AskInOpening(const char* point, const Bytes& request)
{
    try {
        return Ask(request, target->atOnce);
    } catch (const Mismatch& mismatch) {
        throw OpeningMismatch(point, mismatch.expected, mismatch.what(), mismatch.page);
    }
}

void CommandClient::AskVersion()
{
    const CommandFrame reply = AskInOpening("version-reply", VersionRequest());
    const std::string text(reply.payload.begin(), reply.payload.end());
    static const std::regex twoNumbers("[0-9]+\\.[0-9]+");
    if (reply.replyLengthOrError == kErrorNoVersion)
        version = Version{1, 0};
    else if (reply.replyLengthOrError == 0 && std::regex_match(text, twoNumbers))
        version = ParseVersion(text);
    else
        throw OpeningMismatch("version-reply", "error 0 with a version like 1.10, or error 4",
                              Describe(reply) + (text.empty() ? "" : " (" + Hex(reply.payload) + ")"));
}

std::uint32_t CommandClient::TryBind(unsigned session)
{
    return AskInOpening("bind-reply", BindRequest(session)).replyLengthOrError;
}

void CommandClient::Bind(unsigned session)
{
    const std::uint32_t error = TryBind(session);
    if (error != 0)
        throw OpeningMismatch("bind-reply", "error 0", "error " + std::to_string(error));
}

void CommandClient::StartKeepAlives(unsigned seconds, unsigned timeout)
{
    period = std::chrono::seconds(seconds);
    lastSent = Clock::now();
    const CommandFrame reply =
        AskInOpening("keep-alives-reply", SendsKeepAlives() ? StartKeepAlivesRequest(seconds, timeout)
                                                            : StartKeepAlivesRequest(seconds));
    if (reply.replyLengthOrError != 0)
        throw OpeningMismatch("keep-alives-reply", "error 0", Describe(reply));
    started = true;
}

void CommandClient::StartNotifications()
{
    const CommandFrame reply = AskInOpening("first-record", LpqRequest());
    if (reply.replyLengthOrError != 0 || reply.payload.size() < 10)
        throw OpeningMismatch("first-record", "error 0 with a status record of 10 bytes or more",
                              Describe(reply));
    notified = true;
    (void)TakeAsynchronous(reply);
}

void CommandClient::Pass(Milliseconds time)
{
    for (const auto until = Clock::now() + time; Clock::now() < until;) {
        const auto left = std::chrono::duration_cast<Milliseconds>(until - Clock::now());
        const auto frame = Next(std::max(left, Milliseconds(0)));
        if (frame && !TakeAsynchronous(*frame))
            throw Mismatch(
                "keep-alives of id " + std::to_string(KeepAliveId(version)) + " and status records",
                Describe(*frame), "Each side sends by its own clock and watches for the other's.");
    }
}

bool CommandClient::AwaitEnd(Milliseconds limit)
{
    std::array<std::uint8_t, 4096> ignored;
    for (const auto until = Clock::now() + limit; Clock::now() < until;) {
        try {
            SendKeepAliveIfDue();
        } catch (const Mismatch&) {
            return true;
        }
        const ReadState state = connection.Read(ignored, kSlice).state;
        if (state != ReadState::Bytes && state != ReadState::Nothing)
            return true;
    }
    return false;
}

}  // namespace printserver::check
