#include "printserver/scripted/print_server.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/platform.h"
#include "printserver/fault_text.h"

namespace printserver {
namespace {

constexpr Milliseconds kPatience{10000};

// A monitor's side of one connection, as simple as can be.
class Client {
public:
    explicit Client(int port)
        : connection(ConnectTo("127.0.0.1", static_cast<std::uint16_t>(port), kPatience).value())
    {
    }

    void Send(const Bytes& bytes)
    {
        for (std::size_t sent = 0; sent < bytes.size();)
            sent += connection.Write(std::span(bytes).subspan(sent), kPatience).value();
    }

    // What comes until so many bytes are there or the connection has ended.
    Bytes Read(std::size_t count)
    {
        Bytes bytes(count);
        std::size_t got = 0;
        while (got < count && last == ReadState::Bytes) {
            const ReadResult result = connection.Read(std::span(bytes).subspan(got), kPatience);
            last = result.state;
            got += result.count;
        }
        bytes.resize(got);
        return bytes;
    }

    Bytes ReadToEnd() { return Read(1 << 20); }

    bool HasBytes(Milliseconds wait)
    {
        std::uint8_t byte;
        return connection.Read(std::span(&byte, 1), wait).state == ReadState::Bytes;
    }

    Bytes Ask(const Bytes& request, std::size_t replySize)
    {
        Send(request);
        return Read(replySize);
    }

    void HangUp() { connection.HangUp(); }
    void Reset() { connection.Reset(); }
    ReadState Last() const { return last; }

private:
    TcpConnection connection;
    ReadState last = ReadState::Bytes;
};

// Both channels of one job, opened as a monitor does.
struct OpenJob {
    explicit OpenJob(const PrintServer& server) : data(server.Port())
    {
        const Bytes opening = data.Read(8);
        session = opening.size() == 8 ? GetU16(std::span(opening).subspan(3)) : 0;
        EXPECT_EQ(Join(SessionId(session), TransMode()), opening);
        command.emplace(server.Port() + 2);
        EXPECT_EQ(VersionReply("1.10"), command->Ask(VersionRequest(), 20));
        EXPECT_EQ(Reply(kBindSession), command->Ask(BindRequest(session), 16));
    }

    Client data;
    std::optional<Client> command;
    unsigned session = 0;
};

Bytes Card(std::size_t size)
{
    Bytes card(size);
    for (std::size_t i = 0; i < size; ++i)
        card[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    return card;
}

class Folder {
public:
    Folder()
        : path(std::filesystem::temp_directory_path() /
               ("printserver-" + std::to_string(GetCurrentProcessId())))
    {
        std::filesystem::remove_all(path);
    }
    ~Folder() { std::filesystem::remove_all(path); }
    const std::filesystem::path path;
};

TEST(PrintServerTest, ServesAJobFromSessionToFinalState)
{
    PrintServerOptions options;
    options.firstSession = 0x8007;
    options.course = {.queue = 2, .perPosition = Milliseconds(40), .cardWait = Milliseconds(40)};
    PrintServer server(options);
    OpenJob job(server);
    EXPECT_EQ(0x8007u, job.session);
    EXPECT_EQ(Reply(kStartKeepAlives), job.command->Ask(StartKeepAlivesRequest(5, 20), 16));
    EXPECT_EQ(Notification(Lpq(2, kWaiting, kPrintingCard, 0)), job.command->Ask(LpqRequest(), 26));
    EXPECT_EQ(Notification(Lpq(1, kWaiting, kPrintingCard, 0)), job.command->Read(26));
    EXPECT_EQ(Notification(Lpq(0, kReceivingData)), job.command->Read(26));

    job.data.Send(Card(300000));
    job.data.HangUp();
    EXPECT_EQ(Notification(Lpq(0, kWaitingForCard)), job.command->Read(26));
    EXPECT_EQ(Notification(Lpq(0, kFinished)), job.command->Read(26));
    ASSERT_EQ(1u, server.Documents().size());
    EXPECT_EQ(Card(300000), server.Documents()[0].bytes);
    EXPECT_TRUE(server.Documents()[0].whole);

    job.command->HangUp();
    ASSERT_TRUE(server.WaitFor(EventKind::HungUp, 2));
    const ConnectionReport report = server.Report(Channel::Command, 1);
    EXPECT_EQ(Ending::ByMonitor, report.ending);
    ASSERT_EQ(4u, report.frames.size());
    EXPECT_EQ(StartKeepAlivesRequest(5, 20), Frame(report.frames[2]));
    EXPECT_EQ(0u, report.transcript.ToString().find("monitor 00000002 00000021 00000020 00000000\n"
                                                    "server 00000002 00000021 00000000 00000004 312e3130\n"));
}

TEST(PrintServerTest, SpeaksEachVersionWithItsOwnKeepAlive)
{
    const struct {
        const char* version;
        Bytes reply;
        Bytes keepAlive;
    } cases[] = {{"1.10", VersionReply("1.10"), KeepAlive(18)},
                 {"1.2", VersionReply("1.2"), KeepAlive(18)},
                 {"1.0", VersionReply("1.0"), KeepAlive(16)},
                 {"", Reply(kProtocolVersion, 4), KeepAlive(16)}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.version);
        PrintServerOptions options;
        options.version = one.version;
        options.keepAliveEvery = Milliseconds(10);
        options.clientTimeout = Milliseconds(1);
        PrintServer server(options);
        Client command(server.Port() + 2);
        EXPECT_EQ(one.reply, command.Ask(VersionRequest(), one.reply.size()));
        EXPECT_EQ(Reply(kStartKeepAlives), command.Ask(StartKeepAlivesRequest(5), 16));
        EXPECT_EQ(Join(one.keepAlive, one.keepAlive), command.Read(32));
        server.StopKeepAlives();
        EXPECT_TRUE(server.WaitFor([&] { return !command.HasBytes(Milliseconds(100)); }));
        EXPECT_EQ(one.keepAlive == KeepAlive(18) ? 1 : 0, server.Count(EventKind::ClientSilent));
        server.PushKeepAlive();
        EXPECT_EQ(one.keepAlive, command.Read(16));
    }
}

TEST(PrintServerTest, KeepsWholeDocumentsAndSetsBrokenOnesAside)
{
    Folder folder;
    const auto print = [&](bool orderly) {
        PrintServer server({.folder = folder.path});
        OpenJob job(server);
        job.data.Send(Card(5000));
        EXPECT_TRUE(server.WaitFor(EventKind::Receiving));
        orderly ? job.data.HangUp() : job.data.Reset();
        EXPECT_TRUE(server.WaitFor([&] { return server.Documents().size() == 1; }));
        return server.Documents().at(0);
    };
    const Document whole = print(true);
    EXPECT_EQ(folder.path / "document-0001.bin", whole.path);
    std::ifstream file(whole.path, std::ios::binary);
    EXPECT_EQ(Card(5000), Bytes(std::istreambuf_iterator<char>(file), {}));
    // A later run counts on and overwrites nothing.
    EXPECT_EQ("document-0002.broken", print(false).name);
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(folder.path), {}));
}

