// How a port connects: what may fail on the way, what may change beside it, and two calls that want it at
// once.

#include <atomic>

#include "tests/support/printing_fixture.h"
#include "tests/support/text.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

class PortSetUp : public Printing {
protected:
    // A write with nothing of the fixture's, for several threads.
    bool WriteByte()
    {
        BYTE byte = 7;
        DWORD taken = 0;
        return table->pfnWritePort(port, &byte, 1, &taken) && taken == 1;
    }
};

// The number behind "name = " in a line.
int NumberIn(const std::string& line, const std::string& name)
{
    return std::stoi(line.substr(line.find(name + " = ") + name.size() + 3));
}

}  // namespace

TEST_F(PortSetUp, TellsWhichStepFailedBeforeAnyByteWentOut)
{
    const struct {
        const char* call;
        int skip;
        std::string cause;
        const char* text;
    } failures[] = {
        {"WSAStartup", 0, "CSyncSocket::CSyncSocket: WSAStartup() failed, returning 8.",
         "Failed to open data channel."},
        {"WSAStartup", 1, "CSyncSocket::CSyncSocket: WSAStartup() failed, returning 8.",
         "Failed to open command channel."},
        {"CreateEventW", 0,
         "CCommandChannel::InitializeKeepAlives: Failed to create event to signal worker thread to exit.",
         "Failed to initialize keep-alives."},
        {"CreateThread", 0, "CCommandChannel::InitializeKeepAlives: Failed to create worker thread.",
         "Failed to initialize keep-alives."},
    };
    for (const auto& failure : failures) {
        SCOPED_TRACE(failure.text);
        log.Clear();
        const int connections = server->Connections(Channel::Data);
        test_switches::FailCall(failure.call, 8, failure.skip);
        EXPECT_FALSE(StartJob());
        EXPECT_EQ((std::vector<std::string>{
                      failure.cause, std::string("krelIniPort::SetupCommunicationChannels: ") + failure.text,
                      "krelIniPort::startDocPort: Failed to setup communication channels."}),
                  log.Failures());
        EXPECT_EQ(connections, server->Connections(Channel::Data));
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_TRUE(StartJob()) << "the busy mark is left";
        EXPECT_TRUE(End());
    }
}

TEST_F(PortSetUp, FailsAChannelDocumentWhoseServerWontKeepItsLogQuiet)
{
    server->FaultAt(Step::SuppressReply, Fault::Error(9), 1);
    ASSERT_TRUE(StartChannel());
    EXPECT_FALSE(Write({1}));
    EXPECT_TRUE(log.Has("SetupCommunicationChannels: ERROR: Failed to suppress system log messages."));
    EXPECT_EQ(0, spooler.OpenPrinters());
}

TEST_F(PortSetUp, LeavesNothingOfAnOldServersQueryWhoseDataChannelFails)
{
    ServeVersion("1.9");
    server->Refuse(Channel::Data);
    ASSERT_TRUE(StartChannel());
    EXPECT_FALSE(Query(5));
    EXPECT_TRUE(log.Has("getPrinterDataFromPort: ERROR: Failed to setup communication channels."));
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_TRUE(server->WaitFor([&] { return server->OpenConnections(Channel::Command) == 0; }));
    EXPECT_EQ(log.Count("{CCommandChannel::ThreadProc"), log.Count("}CCommandChannel::ThreadProc"));
    EXPECT_FALSE(Query(5)) << "the document is over";
    server->Welcome(Channel::Data);
    ASSERT_TRUE(StartChannel());
    EXPECT_TRUE(Query(5));
    EXPECT_TRUE(End());
}

TEST_F(PortSetUp, HappensOnceForTwoFirstWrites)
{
    const SlowClock slow;
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(StartChannel());
        std::atomic<int> taken{0};
        std::thread other([&] { taken += WriteByte() ? 1 : 0; });
        taken += WriteByte() ? 1 : 0;
        other.join();
        EXPECT_EQ(2, taken);
        EXPECT_EQ(round + 1, server->Connections(Channel::Data));
        EXPECT_TRUE(End());
        EXPECT_TRUE(server->WaitFor(EventKind::DocumentComplete, round + 1));
        EXPECT_EQ(2u, LastDocument().bytes.size());
    }
}

// A card that goes to the old server's address at the new one's port lands somewhere else.
TEST_F(PortSetUp, GoesToTheOldServerOrTheNewOneButNeverToHalfOfEach)
{
    constexpr WORD kPorts[] = {1111, 2222};
    const WideString servers[] = {TEXT("10.1.1.1"), TEXT("10.2.2.2")};
    const auto isWhole = [](const std::string& text, int number) {
        return text.find(number == 1111 ? "10.1.1.1" : "10.2.2.2") != std::string::npos;
    };
    test_switches::FailCall("socket", 10055, 0, 1000000);  // nothing leaves this machine
    ASSERT_EQ(
        0u, OpenXcv(TEXT("Card 1")).Send(TEXT("SetPortProperties"), PortRecord({}, servers[0], 1111)).result);
    std::atomic<bool> done{false};
    std::thread changing([&] {
        const XcvSession session = OpenXcv(TEXT("Card 1"));
        for (int turn = 0; !done; turn = 1 - turn) {
            EXPECT_EQ(
                0u,
                session.Send(TEXT("SetPortProperties"), PortRecord({}, servers[turn], kPorts[turn])).result);
        }
    });
    log.Clear();
    for (int round = 0; round < 50; ++round) {
        EXPECT_TRUE(StartChannel());
        EXPECT_FALSE(WriteByte());
    }
    done = true;
    changing.join();
    int dataPort = 0;
    int setUps = 0;
    for (const LogLine& line : log.All()) {
        if (line.tag != "N/A") {
            EXPECT_TRUE(line.tag == "10.1.1.1:1111" || line.tag == "10.2.2.2:2222") << line.tag;
        }
        if (line.message.find("{CDataChannel::CDataChannel") != std::string::npos) {
            dataPort = NumberIn(line.message, "port");
            EXPECT_TRUE(isWhole(line.message, dataPort)) << line.message;
        } else if (line.message.find("{CCommandChannel::CCommandChannel: ") != std::string::npos) {
            EXPECT_EQ(dataPort + 2, NumberIn(line.message, "port"));
            EXPECT_TRUE(isWhole(line.message, dataPort)) << line.message;
            ++setUps;
        }
    }
    EXPECT_EQ(50, setUps);
}
