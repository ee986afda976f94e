// What becomes of a document that the embedded spooler has accepted.

#include "platform/posix/utf.h"
#include "tests/spooler_fixture.h"

namespace {

DWORD StatusOf(DWORD job)
{
    const Handle printer(TEXT("First"));
    alignas(JOB_INFO_2W) BYTE buffer[2048];
    DWORD needed = 0;
    EXPECT_TRUE(GetJobW(printer, job, 2, buffer, sizeof(buffer), &needed)) << ErrorText();
    return reinterpret_cast<JOB_INFO_2W*>(buffer)->Status;
}

bool Tell(DWORD job, DWORD command)
{
    const Handle printer(TEXT("First"));
    return SetJobW(printer, job, 0, nullptr, command) != FALSE;
}

std::string LongDocument()
{
    std::string document;
    for (int i = 0; document.size() < 300000; ++i)
        document += std::to_string(i) + ",";
    return document;
}

}  // namespace

TEST_F(SpoolerTest, PortGetsTheDocumentWholeHoweverItTakesIt)
{
    monitor.Locked([](TestMonitorScript& script) {
        script.takeAtMost = 7777;
        script.emptyWrites = 3;
    });
    const std::string document = LongDocument();
    const DWORD job = Print(TEXT("first"), document);
    ASSERT_NE(0u, job) << ErrorText();

    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
    ASSERT_EQ(1u, Documents().size());
    EXPECT_EQ(document, Documents()[0].bytes);
    EXPECT_EQ(job, Documents()[0].jobId);
    EXPECT_EQ(2u, monitor.Locked([](TestMonitorScript& script) { return script.portsSeenFromWithin; }));
    const JOB_PROGRESS progress = ProgressOf(job);
    EXPECT_EQ(document.size(), progress.bytesWritten);
    EXPECT_EQ(1u, progress.attempt);
    EXPECT_EQ(JOB_STATUS_PRINTED | JOB_STATUS_COMPLETE, StatusOf(job));
    EXPECT_EQ(0u, DocumentFiles());
    EXPECT_NE(0u, Print(TEXT("First"), "")) << "an empty document is a job, too";
}

TEST_F(SpoolerTest, FailedAttemptIsRepeatedFromTheFirstByteAfterGrowingPauses)
{
    monitor.Locked([](TestMonitorScript& script) {
        script.failingWrites = 3;
        script.takeAtMost = 100000;
        // As a monitor ends a restarted job: the deletion must not turn "sent" into "deleted".
        script.onEnd = {JOB_CONTROL_SENT_TO_PRINTER, JOB_CONTROL_DELETE};
    });
    const std::string document = LongDocument();
    const DWORD job = Print(TEXT("First"), document);

    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
    const auto attempts = Documents();
    ASSERT_EQ(4u, attempts.size());
    EXPECT_EQ(document, attempts[3].bytes);
    for (std::size_t i = 1; i < attempts.size(); ++i) {
        EXPECT_TRUE(attempts[i - 1].ended);
        EXPECT_GE(attempts[i].startedAt - attempts[i - 1].startedAt, 1000u << (i - 1));
    }
}

TEST_F(SpoolerTest, JobIsGivenUpAtTheLimitAndKeptUntilTheUserDecides)
{
    RunAcceptedJobs(true, 3);
    // A missing word of restart makes no difference, and a mark as sent none for half a document.
    monitor.Locked([](TestMonitorScript& script) {
        script.failingWrites = 3;
        script.onFailedWrite = {JOB_CONTROL_SENT_TO_PRINTER};
    });
    const DWORD job = Print(TEXT("First"), "a card");
    EXPECT_EQ(JOB_OUTCOME_ERROR, AwaitOutcome(job));
    EXPECT_EQ(3u, Documents().size());
    EXPECT_EQ(static_cast<DWORD>(ERROR_GEN_FAILURE), ProgressOf(job).lastError);
    EXPECT_NE('\0', ProgressOf(job).reason[0]);
    EXPECT_EQ(JOB_STATUS_ERROR, StatusOf(job));
    const DWORD next = Print(TEXT("First"), "another card");
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(next)) << "a job in error doesn't block its port";

    Restart();
    EXPECT_TRUE(Tell(job, JOB_CONTROL_RESTART)) << ErrorText();
    DWORD ports = 0;
    EXPECT_TRUE(RunPendingJobs(&ports));
    EXPECT_EQ(1u, ports);
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
    EXPECT_EQ("a card", Documents().back().bytes);
}

