#include "link/sync_socket.h"

#include <gtest/gtest.h>

#include "link/resolver.h"
#include "tests/support/failing_new.h"
#include "tests/support/link_fixture.h"

namespace {

using printserver::Channel;

class SyncSocket : public LinkFixture {
protected:
    std::string Refusal(const std::string& host) const
    {
        return "Failed to connect to " + host + ", port " + std::to_string(server.Port()) + ".";
    }
};

TEST_F(SyncSocket, TriesTheAddressesInOrderUntilOneTakesIt)
{
    test_switches::SetResolution("cards.test", {"127.0.0.2", "127.0.0.3", "127.0.0.1"});
    test_switches::CountCalls("closesocket");
    test_switches::CountCalls("freeaddrinfo");
    CSyncSocket socket(TEXT("cards.test"), server.Port());
    EXPECT_TRUE(socket.Connect());
    EXPECT_TRUE(socket.IsConnected());
    EXPECT_TRUE(server.WaitFor([&] { return server.Connections(Channel::Data) == 1; }));
    const auto messages = log.Messages();
    const auto first = std::find(messages.begin(), messages.end(), Refusal("127.0.0.2"));
    EXPECT_NE(messages.end(), std::find(first, messages.end(), Refusal("127.0.0.3")));
    EXPECT_EQ(2, log.Count("Failed to connect"));
    EXPECT_EQ(2, test_switches::CallsCounted("closesocket"));
    EXPECT_EQ(1, test_switches::CallsCounted("freeaddrinfo"));

    server.Refuse(Channel::Data);
    log.Clear();
    EXPECT_FALSE(socket.Connect());
    EXPECT_FALSE(socket.IsConnected());
    EXPECT_TRUE(log.Has(Refusal("127.0.0.1")));
    EXPECT_EQ(Failures{"CSyncSocket::Connect: Failed to connect."}, log.Failures());
}

TEST_F(SyncSocket, SaysWhichCallOfAConnectFailed)
{
    // The first of two addresses refuses: one call is let through before the second address's fails.
    const struct {
        const char* call;
        int skip;
        bool keepsSocket;
    } rows[] = {{"getaddrinfo", 0, false}, {"socket", 1, false}, {"getnameinfo", 1, true}};
    test_switches::SetResolution("cards.test", {"127.0.0.2", "127.0.0.1", "127.0.0.1"});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        CSyncSocket socket(TEXT("cards.test"), server.Port());
        test_switches::FailCall(row.call, 11003, row.skip);
        test_switches::CountCalls("freeaddrinfo");
        test_switches::CountCalls("closesocket");
        log.Clear();
        EXPECT_FALSE(socket.Connect());
        EXPECT_EQ(Failures{std::string("CSyncSocket::Connect: Call to ") + row.call +
                           "() failed; WSAGetLastError returned 11003."},
                  log.Failures());
        EXPECT_EQ(row.keepsSocket, socket.IsConnected());
        EXPECT_EQ(row.skip, test_switches::CallsCounted("freeaddrinfo"));
        socket.Disconnect();
        EXPECT_EQ(row.skip + (row.keepsSocket ? 1 : 0), test_switches::CallsCounted("closesocket"));
    }
    EXPECT_EQ(0, server.Connections(Channel::Data));

    test_switches::SetResolution("nowhere.test", {});
    log.Clear();
    EXPECT_FALSE(CSyncSocket(TEXT("nowhere.test"), server.Port()).Connect());
    EXPECT_EQ(Failures{"CSyncSocket::Connect: Server (nowhere.test) name could not be resolved!\n"},
              log.Failures());
}

TEST_F(SyncSocket, IsNotMadeWithoutTheSocketLibrary)
{
    test_switches::FailCall("WSAStartup", 10091, 0, 2);
    test_switches::CountCalls("WSACleanup");
    EXPECT_THROW(MakeData(), const char*);
    EXPECT_THROW(MakeCommand(), const char*);
    EXPECT_EQ(Failures(2, "CSyncSocket::CSyncSocket: WSAStartup() failed, returning 10091."), log.Failures());
    EXPECT_EQ(0, test_switches::CallsCounted("WSACleanup"));
    MakeData();
    EXPECT_EQ(1, test_switches::CallsCounted("WSACleanup"));
}

