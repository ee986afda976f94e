// Calls that overlap on one port: deletion and shutdown beside calls that are blocked, spooler calls that
// block or come back.

#include <new>

#include "link/command_channel.h"
#include "link/data_channel.h"
#include "ports/ini_port.h"
#include "tests/support/overlap_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

class Overlap : public OverlapFixture {
protected:
    // The worker stands in SetJobW until the gate opens.
    ::Gate StickTheWorker()
    {
        ::Gate gate = spooler.Block(Spooler::SetJob);
        EXPECT_TRUE(server->Notify(Lpq(0, kCancelled)));
        EXPECT_TRUE(gate.AwaitArrival());
        return gate;
    }
    void ExpectDeadPort()
    {
        log.Clear();
        EXPECT_FALSE(StartJob());
        EXPECT_FALSE(Write({1}));
        EXPECT_FALSE(Read(1));
        EXPECT_FALSE(Query(5));
        EXPECT_TRUE(End());
        EXPECT_TRUE(log.Has("Data channel not setup."));
        EXPECT_TRUE(log.Has("Data or command channel not setup."));
        EXPECT_TRUE(log.Has("Command channel not setup."));
    }
};

}  // namespace

TEST_F(Overlap, DeletionFreesABlockedReader)
{
    ASSERT_TRUE(StartJob());
    BlockAReader();
    EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
    EXPECT_EQ(0, Result());
    EXPECT_EQ(std::vector<std::string>{}, PortNames());
    EXPECT_TRUE(log.WaitFor("}krelIniPort::~krelIniPort"));
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Data) == 0; }));
    ExpectDeadPort();

    // The name is free again, and the new port is another one.
    const HANDLE old = port;
    port = AddAndOpenPort(TEXT("Card 1"), TEXT("127.0.0.1"), server->Port());
    EXPECT_NE(old, port);
    ASSERT_TRUE(StartJob());
    EXPECT_TRUE(End());
}

TEST_F(Overlap, DeletionFreesAWriterThatNobodyReads)
{
    server->FaultAt(Step::DataMiddle, Fault::Silence().AfterBytes(1000));
    ASSERT_TRUE(StartJob());
    Beside([this] { return Write(Bytes(64 << 20)); });
    ASSERT_TRUE(server->WaitFor(EventKind::FaultPlayed));
    EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
    EXPECT_EQ(0, Result());
    EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_RESTART}, spooler.JobCommands());
    ExpectDeadPort();
}

TEST_F(Overlap, DeletionAndShutdownEndEachWaitOfADocument)
{
    const auto hang = [this](Channel channel) { return [this, channel] { server->Hang(channel); }; };
    const auto inChannelMode = [this](Channel channel) {
        return [this, channel] {
            ASSERT_TRUE(StartChannel());
            server->Hang(channel);
        };
    };
    const struct {
        const char* name;
        std::function<void()> prepare;
        std::function<bool()> call;
        const char* scope;  // entered so many times, the call waits
        int times;
        int result;
    } waits[] = {
        {"a start's data channel", hang(Channel::Data), [this] { return StartJob(); },
         "{CSyncSocket::Connect", 1, 0},
        {"a start's command channel", hang(Channel::Command), [this] { return StartJob(); },
         "{CSyncSocket::Connect", 2, 0},
        {"a first write's data channel", inChannelMode(Channel::Data), [this] { return Write({1}); },
         "{CSyncSocket::Connect", 1, 0},
        {"a first query's command channel", inChannelMode(Channel::Command), [this] { return Query(5); },
         "{CSyncSocket::Connect", 1, 0},
        {"an end's look for the printed card", [this] { ASSERT_TRUE(StartJob()); },
         [this] {
             test_switches::SetTimeScale(1);  // half a minute of looks
             return End();
         },
         "{krelIniPort::endDocPort", 1, 1},
    };
    for (const auto& wait : waits) {
        for (const bool shutdown : {false, true}) {
            SCOPED_TRACE(std::string(wait.name) + (shutdown ? ", shutdown" : ", deletion"));
            ASSERT_NO_FATAL_FAILURE(wait.prepare());
            log.Clear();
            Beside(wait.call);
            ASSERT_TRUE(server->WaitFor([&] { return log.Count(wait.scope) == wait.times; }));
            const DWORD before = GetTickCount();
            if (shutdown) {
                Shutdown();
                EXPECT_EQ(wait.result, result) << "shutdown came back before the call";
            } else {
                EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
            }
            EXPECT_EQ(wait.result, Result());
            EXPECT_LT(GetTickCount() - before, 20000u);
            EXPECT_EQ(0, spooler.OpenPrinters());
            if (shutdown)
                Start();
            else
                AddAndOpenPort(TEXT("Card 1"), TEXT("127.0.0.1"), server->Port());
            ServeByHand(Lpq(0, kReceivingData));
        }
    }
}

