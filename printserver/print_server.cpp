#include "printserver/print_server.h"

#include "printserver/sessions.h"

#include <algorithm>
#include <exception>
#include <system_error>

namespace printserver {

// NOLINTNEXTLINE(performance-unnecessary-value-param): a copy per server is nothing
PrintServer::PrintServer(PrintServerOptions options)
    : PrintServer(options, ListenOnPair(options.address, options.port))
{
}

PrintServer::PrintServer(PrintServerOptions options, ListenerPair listeners)
    : state(std::move(options)),
      dataAcceptor(state.options.address, std::move(listeners.data),
                   [this](TcpConnection connection) { Take(Channel::Data, std::move(connection)); }),
      commandAcceptor(state.options.address, std::move(listeners.command),
                      [this](TcpConnection connection) { Take(Channel::Command, std::move(connection)); })
{
}

void PrintServer::Stop()
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

void PrintServer::Take(Channel channel, TcpConnection connection)
{
    JoinFinished();
    const std::scoped_lock scope(lock);
    Side& side = SideOf(channel);
    if (!state.options.keepHistory)
        std::erase_if(side.peers, [](const auto& peer) { return !peer->IsOpen(); });
    const auto peer =
        std::make_shared<Peer>(std::move(connection), channel, ++side.accepted, state.options.keepHistory);
    side.peers.push_back(peer);

    const bool isScripted = !side.scripts.empty();
    Script* script = nullptr;
    if (side.scriptsTaken < side.scripts.size())
        script = &*std::next(side.scripts.begin(), static_cast<std::ptrdiff_t>(side.scriptsTaken++));

    const auto done = std::make_shared<std::atomic<bool>>(false);
    try {
        workers.push_back({peer, done, std::thread([this, peer, script, isScripted, done] {
                               Serve(peer, script, isScripted);
                               *done = true;
                           })});
    } catch (const std::system_error& trouble) {
        // More connections than the system has threads for.
        state.Raise(EventKind::Trouble, *peer, -1, trouble.what());
        peer->End(Ending::ByServerReset);
    }
}

void PrintServer::Serve(const std::shared_ptr<Peer>& peer, Script* script, bool isScripted)
{
    try {
        state.Raise(EventKind::Connected, *peer, -1, "connected");
        if (script) {
            script->Play(state, peer);
            return;
        }
        if (isScripted)
            NoteUnexpected(*peer);
        else
            peer->Side() == Channel::Data ? ServeData(state, peer) : ServeCommand(state, peer);
        peer->End(Ending::ByServer);
    } catch (const std::exception& trouble) {
        state.Raise(EventKind::Trouble, *peer, -1, trouble.what());
        peer->End(Ending::ByServerReset);
    }
    state.RaiseHangUp(*peer);
}

void PrintServer::NoteUnexpected(const Peer& peer)
{
    const std::scoped_lock scope(lock);
    unexpected = std::string(NameOf(peer.Side())) + " connection " + std::to_string(peer.Number()) +
                 " came without a script";
}

void PrintServer::JoinFinished()
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

Script& PrintServer::AddScript(Channel channel)
{
    const std::scoped_lock scope(lock);
    if (channel == Channel::Data)
        state.settings.bindsAnySession = true;
    Side& side = SideOf(channel);
    const int number = side.accepted + static_cast<int>(side.scripts.size() - side.scriptsTaken) + 1;
    return side.scripts.emplace_back(channel, number);
}

std::string PrintServer::FirstFailure(bool onlyFailed) const
{
    const std::scoped_lock scope(lock);
    for (const Side& side : sides) {
        for (const Script& script : side.scripts) {
            if (!onlyFailed || script.HasFailed()) {
                if (std::string step = script.FirstStepNotPlayed(); !step.empty())
                    return step;
            }
        }
    }
    return unexpected;
}

std::string PrintServer::FirstStepNotPlayed(Milliseconds limit) const
{
    (void)WaitFor([this] { return !FirstFailure(true).empty() || FirstFailure(false).empty(); }, limit);
    const std::string failed = FirstFailure(true);
    return failed.empty() ? FirstFailure(false) : failed;
}

bool PrintServer::Push(Channel channel, const Bytes& bytes)
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

bool PrintServer::PushKeepAlive()
{
    return Push(Channel::Command, KeepAlive(KeepAliveId(ParseVersion(state.settings.TheVersion()))));
}

void PrintServer::ForOpen(Channel channel, const std::function<void(Peer&)>& action)
{
    const std::scoped_lock scope(lock);
    for (const auto& peer : SideOf(channel).peers) {
        if (peer->IsOpen())
            action(*peer);
    }
}

void PrintServer::HangUp(Channel channel)
{
    ForOpen(channel, [](Peer& peer) { peer.AskToHangUp(); });
}
void PrintServer::Reset(Channel channel)
{
    ForOpen(channel, [](Peer& peer) { peer.AskToReset(); });
}
void PrintServer::Silence(Channel channel)
{
    ForOpen(channel, [](Peer& peer) { peer.Mute(); });
}

bool PrintServer::WaitFor(EventKind kind, int count, Milliseconds limit) const
{
    return WaitFor([this, kind, count] { return Count(kind) >= count; }, limit);
}

bool PrintServer::WaitFor(const std::function<bool()>& predicate, Milliseconds limit) const
{
    return state.events.WaitFor(predicate, limit);
}

int PrintServer::Connections(Channel channel) const
{
    const std::scoped_lock scope(lock);
    return SideOf(channel).accepted;
}

int PrintServer::OpenConnections(Channel channel) const
{
    const std::scoped_lock scope(lock);
    const auto& peers = SideOf(channel).peers;
    return static_cast<int>(
        std::count_if(peers.begin(), peers.end(), [](const auto& peer) { return peer->IsOpen(); }));
}

ConnectionReport PrintServer::Report(Channel channel, int number) const
{
    std::shared_ptr<Peer> peer;
    {
        const std::scoped_lock scope(lock);
        peer = SideOf(channel).peers.at(static_cast<std::size_t>(number - 1));
    }
    ConnectionReport report{peer->TheEnding(), peer->TheTranscript(), {}};
    for (const auto& entry : report.transcript.Entries()) {
        if (channel == Channel::Command && entry.direction == Direction::FromMonitor)
            if (auto frame = ParseFrame(entry.bytes))
                report.frames.push_back(std::move(*frame));
    }
    return report;
}

}  // namespace printserver