TEST_F(SpoolerTest, MissingPortAndMissingMonitorAreReportedAndTheJobIsKept)
{
    RunAcceptedJobs(true, 2);
    monitor.Locked([](TestMonitorScript& script) { script.ports = {TEXT("TWO")}; });
    const DWORD portless = Print(TEXT("First"), "a card");
    EXPECT_EQ(JOB_OUTCOME_ERROR, AwaitOutcome(portless));
    EXPECT_NE(std::string::npos, std::string(ProgressOf(portless).reason).find("\"ONE\""))
        << ProgressOf(portless).reason;

    WideString name = TEXT("TEST");
    ASSERT_TRUE(DeleteMonitorW(nullptr, nullptr, name.data()));
    const DWORD orphan = Print(TEXT("Second"), "a card");
    EXPECT_EQ(JOB_OUTCOME_ERROR, AwaitOutcome(orphan));
    EXPECT_NE(std::string::npos, std::string(ProgressOf(orphan).reason).find("\"TEST\""))
        << ProgressOf(orphan).reason;
    EXPECT_EQ(2u, DocumentFiles());
}

TEST_F(SpoolerTest, SilentMonitorLeavesTheJobUnconfirmed)
{
    monitor.Locked([](TestMonitorScript& script) { script.onEnd = {}; });
    const DWORD job = Print(TEXT("First"), "a card");
    EXPECT_EQ(JOB_OUTCOME_UNCONFIRMED, AwaitOutcome(job));
    EXPECT_EQ(1u, Documents().size()) << "not repeated unasked";
    EXPECT_EQ(1u, DocumentFiles()) << "not lost";
    EXPECT_FALSE(Tell(job, JOB_CONTROL_SENT_TO_PRINTER)) << "nothing runs that could have been sent";

    HANDLE printer = nullptr;
    WideString name = TEXT("First");
    ASSERT_TRUE(OpenPrinterW(name.data(), &printer, nullptr));
    EXPECT_FALSE(DeletePrinter(printer));
    EXPECT_EQ(ERROR_PRINTER_HAS_JOBS_QUEUED, GetLastError());
    EXPECT_TRUE(Tell(job, JOB_CONTROL_DELETE));
    EXPECT_EQ(static_cast<DWORD>(JOB_OUTCOME_DELETED), ProgressOf(job).outcome);
    EXPECT_EQ(0u, DocumentFiles());
    EXPECT_FALSE(Tell(job, JOB_CONTROL_RESTART)) << "its document is gone";
    EXPECT_TRUE(DeletePrinter(printer));
    ClosePrinter(printer);
}

TEST_F(SpoolerTest, DeletionEndsAJobThatWaitsInThePrintServersQueue)
{
    monitor.Locked([](TestMonitorScript& script) {
        script.emptyWrites = 1000000;
        script.onEnd = {};
    });
    for (const bool byAnotherProcess : {false, true}) {
        SCOPED_TRACE(byAnotherProcess);
        const DWORD job = Print(TEXT("First"), "a card");
        AwaitPhase(job, JOB_PHASE_WAITING);
        EXPECT_EQ(JOB_STATUS_PRINTING, StatusOf(job));
        if (byAnotherProcess)
            EXPECT_TRUE(Companion("delete", job).Succeeds());
        else
            EXPECT_TRUE(Tell(job, JOB_CONTROL_DELETE));
        EXPECT_EQ(JOB_OUTCOME_DELETED, AwaitOutcome(job));
        EXPECT_TRUE(Documents().back().ended) << "through EndDocPort";
        EXPECT_EQ(0u, DocumentFiles());
    }
}

TEST_F(SpoolerTest, CancellationAtThePrintServerIsNoSuccess)
{
    // The worker of a monitor hears of it and deletes; the end of the document marks it as sent all the same.
    monitor.Locked([](TestMonitorScript& script) {
        script.commandsFromAnotherThread = true;
        script.onEnd = {JOB_CONTROL_DELETE, JOB_CONTROL_SENT_TO_PRINTER};
    });
    EXPECT_EQ(JOB_OUTCOME_DELETED, AwaitOutcome(Print(TEXT("First"), "a card")));
}

