#pragma once

#include "printserver/events.h"
#include "printserver/tcp.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace printserver {

// One listening port with the thread that accepts on it. Welcome, Refuse and Hang are the test's or the
// owner's, on one thread at a time; each has taken effect when it returns. New ones welcome at once.
class Acceptor {
public:
    // Called on the acceptor's thread, one connection at a time.
    using Taker = std::function<void(TcpConnection)>;

    Acceptor(std::string address, TcpListener listener, Taker taker);
    ~Acceptor() { Refuse(); }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    std::uint16_t Port() const { return port; }

    void Welcome();  // throws ListenError when the port was given up and taken by somebody else
    void Refuse();   // connects are refused; connections that stand are left alone
    void Hang();     // connects neither succeed nor fail: nobody accepts, and the backlog is full

private:
    void StopThread();
    void FillBacklog();

    const std::string address;
    const std::uint16_t port;
    const Taker taker;
    TcpListener listener;
    bool listening = true;
    std::atomic<bool> stopping{false};
    std::thread thread;
    std::vector<TcpConnection> fillers;
};

}  // namespace printserver
