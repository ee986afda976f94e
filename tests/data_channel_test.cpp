#include "link/data_channel.h"

#include <gtest/gtest.h>

#include "tests/support/link_fixture.h"

namespace {

using printserver::Bytes;
using printserver::Join;
using printserver::SessionId;
using printserver::TransMode;

const char* const kClosed = "CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 0.";
const char* const kNoChar =
    "CSyncSocket::Receive(char*): Failed to receive a char. Expected 1 byte(s), received 0 byte(s).";
const char* const kNoShort =
    "CSyncSocket::Receive(short*): Failed to receive a short. Expected 2 byte(s), received 0 byte(s).";
const char* const kHalfShort =
    "CSyncSocket::Receive(short*): Failed to receive a short. Expected 2 byte(s), received 1 byte(s).";
const char* const kNoCommand = "CDataChannelMessage::Receive: Failed to receive a command from data channel.";
const char* const kNoLength =
    "CDataChannelMessage::Receive: Failed to receive command length from data channel.";
const char* const kNoId =
    "CDataChannelMessage::Receive: Failed to receive value of session id from data channel.";
const char* const kNotTransparent = "CDataChannel::Open: Data channel did not switch to transparent mode.";

std::string NoSession(int command)
{
    return "CDataChannel::Open: Failed to receive session id as the first message. Expected command 2, "
           "received command " +
           std::to_string(command) + ".";
}
std::string Refused(const std::string& text)
{
    return "CDataChannelMessage::Receive: " + text;
}

class DataChannel : public LinkFixture {};

TEST_F(DataChannel, OpensWithEverySessionIdAndTakesNotAByteTooMuch)
{
    const struct {
        unsigned id;
        LONG stored;
    } rows[] = {{7, 7}, {0x1234, 0x1234}, {0, 0}, {0x8000, -32768}, {0xFFFF, -1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        server.Data().Accept().Send(Join(Join(SessionId(row.id), TransMode()), Raw("job")));
        const auto data = MakeData();
        EXPECT_EQ(-1, data->sessionId);
        EXPECT_TRUE(data->Open());
        EXPECT_EQ(row.stored, data->sessionId);
        EXPECT_TRUE(log.Has("Received session id " + std::to_string(row.stored) + "."));
        EXPECT_TRUE(Eventually([&] { return data->BytesAvailable() == 3; }));
        char bytes[8];
        DWORD received = 0;
        EXPECT_TRUE(data->Receive(bytes, sizeof bytes, &received));
        EXPECT_EQ("job", std::string(bytes, received));
        data->Close();
        EXPECT_EQ(row.stored, data->sessionId);
    }
    EXPECT_EQ(Failures{}, log.Failures());
}

TEST_F(DataChannel, RefusesWhatIsNotTheOpening)
{
    const Bytes session = SessionId(7);
    const struct {
        Bytes bytes;
        LONG sessionId;
        Failures failures;
    } rows[] = {
        {TransMode(), -1, {NoSession(1)}},
        {Join(session, session), 7, {kNotTransparent}},
        {{1, 0, 1}, -1, {Refused("TRANS_MODE data channel command should have no data."), NoSession(1)}},
        {{2, 0, 3}, -1, {Refused("SESSION_ID should have 2 bytes of data but received 3."), NoSession(2)}},
        {{2, 0xFF, 0xFF},
         -1,
         {Refused("SESSION_ID should have 2 bytes of data but received -1."), NoSession(2)}},
        {{0xFF, 0, 9}, -1, {Refused("Received unknown data channel message -1."), NoSession(-1)}},
        {{0, 0, 0}, -1, {Refused("Received unknown data channel message 0."), NoSession(0)}},
        {Join(session, {3, 0, 0}), 7, {Refused("Received unknown data channel message 3."), kNotTransparent}},
        {Join(session, {1, 1, 0}),
         7,
         {Refused("TRANS_MODE data channel command should have no data."), kNotTransparent}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(printserver::Hex(row.bytes));
        server.Data().Accept().Send(row.bytes);
        const auto data = MakeData();
        log.Clear();
        EXPECT_FALSE(data->Open());
        EXPECT_EQ(row.sessionId, data->sessionId);
        EXPECT_EQ(row.failures, log.Failures());
        EXPECT_TRUE(data->IsConnected());  // a fault of the protocol leaves the connection to the clean-up
    }
}

TEST_F(DataChannel, TellsWhereTheOpeningBrokeOff)
{
    const Bytes opening = Join(SessionId(7), TransMode());
    const Failures chains[] = {
        {kClosed, kNoChar, kNoCommand, NoSession(0)},
        {kClosed, kNoShort, kNoLength, NoSession(2)},
        {kHalfShort, kNoLength, NoSession(2)},
        {kClosed, kNoShort, kNoId, NoSession(2)},
        {kHalfShort, kNoId, NoSession(2)},
        {kClosed, kNoChar, kNoCommand, kNotTransparent},
        {kClosed, kNoShort, kNoLength, kNotTransparent},
        {kHalfShort, kNoLength, kNotTransparent},
    };
    for (std::size_t cut = 0; cut < opening.size(); ++cut) {
        SCOPED_TRACE(cut);
        server.Data()
            .Accept()
            .Send(Bytes(opening.begin(), opening.begin() + static_cast<long>(cut)))
            .HangUp();
        const auto data = MakeData();
        log.Clear();
        EXPECT_FALSE(data->Open());
        EXPECT_EQ(chains[cut], log.Failures());
        EXPECT_EQ(cut > 4 ? 7 : -1, data->sessionId);
        EXPECT_EQ(chains[cut][0] == kHalfShort, data->IsConnected());
    }
}

TEST_F(DataChannel, TakesFieldsAsTheyCome)
{
    server.Data().Accept();
    const auto data = MakeData();
    auto open = std::async(std::launch::async, [&] { return data->Open(); });
    EXPECT_TRUE(server.WaitFor([&] { return server.OpenConnections(printserver::Channel::Data) == 1; }));
    for (const Bytes& field : {Bytes{2}, Bytes{0, 2}, Bytes{0, 7}, Bytes{1}, Bytes{0, 0}}) {
        EXPECT_TRUE(server.Push(printserver::Channel::Data, field));
        EXPECT_TRUE(Eventually([&] { return data->BytesAvailable() == 0; }));
    }
    EXPECT_TRUE(ResultOf(open));
    EXPECT_EQ(7, data->sessionId);
}

TEST_F(DataChannel, ReadsThePeersEndOnceAndOurOwnNever)
{
    ServeData().HangUp();
    auto data = MakeData();
    ASSERT_TRUE(data->Open());
    char byte;
    DWORD received = 9;
    EXPECT_TRUE(data->Receive(&byte, 1, &received));
    EXPECT_EQ(0u, received);
    EXPECT_FALSE(data->IsConnected());
    log.Clear();
    received = 9;
    EXPECT_FALSE(data->Receive(&byte, 1, &received));
    EXPECT_EQ(9u, received);
    EXPECT_EQ((Failures{"CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 10038.",
                        "CDataChannel::Receive: Failed to receive data."}),
              log.Failures());

    ServeData();
    data = MakeData();
    ASSERT_TRUE(data->Open());
    auto read = std::async(std::launch::async, [&] { return data->Receive(&byte, 1, &received); });
    data->Close();
    data->Close();
    EXPECT_FALSE(ResultOf(read));
    EXPECT_EQ(9u, received);
}

}  // namespace