TEST_F(SpoolerTest, JobsOfOnePortTakeTurnsAndPortsDont)
{
    monitor.Locked([](TestMonitorScript& script) { script.heldPort = TEXT("ONE"); });
    const DWORD first = Print(TEXT("First"), "a");
    const DWORD second = Print(TEXT("First"), "b");
    const DWORD elsewhere = Print(TEXT("Second"), "c");
    AwaitThat([&] { return ProgressOf(elsewhere).outcome == JOB_OUTCOME_SENT; });
    EXPECT_EQ(static_cast<DWORD>(JOB_PHASE_QUEUED), ProgressOf(second).phase);
    EXPECT_TRUE(Tell(second, JOB_CONTROL_DELETE));
    EXPECT_EQ(JOB_STATUS_DELETING, StatusOf(second));

    monitor.Locked([](TestMonitorScript& script) { script.heldPort.clear(); });
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(first));
    EXPECT_EQ(JOB_OUTCOME_DELETED, AwaitOutcome(second));
    EXPECT_EQ(2u, Documents().size()) << "the deleted one never started";
}

TEST_F(SpoolerTest, ShutdownBreaksOffARunAndKeepsTheJob)
{
    monitor.Locked([](TestMonitorScript& script) { script.emptyWrites = 1000000; });
    const DWORD job = Print(TEXT("First"), "a card");
    AwaitPhase(job, JOB_PHASE_WAITING);
    // EndDocPort marks it as sent, which is not to be believed of a document that was cut off.
    Restart();
    EXPECT_TRUE(Documents().back().ended);
    EXPECT_EQ(static_cast<DWORD>(JOB_PHASE_QUEUED), ProgressOf(job).phase);

    monitor.Locked([](TestMonitorScript& script) { script.emptyWrites = 0; });
    EXPECT_TRUE(RunPendingJobs(nullptr));
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
    EXPECT_EQ("a card", Documents().back().bytes);
}

TEST_F(SpoolerTest, ShutdownThatHasToWaitTooLongUnloadsNothing)
{
    monitor.Locked([](TestMonitorScript& script) { script.heldPort = TEXT("ONE"); });
    const DWORD job = Print(TEXT("First"), "a card");
    monitor.Await([](const TestMonitorScript& script) { return script.writes == 1; });
    EXPECT_FALSE(ShutdownSpooler(100));
    EXPECT_EQ(ERROR_TIMEOUT, GetLastError());
    EXPECT_EQ(1, monitor.Locked([](TestMonitorScript& script) { return script.running; }));
    monitor.Locked([](TestMonitorScript& script) { script.heldPort.clear(); });
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job)) << "all its bytes were with the port";
}

TEST_F(SpoolerTest, KilledProcessLosesNothingThatWasAccepted)
{
    Companion accepting("accept");
    const DWORD accepted = accepting.Report();
    accepting.Kill();
    Companion beginning("begin");
    const DWORD begun = beginning.Report();
    EXPECT_EQ(static_cast<DWORD>(JOB_PHASE_SPOOLING), ProgressOf(begun).phase);
    Restart();
    EXPECT_EQ(static_cast<DWORD>(JOB_PHASE_SPOOLING), ProgressOf(begun).phase) << "its process lives";
    beginning.Kill();
    Restart();
    EXPECT_EQ(static_cast<DWORD>(JOB_PHASE_QUEUED), ProgressOf(accepted).phase);
    EXPECT_EQ(1u, DocumentFiles()) << "the half document has gone";

    EXPECT_TRUE(RunPendingJobs(nullptr));
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(accepted));
    EXPECT_EQ("printed by a companion", Documents().back().bytes);
    HANDLE server = nullptr;
    ASSERT_TRUE(OpenPrinterW(nullptr, &server, nullptr));
    JOB_PROGRESS progress = {};
    progress.cbSize = sizeof(progress);
    EXPECT_FALSE(GetJobProgress(server, begun, &progress)) << "never accepted";
    ClosePrinter(server);
}

