#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/test_switches.h"
#include "printserver/tcp.h"

namespace {

constexpr std::chrono::seconds kPatience(60);

SOCKADDR_IN Loopback(USHORT port)
{
    SOCKADDR_IN address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(0x7F000001);
    return address;
}

int ConnectTo(SOCKET handle, USHORT port)
{
    const SOCKADDR_IN address = Loopback(port);
    return connect(handle, reinterpret_cast<const SOCKADDR*>(&address), sizeof address);
}

// Fills the queue of connections that nobody accepts, so that the next connect blocks.
std::vector<printserver::TcpConnection> FillBacklog(printserver::TcpListener& listener)
{
    std::vector<printserver::TcpConnection> waiting;
    listener.ShrinkBacklog();
    for (int i = 0; i < 6; ++i) {
        if (auto connection =
                printserver::ConnectTo("127.0.0.1", listener.Port(), std::chrono::milliseconds(20)))
            waiting.push_back(std::move(*connection));
    }
    return waiting;
}

// One blocking call on a thread of its own.
class CBlockedCall {
public:
    explicit CBlockedCall(std::function<int()> call)
        : thread([this, call = std::move(call)] {
              id = GetCurrentThreadId();
              result = call();
              error = WSAGetLastError();
              over = true;
          })
    {
        while (!over && !Sleeps())
            std::this_thread::yield();
    }
    // Repeats the wake, since a sleeping thread may not yet have been inside the call.
    void WakeUntilOver(SOCKET handle)
    {
        while (!over) {
            WakeBlockedCalls(handle);
            std::this_thread::yield();
        }
        thread.join();
    }
    void Interrupt() { pthread_kill(thread.native_handle(), SIGUSR1); }
    bool IsOver() const { return over; }
    void Join() { thread.join(); }

    int result = 0;
    int error = 0;

private:
    bool Sleeps() const
    {
        if (id == 0)
            return false;
        std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
        std::string number, name, state;
        stat >> number >> name >> state;
        return state == "S";
    }