TEST_F(Overlap, DeletionEndsTheWaitForTheBusyMark)
{
    const ::Gate held;
    log.AtLine("}krelIniPort::Cleanup", [this, held] {
        EXPECT_TRUE(StartJob(8));
        log.Clear();
        test_switches::SetTimeScale(1);
        held.Open();
    });
    Beside([this] { return StartChannel(); });
    held.Pass();
    ASSERT_TRUE(log.WaitFor("{krelIniPort::LockPortForPrinting"));
    const DWORD before = GetTickCount();
    EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
    EXPECT_EQ(0, Result());
    EXPECT_LT(GetTickCount() - before, 4000u) << "all five tries were made";
}

// Only the spooler's own call can end here; what it comes back to is over.
TEST_F(Overlap, AStartInTheSpoolerFindsItsPortDeletedAndItsDocumentEnded)
{
    for (const bool shutdown : {false, true}) {
        log.Clear();
        const ::Gate opening = spooler.Block(Spooler::OpenPrinter);
        Beside([this] { return StartJob(); });
        ASSERT_TRUE(opening.AwaitArrival());
        if (shutdown) {
            log.AtLine("}krelPortMonitor::deletePortEntry", [opening] { opening.Open(); });
            Shutdown();
        } else {
            EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
            EXPECT_TRUE(End()) << "the end of a document on a deleted port does no harm";
            EXPECT_FALSE(log.Has("{krelIniPort::~krelIniPort"));
            opening.Open();
        }
        EXPECT_EQ(0, Result());
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_EQ(1, log.Count("}krelIniPort::~krelIniPort"));
        if (!shutdown)
            port = AddAndOpenPort(TEXT("Card 1"), TEXT("127.0.0.1"), server->Port());
    }
}

TEST_F(Overlap, ShutdownFreesABlockedReaderAndWaitsForIt)
{
    ASSERT_TRUE(StartJob());
    BlockAReader();
    Shutdown();
    EXPECT_EQ(0, result) << "shutdown came back before the call";
    EXPECT_EQ(0, Result());
}

TEST_F(Overlap, OtherPortsAndEnumerationDontWaitForAStalledPort)
{
    ASSERT_TRUE(StartJob());
    BlockAReader();
    EXPECT_EQ(std::vector<std::string>{"Card 1"}, PortNames());
    EXPECT_EQ(port, OpenPort(TEXT("card 1")));
    const HANDLE other = AddAndOpenPort(TEXT("Card 2"), TEXT("127.0.0.1"), server->Port());
    EXPECT_TRUE(table->pfnClosePort(other));
    EXPECT_EQ(DWORD{ERROR_BUSY}, SetKeepAlive(TEXT("Card 1"), 1, 1));
    server->Reset(Channel::Command);
    EXPECT_EQ(0, Result());
    EXPECT_TRUE(End());
}

