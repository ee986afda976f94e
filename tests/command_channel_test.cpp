#include "link/command_channel.h"

#include <gtest/gtest.h>

#include "tests/support/link_fixture.h"

namespace {

using printserver::BindRequest;
using printserver::Bytes;
using printserver::Channel;
using printserver::Frame;
using printserver::Join;
using printserver::Reply;
using printserver::StartKeepAlivesRequest;
using printserver::VersionReply;
using printserver::VersionRequest;

const char* const kClosed = "CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 0.";
const char* const kNoVersion = "CCommandChannel::Open: Failed to get protocol version.";
const char* const kNoBind = "CCommandChannel::Open: Failed to bind command channel to data channel id = 7.";
const char* const kNoStart = "CCommandChannel::Open: Failed to start notifications.";

std::string ContentOf(const CCommandChannelMessage& message)
{
    const Bytes payload(message.data.get(), message.data.get() + (message.data ? message.length : 0));
    return printserver::Hex(Frame(message.type, message.requestId, message.replyLengthOrError, payload));
}

// A connected channel without a worker, for messages alone.
class ChannelMessages : public LinkFixture {
protected:
    void SetUp() override
    {
        LinkFixture::SetUp();
        channel = MakeCommand();
        Connect();
    }
    void Connect()
    {
        const int before = server.Connections(Channel::Command);
        server.Command().Accept();
        EXPECT_TRUE(channel->Connect());
        EXPECT_TRUE(server.WaitFor([&] { return server.Connections(Channel::Command) > before; }));
    }
    void TearDown() override
    {
        channel.reset();
        LinkFixture::TearDown();
    }
    bool Arrives(const Bytes& bytes)
    {
        const LONG before = channel->BytesAvailable();
        return server.Push(Channel::Command, bytes) && Eventually([&] {
                   return channel->BytesAvailable() == before + static_cast<LONG>(bytes.size());
               });
    }
    bool IsDrained()
    {
        return Eventually([&] { return channel->BytesAvailable() == 0; });
    }
    std::shared_ptr<CCommandChannel> channel;
};

TEST_F(ChannelMessages, APeekTakesNothingAndSeesOnlyWholeMessages)
{
    const Bytes frame = printserver::QueryReply(0x01020304, Raw("payload"), 0xA0B0C0D0);
    for (std::size_t cut = 1; cut < frame.size(); ++cut) {
        SCOPED_TRACE(cut);
        const auto middle = frame.begin() + static_cast<long>(cut);
        ASSERT_TRUE(Arrives(Bytes(frame.begin(), middle)));
        CCommandChannelMessage message;
        EXPECT_FALSE(message.Peek(*channel));
        EXPECT_EQ(cut < 16 ? 0u : 0x01020304u, message.requestId);
        ASSERT_TRUE(Arrives(Bytes(middle, frame.end())));
        EXPECT_TRUE(message.Peek(*channel));
        EXPECT_EQ(printserver::Hex(frame), ContentOf(message));
        EXPECT_EQ(static_cast<LONG>(frame.size()), channel->BytesAvailable());
        EXPECT_TRUE(message.Receive(*channel));
        EXPECT_EQ(printserver::Hex(frame), ContentOf(message));
        EXPECT_EQ(0, channel->BytesAvailable());
    }
}

TEST_F(ChannelMessages, AShortHeaderFailsAndIsGone)
{
    CCommandChannelMessage message(1, 2, 3);
    message.SetPayload("abc", 3);
    ASSERT_TRUE(Arrives(Bytes(10, 0xEE)));
    EXPECT_FALSE(message.Receive(*channel));
    EXPECT_EQ(printserver::Hex(Frame(1, 2, 3, Raw("abc"))), ContentOf(message));
    EXPECT_EQ(0, channel->BytesAvailable());
    EXPECT_TRUE(channel->IsConnected());
}

TEST_F(ChannelMessages, GatherAPayloadThatComesInPieces)
{
    const Bytes frame = Frame(1, 5, 0, Raw("a payload in four pieces"));
    for (const bool whole : {true, false}) {
        SCOPED_TRACE(whole);
        CCommandChannelMessage message;
        auto receive = std::async(std::launch::async, [&] { return message.Receive(*channel); });
        for (std::size_t at = 0; at < 36; at += at == 0 ? 18 : 6) {
            const auto begin = frame.begin() + static_cast<long>(at);
            EXPECT_TRUE(server.Push(Channel::Command, Bytes(begin, begin + (at == 0 ? 18 : 6))));
            EXPECT_TRUE(IsDrained());
        }
        if (whole)
            EXPECT_TRUE(server.Push(Channel::Command, Bytes(frame.begin() + 36, frame.end())));
        else
            server.HangUp(Channel::Command);
        EXPECT_EQ(whole, ResultOf(receive));
        EXPECT_EQ(printserver::Hex(whole ? frame : Frame(1, 5)), ContentOf(message));
    }
}

TEST_F(ChannelMessages, BeyondTheLargestPayloadEndTheConnection)
{
    const Bytes front(12, 0);
    ASSERT_TRUE(Arrives(Join(front, printserver::U32(16u << 20))));
    CCommandChannelMessage message;
    EXPECT_FALSE(message.Peek(*channel));
    EXPECT_TRUE(channel->IsConnected());  // it may yet come
    for (const std::uint32_t length : {(16u << 20) + 1, 0xFFFFFFFFu}) {
        for (const bool peek : {true, false}) {
            SCOPED_TRACE(std::to_string(length) + (peek ? " peeked" : " received"));
            Connect();
            ASSERT_TRUE(Arrives(Join(front, printserver::U32(length))));
            EXPECT_FALSE(peek ? message.Peek(*channel) : message.Receive(*channel));
            EXPECT_FALSE(channel->IsConnected());
            EXPECT_EQ(nullptr, message.data);
        }
    }
}

// A frame torn by another one destroys the stream.
TEST_F(ChannelMessages, OfTwoSendersNeverMix)
{
    printserver::PrintServer echo({.keepAliveEvery = printserver::Milliseconds(1)});
    const auto shared =
        std::make_shared<CCommandChannel>(nullptr, TEXT("127.0.0.1"), echo.Port() + 2u, kNever, kNever);
    ASSERT_TRUE(shared->Open());
    constexpr int kFrames = 24;
    const auto send = [&](DWORD id) {
        const Bytes much(512 << 10, static_cast<std::uint8_t>(id));  // far more than the system takes at once
        CCommandChannelMessage message(1, id, static_cast<DWORD>(much.size()));
        message.SetPayload(much.data(), static_cast<DWORD>(much.size()));
        bool sent = true;
        for (int i = 0; i < kFrames; ++i)
            sent = sent && message.Send(*shared);
        return sent;
    };
    auto first = std::async(std::launch::async, send, 1);
    auto second = std::async(std::launch::async, send, 2);
    for (int whole = 0; whole < 2 * kFrames;) {
        CCommandChannelMessage reply;
        if (!reply.Receive(*shared)) {
            ADD_FAILURE() << "the server could not make out frame " << whole;
            break;
        }
        if (reply.type == 1)
            whole +=
                std::count(reply.data.get(), reply.data.get() + reply.length, reply.requestId) == 512 << 10;
    }
    shared->Shutdown();
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
}

class ChannelOpening : public LinkFixture {
protected:
    // With a data channel of session 7 and a worker, or by itself without either.
    std::shared_ptr<CCommandChannel> Make(bool bound)
    {
        const auto channel = MakeCommand();
        if (bound) {
            ServeData();
            const auto data = MakeData();
            EXPECT_TRUE(data->Open());
            EXPECT_TRUE(channel->InitializeKeepAlives(data));
        }
        log.Clear();
        return channel;
    }
};

TEST_F(ChannelOpening, SuitsTheServersVersion)
{
    const Bytes both = StartKeepAlivesRequest(0xFFFE, 20);
    const Bytes period = StartKeepAlivesRequest(0xFFFE);
    const struct {
        Bytes reply;
        DWORD major, minor;
        Bytes start;
        bool aloneForQueries;
    } rows[] = {
        {VersionReply("1.10"), 1, 10, both, true},
        {VersionReply("1.2"), 1, 2, both, false},
        {VersionReply("1.0"), 1, 0, period, false},
        {VersionReply("1.010"), 1, 8, both, false},
        {VersionReply("0x2.0x1fz"), 2, 31, both, true},
        {VersionReply("  1.11 beta"), 1, 11, both, true},
        {VersionReply("2"), 2, 0, both, true},
        {VersionReply("1."), 1, 0, period, false},
        {VersionReply("-1.5"), 0xFFFFFFFF, 5, both, true},
        {VersionReply(""), 0, 0, period, false},
        {VersionReply("version one"), 0, 0, period, false},
        {Reply(printserver::kProtocolVersion, 4), 1, 0, period, false},
        {Reply(printserver::kProtocolVersion, 4, Raw("3.3")), 1, 0, period, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(printserver::Hex(row.reply).substr(0, 80));
        server.Command()
            .Accept()
            .Expect(VersionRequest())
            .Send(row.reply)
            .Expect(row.start)
            .Send(Reply(printserver::kStartKeepAlives, 0, Raw("not looked at")));
        const auto channel = MakeCommand(-2, 20);
        log.Clear();
        EXPECT_TRUE(channel->Open());
        const CCommProtocolVersion version = channel->GetProtocolVersion();
        EXPECT_EQ(row.major, version.major);
        EXPECT_EQ(row.minor, version.minor);
        EXPECT_EQ(row.aloneForQueries, !(version < CommandChannelAloneVersion()));
        EXPECT_EQ(row.reply.at(11) == 4,
                  log.Has("Defaulting communication protocol version to 1.0 - consider "
                          "upgrading printer firmware."));
        EXPECT_EQ(Failures{}, log.Failures());
        EXPECT_EQ("", server.FirstStepNotPlayed());
    }
}

TEST_F(ChannelOpening, TakesNoVersionFromAnotherMessage)
{
    CCommProtocolVersion version;
    for (const auto& [type, id] : {std::pair{1u, 33u}, std::pair{2u, 32u}}) {
        log.Clear();
        EXPECT_FALSE(version.Initialize(CCommandChannelMessage(type, id, 0)));
        EXPECT_EQ(
            Failures{"CCommProtocolVersion::Initialize: Unexpected message to extract protocol version from. "
                     "Expected type 2, received type " +
                     std::to_string(type) + "; expected request id 33, received request id " +
                     std::to_string(id) + "."},
            log.Failures());
    }
}

TEST_F(ChannelOpening, BindsToTheSessionAndTellsWhatWentWrong)
{
    const Bytes version = VersionReply("1.10");
    const Bytes bound = Reply(printserver::kBindSession, 0, Raw("not looked at"));
    const std::string got = "CCommandChannel::GetCommProtocolVersion: ";
    const std::string bind = "CCommandChannel::BindSession: ";
    const std::string start = "CCommandChannel::StartKeepAliveNotifications: ";
    const struct {
        std::vector<Bytes> replies;
        Failures failures;
    } rows[] = {
        {{Frame(1, 33)},
         {got + "Received unexpected response. Expected type 2, received type 1; expected request id 33, "
                "received request id 33.",
          kNoVersion}},
        {{Frame(2, 0x80000000)},
         {got + "Received unexpected response. Expected type 2, received type 2; expected request id 33, "
                "received request id -2147483648.",
          kNoVersion}},
        {{Reply(33, 5, Raw("1.10"))},
         {"CCommProtocolVersion::Initialize: Failed to get protocol version.",
          got + "Failed to extract version info from received response.", kNoVersion}},
        {{version, printserver::KeepAlive()},
         {bind + "Received unexpected response.Expected type 2, received type 2; expected request id 1, "
                 "received request id 18.",
          kNoBind}},
        {{version, Reply(1, 2)}, {bind + "Received response indicates error 2.", kNoBind}},
        {{version, bound, Reply(18)},
         {start + "Received an unexpected response to 'start keep alives' request. Expected type 2, received "
                  "type 2; expected request id 16, received request id 18.",
          kNoStart}},
        {{version, bound, Reply(16, 0xFFFFFFFF)},
         {start + "Response to 'start keep alives' request reported error -1.", kNoStart}},
        {{version, bound, {}},
         {kClosed, start + "Failed to receive a response to 'start keep alives' request.", kNoStart}},
    };
    const Bytes requests[] = {VersionRequest(), BindRequest(7), StartKeepAlivesRequest(30000, 30000)};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failures[0]);
        auto& script = server.Command().Accept();
        for (std::size_t i = 0; i < row.replies.size(); ++i) {
            script.Expect(requests[i]);
            row.replies[i].empty() ? script.HangUp() : script.Send(row.replies[i]);
        }
        const auto channel = Make(true);
        EXPECT_FALSE(channel->Open());
        EXPECT_EQ(row.failures, log.Failures());
        EXPECT_EQ(row.replies.back().empty(), !channel->IsConnected());
        EXPECT_EQ("", server.FirstStepNotPlayed());
        channel->Shutdown();
    }
}