TEST_F(SyncSocket, FailsOnNoConnectionWithoutClosingAnything)
{
    CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
    test_switches::CountCalls("closesocket");
    char byte;
    DWORD sent = 9;
    EXPECT_EQ(-1, socket.BytesAvailable());
    EXPECT_EQ(-1, socket.Receive(&byte, 1, false));
    EXPECT_FALSE(socket.Send("ab", 2, &sent));
    EXPECT_EQ(0u, sent);
    for (const char* call : {"ioctlsocket", "recv", "send"})
        EXPECT_TRUE(log.Has(std::string("Call to ") + call + "() failed; WSAGetLastError returned 10038."));
    EXPECT_EQ(0, test_switches::CallsCounted("closesocket"));

    ASSERT_TRUE(socket.Connect());
    test_switches::FailCall("ioctlsocket", 10050);
    EXPECT_EQ(-1, socket.BytesAvailable());
    EXPECT_TRUE(socket.IsConnected());
}

TEST_F(SyncSocket, ConnectsAnewAfterDroppingTheOldConnection)
{
    server.Data().Accept().AwaitHangUp();
    server.Data().Accept().Send(Raw("second")).AwaitHangUp();
    CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
    EXPECT_TRUE(socket.Connect());
    EXPECT_FALSE(log.Has("Disconnecting socket."));
    EXPECT_TRUE(socket.Connect());
    EXPECT_TRUE(Eventually([&] { return socket.BytesAvailable() == 6; }));
    SetLastError(77);
    socket.Disconnect();
    socket.Disconnect();
    EXPECT_EQ(77u, GetLastError());
    EXPECT_EQ(2, log.Count("Disconnecting socket."));
    EXPECT_EQ("", server.FirstStepNotPlayed());
}

TEST_F(SyncSocket, ReadsThePeersCloseAsNoByte)
{
    server.Data().Accept().Send(Raw("end")).HangUp();
    CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
    ASSERT_TRUE(socket.Connect());
    short value;
    char byte;
    EXPECT_TRUE(socket.Receive(&value));
    EXPECT_EQ('e' * 256 + 'n', value);
    EXPECT_FALSE(socket.Receive(&value));  // one byte of two: gone, and the connection stays
    EXPECT_TRUE(socket.IsConnected());
    EXPECT_FALSE(socket.Receive(&byte));
    EXPECT_FALSE(socket.IsConnected());
    EXPECT_EQ(
        (Failures{"CSyncSocket::Receive(short*): Failed to receive a short. Expected 2 byte(s), received "
                  "1 byte(s).",
                  "CSyncSocket::Receive: Call to recv() failed; WSAGetLastError returned 0.",
                  "CSyncSocket::Receive(char*): Failed to receive a char. Expected 1 byte(s), received 0 "
                  "byte(s)."}),
        log.Failures());
}

TEST_F(SyncSocket, DumpsWhatItSendsAndWhatItSees)
{
    server.Data().Accept().Send({0x1B, 0x00, 0x7F}).Expect(printserver::Bytes(101, 0xAB));
    CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
    ASSERT_TRUE(socket.Connect());
    ASSERT_TRUE(Eventually([&] { return socket.BytesAvailable() == 3; }));
    log.Clear();
    char bytes[8];
    EXPECT_EQ(3, socket.Receive(bytes, sizeof bytes, true));
    EXPECT_EQ(3, socket.Receive(bytes, sizeof bytes, false));
    DWORD sent = 0;
    EXPECT_TRUE(socket.Send(printserver::Bytes(101, 0xAB).data(), 101, &sent));
    EXPECT_EQ(101u, sent);
    EXPECT_TRUE(socket.Send(nullptr, 0, &sent));
    std::vector<std::string> dumps;
    for (const std::string& message : log.Messages()) {
        if (message.empty() || message[0] == ':')
            dumps.push_back(message);
    }
    std::string hundred;
    for (int i = 0; i < 100; ++i)
        hundred += ":ab";
    EXPECT_EQ((std::vector<std::string>{":1b:00:7f", ":1b:00:7f", hundred, ""}), dumps);
    EXPECT_EQ("", server.FirstStepNotPlayed());
}

