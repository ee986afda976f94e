// What comes unasked on the command channel, and the requests in whose way it stands.

#include <gtest/gtest.h>

#include "tests/support/link_fixture.h"
#include "tests/support/printing_fixture.h"

namespace {

using printserver::Bytes;
using printserver::Channel;
using printserver::Frame;
using printserver::Join;
using printserver::KeepAlive;
using printserver::Lpq;
using printserver::Notification;
using printserver::ParallelReadRequest;
using printserver::QueryReply;
using printserver::QueryRequest;
using printserver::Reply;
using printserver::U16;

const char* const kClosed = "CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 0.";
const char* const kExchange = "CCommandChannel::SendMessageAndGetResponse: ";

std::string RecordText(int queue, int bound, int active, int printer)
{
    return "queue position = " + std::to_string(queue) + ", bound job state = " + std::to_string(bound) +
           ", active job state = " + std::to_string(active) + ", printer state = " + std::to_string(printer);
}

class AsyncMessages : public LinkFixture {};

TEST_F(AsyncMessages, TheFirstRecordAnswersTheStart)
{
    const std::string scope = "CCommandChannel::StartLPQInfoNotifications: ";
    const std::string unexpected =
        scope + "Received an unexpected response to 'start LPQInfo notifications' request: ";
    const Bytes record = Notification(Lpq(3, 2, 1, 0x80000000));
    const struct {
        const char* version;
        Bytes answer;  // the server hangs up behind it
        Failures failures;
    } rows[] = {
        {"1.10", record, {}},
        {"1.10", Join(Join(KeepAlive(18), KeepAlive(18)), record), {}},
        {"1.0", Join(KeepAlive(16), record), {}},
        {"1.10", Frame(2, 4, 0, Join(Payload(Lpq(3, 2, 1, 0x80000000)), Raw("more"))), {}},
        {"1.10", Reply(4, 0, Bytes(9, 1)), {unexpected + "type 2, request id 4."}},
        {"1.10", Reply(4), {unexpected + "type 2, request id 4."}},
        {"1.10", Frame(1, 4, 0, Bytes(10, 1)), {unexpected + "type 1, request id 4."}},
        {"1.10", KeepAlive(16), {unexpected + "type 2, request id 16."}},
        {"1.0", KeepAlive(18), {unexpected + "type 2, request id 18."}},
        {"1.10",
         Reply(4, 6, Bytes(10, 1)),
         {scope + "Response to 'start LPQInfo notifications' request reported error 6."}},
        {"1.10",
         Reply(18, 3),
         {scope + "Received asynchronous keep-alive message while waiting for a response to 'start LPQInfo "
                  "notifications' request - but the message indicated an error 3."}},
        {"1.10",
         KeepAlive(18),
         {kClosed, scope + "Failed to receive a response to 'start LPQInfo notifications' request."}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.version) + " " + printserver::Hex(row.answer));
        ServeCommand(row.version).Expect(printserver::LpqRequest()).Send(row.answer).HangUp();
        const auto channel = MakeCommand();
        ASSERT_TRUE(channel->Open());
        EXPECT_EQ(RecordText(-1, -1, -1, -1), channel->GetLPQInfo().ToString().text);
        log.Clear();
        EXPECT_EQ(row.failures.empty(), channel->StartLPQInfoNotifications());
        EXPECT_EQ(row.failures, log.Failures());
        EXPECT_EQ(row.failures.empty() ? RecordText(3, 2, 1, -2147483648LL) : RecordText(-1, -1, -1, -1),
                  channel->GetLPQInfo().ToString().text);
        EXPECT_EQ("", server.FirstStepNotPlayed());
    }
}

// The first record has the number of any notification: the worker must leave it to the caller, who stamps
// the keep-alives meanwhile.
TEST_F(AsyncMessages, TheWorkerLeavesTheFirstRecordToTheCaller)
{
    std::atomic<bool> answer{false};
    ServeCommand()
        .Expect(printserver::LpqRequest())
        .Wait([&] { return answer.load(); })
        .SendNotification(Lpq(0, 2));
    const auto channel = OpenCommand(kNever, 3000);
    Pass(2000);
    log.Clear();
    auto start = std::async(std::launch::async, [&] { return channel->StartLPQInfoNotifications(); });
    EXPECT_TRUE(log.WaitFor("{CCommandChannel::Receive"));
    EXPECT_TRUE(server.Push(Channel::Command, KeepAlive()));
    EXPECT_TRUE(log.WaitFor("Received asynchronous keep-alive message while waiting"));
    Pass(2000);
    EXPECT_TRUE(AwaitTicks(2));
    answer = true;
    EXPECT_TRUE(ResultOf(start));
    EXPECT_TRUE(log.Has("Received initial LPQInfo notification: " + RecordText(0, 2, 2, 0) + "."));
    EXPECT_FALSE(log.Has("Received asynchronous LPQInfo"));
}