TEST(PrintServerFaultTest, ChangesWhatTheMonitorReads)
{
    const Bytes reply = Reply(kBindSession);
    const struct {
        Fault fault;
        Bytes seen;
        ReadState last;  // Bytes: the connection goes on
    } cases[] = {{Fault::Close(), {}, ReadState::End},
                 {Fault::Reset(), {}, ReadState::Broken},
                 {Fault::HalfThenClose(5), Bytes(reply.begin(), reply.begin() + 5), ReadState::End},
                 {Fault::Instead(Text("garbage")), Text("garbage"), ReadState::Bytes},
                 {Fault::SingleBytes(), reply, ReadState::Bytes},
                 {Fault::Delay(Milliseconds(20)), reply, ReadState::Bytes},
                 {Fault::WrongType(9), Frame(9, kBindSession), ReadState::Bytes},
                 {Fault::WrongId(9), Frame(2, 9), ReadState::Bytes},
                 {Fault::Error(9), Reply(kBindSession, 9), ReadState::Bytes},
                 {Fault::Payload(Text("abc")), Reply(kBindSession, 0, Text("abc")), ReadState::Bytes},
                 {Fault::HugeLength(), Join(Bytes(reply.begin(), reply.begin() + 12), U32(0xFFFFFFF0)),
                  ReadState::Bytes},
                 {Fault::InFront(KeepAlive()), Join(KeepAlive(), reply), ReadState::Bytes},
                 {Fault::Drop(), {}, ReadState::Bytes}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.fault.Name());
        PrintServer server;
        server.FaultAt(Step::BindReply, one.fault, 2);
        OpenJob job(server);  // binds once without the fault
        job.command->Send(BindRequest(job.session));
        if (one.last == ReadState::Bytes) {
            EXPECT_EQ(one.seen, job.command->Read(one.seen.size()));
            EXPECT_EQ(Reply(kSuppressSyslog), job.command->Ask(SuppressRequest(), 16));
        } else {
            EXPECT_EQ(one.seen, job.command->ReadToEnd());
        }
        EXPECT_EQ(one.last, job.command->Last());
    }
}

