// One print job from the spooler's first call to the last byte at the print server.

#include "tests/support/printing_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

class WholeJob : public Printing {
protected:
    // Keep-alives with an error, or unasked for, must not stand in the exchange.
    static std::vector<std::string> OpeningAt110(unsigned session, const Lpq& first)
    {
        return {"monitor " + Hex(VersionRequest()),
                "server " + Hex(VersionReply("1.10")),
                "monitor " + Hex(BindRequest(session)),
                "server " + Hex(Reply(kBindSession)),
                "monitor " + Hex(StartKeepAlivesRequest(5, 20)),
                "server " + Hex(Reply(kStartKeepAlives)),
                "monitor " + Hex(LpqRequest()),
                "server " + Hex(Notification(first))};
    }
};

}  // namespace

TEST_F(WholeJob, GoesOverTheWireByteForByte)
{
    PrintServerOptions options;
    options.firstSession = 7;
    Serve(std::move(options));
    ASSERT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 5, 20));
    const Bytes card = SampleDocument(3000000);

    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Write(card));
    EXPECT_EQ(card.size(), written);
    test_switches::SetTimeScale(kOpeningScale);  // the link may be silent for 20 of its seconds only
    ASSERT_TRUE(End());

    std::vector<std::string> expected = OpeningAt110(7, Lpq(0, kReceivingData));
    expected.push_back("server " + Hex(Notification(Lpq(0, kFinished))));
    EXPECT_EQ(expected, CommandMessages());
    EXPECT_EQ("monitor 00000002 00000021 00000020 00000000", expected[0]);
    EXPECT_EQ("monitor 00000002 00000001 00000000 00000002 0007", expected[2]);
    EXPECT_EQ("monitor 00000002 00000010 00000000 00000004 00050014", expected[4]);
    EXPECT_EQ("monitor 00000002 00000004 0000000a 00000000", expected[6]);
    EXPECT_TRUE(LastDocument().whole);
    EXPECT_EQ(card, LastDocument().bytes);
    EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER}, spooler.JobCommands());
    EXPECT_TRUE(log.Has("Received session id 7."));
}

// Bytes that nobody has read turn the close of a connection into a reset, which would cut off what the server
// hasn't taken yet.
TEST_F(WholeJob, ArrivesWholeAtAServerThatTalksUnasked)
{
    server->FaultAt(Step::DataMiddle, Fault::Delay(Milliseconds(300)).AfterBytes(4096));
    const Bytes card = SampleDocument(1 << 20);
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(server->Push(Channel::Data, Bytes(1000, 1)));
    ASSERT_TRUE(Write(card));
    test_switches::SetTimeScale(kOpeningScale);
    ASSERT_TRUE(End());
    EXPECT_EQ(card, LastDocument().bytes);
    EXPECT_FALSE(log.Has(":01:01:01")) << "what is dropped goes unmentioned";
}

TEST_F(WholeJob, ReportsOneFaultOncePerLevelFromTheInsideOut)
{
    server->FaultAt(Step::SessionId, Fault::Close());
    EXPECT_FALSE(StartJob());
    EXPECT_EQ(
        (std::vector<std::string>{
            "CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 0.",
            "CSyncSocket::Receive(char*): Failed to receive a char. Expected 1 byte(s), received 0 byte(s).",
            "CDataChannelMessage::Receive: Failed to receive a command from data channel.",
            "CDataChannel::Open: Failed to receive session id as the first message. Expected command 2, "
            "received command 0.",
            "krelIniPort::SetupCommunicationChannels: Failed to open data channel.",
            "krelIniPort::startDocPort: Failed to setup communication channels."}),
        log.Failures());
    EXPECT_TRUE(log.Has("}CDataChannel::Receive(char)"));
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_EQ(0u, OpenXcv(TEXT("Card 1")).Send(TEXT("SetPortProperties"), PortRecord({}, {}, 1)).result)
        << "the busy mark is left";
}

// Any step of the set-up may fail; the port is idle afterwards, and the next job on it prints.
TEST_F(WholeJob, PrintsAfterAFailedSetUp)
{
    const struct {
        Step step;
        Fault fault;
        const char* text;
    } failures[] = {
        {Step::TransMode, Fault::Close(), "Failed to open data channel."},
        {Step::AcceptCommand, Fault::Close(), "Failed to open command channel."},
        {Step::FirstLpqInfo, Fault::Payload(Bytes(9)), "Failed to start LPQInfo notifications."},
        {Step::FirstLpqInfo, Fault::HugeLength(), "Failed to start LPQInfo notifications."},
    };
    for (const auto& failure : failures) {
        SCOPED_TRACE(std::string(NameOf(failure.step)) + ": " + failure.text);
        spooler.Reset();
        spooler.AttachMonitor(table, monitor);
        log.Clear();
        server->FaultAt(failure.step, failure.fault, 1);
        EXPECT_FALSE(StartJob());
        EXPECT_TRUE(log.Has(failure.text));
        EXPECT_EQ(1, log.Count("}CCommandChannel::ThreadProc"));
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Data) == 0; }));
        server->ClearFaults();
        EXPECT_TRUE(StartJob());
        EXPECT_TRUE(Write({1, 2, 3}));
        EXPECT_TRUE(End());
        EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER}, spooler.JobCommands());
    }
}

TEST_F(WholeJob, WaitsInTheServersQueueWithoutLosingAByte)
{
    ServeByHand(Lpq(2, kWaiting));
    const Bytes card = SampleDocument(100000);
    ASSERT_TRUE(StartJob());
    EXPECT_TRUE(Write(card));
    EXPECT_EQ(0u, written);
    EXPECT_TRUE(Read(10));
    EXPECT_EQ(0u, read);
    BYTE byte;
    EXPECT_TRUE(table->pfnReadPort(port, &byte, 1, nullptr));
    EXPECT_TRUE(Query(5));
    EXPECT_EQ(0u, returned);
    ASSERT_TRUE(Learns(Lpq(0, kReceivingData)));
    EXPECT_TRUE(Write(card));
    EXPECT_EQ(card.size(), written);
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    EXPECT_TRUE(End());
    EXPECT_EQ(card, LastDocument().bytes);
}

// The spooler's writes can't tell that nobody listens any more; its end of the document can.
TEST_F(WholeJob, IsPrintedAgainWhenItsLinkEndsInTheServersQueue)
{
    ServeByHand(Lpq(2, kWaiting));
    ASSERT_TRUE(StartJob());
    server->Reset(Channel::Command);
    server->Reset(Channel::Data);
    ASSERT_TRUE(log.WaitFor("Disconnecting socket."));
    EXPECT_TRUE(Write({1}));
    EXPECT_EQ(0u, written);
    EXPECT_TRUE(End());
    EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, GetLastError());
    EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_RESTART}, spooler.JobCommands());
}

// A position with the top bit set is negative and holds nothing back; nobody has to give up a count.
TEST_F(WholeJob, TakesNegativePositionsForNone)
{
    ServeByHand(Lpq(-5, kReceivingData));
    ASSERT_TRUE(StartJob());
    BYTE bytes[] = {1, 2};
    EXPECT_TRUE(table->pfnWritePort(port, bytes, 2, nullptr));
    EXPECT_TRUE(Write({}));
    EXPECT_EQ(0u, written);
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    EXPECT_TRUE(End());
    EXPECT_EQ((Bytes{1, 2}), LastDocument().bytes);
}
