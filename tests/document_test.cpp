// What becomes of a document, and of its job in the spooler, when things go well and when they don't.

#include <algorithm>

#include "tests/support/printing_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

class JobOutcome : public Printing {
protected:
    void ForgetSpooler()
    {
        spooler.Reset();
        spooler.AttachMonitor(table, monitor);
        log.Clear();
    }
};

using Commands = std::vector<DWORD>;

}  // namespace

TEST_F(JobOutcome, EndsAsThePrintServerSays)
{
    const struct {
        std::uint16_t state;
        Commands commands;
        DWORD status = 0;  // of the job in the spooler
    } ends[] = {
        {7, {JOB_CONTROL_SENT_TO_PRINTER}}, {8, {JOB_CONTROL_SENT_TO_PRINTER}},
        {9, {JOB_CONTROL_SENT_TO_PRINTER}},  // as the first record: nobody has cancelled this job
        {6, {JOB_CONTROL_RESTART}},         {10, {JOB_CONTROL_RESTART}},
        {0xFFFF, {JOB_CONTROL_RESTART}},    {2, {}, JOB_STATUS_DELETED},
    };
    for (const auto& end : ends) {
        SCOPED_TRACE(end.state);
        ServeByHand(Lpq(0, end.state));
        ForgetSpooler();
        ASSERT_TRUE(StartJob());
        ASSERT_TRUE(Write({1}));
        spooler.ServeJobStatus(end.status);
        SetLastError(0);
        EXPECT_TRUE(End());
        EXPECT_EQ(end.commands != Commands{JOB_CONTROL_SENT_TO_PRINTER}, GetLastError() == ERROR_GEN_FAILURE);
        EXPECT_EQ(end.commands, spooler.JobCommands());
        EXPECT_TRUE(
            log.Has(end.status == 0 ? "Job status in EndDocPort: 0x0." : "Job status in EndDocPort: 0x100."));
        EXPECT_EQ(0, spooler.OpenPrinters());
    }
}

TEST_F(JobOutcome, IsCancelledByANotificationAndBeforeAnyWrite)
{
    ServeByHand(Lpq(0, kReceivingData));
    ASSERT_TRUE(StartJob());
    spooler.ServeJobStatus(0x10);
    ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
    ASSERT_TRUE(log.WaitFor("}krelIniPort::CancelCurrentPrintJob"));
    EXPECT_EQ(Commands{JOB_CONTROL_DELETE}, spooler.JobCommands());
    EXPECT_TRUE(log.Has("Job status when first entering: 0x10."));
    EXPECT_TRUE(log.Has("Job status after cancelling job 0x10."));
    EXPECT_TRUE(Write({1})) << "the data path goes on until the spooler stops it";

    // A job on its way out is left alone.
    spooler.ServeJobStatus(JOB_STATUS_DELETING);
    ASSERT_TRUE(Learns(Lpq(0, kCancelled)));
    ASSERT_TRUE(log.WaitFor("}krelIniPort::CancelCurrentPrintJob"));
    EXPECT_EQ(1, spooler.Count(Spooler::SetJob));
    EXPECT_FALSE(log.Has("Job status"));
    EXPECT_TRUE(End());
}