    std::atomic<bool> over{false};
    std::atomic<DWORD> id{0};
    std::thread thread;
};

// The addresses and ports of a look-up as the numeric rendering shows them.
std::string Resolve(const char* node, const char* service)
{
    ADDRINFOA hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    ADDRINFOA* list = nullptr;
    if (const int error = getaddrinfo(node, service, &hints, &list); error != 0)
        return std::to_string(error);
    std::string text;
    for (const ADDRINFOA* entry = list; entry != nullptr; entry = entry->ai_next) {
        char host[NI_MAXHOST];
        char port[NI_MAXSERV];
        EXPECT_EQ(0, getnameinfo(entry->ai_addr, static_cast<int>(entry->ai_addrlen), host, sizeof host, port,
                                 sizeof port, NI_NUMERICHOST | NI_NUMERICSERV));
        EXPECT_EQ(SOCK_STREAM, entry->ai_socktype);
        text += std::string(host) + ":" + port + " ";
    }
    freeaddrinfo(list);
    return text;
}

class PlatformSockets : public testing::Test {
protected:
    PlatformSockets()
    {
        WSADATA data{};
        EXPECT_EQ(0, WSAStartup(0x0202, &data));
        EXPECT_EQ(0x0202, data.wVersion);
        handle = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    }
    ~PlatformSockets() override
    {
        closesocket(handle);
        WSACleanup();
        test_switches::Reset();
    }
    void Connect()
    {
        ASSERT_EQ(0, ConnectTo(handle, listener.Port()));
        peer = listener.Accept(kPatience).value();
    }
    void Write(std::string_view text)
    {
        const std::vector<std::uint8_t> bytes(text.begin(), text.end());
        EXPECT_EQ(text.size(), peer.Write(bytes, kPatience));
    }
    printserver::TcpListener listener = printserver::TcpListener::Listen("127.0.0.1", 0);
    printserver::TcpConnection peer;
    SOCKET handle = INVALID_SOCKET;
    char buffer[64] = {};
};

TEST_F(PlatformSockets, ResetAndRefusalCarryTheSocketNumbers)
{
    Connect();
    CBlockedCall reader([&] { return recv(handle, buffer, sizeof buffer, 0); });
    peer.Reset();
    reader.Join();
    EXPECT_EQ(SOCKET_ERROR, reader.result);
    EXPECT_EQ(WSAECONNRESET, reader.error);
    EXPECT_EQ(SOCKET_ERROR, send(handle, "x", 1, 0));  // and no SIGPIPE
    EXPECT_EQ(WSAECONNRESET, WSAGetLastError());
    EXPECT_TRUE(IsWritable(handle));  // a send would not block: it would fail

    const USHORT deserted = listener.Port();
    listener.Close();
    const SOCKET other = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(SOCKET_ERROR, ConnectTo(other, deserted));
    EXPECT_EQ(WSAECONNREFUSED, WSAGetLastError());
    EXPECT_EQ(DWORD{WSAECONNREFUSED}, GetLastError());
    closesocket(other);
}

TEST_F(PlatformSockets, CallsOnWhatIsNoSocketFail)
{
    const SOCKET closed = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(0, closesocket(closed));
    for (const SOCKET bad : {INVALID_SOCKET, closed, SOCKET{1} << 32}) {
        SCOPED_TRACE(bad);
        ULONG readable = 0;
        const std::function<int()> calls[] = {
            [&] { return ConnectTo(bad, listener.Port()); },
            [&] { return send(bad, "x", 1, 0); },
            [&] { return recv(bad, buffer, 1, 0); },
            [&] { return shutdown(bad, SD_BOTH); },
            [&] { return ioctlsocket(bad, FIONREAD, &readable); },
            [&] { return closesocket(bad); },
        };
        for (const auto& call : calls) {
            WSASetLastError(0);
            EXPECT_EQ(SOCKET_ERROR, call());
            EXPECT_EQ(WSAENOTSOCK, WSAGetLastError());
        }
        EXPECT_FALSE(IsWritable(bad));
        WakeBlockedCalls(bad);
    }
}

// A host's signal handlers run on whatever thread the system picks.
TEST_F(PlatformSockets, SignalsDoNotEndBlockedCalls)
{
    struct sigaction handler {};
    struct sigaction before {};
    handler.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGUSR1, &handler, &before));

    auto full = printserver::TcpListener::Listen("127.0.0.1", 0);
    const auto waiting = FillBacklog(full);
    const SOCKET connecting = socket(AF_INET, SOCK_STREAM, 0);
    CBlockedCall caller([&] { return ConnectTo(connecting, full.Port()); });
    Connect();
    CBlockedCall reader([&] { return recv(handle, buffer, sizeof buffer, 0); });
    for (int i = 0; i < 20; ++i) {
        caller.Interrupt();
        reader.Interrupt();
        std::this_thread::yield();
    }
    Write("still here");
    reader.Join();
    EXPECT_EQ(10, reader.result);
    EXPECT_FALSE(caller.IsOver());
    caller.WakeUntilOver(connecting);
    EXPECT_EQ(SOCKET_ERROR, caller.result);
    EXPECT_EQ(WSA_OPERATION_ABORTED, caller.error);
    closesocket(connecting);
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(PlatformSockets, NamesResolveInOrder)
{
    test_switches::SetResolution("three.test", {"127.0.0.3", "127.0.0.1", "127.0.0.2"});
    test_switches::SetResolution("none.test", {});
    const std::string longLabel(64, 'a');
    const struct {
        const char* node;
        const char* service;
        const char* expected;
    } cases[] = {
        {"127.0.0.1", "9100", "127.0.0.1:9100 "},
        {"localhost", "9100", "127.0.0.1:9100 "},
        {"127.0.0.1", "65535", "127.0.0.1:65535 "},
        {"127.0.0.1", "65537", "10109"},  // not port 1
        {"127.0.0.1", "4294967297", "10109"},
        {"127.0.0.1", "printer", "10109"},
        {"THREE.test", "1", "127.0.0.3:1 127.0.0.1:1 127.0.0.2:1 "},
        {"none.test", "1", ""},
        {"a..b", "1", "11001"},
        {".", "1", "11001"},
        {"", "1", "11001"},
        {longLabel.c_str(), "1", "11001"},
    };
    for (const auto& [node, service, expected] : cases) {
        SCOPED_TRACE(std::string(node) + ":" + service);
        EXPECT_EQ(expected, Resolve(node, service));
    }
    test_switches::FailCall("getaddrinfo", 11002);
    EXPECT_EQ("11002", Resolve("127.0.0.1", "1"));
}

}  // namespace