// The server is faster than the caller, who has only just begun to ask.
TEST_F(AsyncMessages, ARecordAheadOfTheCallersReadIsStillTheCallers)
{
    ServeCommand();
    const auto channel = OpenCommand();
    log.Clear();
    log.AtLine("{CCommandChannel::Send", [&] {
        EXPECT_TRUE(server.Push(Channel::Command, Notification(Lpq(0, 2))));
        EXPECT_TRUE(Eventually([&] { return channel->BytesAvailable() == 26; }));
        EXPECT_TRUE(AwaitTicks(2));
    });
    auto start = std::async(std::launch::async, [&] { return channel->StartLPQInfoNotifications(); });
    EXPECT_TRUE(ResultOf(start));
    EXPECT_FALSE(log.Has("Received asynchronous LPQInfo"));
}

// What was peeked can't be taken: the link breaks in between.
TEST_F(AsyncMessages, ALinkThatBreaksWhileTheWorkerReadsLeavesNoTrace)
{
    const Bytes notification = Notification(Lpq(5, 6));
    const struct {
        Bytes message;
        int goodReads;
    } rows[] = {{KeepAlive(), 0},  {KeepAlive(), 1},  {notification, 1},
                {notification, 2}, {notification, 3}, {Frame(1, 5, 0, Bytes(3)), 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(printserver::Hex(row.message) + " " + std::to_string(row.goodReads));
        ServeCommand();
        const auto channel = OpenCommand();
        log.Clear();
        test_switches::FailCall("recv", 10054, row.goodReads);
        EXPECT_TRUE(server.Push(Channel::Command, row.message));
        EXPECT_TRUE(Eventually([&] { return !channel->IsConnected(); }));
        EXPECT_TRUE(AwaitTicks(2));
        EXPECT_EQ(Failures{"CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 10054."},
                  log.Failures());
        EXPECT_FALSE(log.Has("Received a"));
        EXPECT_EQ(-1, channel->GetLPQInfo().queuePosition);
        channel->Shutdown();
    }
}

TEST_F(AsyncMessages, WithoutEndBeforeAReplyStillLetTheCallerGo)
{
    for (const bool alive : {true, false}) {
        SCOPED_TRACE(alive);
        ServeCommand().Expect(printserver::SuppressRequest());
        const auto channel = OpenCommand(kNever, 3000);
        auto request = std::async(std::launch::async, [&] { return channel->SuppressSysLogMessage(); });
        auto flood = std::async(std::launch::async, [&] {
            while (server.Push(Channel::Command, alive ? KeepAlive() : Notification(Lpq(0, 2))))
                continue;
        });
        const char* const line = alive ? "Received a keep-alive." : "Received asynchronous LPQInfo";
        for (int i = 0; i < 2; ++i) {
            const int before = log.Count(line);
            EXPECT_TRUE(Eventually([&] { return log.Count(line) > before + 1; }));
            Pass(1600);
        }
        if (alive)
            channel->Shutdown();  // the port is deleted, or the monitor shut down
        EXPECT_FALSE(ResultOf(request));
        EXPECT_EQ(!alive, log.Has("Failed to receive keep-alives => disconnecting."));
        channel->Shutdown();
        flood.get();
        log.Clear();
    }
}

TEST_F(AsyncMessages, TheWorkerStoresEachRecord)
{
    ServeCommand();
    const auto channel = OpenCommand();
    const std::string last = RecordText(-1, 65535, 32768, -1);
    const struct {
        Bytes payload;
        std::string stored;
    } rows[] = {
        {Payload(Lpq(5, 7, 8, 9)), RecordText(5, 7, 8, 9)},
        {Bytes(9, 1), RecordText(5, 7, 8, 9)},
        {{}, RecordText(5, 7, 8, 9)},
        {Payload(Lpq(-1, 65535, 32768, 0xFFFFFFFF)), last},
        {Join(Payload(Lpq(1, 2, 3, 4)), Bytes(5000, 9)), RecordText(1, 2, 3, 4)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.payload.size());
        log.Clear();
        EXPECT_TRUE(server.Push(Channel::Command, Frame(2, 4, 77, row.payload)));
        if (row.payload.size() < 10)
            EXPECT_TRUE(log.WaitFor("Ignoring an LPQInfo notification of " +
                                    std::to_string(row.payload.size()) + " bytes."));
        else
            EXPECT_TRUE(log.WaitFor("Received asynchronous LPQInfo notification: " + row.stored + "."));
        EXPECT_EQ(row.stored, channel->GetLPQInfo().ToString().text);
    }
}

TEST_F(AsyncMessages, TheWorkerTakesAllThatAreThereInOnePass)
{
    ServeCommand();
    const auto channel = MakeCommand();
    ASSERT_TRUE(channel->Open());
    Bytes many;
    for (int i = 0; i < 1000; ++i)
        many = Join(many, Notification(Lpq(0, 4)));
    many = Join(many, Notification(Lpq(0, 7)));
    ASSERT_TRUE(server.Push(Channel::Command, many));
    ASSERT_TRUE(Eventually([&] { return channel->BytesAvailable() == static_cast<LONG>(many.size()); }));
    log.Clear();
    // A pass may last a second, and here no second goes by in it.
    log.AtLine("{CCommandChannel::ProcessAsyncMessages", [] { test_switches::SetTimeScale(1000); });
    ASSERT_TRUE(channel->InitializeKeepAlives(nullptr));
    EXPECT_TRUE(log.WaitFor(RecordText(0, 7, 7, 0)));
    EXPECT_EQ(1, log.Count("{CCommandChannel::ProcessAsyncMessages"));
    Hurry();
}

TEST_F(AsyncMessages, AnUnknownOneStopsTheWorkerAndIsTheNextReply)
{
    ServeCommand().ExpectFrame(2, printserver::kSuppressSyslog).AnswerSuppress();
    const auto channel = OpenCommand();
    log.Clear();
    EXPECT_TRUE(
        server.Push(Channel::Command, Join(Join(KeepAlive(), Reply(99, 1, Raw("what?"))), KeepAlive())));
    EXPECT_TRUE(log.WaitFor("Received a keep-alive."));
    EXPECT_TRUE(AwaitTicks(3));
    EXPECT_EQ(1, log.Count("Received a keep-alive."));
    EXPECT_FALSE(channel->SuppressSysLogMessage());
    EXPECT_EQ(
        (Failures{std::string(kExchange) +
                      "Received unexpected response. Expected type 2, received type 2; expected request "
                      "id 7, received request id 99.",
                  "CCommandChannel::SuppressSysLogMessage: Failed to suppress system log messages."}),
        log.Failures());
    EXPECT_TRUE(Eventually([&] { return log.Count("Received a keep-alive.") == 2; }));
    EXPECT_TRUE(channel->SuppressSysLogMessage());
}

class PrinterRequests : public LinkFixture {
protected:
    void SetUp() override
    {
        LinkFixture::SetUp();
        script = &ServeCommand();
        channel = MakeCommand();
        ASSERT_TRUE(channel->Open());
        log.Clear();
    }
    void TearDown() override
    {
        channel.reset();
        LinkFixture::TearDown();
    }
    printserver::Script* script = nullptr;
    std::shared_ptr<CCommandChannel> channel;
};

TEST_F(PrinterRequests, AQueryPassesThroughBothWays)
{
    const struct {
        DWORD control;
        Bytes input;
        DWORD outputSize;
        Bytes answer;
        int returned;
        const char* failure;  // of the exchange; null: none
    } rows[] = {
        {5, Raw("status?"), 10, QueryReply(5, Bytes(100, 'x')), 10, nullptr},
        {0xFFFFFFFF, {}, 10, QueryReply(0xFFFFFFFF, Bytes(10, 'x')), 10, nullptr},
        {5, Raw("a"), 10, QueryReply(5, {}), 0, nullptr},
        {5, Raw("a"), 0, QueryReply(5, Raw("xxx")), 0, nullptr},
        {18, Bytes(70000, 1), 10, QueryReply(18, Raw("xx")), 2, nullptr},  // of another type: no keep-alive
        {5, {}, 10, Join(Join(KeepAlive(), Notification(Lpq(4, 2))), QueryReply(5, Raw("xx"))), 2, nullptr},
        {5, {}, 10, QueryReply(5, Raw("xx"), 8), 0, "Received response indicates error 8."},
        {5,
         {},
         10,
         QueryReply(6, Raw("xx")),
         0,
         "Received unexpected response. Expected type 1, received type 1; expected request id 5, received "
         "request id 6."},
        {5,
         {},
         10,
         Frame(2, 5, 0, Raw("xx")),
         0,
         "Received unexpected response. Expected type 1, received type 2; expected request id 5, received "
         "request id 5."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(printserver::Hex(row.answer));
        script->Expect(QueryRequest(row.control, row.outputSize, row.input)).Send(row.answer);
        std::string output(row.outputSize + 1, '.');
        DWORD returned = 99;
        log.Clear();
        const auto inputSize = static_cast<DWORD>(row.input.size());
        EXPECT_EQ(row.failure == nullptr,
                  channel->GetPrinterDataFromPort(row.control, row.input.data(), inputSize, output.data(),
                                                  row.outputSize, &returned));
        const auto copied = static_cast<std::size_t>(row.returned);
        EXPECT_EQ(row.failure ? 99 : copied, returned);
        EXPECT_EQ(std::string(copied, 'x') + std::string(output.size() - copied, '.'), output);
        const std::string scope = "CCommandChannel::GetPrinterDataFromPort: ";
        EXPECT_EQ(row.failure ? Failures({kExchange + std::string(row.failure),
                                          scope + "Failed to get printer data from port."})
                              : Failures{},
                  log.Failures());
        EXPECT_TRUE(channel->IsConnected());
    }
    EXPECT_EQ(4, channel->GetLPQInfo().queuePosition);
    EXPECT_EQ("", server.FirstStepNotPlayed());
}

TEST_F(PrinterRequests, AParallelReadTellsHowMuchFollows)
{
    const std::string wrongLength =
        "CCommandChannel::StartParallelRead: Unexpected length of data in response to "
        "IOCTL_KREL_PARA_START_READ; expected 2, received ";
    const struct {
        int requested;
        Bytes reply;
        DWORD available;
        Failures failures;
    } rows[] = {
        {1000, Reply(2, 0, U16(5)), 5, {}},
        {0, Reply(2, 0, U16(0)), 0, {}},
        {-32768, Reply(2, 0, U16(0xFFFF)), 0xFFFF, {}},  // goes out widened with its sign
        {-1, Reply(2, 0, U16(0x8000)), 0x8000, {}},
        {5, Reply(2), 99, {wrongLength + "0."}},
        {5, Reply(2, 0, Bytes(3)), 99, {wrongLength + "3."}},
        {5,
         Reply(2, 9, U16(5)),
         99,
         {std::string(kExchange) + "Received response indicates error 9.",
          "CCommandChannel::StartParallelRead: Failed to start reading from parallel interface."}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.requested) + " " + printserver::Hex(row.reply));
        script->Expect(ParallelReadRequest(row.requested)).Send(row.reply);
        DWORD available = 99;
        log.Clear();
        EXPECT_EQ(row.failures.empty(),
                  channel->StartParallelRead(static_cast<SHORT>(row.requested), &available));
        EXPECT_EQ(row.available, available);
        EXPECT_EQ(row.failures, log.Failures());
    }
    EXPECT_EQ("", server.FirstStepNotPlayed());
}

TEST_F(PrinterRequests, FailOnALinkThatIsGone)
{
    const std::string gone = std::string(kExchange) + "Failed to send a message or get a response.";
    const std::string suppress =
        "CCommandChannel::SuppressSysLogMessage: Failed to suppress system log "
        "messages.";
    script->Expect(printserver::SuppressRequest()).HangUp();
    EXPECT_FALSE(channel->SuppressSysLogMessage());
    EXPECT_EQ((Failures{kClosed, "CCommandChannel::ProcessAsyncMessages: Failed to extract the next message.",
                        gone, suppress}),
              log.Failures());
    log.Clear();
    EXPECT_FALSE(channel->SuppressSysLogMessage());
    EXPECT_EQ((Failures{"CSyncSocket::Send: Call to send() failed; WSAGetLastError returned 10038.", gone,
                        suppress}),
              log.Failures());
    EXPECT_TRUE(channel->ProcessAsyncMessages(nullptr));  // never fails for the worker
}

// A document on a port: what the server says of its job reaches the spooler.
class CancelledAtTheServer : public Printing {
protected:
    std::vector<DWORD> ThreadsThatCancelled()
    {
        std::vector<DWORD> threads;
        for (const SpoolerCall& call : spooler.Calls(Spooler::SetJob)) {
            if (call.command == JOB_CONTROL_DELETE)
                threads.push_back(call.threadId);
        }
        return threads;
    }
};

TEST_F(CancelledAtTheServer, EachNotificationCancelsTheJobOnTheThreadThatReadIt)
{
    ServeByHand(Lpq(0, 9));
    ASSERT_TRUE(StartJob());
    EXPECT_EQ(0, spooler.Count(Spooler::SetJob));  // not the first record
    EXPECT_TRUE(Learns(Lpq(0, 9)));
    EXPECT_TRUE(Eventually([&] { return ThreadsThatCancelled().size() == 1; }));
    EXPECT_NE(GetCurrentThreadId(), ThreadsThatCancelled()[0]);

    test_switches::SetTimeScale(1000);  // no further tick of the worker's, which could be first
    test_switches::CountCalls("WaitForSingleObject");
    EXPECT_TRUE(Eventually([] { return test_switches::CallsCounted("WaitForSingleObject") > 0; }));
    server->FaultAt(printserver::Step::QueryReply, printserver::Fault::InFront(Notification(Lpq(0, 9))), 1);
    EXPECT_TRUE(Query(5));
    ASSERT_EQ(2u, ThreadsThatCancelled().size());
    EXPECT_EQ(GetCurrentThreadId(), ThreadsThatCancelled()[1]);
    EXPECT_TRUE(End());
    EXPECT_EQ(JOB_CONTROL_SENT_TO_PRINTER, spooler.JobCommands().back());
}

// What the spooler's own code throws into ours ends neither the worker nor the process.
TEST_F(CancelledAtTheServer, AnExceptionFromTheSpoolerCostsTheCallerItsLinkAtMost)
{
    ServeByHand(Lpq(0, 2));
    ASSERT_TRUE(StartJob());
    const auto fail = [] { throw std::bad_alloc(); };
    spooler.Before(Spooler::SetJob, fail);
    EXPECT_TRUE(Learns(Lpq(0, 9)));
    EXPECT_TRUE(log.WaitFor("}krelIniPort::CancelCurrentPrintJob"));

    // A reply that nobody has taken would be the next request's. Where the worker's tick is the first to see
    // the record, the caller gets its reply, and tries again.
    bool callerFailed = false;
    for (int round = 0; round < 100 && !callerFailed; ++round) {
        EXPECT_TRUE(Learns(Lpq(0, 2)));
        server->FaultAt(printserver::Step::QueryReply, printserver::Fault::InFront(Notification(Lpq(0, 9))),
                        1);
        callerFailed = !Query(5);
    }
    EXPECT_TRUE(callerFailed);
    EXPECT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Command) == 0; }));
    spooler.Before(Spooler::SetJob, nullptr);
    EXPECT_TRUE(End());
}