TEST_F(JobOutcome, IsRestartedAfterALostLinkAndRemovedAfterItsSecondRun)
{
    server->FaultAt(Step::DataMiddle, Fault::Reset().AfterBytes(50000), 1);
    ASSERT_TRUE(StartJob());
    const Bytes card = SampleDocument(100000);
    bool wrote = true;
    for (int i = 0; i < 1000 && wrote; ++i)
        wrote = Write(card);
    EXPECT_FALSE(wrote);
    EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, GetLastError());
    EXPECT_LT(written, card.size());
    EXPECT_TRUE(log.Has("krelIniPort::writePort: ERROR: Failed to send data to command channel."));
    EXPECT_EQ(Commands{JOB_CONTROL_RESTART}, spooler.JobCommands());
    EXPECT_FALSE(Write(card)) << "a closed link stays closed";
    EXPECT_EQ((Commands{JOB_CONTROL_RESTART, JOB_CONTROL_RESTART}), spooler.JobCommands());
    const DWORD before = GetTickCount();
    EXPECT_TRUE(End());
    EXPECT_LT(GetTickCount() - before, 25000u) << "a job in error is not waited for";

    ForgetSpooler();
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Write(card));
    ASSERT_TRUE(End());
    EXPECT_EQ((Commands{JOB_CONTROL_SENT_TO_PRINTER, JOB_CONTROL_DELETE}), spooler.JobCommands());
    ASSERT_TRUE(server->WaitFor(EventKind::DocumentComplete));
    EXPECT_EQ(card, server->Documents().back().bytes);

    // A job without a number says nothing; another job's number ends the memory of the failure.
    for (const DWORD job : {0u, 8u, 7u}) {
        ForgetSpooler();
        ASSERT_TRUE(StartJob(job));
        ASSERT_TRUE(End());
        EXPECT_EQ(Commands{JOB_CONTROL_SENT_TO_PRINTER}, spooler.JobCommands()) << job;
    }
}

TEST_F(JobOutcome, OfARestartedJobIsNotRemovedWhenTheSpoolerRefusesItsEnd)
{
    ServeByHand(Lpq(0, kReceivingData));
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(End());
    ASSERT_EQ(Commands{JOB_CONTROL_RESTART}, spooler.JobCommands());
    ForgetSpooler();
    spooler.Refuse(Spooler::SetJob, ERROR_ACCESS_DENIED);
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    EXPECT_TRUE(End());
    EXPECT_EQ(1, spooler.Count(Spooler::SetJob));
    EXPECT_TRUE(log.Has("Call to SetJob() failed - unable to mark print job as sent to printer."));
}

// The record may grow between the calls that ask for it, be shorter than its fields, or not be there; and
// the spooler may refuse what it is asked for.
TEST_F(JobOutcome, SurvivesWhateverTheSpoolerSaysOfTheJob)
{
    const struct {
        std::vector<DWORD> sizes;  // of one call of GetJobW after the other; the last one stays
        std::optional<Spooler> refused;
        const char* ending;
        const char* cancelling;
        bool isCommanded;
    } records[] = {
        {{200, 300},
         {},
         "Call to getJob() failed - unable to mark print job as being in error state.",
         "Call to getJob() failed - unable to cancel print job.",
         false},
        {{200, 200, 300}, {}, "Call to GetJob() failed", "Call to GetJob() failed", true},
        {{8}, {}, "Job status after restarting job 0x0.", "Job status after cancelling job 0x0.", true},
        {{200},
         Spooler::SetJob,
         "Call to SetJob() failed - unable to restart.",
         "Call to SetJob() failed - unable to cancel.",
         true},
    };
    for (const auto& record : records) {
        for (const bool cancels : {false, true}) {
            const std::string line = cancels ? record.cancelling : record.ending;
            SCOPED_TRACE(line);
            ServeByHand(Lpq(0, kReceivingData));
            ForgetSpooler();
            ASSERT_TRUE(StartJob());
            std::size_t calls = 0;
            spooler.Before(Spooler::GetJob, [&] {
                spooler.ServeJobSize(record.sizes[std::min(calls++, record.sizes.size() - 1)]);
            });
            if (record.refused)
                spooler.Refuse(*record.refused, ERROR_ACCESS_DENIED);
            if (cancels) {
                ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
                EXPECT_TRUE(log.WaitFor("}krelIniPort::CancelCurrentPrintJob"));
            } else {
                EXPECT_TRUE(End());
                EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, GetLastError());
            }
            const std::vector<std::string> lines = log.Messages();
            EXPECT_EQ(1, std::count(lines.begin(), lines.end(), line));
            const Commands command = {cancels ? DWORD{JOB_CONTROL_DELETE} : DWORD{JOB_CONTROL_RESTART}};
            EXPECT_EQ(record.isCommanded ? command : Commands{}, spooler.JobCommands());
            EXPECT_TRUE(End());
            spooler.Before(Spooler::GetJob, nullptr);
        }
    }
}

