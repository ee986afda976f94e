// Calls that come late: their document is ending, has ended, or another has taken its place. They touch no
// other document, and nothing is left of theirs.

#include "tests/support/overlap_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

using Commands = std::vector<DWORD>;
constexpr DWORD kNext = 8;  // the job after kJob

class LateCalls : public OverlapFixture {
protected:
    // At the next such line its thread stops, until the gate is opened.
    ::Gate HoldAt(const std::string& line)
    {
        const ::Gate gate;
        log.AtLine(line, [gate] { gate.Pass(); });
        return gate;
    }
    // The next job is on the port, untouched, and prints to its end.
    void ExpectTheNextJobToPrint()
    {
        EXPECT_EQ(1, spooler.OpenPrinters());
        EXPECT_EQ(Commands{}, spooler.TakeJobCommands(kNext));
        EXPECT_EQ(DWORD{ERROR_BUSY}, SetKeepAlive(TEXT("Card 1"), 1, 1));
        EXPECT_TRUE(Write({1, 2, 3}));
        EXPECT_TRUE(Learns(Lpq(0, kFinished)));
        EXPECT_TRUE(End());
        EXPECT_EQ(Commands{JOB_CONTROL_SENT_TO_PRINTER}, spooler.TakeJobCommands(kNext));
        EXPECT_EQ((Bytes{1, 2, 3}), LastDocument().bytes);
    }
    // No connection, worker or printer of any document is left.
    void ExpectNothingLeft()
    {
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_TRUE(server->WaitFor([this] {
            return server->OpenConnections(Channel::Data) + server->OpenConnections(Channel::Command) == 0;
        }));
        EXPECT_LE(log.Count("{CCommandChannel::ThreadProc"), log.Count("}CCommandChannel::ThreadProc"));
    }
};

}  // namespace

// In the reply's wait, and inside the recv of what the reply has promised.
TEST_F(LateCalls, AReadThatTheDocumentsEndCutsOffLeavesTheJobAlone)
{
    for (const bool inData : {false, true}) {
        server->FaultAt(Step::ParallelReadReply, inData ? Fault::Payload(U16(5)) : Fault::Drop(), 1);
        ASSERT_TRUE(StartJob());
        log.Clear();
        Beside([this] { return Read(10); });
        ASSERT_TRUE(log.WaitFor(inData ? "{CDataChannel::Receive" : "{CCommandChannel::StartParallelRead"));
        ASSERT_TRUE(Learns(Lpq(0, kFinished)));
        EXPECT_TRUE(End());
        EXPECT_EQ(0, Result());
        EXPECT_EQ(Commands{JOB_CONTROL_SENT_TO_PRINTER}, spooler.TakeJobCommands(kJob)) << inData;
    }
}

TEST_F(LateCalls, AReadThatFailsAfterTheNextStartLeavesTheNextJobAlone)
{
    ASSERT_TRUE(StartJob());
    BlockAReader();
    const ::Gate failed = HoldAt("}CCommandChannel::StartParallelRead: ERROR");
    ASSERT_TRUE(StartJob(kNext));
    ASSERT_TRUE(failed.AwaitArrival());
    failed.Open();
    EXPECT_EQ(0, Result());
    EXPECT_EQ(Commands{}, spooler.TakeJobCommands(kJob));
    ExpectTheNextJobToPrint();
}

// The query's thread has taken the notification off the socket and not yet told the spooler.
TEST_F(LateCalls, ACancellationIsTheJobsWhoseServerSentIt)
{
    server->FaultAt(Step::QueryReply, Fault::Drop(), 1);
    ASSERT_TRUE(StartJob());
    Beside([this] { return Query(5); });
    ASSERT_TRUE(server->WaitFor(EventKind::PrinterDataQuery));
    const ::Gate taken = HoldAt("{krelIniPort::CancelCurrentPrintJob");
    ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
    ASSERT_TRUE(taken.AwaitArrival());
    ASSERT_TRUE(StartJob(kNext));
    taken.Open();
    EXPECT_EQ(0, Result());
    ExpectTheNextJobToPrint();
}

TEST_F(LateCalls, AnEndThatWaitsForItsCardLeavesTheNextJobAlone)
{
    ASSERT_TRUE(StartJob());
    log.Clear();
    Beside([this] { return End(); });
    ASSERT_TRUE(log.WaitFor("}CDataChannel::Close"));
    ASSERT_TRUE(StartJob(kNext));
    EXPECT_EQ(1, Result());
    EXPECT_EQ(Commands{}, spooler.TakeJobCommands(kJob));
    ExpectTheNextJobToPrint();
}

TEST_F(LateCalls, AStartThatComesBackFromTheSpoolerGivesItsPrinterBack)
{
    const ::Gate opening;
    std::atomic<bool> isFirst{true};
    spooler.Before(Spooler::OpenPrinter, [&] {
        if (isFirst.exchange(false))
            opening.Pass();
    });
    Beside([this] { return StartChannel(); });
    ASSERT_TRUE(opening.AwaitArrival());
    ASSERT_TRUE(StartJob(kNext));
    const int closed = spooler.Count(Spooler::ClosePrinter);
    spooler.After(Spooler::OpenPrinter, [this] { ASSERT_TRUE(Write({})); });
    opening.Open();
    EXPECT_EQ(0, Result());
    EXPECT_EQ(closed + 1, spooler.Count(Spooler::ClosePrinter));
    ExpectTheNextJobToPrint();
}