TEST(PrintServerFaultTest, IsReadFromACommandLine)
{
    const auto change = [](const std::string& text) {
        return ParseFault(text).fault.Change(Reply(kBindSession), Channel::Command);
    };
    EXPECT_EQ(Reply(kBindSession, 0x10), change("bind-reply:error=0x10#2"));
    EXPECT_EQ(Join(Bytes{1, 0xFE}, Reply(kBindSession)), change("bind-reply:front=01fe"));
    EXPECT_EQ(2, ParseFault("keep-alive:half=3#2").occurrence);
    EXPECT_EQ(Milliseconds(1500), ParseFault("data-middle:delay=1.5@70").fault.Wait());
    EXPECT_EQ(70u, ParseFault("data-middle:reset@70#1").fault.Threshold());
    for (const char* text : {"", "reset", "bind-reply", "bind-reply:", "nowhere:reset", "bind-reply:error",
                             "bind-reply:reset=1", "bind-reply:error=x", "bind-reply:front=123",
                             "bind-reply:delay=-1", "session-id:id=7", "end-of-data:error=1"})
        EXPECT_THROW((void)ParseFault(text), std::invalid_argument) << text;
}

TEST(PrintServerTest, ReadsSlowlyIfItIsTo)
{
    PrintServer server({.bytesPerSecond = 10});
    OpenJob job(server);
    job.data.Send(Card(1000));
    job.data.HangUp();
    ASSERT_TRUE(server.WaitFor(EventKind::Receiving));
    server.Stop();
    ASSERT_EQ(1u, server.Documents().size());
    EXPECT_FALSE(server.Documents()[0].whole);
    EXPECT_GT(1000u, server.Documents()[0].size);
}

TEST(PrintServerHostileTest, IsDroppedWhileOthersAreServed)
{
    PrintServer server;
    OpenJob honest(server);
    const Bytes inputs[] = {Bytes(64, 0xFF), Frame(3, 1),
                            Fault::Length(kMaxPayload + 1).Change(QueryRequest(1, 0), Channel::Command),
                            Frame(2, kBindSession, 0, Text("abc")), Frame(2, kStartKeepAlives)};
    int dropped = 0;
    for (const Bytes& input : inputs) {
        SCOPED_TRACE(Hex(input));
        Client hostile(server.Port() + 2);
        hostile.Send(input);
        EXPECT_EQ(Bytes(), hostile.ReadToEnd());
        EXPECT_TRUE(server.WaitFor(EventKind::Malformed, ++dropped));
    }
    Client unfinished(server.Port() + 2);
    unfinished.Send(Bytes(inputs[0].begin(), inputs[0].begin() + 15));
    unfinished.HangUp();
    EXPECT_EQ(Reply(99, kErrorUnknownRequest), honest.command->Ask(Frame(2, 99), 16));
    EXPECT_EQ(Reply(kSuppressSyslog), honest.command->Ask(SuppressRequest(), 16));
}

TEST(PrintServerScriptTest, TellsTheFirstStepThatCameOutOtherwise)
{
    PrintServer server;
    server.Command().Accept().AnswerVersion("1.10").AwaitHangUp();
    server.Command().Accept().ExpectKeepAlive().Reset();
    Client first(server.Port() + 2);
    EXPECT_EQ(VersionReply("1.10"), first.Ask(VersionRequest(), 20));
    first.Send(BindRequest(3));
    EXPECT_EQ(Bytes(), first.ReadToEnd());
    EXPECT_EQ("command connection 1, step 3, AwaitHangUp: arrived: 00000002 00000001 00000000 00000002 0003",
              server.FirstStepNotPlayed());
    Client second(server.Port() + 2);
    second.Send(KeepAlive());
    EXPECT_EQ(Bytes(), second.ReadToEnd());
    EXPECT_EQ(ReadState::Broken, second.Last());

    PrintServer other;
    other.Data().Accept().HangUp();
    EXPECT_EQ(Bytes(), Client(other.Port()).ReadToEnd());
    EXPECT_EQ(Bytes(), Client(other.Port()).ReadToEnd());
    ASSERT_TRUE(other.WaitFor(EventKind::HungUp, 2));
    EXPECT_EQ("data connection 2 came without a script", other.FirstStepNotPlayed());
}

TEST(PrintServerStopTest, FreesEveryThreadWhateverItWaitsFor)
{
    Observer quiet = [](const Event&) {};
    PrintServer server({.parallelData = Bytes(0xFFFF), .observer = quiet, .keepHistory = false});
    server.FaultAt(Step::DataMiddle, Fault::Silence(), 1);
    OpenJob deaf(server);
    deaf.data.Send(Card(10));
    OpenJob flooded(server);
    server.Command().Accept().Wait([] { return false; });
    Client scripted(server.Port() + 2);
    std::thread flood([&] {
        // The client reads nothing, so in the end this blocks until the server stops.
        while (server.Push(Channel::Data, Bytes(1 << 20))) {
        }
    });
    EXPECT_EQ(Bytes(1000), flooded.data.Read(1000));
    server.Stop();
    flood.join();
    EXPECT_EQ(0, server.OpenConnections(Channel::Data) + server.OpenConnections(Channel::Command));
}

}  // namespace
}  // namespace printserver
