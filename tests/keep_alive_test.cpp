// The worker of a command channel: what keeps a link, what drops it, and what never holds the worker up.

#include <gtest/gtest.h>

#include "tests/support/link_fixture.h"
#include "tests/support/printing_fixture.h"

namespace {

using printserver::Bytes;
using printserver::Channel;
using printserver::Ending;
using printserver::Lpq;

const char* const kSilent = "Failed to receive keep-alives => disconnecting.";
const char* const kHeard = "Received a keep-alive.";

class KeepAliveWorker : public LinkFixture {
protected:
    bool IsHeard(const Bytes& message, const std::string& line)
    {
        const int before = log.Count(line);
        return server.Push(Channel::Command, message) &&
               Eventually([&] { return log.Count(line) == before + 1; });
    }
};

TEST_F(KeepAliveWorker, OnlyTheServersKeepAlivesOfItsVersionHoldTheLink)
{
    const Bytes notification = printserver::Notification(Lpq(0, 2));
    const struct {
        const char* version;
        Bytes message;
        const char* line;  // of the worker that took it; null: it stays on the socket
        bool holds;
    } rows[] = {
        {"1.10", printserver::KeepAlive(18), kHeard, true},
        {"1.10", printserver::KeepAlive(16), nullptr, false},
        {"1.0", printserver::KeepAlive(16), kHeard, true},
        {"1.0", printserver::KeepAlive(18), nullptr, false},
        {"1.10", printserver::Frame(2, 18, 5, Bytes(100)), kHeard, true},
        {"1.10", printserver::Frame(1, 18), nullptr, false},
        {"1.10", notification, "Received asynchronous LPQInfo notification", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.version) + " " + printserver::Hex(row.message).substr(0, 36));
        ServeCommand(row.version);
        const auto channel = OpenCommand(kNever, 3000);
        for (int i = 0; i < 2; ++i) {
            if (row.line)
                EXPECT_TRUE(IsHeard(row.message, row.line));
            else
                EXPECT_TRUE(server.Push(Channel::Command, row.message));
            Pass(1600);
            EXPECT_TRUE(AwaitTicks(1));
            EXPECT_EQ(row.holds || i == 0, channel->IsConnected());
        }
        channel->Shutdown();
        log.Clear();
    }
}

TEST_F(KeepAliveWorker, TheMonitorSendsItsOwnAboveTheFirstVersion)
{
    for (const bool sends : {false, true}) {
        SCOPED_TRACE(sends);
        auto& script = ServeCommand(sends ? "1.1" : "1.0");
        const auto channel = OpenCommand(2000);
        EXPECT_TRUE(AwaitTicks(2));
        EXPECT_FALSE(log.Has("Sent keep-alive."));
        for (int due = 1; due <= 2; ++due) {
            Pass(2001);
            EXPECT_TRUE(AwaitTicks(2));
            EXPECT_EQ(sends ? due : 0, log.Count("Sent keep-alive."));
        }
        if (sends)
            script.ExpectKeepAlive().ExpectKeepAlive();
        EXPECT_EQ("", server.FirstStepNotPlayed());
        channel->Shutdown();
    }
}

TEST_F(KeepAliveWorker, TheClockOfTheFirstOneRunsFromConstruction)
{
    ServeCommand().ExpectKeepAlive();
    const auto channel = MakeCommand(2000);
    Pass(2001);
    EXPECT_TRUE(channel->InitializeKeepAlives(nullptr));
    EXPECT_TRUE(channel->Open());
    Hurry();
    EXPECT_EQ("", server.FirstStepNotPlayed());
}

TEST_F(KeepAliveWorker, APeriodOfZeroOrLessSendsOnEachTick)
{
    for (const SHORT period : {SHORT{0}, SHORT{-1}, SHORT{-32768}}) {
        SCOPED_TRACE(period);
        ServeCommand().ExpectKeepAlive().ExpectKeepAlive().ExpectKeepAlive();
        const auto channel = OpenCommand(period);
        EXPECT_EQ("", server.FirstStepNotPlayed());
        channel->Shutdown();
    }
}

// The worker watches over the data channel's opening, too, by the clock since construction.
TEST_F(KeepAliveWorker, SilenceEndsAHangingOpeningOfTheDataChannel)
{
    Hurry();
    for (const SHORT timeout : {SHORT{0}, SHORT{-1}, SHORT{-32768}, SHORT{3000}}) {
        SCOPED_TRACE(timeout);
        server.Data().Accept().AwaitHangUp();
        const auto data = MakeData();
        const auto channel = MakeCommand(kNever, timeout);
        Pass(2000);
        auto open = std::async(std::launch::async, [&] { return data->Open(); });
        EXPECT_TRUE(Eventually([&] { return data->IsConnected(); }));
        EXPECT_TRUE(channel->InitializeKeepAlives(data));
        if (timeout > 0) {
            EXPECT_TRUE(AwaitTicks(2));
            EXPECT_FALSE(log.Has(kSilent));
            Pass(1001);
        }
        EXPECT_FALSE(ResultOf(open));
        EXPECT_TRUE(log.Has(kSilent));
        EXPECT_EQ("", server.FirstStepNotPlayed());
        channel->Shutdown();
        log.Clear();
    }
}