TEST_F(JobOutcome, NeedsAPrinterAndAFreePort)
{
    spooler.Refuse(Spooler::OpenPrinter, ERROR_INVALID_PRINTER_NAME, 1);
    EXPECT_FALSE(StartJob());
    EXPECT_EQ(DWORD{ERROR_INVALID_PRINTER_NAME}, GetLastError());
    EXPECT_TRUE(log.Has("krelIniPort::startDocPort: ERROR: Failed to OpenPrinter()."));
    EXPECT_EQ(0, server->Connections(Channel::Data));

    server->Refuse(Channel::Data);
    EXPECT_FALSE(StartJob());
    EXPECT_TRUE(log.Has("Failed to connect to 127.0.0.1, port " + std::to_string(server->Port()) + "."));
    EXPECT_TRUE(log.Has("CSyncSocket::Connect: ERROR: Failed to connect."));
    server->Welcome(Channel::Data);

    // What a spooler leaves out: the name of the printer, the number of the job, the document's record.
    {
        const SlowClock slow;
        EXPECT_TRUE(table->pfnStartDocPort(port, nullptr, 0, 2, nullptr));
    }
    EXPECT_EQ("NULL", spooler.Calls(Spooler::OpenPrinter).back().printerName);
    EXPECT_TRUE(log.Has("{krelIniPort::startDocPort: printer=NULL, jobId=0, level=2"));
    EXPECT_EQ(1, server->OpenConnections(Channel::Command));

    DOC_INFO_2W otherMode{Text("Card"), nullptr, Text("RAW"), DI_CHANNEL + 1, kJob};
    {
        const SlowClock slow;
        EXPECT_TRUE(
            table->pfnStartDocPort(port, Text("Printer"), kJob, 2, reinterpret_cast<LPBYTE>(&otherMode)));
    }
    EXPECT_EQ(DWORD{ERROR_BUSY}, SetKeepAlive(TEXT("Card 1"), 1, 1)) << "no channel mode, so a print job";

    // A start without an end: the old document goes, and the new one prints.
    EXPECT_TRUE(StartJob());
    EXPECT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Command) == 1; }));
    EXPECT_EQ(1, spooler.OpenPrinters());
    EXPECT_TRUE(table->pfnClosePort(port)) << "closing ends no document";
    EXPECT_TRUE(Write({1}));
    EXPECT_TRUE(End());
    EXPECT_TRUE(End()) << "an idle port has nothing to end";
    EXPECT_FALSE(Write({1}));
    EXPECT_TRUE(log.Has("Data channel not setup."));
    EXPECT_FALSE(Read(1));
    EXPECT_TRUE(log.Has("Data or command channel not setup."));
    EXPECT_FALSE(Query(1));
    EXPECT_TRUE(log.Has("Command channel not setup."));
}

TEST_F(JobOutcome, KeepsThePortsSettingsStill)
{
    const auto change = [&] {
        return OpenXcv(TEXT("card 1"))
            .Send(TEXT("SetPortProperties"), PortRecord({}, TEXT("localhost"), server->Port()))
            .result;
    };
    ASSERT_TRUE(StartJob());
    EXPECT_EQ(DWORD{ERROR_BUSY}, change());
    EXPECT_EQ(DWORD{ERROR_BUSY}, SetKeepAlive(TEXT("Card 1"), 1, 1));
    EXPECT_EQ(TEXT("127.0.0.1"), registry.Text("Ports/Card 1", "Print Server"));
    ASSERT_TRUE(End());
    EXPECT_EQ(0u, change());
    ASSERT_TRUE(StartChannel());
    EXPECT_EQ(0u, change()) << "a document in channel mode doesn't hold the port";
    ASSERT_TRUE(End());
}