// Each blocked call comes back when another thread disconnects, and the handle is closed once, by the last
// user.
TEST_F(SyncSocket, DisconnectFreesABlockedCall)
{
    const auto never = [] { return false; };
    const struct {
        const char* name;
        std::function<bool(CSyncSocket&)> call;
        std::function<bool(const CSyncSocket&)> isBlocked;
        const char* failure;
    } rows[] = {
        {"recv",
         [](CSyncSocket& socket) {
             char byte;
             return socket.Receive(&byte, 1, false) != -1;  // never 0: no orderly close
         },
         [](const CSyncSocket&) { return test_switches::CallsCounted("recv") > 0; },
         "CSyncSocket::Receive: Call to recv() failed"},
        {"send",
         [](CSyncSocket& socket) {
             const std::vector<char> much(64 << 20);
             DWORD sent;
             return socket.Send(much.data(), static_cast<DWORD>(much.size()), &sent);
         },
         [](const CSyncSocket& socket) { return !socket.CanSendAtOnce(); },
         "CSyncSocket::Send: Call to send() failed; WSAGetLastError returned 995."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        server.Data().Accept().Wait(never);
        CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
        ASSERT_TRUE(socket.Connect());
        test_switches::CountCalls("recv");
        test_switches::CountCalls("closesocket");
        log.Clear();
        auto call = std::async(std::launch::async, [&] { return row.call(socket); });
        EXPECT_TRUE(Eventually([&] { return row.isBlocked(socket); }));
        EXPECT_TRUE(Eventually([&] {  // again and again, as on a worker's ticks: it may be between two sends
            socket.Disconnect();
            return call.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        EXPECT_FALSE(ResultOf(call));
        EXPECT_FALSE(socket.IsConnected());
        ASSERT_EQ(1u, log.Failures().size());
        EXPECT_EQ(0u, log.Failures()[0].find(row.failure)) << log.Failures()[0];
        EXPECT_EQ(1, test_switches::CallsCounted("closesocket"));
    }
}

TEST_F(SyncSocket, DisconnectAndAbandonFreeAHangingConnect)
{
    server.Hang(Channel::Data);
    for (const bool forGood : {false, true}) {
        SCOPED_TRACE(forGood);
        CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
        test_switches::CountCalls("connect");
        test_switches::CountCalls("closesocket");
        log.Clear();
        auto call = std::async(std::launch::async, [&] { return socket.Connect(); });
        EXPECT_TRUE(Eventually([] { return test_switches::CallsCounted("connect") > 0; }));
        EXPECT_TRUE(Eventually([&] {  // again and again, as on a worker's ticks
            forGood ? socket.Abandon() : socket.Disconnect();
            return call.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        EXPECT_FALSE(call.get());
        socket.Disconnect();
        EXPECT_EQ(Failures{"CSyncSocket::Connect: Failed to connect."}, log.Failures());
        EXPECT_EQ(1, test_switches::CallsCounted("connect"));
        EXPECT_EQ(1, test_switches::CallsCounted("closesocket"));
    }
}

// The wake comes when there is no socket that it could end: while the name is resolved, or between two
// addresses.
TEST_F(SyncSocket, ADisconnectAheadOfTheConnectEndsTheAttempt)
{
    test_switches::SetResolution("cards.test", {"127.0.0.2", "127.0.0.1"});
    const struct {
        const char* line;
        int connects;
    } rows[] = {{"}CSyncSocket::Disconnect", 0}, {"Failed to connect to 127.0.0.2", 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        CSyncSocket socket(TEXT("cards.test"), server.Port());
        test_switches::CountCalls("connect");
        log.Clear();
        log.AtLine(row.line, [&] { socket.Disconnect(); });
        EXPECT_FALSE(socket.Connect());
        EXPECT_FALSE(socket.IsConnected());
        EXPECT_EQ(row.connects, test_switches::CallsCounted("connect"));
        EXPECT_EQ(Failures{"CSyncSocket::Connect: Failed to connect."}, log.Failures());
    }
}

TEST_F(SyncSocket, IsNeverConnectedAgainOnceAbandoned)
{
    server.Data().Accept();
    CSyncSocket socket(TEXT("127.0.0.1"), server.Port());
    ASSERT_TRUE(socket.Connect());
    log.Clear();
    socket.Abandon();
    EXPECT_TRUE(log.All().empty());
    char byte;
    EXPECT_EQ(-1, socket.Receive(&byte, 1, false));
    test_switches::CountCalls("connect");
    EXPECT_FALSE(socket.Connect());
    EXPECT_EQ(0, test_switches::CallsCounted("connect"));
    EXPECT_FALSE(socket.IsConnected());
}

// A reader that was disconnected must not read from the next connection, whose socket may get the same
// number.
TEST_F(SyncSocket, AnOldReaderTakesNothingFromANewConnection)
{
    for (int round = 0; round < 40; ++round) {
        server.Data().Accept();
        CSyncSocket old(TEXT("127.0.0.1"), server.Port());
        CSyncSocket next(TEXT("127.0.0.1"), server.Port());
        ASSERT_TRUE(old.Connect());
        auto reader = std::async(std::launch::async, [&] {
            char byte;
            return old.Receive(&byte, 1, false);
        });
        server.Data().Accept().Send(Raw("mine"));
        old.Disconnect();
        ASSERT_TRUE(next.Connect());
        EXPECT_TRUE(Eventually([&] { return next.BytesAvailable() == 4; }));
        EXPECT_EQ(-1, ResultOf(reader));
        EXPECT_EQ(4, next.BytesAvailable());
    }
}

std::string NumericList(const CResolver& resolver, const char* name)
{
    ADDRINFOA hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = 1;
    hints.ai_protocol = 6;
    ADDRINFOA* list = nullptr;
    std::string text = std::to_string(resolver.getAddrInfo(name, "9100", &hints, &list));
    for (const ADDRINFOA* entry = list; entry; entry = entry->ai_next) {
        char host[64];
        char service[32];
        EXPECT_EQ(0, resolver.getNameInfo(entry->ai_addr, static_cast<int>(entry->ai_addrlen), host,
                                          sizeof host, service, sizeof service, 0x0A));
        text += std::string(" ") + host + ":" + service + "/" + std::to_string(entry->ai_protocol);
    }
    resolver.freeAddrInfo(list);
    return text;
}

TEST_F(SyncSocket, ResolvesTheSameWithoutTheNewerCalls)
{
    const CSyncSocket startsTheLibrary(TEXT(""), 0);
    test_switches::FailCall("GetProcAddress", 127, 1);
    const CResolver substitutes = CResolver::LookUp();
    EXPECT_EQ(&LegacyGetAddrInfo, substitutes.getAddrInfo);  // all three or none
    EXPECT_EQ(&LegacyGetNameInfo, substitutes.getNameInfo);
    EXPECT_EQ(&LegacyFreeAddrInfo, substitutes.freeAddrInfo);
    test_switches::FailCall("LoadLibraryW", 126);
    EXPECT_EQ(&LegacyGetAddrInfo, CResolver::LookUp().getAddrInfo);
    const CResolver found = CResolver::LookUp();
    EXPECT_NE(&LegacyGetAddrInfo, found.getAddrInfo);

    test_switches::SetResolution("cards.test", {"10.1.2.3", "255.0.0.254"});
    test_switches::SetResolution("nowhere.test", {});
    EXPECT_EQ("0 10.1.2.3:9100/6 255.0.0.254:9100/6", NumericList(substitutes, "cards.test"));
    for (const char* name : {"cards.test", "nowhere.test", "127.0.0.1", "", "a..b"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(NumericList(found, name), NumericList(substitutes, name));
    }
    ADDRINFOA* list = nullptr;
    const ADDRINFOA hints{};
    EXPECT_EQ(WSATYPE_NOT_FOUND, LegacyGetAddrInfo("cards.test", "65537", &hints, &list)) << "not port 1";
    int withoutRoom = 0;
    for (int which = 1, error = -1; error != 0; ++which) {
        const FailingNew failing(which);
        error = LegacyGetAddrInfo("cards.test", "9100", &hints, &list);
        withoutRoom += error == WSAENOBUFS ? 1 : 0;
        EXPECT_EQ(error == 0, list != nullptr);
    }
    EXPECT_EQ(2, withoutRoom);
    LegacyFreeAddrInfo(list);
    char text[64];
    const SOCKADDR_IN address{};
    EXPECT_EQ(WSAEFAULT, LegacyGetNameInfo(reinterpret_cast<const SOCKADDR*>(&address), 4, text, sizeof text,
                                           text, sizeof text, 0x0A));
}

}  // namespace
