#include "printserver/scripted/print_server.h"

#include <algorithm>

namespace printserver {

Script& ScriptBook::Add(Channel channel, int accepted)
{
    const std::scoped_lock scope(lock);
    int& last = lastScripted[channel];
    last = std::max(last, accepted) + 1;
    return scripts.try_emplace({channel, last}, channel, last).first->second;
}

bool ScriptBook::Serve(ServerState& state, const std::shared_ptr<Peer>& peer)
{
    Script* script = nullptr;
    {
        const std::scoped_lock scope(lock);
        if (!lastScripted.contains(peer->Side()))
            return false;
        const auto found = scripts.find({peer->Side(), peer->Number()});
        if (found != scripts.end())
            script = &found->second;
        else
            unexpected = std::string(NameOf(peer->Side())) + " connection " + std::to_string(peer->Number()) +
                         " came without a script";
    }
    if (script != nullptr) {
        script->Play(state, peer);
    } else {
        peer->End(Ending::ByServer);
        state.RaiseHangUp(*peer);
    }
    return true;
}

Recorder ScriptBook::RecorderFor(Channel channel, int number)
{
    return [this, channel, number](Direction direction, const Bytes& bytes) {
        const std::scoped_lock scope(lock);
        transcripts[{channel, number}].Add(direction, bytes);
    };
}

Transcript ScriptBook::TheTranscript(Channel channel, int number) const
{
    const std::scoped_lock scope(lock);
    const auto found = transcripts.find({channel, number});
    return found == transcripts.end() ? Transcript() : found->second;
}

std::string ScriptBook::FirstStepNotPlayed(bool onlyFailed) const
{
    const std::scoped_lock scope(lock);
    for (const auto& [connection, script] : scripts) {
        if (!onlyFailed || script.HasFailed()) {
            if (std::string step = script.FirstStepNotPlayed(); !step.empty())
                return step;
        }
    }
    return unexpected;
}

PrintServerOptions PrintServer::WithBook(PrintServerOptions options)
{
    options.serveInstead = [this](ServerState& state, const std::shared_ptr<Peer>& peer) {
        return ScriptBook::Serve(state, peer);
    };
    if (options.keepHistory)
        options.recorderFor = [this](Channel channel, int number) { return RecorderFor(channel, number); };
    return options;
}

Script& PrintServer::Data()
{
    TheSettings().bindsAnySession = true;
    return Add(Channel::Data, Connections(Channel::Data));
}

Script& PrintServer::Command()
{
    TheSettings().commandIsScripted = true;
    return Add(Channel::Command, Connections(Channel::Command));
}

std::string PrintServer::FirstStepNotPlayed(Milliseconds limit) const
{
    const auto first = [this](bool onlyFailed) { return ScriptBook::FirstStepNotPlayed(onlyFailed); };
    (void)WaitFor([&] { return !first(true).empty() || first(false).empty(); }, limit);
    const std::string failed = first(true);
    return failed.empty() ? first(false) : failed;
}

ConnectionReport PrintServer::Report(Channel channel, int number) const
{
    ConnectionReport report{EndingOf(channel, number), TheTranscript(channel, number), {}};
    for (const auto& entry : report.transcript.Entries()) {
        if (channel == Channel::Command && entry.direction == Direction::FromMonitor)
            if (auto frame = ParseFrame(entry.bytes))
                report.frames.push_back(std::move(*frame));
    }
    return report;
}

}  // namespace printserver