TEST_F(KeepAliveWorker, SilenceEndsAHangingOpeningOfTheCommandChannel)
{
    for (const bool connects : {true, false}) {
        SCOPED_TRACE(connects);
        if (connects)
            server.Command().Accept().AnswerVersion("1.10").AnswerBind(7).ExpectFrame(2, 16).AwaitHangUp();
        else
            server.Hang(Channel::Command);
        ServeData().AwaitHangUp();
        test_switches::SetTimeScale(kOpeningScale);
        const auto data = MakeData();
        const auto channel = MakeCommand(0, 3000);
        EXPECT_TRUE(channel->InitializeKeepAlives(data));
        EXPECT_TRUE(data->Open());
        Pass(2000);
        test_switches::CountCalls("connect");
        auto open = std::async(std::launch::async, [&] { return channel->Open(); });
        if (connects) {
            EXPECT_TRUE(log.WaitFor("{CCommandChannel::StartKeepAliveNotifications"));
        } else {
            EXPECT_TRUE(Eventually([] { return test_switches::CallsCounted("connect") > 0; }));
        }
        Hurry();
        Pass(2000);  // 4000 since construction, but 2000 since the opening began
        EXPECT_TRUE(AwaitTicks(2));
        EXPECT_FALSE(log.Has(kSilent));
        Pass(1001);
        EXPECT_FALSE(ResultOf(open));
        EXPECT_FALSE(data->IsConnected());
        EXPECT_FALSE(log.Has("Sent keep-alive."));  // none between the opening's own messages
        EXPECT_TRUE(log.Has(connects ? "CCommandChannel::Open: ERROR: Failed to start notifications."
                                     : "CCommandChannel::Open: ERROR: Failed to connect underlying "
                                       "CSyncSocket."));
        EXPECT_EQ("", server.FirstStepNotPlayed());
        channel->Shutdown();
        log.Clear();
    }
}

TEST_F(KeepAliveWorker, ALiveLinkSurvivesTheWrapOfTheTickCountAndADeadOneDoesNot)
{
    test_switches::SetTickCount(0xFFFFFF00u - 1000000);
    ServeCommand();
    const auto channel = OpenCommand(3000, 3000);
    EXPECT_TRUE(AwaitTicks(1));
    EXPECT_TRUE(channel->IsConnected());
    Pass(1500);  // beyond the wrap
    EXPECT_LT(GetTickCount(), 0x80000000u);
    EXPECT_TRUE(AwaitTicks(2));
    EXPECT_TRUE(channel->IsConnected());
    EXPECT_FALSE(log.Has("Sent keep-alive."));
    Pass(1501);
    EXPECT_TRUE(Eventually([&] { return !channel->IsConnected(); }));
    EXPECT_TRUE(log.Has(kSilent));
}

// The clock stands while the worker compares, which is when the tick's notifications are done.
TEST_F(KeepAliveWorker, AStampExactlyAtTheLimitHasNotExpired)
{
    constexpr double kStanding = 1e7;
    for (const DWORD over : {0u, 1u}) {
        SCOPED_TRACE(over);
        ServeCommand();
        test_switches::SetTimeScale(kStanding);
        test_switches::SetTickCount(5000);
        const auto channel = MakeCommand(2000, kNever);
        test_switches::SetTimeScale(kOpeningScale);
        ASSERT_TRUE(channel->Open());
        log.Clear();
        std::atomic<bool> stands{false};
        log.AtLine("}CCommandChannel::ProcessAsyncMessages", [&] {
            test_switches::SetTimeScale(kStanding);
            test_switches::SetTickCount(5000 + 2000 * 1000 + over);
            test_switches::CountCalls("WaitForSingleObject");
            stands = true;
        });
        Hurry();
        EXPECT_TRUE(channel->InitializeKeepAlives(nullptr));
        EXPECT_TRUE(
            Eventually([&] { return stands && test_switches::CallsCounted("WaitForSingleObject") > 0; }));
        EXPECT_EQ(over, static_cast<DWORD>(log.Count("Sent keep-alive.")));
        channel->Shutdown();
    }
}

// Without its event the worker goes by the clock: it neither spins nor goes blind.
TEST_F(KeepAliveWorker, AFailingWaitIsASleep)
{
    ServeCommand();
    const auto channel = OpenCommand(kNever, 3000);
    test_switches::FailCall("WaitForSingleObject", ERROR_INVALID_HANDLE, 0, 1000000);
    EXPECT_TRUE(AwaitTicks(3));
    test_switches::CountCalls("Sleep");
    EXPECT_TRUE(Eventually([] { return test_switches::CallsCounted("Sleep") > 2; }));
    EXPECT_TRUE(channel->IsConnected());
    Pass(3001);
    EXPECT_TRUE(log.WaitFor(kSilent));
    test_switches::FailCall("WaitForSingleObject", 0, 0, 0);
}