TEST_F(SpoolerTest, PortBelongsToOneProcessUntilThatDies)
{
    Companion other("print");
    const DWORD theirs = other.Report();
    const DWORD ours = Print(TEXT("First"), "ours");
    const DWORD elsewhere = Print(TEXT("Second"), "elsewhere");
    AwaitThat([&] { return ProgressOf(elsewhere).outcome == JOB_OUTCOME_SENT; });
    AwaitThat([] { return CountActivePorts() == 1; });
    ASSERT_EQ(1u, Documents().size()) << "port ONE is run by the companion";

    other.Kill();
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(ours));
    EXPECT_EQ(static_cast<DWORD>(JOB_OUTCOME_SENT), ProgressOf(theirs).outcome);
    EXPECT_EQ(2u, ProgressOf(theirs).attempt);
    const auto documents = Documents();
    ASSERT_EQ(3u, documents.size());
    EXPECT_EQ("printed by a companion", documents[1].bytes) << "from its first byte, and before ours";
    EXPECT_EQ("ours", documents[2].bytes);
}

TEST_F(SpoolerTest, JobRecordsArePackedLikeThePlatforms)
{
    RunAcceptedJobs(false);
    const DWORD job = Print(TEXT("First"), "a card");
    const DWORD second = Print(TEXT("First"), "two");
    const Handle printer(TEXT("First"));
    DWORD needed = 77;
    EXPECT_FALSE(GetJobW(printer, 4711, 2, nullptr, 0, &needed));
    EXPECT_EQ(0u, needed);
    EXPECT_FALSE(GetJobW(nullptr, job, 2, nullptr, 0, &needed));
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    EXPECT_FALSE(GetJobW(Handle(TEXT("Second")), job, 2, nullptr, 0, &needed)) << "another printer's job";
    EXPECT_FALSE(GetJobW(printer, second, 2, nullptr, 0, &needed));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());

    std::vector<BYTE> buffer(needed);
    EXPECT_FALSE(GetJobW(printer, second, 2, buffer.data(), needed - 1, &needed));
    ASSERT_TRUE(GetJobW(printer, second, 2, buffer.data(), needed, &needed));
    const auto* info = reinterpret_cast<JOB_INFO_2W*>(buffer.data());
    EXPECT_EQ(second, info->JobId);
    EXPECT_EQ("card", ToUtf8(info->pDocument));
    EXPECT_EQ("First", ToUtf8(info->pPrinterName));
    EXPECT_EQ(2u, info->Position);
    EXPECT_EQ(3u, info->Size);

    DWORD returned = 0;
    EXPECT_FALSE(EnumJobsW(printer, 0, 10, 2, nullptr, 0, &needed, &returned));
    buffer.resize(needed + 1);
    ASSERT_TRUE(EnumJobsW(printer, 0, 10, 2, buffer.data(), needed, &needed, &returned));
    EXPECT_EQ(2u, returned);
    ASSERT_TRUE(EnumJobsW(printer, 1, 10, 2, buffer.data(), needed, &needed, &returned));
    EXPECT_EQ(1u, returned);
    EXPECT_EQ(second, reinterpret_cast<JOB_INFO_2W*>(buffer.data())->JobId);
    EXPECT_FALSE(SetJobW(printer, job, 0, nullptr, JOB_CONTROL_PAUSE));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, GetLastError());
}

TEST_F(SpoolerTest, DocumentIsDroppedUnlessItIsEnded)
{
    std::string bytes = "bytes";
    DWORD written = 0;
    DOC_INFO_1W info = {};
    DWORD job = 0;
    {
        const Handle printer(TEXT("First"));
        EXPECT_FALSE(WritePrinter(printer, bytes.data(), 5, &written));
        EXPECT_EQ(ERROR_SPL_NO_STARTDOC, GetLastError());
        job = StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&info));
        EXPECT_TRUE(WritePrinter(printer, bytes.data(), 5, &written));
        EXPECT_EQ(0u, StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&info)));
        EXPECT_EQ(ERROR_INVALID_PRINTER_STATE, GetLastError());
        EXPECT_EQ(1u, DocumentFiles());
    }
    EXPECT_EQ(0u, DocumentFiles());
    EXPECT_FALSE(Tell(job, JOB_CONTROL_DELETE));

    const Handle printer(TEXT("First"));
    job = StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&info));
    EXPECT_TRUE(Tell(job, JOB_CONTROL_DELETE));
    EXPECT_FALSE(EndDocPrinter(printer));
    EXPECT_EQ(ERROR_PRINT_CANCELLED, GetLastError());
    EXPECT_EQ(0u, DocumentFiles());
}