TEST_F(CancelledAtTheServer, ADeletedPortAsksNothingOfTheSpooler)
{
    ServeByHand(Lpq(0, 2));
    ASSERT_TRUE(StartJob());
    log.Clear();
    log.AtLine("{krelIniPort::CancelCurrentPrintJob", [this] { EXPECT_EQ(0u, DeletePort(TEXT("Card 1"))); });
    EXPECT_TRUE(server->Notify(Lpq(0, 9)));
    EXPECT_TRUE(log.WaitFor("}krelIniPort::~krelIniPort"));
    EXPECT_EQ(0, spooler.Count(Spooler::SetJob));
    EXPECT_FALSE(StartJob());
    EXPECT_TRUE(log.Has("krelIniPort::startDocPort: ERROR: The port has been deleted."));
}

// The record can be read only when the spooler has been told of it.
TEST_F(CancelledAtTheServer, TheRecordIsHeldBackUntilTheJobIsCancelled)
{
    ServeByHand(Lpq(0, 2));
    ASSERT_TRUE(StartJob());
    const Gate cancelling = spooler.Block(Spooler::SetJob);
    EXPECT_TRUE(server->Notify(Lpq(3, 9)));
    EXPECT_TRUE(cancelling.AwaitArrival());
    std::atomic<bool> cancelled{false};
    auto write = std::async(std::launch::async, [&] { return Write(SampleDocument(10)) && cancelled; });
    EXPECT_TRUE(log.WaitFor("{krelIniPort::writePort"));
    cancelled = true;
    cancelling.Open();
    EXPECT_TRUE(write.get());
    EXPECT_EQ(0u, written);
}

}  // namespace