TEST_F(Overlap, QueriesOfTwoThreadsEachGetTheirOwnAnswer)
{
    ASSERT_TRUE(StartChannel());
    std::vector<std::thread> callers;
    std::atomic<int> wrong{0};
    for (DWORD caller = 1; caller <= 4; ++caller) {
        callers.emplace_back([&, caller] {
            for (DWORD round = 0; round < 50; ++round) {
                WCHAR input[] = {static_cast<WCHAR>(caller), static_cast<WCHAR>(round)};
                WCHAR output[2] = {};
                DWORD size = 0;
                const BOOL done =
                    table->pfnGetPrinterDataFromPort(port, caller, nullptr, input, 4, output, 4, &size);
                if (!done || size != 4 || output[0] != input[0] || output[1] != input[1])
                    ++wrong;
            }
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(1, server->Connections(Channel::Command)) << "two first queries made two channels";
    EXPECT_TRUE(End());
}

TEST_F(Overlap, AQueryGoesThroughBesideAReadThatWaitsForData)
{
    server->FaultAt(Step::ParallelReadReply, Fault::Payload(U16(5)));
    ASSERT_TRUE(StartJob());
    Beside([this] { return Read(10); });
    ASSERT_TRUE(log.WaitFor("{CDataChannel::Receive"));
    EXPECT_TRUE(Query(5));
    ASSERT_TRUE(server->Push(Channel::Data, Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(1, Result());
    EXPECT_EQ(5u, read);
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    EXPECT_TRUE(End());
}

TEST_F(Overlap, DeletionDoesNotWaitForAWorkerInTheSpooler)
{
    ASSERT_TRUE(StartJob());
    const ::Gate gate = StickTheWorker();
    const DWORD before = GetTickCount();
    EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
    EXPECT_LT(GetTickCount() - before, 9000u);
    EXPECT_EQ(std::vector<std::string>{}, PortNames());
    EXPECT_EQ(1, spooler.OpenPrinters()) << "the worker still uses it";
    gate.Open();
    EXPECT_TRUE(log.WaitFor("}krelIniPort::~krelIniPort"));
    EXPECT_TRUE(log.WaitFor("}CCommandChannel::ThreadProc"));
    EXPECT_EQ(0, spooler.OpenPrinters());
}

TEST_F(Overlap, AWorkerThatOutlivesTheWaitForItFindsNothingDestroyed)
{
    ASSERT_TRUE(StartJob());
    const ::Gate gate = StickTheWorker();
    ASSERT_TRUE(StartJob(8)) << "the next document doesn't wait longer than ten seconds";
    EXPECT_EQ(2, spooler.OpenPrinters());
    gate.Open();
    ASSERT_TRUE(log.WaitFor("}CCommandChannel::ThreadProc"));
    EXPECT_EQ(1, spooler.OpenPrinters());
    const auto calls = spooler.Calls(Spooler::GetJob);
    EXPECT_EQ(7u, calls.back().jobId) << "the old worker looks at its own job";
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    EXPECT_TRUE(End());
}

TEST_F(Overlap, ShutdownLeavesAPortToAWorkerThatIsStuck)
{
    ASSERT_TRUE(StartJob());
    const ::Gate gate = StickTheWorker();
    const DWORD before = GetTickCount();
    Shutdown();
    EXPECT_GE(GetTickCount() - before, 9900u);
    EXPECT_LT(GetTickCount() - before, 60000u);
    gate.Open();
    EXPECT_TRUE(log.WaitFor("}CCommandChannel::ThreadProc"));
    // The monitor has left the port to whoever is inside it; that is this test by now.
    auto* const left = static_cast<krelIniPort*>(port);
    ASSERT_TRUE(left->AwaitLastCall(GetTickCount() + 600000));
    delete left;
}

TEST_F(Overlap, SpoolerCallsMayComeBackIntoTheMonitor)
{
    const auto callBack = [this] {
        HANDLE found = nullptr;
        EXPECT_TRUE(table->pfnOpenPort(monitor, const_cast<LPWSTR>(TEXT("Card 1")), &found));
        EXPECT_EQ(port, found);
        DWORD needed = 0;
        DWORD count = 0;
        EXPECT_FALSE(table->pfnEnumPorts(monitor, nullptr, 2, nullptr, 0, &needed, &count));
        EXPECT_EQ(DWORD{ERROR_BUSY}, SetKeepAlive(TEXT("Card 1"), 1, 1));
    };
    spooler.Before(Spooler::GetJob, callBack);
    spooler.Before(Spooler::SetJob, callBack);
    spooler.Before(Spooler::OpenPrinter, callBack);
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
    ASSERT_TRUE(log.WaitFor("}krelIniPort::CancelCurrentPrintJob"));
    EXPECT_TRUE(End());
    EXPECT_EQ((std::vector<DWORD>{JOB_CONTROL_DELETE, JOB_CONTROL_SENT_TO_PRINTER}), spooler.JobCommands());
}

TEST_F(Overlap, APortMayBeDeletedFromInsideItsOwnCall)
{
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    spooler.Before(Spooler::SetJob, [this] { EXPECT_EQ(0u, DeletePort(TEXT("Card 1"))); });
    EXPECT_TRUE(End());
    EXPECT_EQ(1, log.Count("}krelIniPort::~krelIniPort"));
    ExpectDeadPort();
}

// On the worker's own thread nobody can wait for the worker.
TEST_F(Overlap, APortMayBeDeletedByItsOwnWorker)
{
    ASSERT_TRUE(StartJob());
    spooler.Before(Spooler::SetJob, [this] { EXPECT_EQ(0u, DeletePort(TEXT("Card 1"))); });
    ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
    EXPECT_TRUE(log.WaitFor("}krelIniPort::~krelIniPort"));
    EXPECT_TRUE(log.WaitFor("}CCommandChannel::ThreadProc"));
    spooler.Before(Spooler::SetJob, nullptr);
    ExpectDeadPort();
}

// Whichever comes first, nothing of the document stays: no channel, no worker, no printer.
TEST_F(Overlap, ADocumentMayEndWhileAQueryConnects)
{
    for (int round = 0; round < 20; ++round) {
        log.Clear();
        ASSERT_TRUE(StartChannel());
        Beside([this] { return Query(5); });
        if (round % 4 != 0) {
            EXPECT_TRUE(log.WaitFor("{CCommandChannel::CCommandChannel"));
        }
        EXPECT_TRUE(End());
        (void)Result();
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_FALSE(Query(5)) << "the document is over";
        EXPECT_EQ(log.Count("{CCommandChannel::ThreadProc"), log.Count("}CCommandChannel::ThreadProc"));
    }
    const DWORD before = GetTickCount();
    Shutdown();
    EXPECT_LT(GetTickCount() - before, 9000u) << "a worker was left behind";
}

TEST_F(Overlap, AChannelThatWasShutDownStartsNoWorker)
{
    auto channel = std::make_shared<CCommandChannel>(nullptr, TEXT("127.0.0.1"), 1, SHORT{5}, SHORT{20});
    const std::weak_ptr<CCommandChannel> alive = channel;
    channel->Shutdown();
    EXPECT_FALSE(channel->InitializeKeepAlives(nullptr));
    channel.reset();
    EXPECT_TRUE(alive.expired());
}

TEST_F(Overlap, AnEndThatIsCutShortLeavesAnIdlePort)
{
    ASSERT_TRUE(StartJob());
    ASSERT_TRUE(Learns(Lpq(0, kFinished)));
    spooler.Before(Spooler::SetJob, [] { throw std::bad_alloc(); });
    EXPECT_FALSE(End());
    spooler.Before(Spooler::SetJob, nullptr);
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_EQ(1, log.Count("}CCommandChannel::ThreadProc"));
    EXPECT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 5, kPatientTimeout)) << "the busy mark is left";
}

// Neither the flood nor the thread that reads it may keep the worker from its own keep-alives, or the silence
// from being noticed.
TEST_F(Overlap, NotificationsWithoutEndDoNotHoldTheLinkUp)
{
    for (const bool silent : {false, true}) {
        ASSERT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 1, silent ? 20 : kPatientTimeout));
        ASSERT_TRUE(StartJob());
        if (silent)
            server->StopKeepAlives();
        std::atomic<bool> stop{false};
        std::thread flood([&] {
            while (!stop && server->Notify(Lpq(0, kReceivingData)))
                continue;
        });
        for (int times = 0; times < 3; ++times) {
            log.Clear();
            EXPECT_TRUE(
                log.WaitFor(silent ? "Failed to receive keep-alives => disconnecting." : "Sent keep-alive."));
        }
        stop = true;
        flood.join();
        EXPECT_EQ(!silent, Write({1}));
        EXPECT_TRUE(End());
    }
}

// What came meanwhile is read before the silence is judged.
TEST_F(Overlap, ASpoolerThatTakesItsTimeOverADeletionCostsNoLink)
{
    ASSERT_TRUE(StartJob());
    const ::Gate asked;
    spooler.Before(Spooler::SetJob, [asked] { asked.Pass(); });
    ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
    ASSERT_TRUE(asked.AwaitArrival());
    ASSERT_TRUE(server->Push(Channel::Command, KeepAlive()));
    log.Clear();
    test_switches::SetTickCount(GetTickCount() + (kPatientTimeout + 1) * 1000);
    asked.Open();
    EXPECT_TRUE(log.WaitFor("Received a keep-alive."));
    EXPECT_TRUE(Query(5));
    EXPECT_FALSE(log.Has("Failed to receive keep-alives => disconnecting."));
    spooler.Before(Spooler::SetJob, nullptr);
    EXPECT_TRUE(End());
}

// The reader stands in its exchange, takes the cancellation, and the spooler comes back with a query.
TEST_F(Overlap, ARequestFromInsideACancellationFailsAtOnce)
{
    ASSERT_TRUE(StartJob());
    std::atomic<int> answered{-1};
    spooler.Before(Spooler::SetJob, [&] { answered = Query(5) ? 1 : 0; });
    BlockAReader();
    ASSERT_TRUE(server->Notify(Lpq(0, kCancelled)));
    ASSERT_TRUE(log.WaitFor("}krelIniPort::CancelCurrentPrintJob"));
    EXPECT_EQ(0, answered);
    spooler.Before(Spooler::SetJob, nullptr);
    server->Reset(Channel::Command);
    EXPECT_EQ(0, Result());
    EXPECT_TRUE(End());
}