TEST_F(KeepAliveWorker, AStuckSenderNeverHoldsTheWorkerUp)
{
    const auto never = [] { return false; };
    const std::vector<char> much(32 << 20);
    for (const bool underTheSendLock : {true, false}) {
        SCOPED_TRACE(underTheSendLock);
        ServeCommand().Wait(never);
        const auto channel = OpenCommand(0, 3000);  // a keep-alive is due on each tick
        auto send = std::async(std::launch::async, [&] {
            DWORD sent;
            const auto size = static_cast<DWORD>(much.size());
            return underTheSendLock ? channel->Send(much.data(), size, &sent)
                                    : channel->CSyncSocket::Send(much.data(), size, &sent);
        });
        EXPECT_TRUE(Eventually([&] { return !channel->CanSendAtOnce(); }));
        const int sent = log.Count("Sent keep-alive.");
        EXPECT_TRUE(AwaitTicks(3));
        EXPECT_EQ(sent, log.Count("Sent keep-alive."));
        EXPECT_TRUE(channel->IsConnected());
        Pass(3001);
        EXPECT_FALSE(ResultOf(send));
        EXPECT_TRUE(log.Has(kSilent));
        channel->Shutdown();
        log.Clear();
    }
}

TEST_F(KeepAliveWorker, OneThatCannotBeSentClosesBothChannelsAtOnce)
{
    ServeData().AwaitHangUp();
    server.Command().Accept().AnswerVersion("1.10").AnswerBind(7).AnswerStartKeepAlives().AwaitHangUp();
    const auto data = MakeData();
    const auto channel = MakeCommand(2000);
    EXPECT_TRUE(channel->InitializeKeepAlives(data));
    EXPECT_TRUE(data->Open());
    EXPECT_TRUE(channel->Open());
    Hurry();
    test_switches::FailCall("send", 10053);
    Pass(2001);
    EXPECT_EQ("", server.FirstStepNotPlayed());
    EXPECT_TRUE(log.WaitFor("Failed to send keep-alives => disconnecting."));
    EXPECT_TRUE(Eventually([&] { return !data->IsConnected() && !channel->IsConnected(); }));
    EXPECT_EQ((Failures{"CSyncSocket::Send: Call to send() failed; WSAGetLastError returned 10053.",
                        "CCommandChannel::SendKeepAlive: Failed to send keep-alive message."}),
              log.Failures());
    EXPECT_FALSE(log.Has(kSilent));
}

TEST_F(KeepAliveWorker, TheWorkerEndsWithoutATickWhenToldBeforeItsFirstWait)
{
    test_switches::SetTimeScale(1000);  // the first tick is a quarter of an hour away
    const auto channel = MakeCommand();
    EXPECT_TRUE(channel->InitializeKeepAlives(nullptr));
    channel->Shutdown();
    EXPECT_TRUE(log.Has("Received signal to exit."));
    EXPECT_TRUE(log.WaitFor("}CCommandChannel::ThreadProc"));
}

// A spooler's thread in gReadPort, whichever of the two reads it sits in, is freed by the worker.
class LostLink : public Printing {
protected:
    // A document on scripted channels, ahead of the read.
    void StartOnScripts(const std::string& version, int offered)
    {
        server->Data()
            .Accept()
            .Send(printserver::Join(printserver::SessionId(7), printserver::TransMode()))
            .AwaitHangUp();
        auto& command = server->Command().Accept().AnswerVersion(version).AnswerBind(7);
        command.AnswerStartKeepAlives().AnswerStartNotifications(Lpq(0, 2));
        if (offered > 0)
            command.AnswerParallelRead(static_cast<unsigned>(offered)).AwaitHangUp();
        else
            command.ExpectFrame(2, printserver::kParallelRead).AwaitHangUp();
        ASSERT_TRUE(StartJob());
    }
};

TEST_F(LostLink, FreesABlockedReader)
{
    const struct {
        const char* version;
        int offered;
        const char* blockedIn;
    } rows[] = {{"1.0", 5, "{CDataChannel::Receive"}, {"1.10", 0, "{CCommandChannel::Receive"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.version);
        Serve({});
        StartOnScripts(row.version, row.offered);
        log.Clear();
        auto read = std::async(std::launch::async, [this] { return Read(64); });
        EXPECT_TRUE(log.WaitFor(row.blockedIn));
        test_switches::SetTickCount(GetTickCount() + (kPatientTimeout + 1) * 1000);
        EXPECT_EQ(std::future_status::ready, read.wait_for(std::chrono::seconds(30)));
        EXPECT_FALSE(read.get());
        EXPECT_EQ("", server->FirstStepNotPlayed());
        const auto lines = log.All();
        const auto silent = std::find_if(lines.begin(), lines.end(),
                                         [](const LogLine& line) { return line.message == kSilent; });
        ASSERT_NE(lines.end(), silent);
        EXPECT_EQ("127.0.0.1:" + std::to_string(server->Port()), silent->tag);
        EXPECT_TRUE(End());
    }
}

}  // namespace