TEST_F(LateCalls, AnEndThatCrossesAStartInChannelModeEndsItsOwnDocument)
{
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    const ::Gate ending = HoldAt("Job status in EndDocPort");
    Beside([this] { return End(); });
    ASSERT_TRUE(ending.AwaitArrival());
    ASSERT_TRUE(StartChannel(kNext));
    EXPECT_TRUE(Query(5));
    ending.Open();
    EXPECT_EQ(1, Result());
    EXPECT_TRUE(Query(5)) << "the new document was cleaned up";
    EXPECT_EQ(1, spooler.OpenPrinters());
    EXPECT_TRUE(End());
    ExpectNothingLeft();
}

TEST_F(LateCalls, AQueryDuringTheEndOfItsDocumentConnectsNothing)
{
    for (const char* const version : {"1.10", "1.9"}) {
        ServeVersion(version);
        log.Clear();
        ASSERT_TRUE(StartChannel());
        spooler.Before(Spooler::ClosePrinter, [this] { EXPECT_FALSE(Query(5)); });
        EXPECT_TRUE(End());
        spooler.Before(Spooler::ClosePrinter, nullptr);
        EXPECT_TRUE(log.Has("Command channel not setup."));
        EXPECT_EQ(0, server->Connections(Channel::Command));
        EXPECT_FALSE(Write({1})) << "there is no document";
        ExpectNothingLeft();
    }
}

// It makes a pair of channels, and has to drop the one that the query is out on.
TEST_F(LateCalls, AFirstWriteOrReadLetsAQueryGetItsAnswer)
{
    for (const bool reads : {false, true}) {
        server->FaultAt(Step::QueryReply, Fault::Delay(Milliseconds(300)), 1);
        ASSERT_TRUE(StartChannel());
        const int asked = server->Count(EventKind::PrinterDataQuery);
        Beside([this] { return Query(5); });
        ASSERT_TRUE(server->WaitFor(EventKind::PrinterDataQuery, asked + 1));
        EXPECT_TRUE(reads ? Read(1) : Write({1}));
        EXPECT_EQ(1, Result());
        EXPECT_TRUE(End());
    }
    // The query's answer never comes; a deletion ends the wait for it.
    server->FaultAt(Step::QueryReply, Fault::Drop());
    ASSERT_TRUE(StartChannel());
    Beside([this] { return Query(5); });
    ASSERT_TRUE(server->WaitFor(EventKind::PrinterDataQuery, 3));
    log.Clear();
    std::thread deleting;
    log.AtLine("{krelIniPort::writePort",
               [&] { deleting = std::thread([this] { EXPECT_EQ(0u, DeletePort(TEXT("Card 1"))); }); });
    EXPECT_FALSE(Write({1}));
    EXPECT_EQ(0, Result());
    deleting.join();
    EXPECT_TRUE(log.Has("}krelPortMonitor::deletePortEntry"));
    ExpectNothingLeft();
}

// Its document ends while the spooler takes its time over the question what the job is like.
TEST_F(LateCalls, AFailedCallRestartsNoChannelThatIsSentMeanwhile)
{
    server->FaultAt(Step::ParallelReadReply, Fault::Error(5), 1);
    ASSERT_TRUE(StartChannel());
    const ::Gate asked;
    spooler.Before(Spooler::GetJob, [asked] { asked.Pass(); });
    Beside([this] { return Read(10); });
    ASSERT_TRUE(asked.AwaitArrival());
    EXPECT_TRUE(End());
    asked.Open();
    EXPECT_EQ(0, Result());
    EXPECT_EQ(Commands{JOB_CONTROL_SENT_TO_PRINTER}, spooler.TakeJobCommands(kJob));
    ExpectNothingLeft();
}

// Which job the spooler was asked to restart is the current document's to say.
TEST_F(LateCalls, ARestartOfTheJobBeforeIsNotTakenForOneOfTheNextJob)
{
    server->FaultAt(Step::ParallelReadReply, Fault::Error(5));
    ASSERT_TRUE(StartJob());
    const ::Gate asked;
    spooler.Before(Spooler::GetJob, [asked, isFirst = std::make_shared<std::atomic<bool>>(true)] {
        if (isFirst->exchange(false))
            asked.Pass();
    });
    Beside([this] { return Read(10); });
    ASSERT_TRUE(asked.AwaitArrival());
    ASSERT_TRUE(StartJob(kNext));
    EXPECT_FALSE(Read(10));
    asked.Open();
    EXPECT_EQ(0, Result());
    EXPECT_EQ(Commands{JOB_CONTROL_RESTART}, spooler.TakeJobCommands(kNext));
    ASSERT_TRUE(StartJob(kNext));
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    EXPECT_TRUE(End());
    EXPECT_EQ((Commands{JOB_CONTROL_SENT_TO_PRINTER, JOB_CONTROL_DELETE}), spooler.TakeJobCommands(kNext));
    ExpectNothingLeft();
}
