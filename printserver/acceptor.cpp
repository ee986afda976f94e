#include "printserver/acceptor.h"

#include "printserver/peer.h"

namespace printserver {

Acceptor::Acceptor(std::string where, TcpListener bound, Taker onConnection)
    : address(std::move(where)),
      port(bound.Port()),
      taker(std::move(onConnection)),
      listener(std::move(bound))
{
    Welcome();
}

void Acceptor::Welcome()
{
    if (thread.joinable())
        return;
    if (!listening || !fillers.empty()) {
        // A new listener, since the fillers still stand in the old one's queue.
        Refuse();
        listener = TcpListener::Listen(address, port);
        listening = true;
    }
    stopping = false;
    thread = std::thread([this] {
        while (!stopping) {
            if (auto connection = listener.Accept(kSlice))
                taker(std::move(*connection));
        }
    });
}

void Acceptor::Refuse()
{
    StopThread();
    listener.Close();
    listening = false;
    fillers.clear();
}

void Acceptor::Hang()
{
    StopThread();
    if (!listening) {
        listener = TcpListener::Listen(address, port);
        listening = true;
    }
    listener.ShrinkBacklog();
    FillBacklog();
}

void Acceptor::StopThread()
{
    stopping = true;
    if (thread.joinable())
        thread.join();
}

void Acceptor::FillBacklog()
{
    // The system rounds a backlog up as it likes. A connect over loopback that takes longer than this hangs.
    constexpr Milliseconds kPatience{200};
    while (auto connection = ConnectTo(address, port, kPatience))
        fillers.push_back(std::move(*connection));
}

}  // namespace printserver
