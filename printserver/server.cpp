#include "printserver/server.h"

#include "printserver/sessions.h"

#include <algorithm>
#include <exception>
#include <system_error>

namespace printserver {

// NOLINTNEXTLINE(performance-unnecessary-value-param): a copy per server is nothing
Server::Server(PrintServerOptions options) : Server(options, ListenOnPair(options.address, options.port)) {}

Server::Server(PrintServerOptions options, ListenerPair listeners)
    : state(std::move(options)),
      dataAcceptor(state.options.address, std::move(listeners.data),
                   [this](TcpConnection connection) { Take(Channel::Data, std::move(connection)); }),
      commandAcceptor(state.options.address, std::move(listeners.command),
                      [this](TcpConnection connection) { Take(Channel::Command, std::move(connection)); })
{
}

void Server::Stop()
{
    dataAcceptor.Refuse();
    commandAcceptor.Refuse();
    std::list<Worker> ending;
    {
        const std::scoped_lock scope(lock);
        ending.swap(workers);
    }
    for (Worker& worker : ending)
        worker.peer->AskToHangUp();
    for (Worker& worker : ending)
        worker.thread.join();
}

void Server::Take(Channel channel, TcpConnection connection)
{
    JoinFinished();
    const std::scoped_lock scope(lock);
    Side& side = SideOf(channel);
    if (!state.options.keepHistory)
        std::erase_if(side.peers, [](const auto& peer) { return !peer->IsOpen(); });
    const int number = ++side.accepted;
    Recorder recorder = state.options.recorderFor ? state.options.recorderFor(channel, number) : Recorder();
    const auto peer = std::make_shared<Peer>(std::move(connection), channel, number, std::move(recorder));
    side.peers.push_back(peer);

    const auto done = std::make_shared<std::atomic<bool>>(false);
    try {
        workers.push_back({peer, done, std::thread([this, peer, done] {
                               Serve(peer);
                               *done = true;
                           })});
    } catch (const std::system_error& trouble) {
        // More connections than the system has threads for.
        state.Raise(EventKind::Trouble, *peer, -1, trouble.what());
        peer->End(Ending::ByServerReset);
    }
}

void Server::Serve(const std::shared_ptr<Peer>& peer)
{
    try {
        state.Raise(EventKind::Connected, *peer, -1, "connected");
        if (state.options.serveInstead && state.options.serveInstead(state, peer))
            return;
        peer->Side() == Channel::Data ? ServeData(state, peer) : ServeCommand(state, peer);
        peer->End(Ending::ByServer);
    } catch (const std::exception& trouble) {
        state.Raise(EventKind::Trouble, *peer, -1, trouble.what());
        peer->End(Ending::ByServerReset);
    }
    state.RaiseHangUp(*peer);
}

void Server::JoinFinished()
{
    std::list<Worker> finished;
    {
        const std::scoped_lock scope(lock);
        for (auto worker = workers.begin(); worker != workers.end();) {
            const auto here = worker++;
            if (*here->done)
                finished.splice(finished.end(), workers, here);
        }
    }
    for (Worker& worker : finished)
        worker.thread.join();
}

bool Server::Push(Channel channel, const Bytes& bytes)
{
    std::shared_ptr<Peer> newest;
    {
        const std::scoped_lock scope(lock);
        const auto& peers = SideOf(channel).peers;
        const auto found =
            std::find_if(peers.rbegin(), peers.rend(), [](const auto& peer) { return peer->IsOpen(); });
        if (found != peers.rend())
            newest = *found;
    }
    return newest && newest->Send(bytes);
}

bool Server::PushKeepAlive()
{
    return Push(Channel::Command, KeepAlive(KeepAliveId(ParseVersion(state.settings.TheVersion()))));
}

void Server::ForOpen(Channel channel, const std::function<void(Peer&)>& action)
{
    const std::scoped_lock scope(lock);
    for (const auto& peer : SideOf(channel).peers) {
        if (peer->IsOpen())
            action(*peer);
    }
}

void Server::HangUp(Channel channel)
{
    ForOpen(channel, [](Peer& peer) { peer.AskToHangUp(); });
}
void Server::Reset(Channel channel)
{
    ForOpen(channel, [](Peer& peer) { peer.AskToReset(); });
}
void Server::Silence(Channel channel)
{
    ForOpen(channel, [](Peer& peer) { peer.Mute(); });
}

bool Server::WaitFor(EventKind kind, int count, Milliseconds limit) const
{
    return WaitFor([this, kind, count] { return Count(kind) >= count; }, limit);
}

bool Server::WaitFor(const std::function<bool()>& predicate, Milliseconds limit) const
{
    return state.events.WaitFor(predicate, limit);
}

int Server::Connections(Channel channel) const
{
    const std::scoped_lock scope(lock);
    return SideOf(channel).accepted;
}

int Server::OpenConnections(Channel channel) const
{
    const std::scoped_lock scope(lock);
    const auto& peers = SideOf(channel).peers;
    return static_cast<int>(
        std::count_if(peers.begin(), peers.end(), [](const auto& peer) { return peer->IsOpen(); }));
}

Ending Server::EndingOf(Channel channel, int number) const
{
    const std::scoped_lock scope(lock);
    return SideOf(channel).peers.at(static_cast<std::size_t>(number - 1))->TheEnding();
}

}  // namespace printserver