TEST_F(JobOutcome, WaitsForTheBusyMarkOfAnotherThread)
{
    const auto startAnother = [this] { EXPECT_TRUE(StartJob(8)); };
    for (const bool channel : {false, true}) {
        log.Clear();
        log.AtLine("}krelIniPort::Cleanup", startAnother);  // in the middle of this one
        const DWORD before = GetTickCount();
        EXPECT_FALSE(channel ? StartChannel() : StartJob());
        EXPECT_GE(GetTickCount() - before, 4900u);
        EXPECT_TRUE(log.Has("Failed to gain exclusive access to the port for printing."));
        EXPECT_TRUE(log.Has("Unable to get exclusive access to the port for printing."));
        EXPECT_EQ(1, spooler.OpenPrinters());
        EXPECT_TRUE(Write({1})) << "the document that was faster goes on";
        EXPECT_TRUE(End());
    }
    // The mark goes while another start waits for it.
    log.AtLine("}krelIniPort::Cleanup", [this, startAnother] {
        startAnother();
        log.AtLine("{krelIniPort::LockPortForPrinting", [this] { EXPECT_TRUE(End()); });
    });
    EXPECT_TRUE(StartJob());
    EXPECT_TRUE(End());
}

// The spooler ends a document whose start still waits for the first word of the job.
TEST_F(JobOutcome, IsNobodysBusinessBeforeTheFirstRecord)
{
    ServeByHand(Lpq(0, kReceivingData));
    server->FaultAt(Step::FirstLpqInfo, Fault::Drop());
    std::thread start([this] { EXPECT_FALSE(StartJob()); });
    EXPECT_TRUE(server->WaitFor(EventKind::FaultPlayed));
    test_switches::SetTimeScale(kTimeScale);
    EXPECT_TRUE(End());
    start.join();
    EXPECT_EQ(Commands{}, spooler.JobCommands());
    EXPECT_EQ(0, spooler.OpenPrinters());
}

TEST_F(JobOutcome, IsReadBackByParallelReads)
{
    const Bytes back = SampleDocument(10);
    server->Data().Accept().Send(SessionId(7)).Send(TransMode()).Send(back).ReceiveAll();
    server->Command()
        .Accept()
        .AnswerVersion("1.10")
        .AnswerBind(7)
        .AnswerStartKeepAlives()
        .AnswerStartNotifications(Lpq(0, kFinished))
        .AnswerParallelRead(10)
        .AnswerParallelRead(6)
        .AnswerParallelRead(0)
        .AwaitHangUp();
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Read(4)) << "ten bytes are on offer";
    EXPECT_EQ(4u, read);
    EXPECT_EQ(Bytes(back.begin(), back.begin() + 4), readBack);
    ASSERT_TRUE(Read(100));
    EXPECT_EQ(6u, read);
    EXPECT_TRUE(std::equal(back.begin() + 4, back.end(), readBack.begin()));
    ASSERT_TRUE(Read(100));
    EXPECT_EQ(0u, read);
    EXPECT_TRUE(End());
    EXPECT_EQ("", server->FirstStepNotPlayed());
}

TEST_F(JobOutcome, IsRestartedWhenAReadFails)
{
    server->FaultAt(Step::ParallelReadReply, Fault::Error(3), 1);
    ASSERT_TRUE(StartJob());
    EXPECT_FALSE(Read(10));
    EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, GetLastError());
    EXPECT_TRUE(log.Has("krelIniPort::readPort: ERROR: Failed to initiate parallel read."));
    EXPECT_EQ(Commands{JOB_CONTROL_RESTART}, spooler.JobCommands());
    server->OfferParallelData(SampleDocument(5));
    EXPECT_TRUE(Read(10)) << "an error in a reply leaves the link as it is";
    EXPECT_EQ(5u, read);

    // The server ends the data connection: first an empty read, then failures.
    server->HangUp(Channel::Data);
    ASSERT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Data) == 0; }));
    server->FaultAt(Step::ParallelReadReply, Fault::Payload(U16(3)));
    EXPECT_TRUE(Read(10));
    EXPECT_EQ(0u, read);
    EXPECT_FALSE(Read(10));
    EXPECT_TRUE(log.Has("krelIniPort::readPort: ERROR: Failed to receive data from the printer."));
    EXPECT_TRUE(End());
}