// Whatever keeps a whole reply away, a lost connection included, shows as the time-out after the polls.
TEST_F(ChannelOpening, CountsThePollsOfAReplyThatDoesNotCome)
{
    const std::string late = "Timed-out while waiting for ";
    const Failures noVersion = {"CCommandChannel::GetCommProtocolVersion: " + late + "protocol version.",
                                kNoVersion};
    const Failures noBind = {"CCommandChannel::BindSession: " + late + "confirmation of the bind request.",
                             kNoBind};
    const Bytes version = VersionReply("1.10");
    const struct {
        Bytes last;  // sent instead of the reply; empty: the server hangs up
        bool bound;
    } rows[] = {{Bytes(15, 0), false},    {Bytes(version.begin(), version.end() - 1), false},
                {Bytes(40, 0xEE), false}, {{}, false},
                {Bytes(15, 0), true},     {{}, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE((row.bound ? "bind " : "version ") + printserver::Hex(row.last));
        auto& script = server.Command().Accept().Expect(VersionRequest());
        if (row.bound)
            script.Send(version).Expect(BindRequest(7));
        row.last.empty() ? script.HangUp() : script.Send(row.last);
        test_switches::SetTimeScale(row.bound ? kOpeningScale : 0.01);
        const auto channel = Make(row.bound);
        test_switches::CountCalls("Sleep");
        EXPECT_FALSE(channel->Open());
        const int polls = test_switches::CallsCounted("Sleep");
        EXPECT_GE(polls, row.bound ? 10 : 30);
        EXPECT_LT(polls, row.bound ? 10 + 30 : 30 + 1);  // the version before the bind takes some, too
        const Failures failures = log.Failures();        // in front may stand those of a socket that is gone
        EXPECT_EQ(row.bound ? noBind : noVersion, Failures(failures.end() - 2, failures.end()));
        channel->Shutdown();
    }
}

// What was there at the look can't be taken: the link breaks in between.
TEST_F(ChannelOpening, FailsWhereAReplyCannotBeTaken)
{
    for (const char* scope : {"{CCommandChannel::GetCommProtocolVersion", "{CCommandChannel::BindSession"}) {
        SCOPED_TRACE(scope);
        server.Command().Accept().AnswerVersion("1.10").AnswerBind(7);
        const auto channel = Make(true);
        const bool binds = std::string_view(scope).ends_with("BindSession");
        log.AtLine(scope, [&] { test_switches::FailCall("recv", 10054, binds ? 1 : 2); });
        EXPECT_FALSE(channel->Open());
        EXPECT_EQ((Failures{"CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 10054.",
                            binds ? kNoBind : kNoVersion}),
                  log.Failures());
        channel->Shutdown();
    }
}

TEST_F(ChannelOpening, FailsWhereARequestCannotBeSent)
{
    const Failures chains[] = {
        {"CCommandChannel::GetCommProtocolVersion: Failed to send request to get communcation protocol "
         "version.",
         kNoVersion},
        {"CCommandChannel::BindSession: Failed to send request to bind session.", kNoBind},
        {"CCommandChannel::StartKeepAliveNotifications: Failed to send request to start keep alives.",
         kNoStart},
        {"CCommandChannel::StartLPQInfoNotifications: Failed to send request to start LPQInfo "
         "notifications."},
    };
    for (int sent = 0; sent < 4; ++sent) {
        SCOPED_TRACE(sent);
        const auto channel = Make(true);
        test_switches::FailCall("send", 10054, sent);
        EXPECT_FALSE(channel->Open() && channel->StartLPQInfoNotifications());
        const Failures failures = log.Failures();
        EXPECT_EQ("CSyncSocket::Send: Call to send() failed; WSAGetLastError returned 10054.", failures[0]);
        EXPECT_EQ(chains[sent], Failures(failures.begin() + 1, failures.end()));
        channel->Shutdown();
    }
}

}  // namespace
