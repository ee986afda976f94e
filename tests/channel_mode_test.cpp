// Documents in channel mode: the spooler talks to the printer, and the channels come with the first call
// that needs them.

#include "tests/support/printing_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

class ChannelMode : public Printing {
protected:
    // Which requests the given command connection carried, in order.
    std::vector<std::uint32_t> Requests(int connection)
    {
        std::vector<std::uint32_t> ids;
        for (const CommandFrame& frame : server->Report(Channel::Command, connection).frames) {
            if (frame.requestId != kKeepAlive || frame.type != kTypeIoctl)
                ids.push_back(frame.requestId);
        }
        return ids;
    }
};

using Ids = std::vector<std::uint32_t>;

}  // namespace

TEST_F(ChannelMode, ConnectsAtTheFirstWriteAndEndsWithoutWaiting)
{
    ServeByHand(Lpq(0, kReceivingData));
    ASSERT_TRUE(StartChannel());
    EXPECT_EQ(0, server->Connections(Channel::Command));
    ASSERT_TRUE(Write({1, 2}));
    ASSERT_TRUE(Write({3}));
    EXPECT_EQ(1, server->Connections(Channel::Data));
    EXPECT_EQ((Ids{kProtocolVersion, kBindSession, kStartKeepAlives, kSuppressSyslog, kLpqInfo}),
              Requests(1));
    EXPECT_TRUE(End());
    EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER}, spooler.JobCommands());
    ASSERT_TRUE(server->WaitFor([&] { return !server->Documents().empty(); }));
    EXPECT_EQ((Bytes{1, 2, 3}), server->Documents()[0].bytes);
}

TEST_F(ChannelMode, AnswersQueriesOverTheCommandChannelAlone)
{
    ASSERT_TRUE(StartChannel());
    ASSERT_TRUE(Query(0x1234));
    EXPECT_EQ(4u, returned);
    EXPECT_EQ((Bytes{'a', 0, 'b', 0}), Bytes(answer.begin(), answer.begin() + 4));
    ASSERT_TRUE(Query(0x1234, 3));
    EXPECT_EQ(3u, returned);
    WCHAR output[2] = {};
    EXPECT_TRUE(table->pfnGetPrinterDataFromPort(port, 0x1234, nullptr, Text("ab"), 4, output, 4, nullptr));
    EXPECT_EQ('b', output[1]);
    Bytes huge((16 << 20) + 1);  // more than a message holds: refused, and the link stays
    EXPECT_FALSE(table->pfnGetPrinterDataFromPort(port, 0x1234, nullptr,
                                                  reinterpret_cast<LPWSTR>(huge.data()),
                                                  static_cast<DWORD>(huge.size()), output, 4, nullptr));
    EXPECT_EQ(1, server->Connections(Channel::Command));
    EXPECT_EQ(0, server->Connections(Channel::Data));
    EXPECT_EQ((Ids{kProtocolVersion, kStartKeepAlives, 0x1234, 0x1234, 0x1234}), Requests(1));

    // The first write wants a data channel: a new pair, and nothing of the old one is left.
    ASSERT_TRUE(Write({9}));
    EXPECT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Command) == 1; }));
    EXPECT_EQ(1, log.Count("}CCommandChannel::ThreadProc"));
    EXPECT_EQ((Ids{kProtocolVersion, kBindSession, kStartKeepAlives, kSuppressSyslog, kLpqInfo}),
              Requests(2));
    EXPECT_TRUE(Query(7));
    EXPECT_EQ(1, spooler.Count(Spooler::OpenPrinter));
    EXPECT_EQ(1, spooler.OpenPrinters());
    EXPECT_TRUE(End());
}

TEST_F(ChannelMode, UsesADataChannelForQueriesOfOldServers)
{
    for (const std::string version : {"1.9", "1.0", ""}) {
        SCOPED_TRACE(version);
        ServeVersion(version);
        log.Clear();
        ASSERT_TRUE(StartChannel());
        ASSERT_TRUE(Query(5));
        EXPECT_TRUE(log.Has("Getting printer data from port relying on (unused) data channel"));
        EXPECT_EQ(2, server->Connections(Channel::Command));
        EXPECT_EQ((Ids{kProtocolVersion, kBindSession, kStartKeepAlives, kSuppressSyslog, kLpqInfo, 5}),
                  Requests(2));
        EXPECT_TRUE(Query(5));
        EXPECT_EQ(2, server->Connections(Channel::Command));
        EXPECT_EQ(1, spooler.OpenPrinters()) << "the document keeps its printer";
        EXPECT_TRUE(End());
        EXPECT_EQ(JOB_CONTROL_SENT_TO_PRINTER, spooler.JobCommands().back());
    }
}

TEST_F(ChannelMode, AsksThePrinterEvenWhileAJobWaits)
{
    ServeByHand(Lpq(3, kWaiting));
    ASSERT_TRUE(StartChannel());
    EXPECT_TRUE(Write({1}));
    EXPECT_EQ(0u, written);
    EXPECT_TRUE(Query(5));
    EXPECT_EQ(4u, returned);
    EXPECT_TRUE(End());
}

TEST_F(ChannelMode, DoesNotConnectAgainAfterAFailure)
{
    server->Refuse(Channel::Command);
    ASSERT_TRUE(StartChannel());
    EXPECT_FALSE(Query(0));
    EXPECT_TRUE(log.Has("GetPrinterDataFromPort() should not be called with ControlID == 0."));
    EXPECT_FALSE(Write({1}));
    EXPECT_TRUE(log.Has("krelIniPort::writePort: ERROR: Failed to setup communication channels."));
    ASSERT_TRUE(StartChannel());
    EXPECT_FALSE(Read(1));
    EXPECT_TRUE(log.Has("krelIniPort::readPort: ERROR: Failed to setup communication channels."));
    server->Welcome(Channel::Command);
    EXPECT_FALSE(Write({1}));
    EXPECT_TRUE(log.Has("krelIniPort::writePort: ERROR: Data channel not setup."));
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_EQ(0, spooler.Count(Spooler::SetJob));
}

TEST_F(ChannelMode, FailsAQueryOnALostLinkWithoutTouchingTheJob)
{
    ASSERT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 5, 10));
    server->FaultAt(Step::QueryReply, Fault::Error(77), 1);
    ASSERT_TRUE(StartChannel());
    EXPECT_FALSE(Query(5));
    EXPECT_TRUE(log.Has("Received response indicates error 77."));
    EXPECT_EQ(0xDEADBEEFu, returned);
    server->StopKeepAlives();
    ASSERT_TRUE(log.WaitFor("Failed to receive keep-alives => disconnecting."));
    ASSERT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Command) == 0; }));
    EXPECT_FALSE(Query(5));
    EXPECT_TRUE(log.Has("because the data channel for the current print job is not connected."));
    EXPECT_EQ(0, spooler.Count(Spooler::SetJob));
    EXPECT_TRUE(End());
}
