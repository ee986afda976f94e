#include "printserver/scripted/script.h"

#include "printserver/scripted/script_player.h"

#include <thread>

namespace printserver {

Script& Script::Add(std::string name, Action action)
{
    const std::scoped_lock scope(lock);
    steps.push_back({std::move(name), std::move(action)});
    return *this;
}

Script& Script::Accept()
{
    return Add("Accept", [](ScriptPlayer&) { return std::string(); });
}

Script& Script::Send(Bytes bytes)
{
    return Add("Send " + Hex(bytes), [bytes](ScriptPlayer& player) { return player.Send(bytes); });
}

Script& Script::SendKeepAlive()
{
    return Add("SendKeepAlive", [](ScriptPlayer& player) { return player.SendKeepAlive(); });
}

Script& Script::SendNotification(const Lpq& record)
{
    return Send(Notification(record));
}

Script& Script::Expect(Bytes bytes)
{
    return Add("Expect " + Hex(bytes), [bytes](ScriptPlayer& player) { return player.Expect(bytes); });
}

Script& Script::ExpectFrame(std::uint32_t type, std::uint32_t requestId)
{
    return Add("ExpectFrame " + std::to_string(type) + " " + std::to_string(requestId),
               [type, requestId](ScriptPlayer& player) {
                   CommandFrame frame;
                   return player.ExpectFrame(type, requestId, &frame);
               });
}

Script& Script::ExpectKeepAlive()
{
    return Expect(KeepAlive());
}

Script& Script::Receive(std::size_t count)
{
    return Add("Receive " + std::to_string(count),
               [count](ScriptPlayer& player) { return player.ReceiveDocument(count); });
}

Script& Script::ReceiveAll()
{
    return Add("ReceiveAll", [](ScriptPlayer& player) { return player.ReceiveWholeDocument(); });
}

Script& Script::Answer(std::string name, Bytes request, Bytes reply)
{
    return Add(std::move(name),
               [request = std::move(request), reply = std::move(reply)](ScriptPlayer& player) {
                   const std::string instead = player.Expect(request);
                   return instead.empty() ? player.Send(reply) : instead;
               });
}

Script& Script::AnswerAny(std::string name, std::uint32_t type, std::uint32_t requestId, Bytes reply)
{
    return Add(std::move(name), [type, requestId, reply = std::move(reply)](ScriptPlayer& player) {
        CommandFrame frame;
        const std::string instead = player.ExpectFrame(type, requestId, &frame);
        return instead.empty() ? player.Send(reply) : instead;
    });
}

Script& Script::AnswerVersion(const std::string& text)
{
    return Add("AnswerVersion " + text, [text](ScriptPlayer& player) {
        player.SetVersion(text);
        const std::string instead = player.Expect(VersionRequest());
        return instead.empty() ? player.Send(VersionReply(text)) : instead;
    });
}

Script& Script::AnswerBind(unsigned session)
{
    return Answer("AnswerBind " + std::to_string(session), BindRequest(session), Reply(kBindSession));
}

Script& Script::AnswerStartKeepAlives()
{
    return Add("AnswerStartKeepAlives", [](ScriptPlayer& player) { return player.AnswerStartKeepAlives(); });
}

Script& Script::AnswerStartNotifications(const Lpq& record)
{
    return Answer("AnswerStartNotifications", LpqRequest(), Notification(record));
}

Script& Script::AnswerSuppress()
{
    return Answer("AnswerSuppress", SuppressRequest(), Reply(kSuppressSyslog));
}

Script& Script::AnswerParallelRead(unsigned count)
{
    return AnswerAny("AnswerParallelRead " + std::to_string(count), kTypeIoctl, kParallelRead,
                     Reply(kParallelRead, 0, U16(count)));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): given away as to the other steps
Script& Script::AnswerQuery(std::uint32_t control, Bytes payload)
{
    return AnswerAny("AnswerQuery " + std::to_string(control), kTypePrinterData, control,
                     QueryReply(control, payload));
}

Script& Script::Wait(std::function<bool()> isOver)
{
    return Add("Wait",
               [isOver = std::move(isOver)](ScriptPlayer& player) { return player.WaitUntil(isOver); });
}

Script& Script::HangUp()
{
    return Add("HangUp", [](ScriptPlayer& player) { return player.End(Ending::ByServer); });
}

Script& Script::Reset()
{
    return Add("Reset", [](ScriptPlayer& player) { return player.End(Ending::ByServerReset); });
}

Script& Script::AwaitHangUp()
{
    return Add("AwaitHangUp", [](ScriptPlayer& player) { return player.AwaitHangUp(); });
}

bool Script::PlayNext(ScriptPlayer& player)
{
    Step step;
    {
        const std::scoped_lock scope(lock);
        if (played == steps.size())
            return false;
        step = steps[played];
    }
    std::string instead = step.action(player);
    const std::scoped_lock scope(lock);
    failure = std::move(instead);
    if (failure.empty())
        ++played;
    return failure.empty();
}

void Script::Play(ServerState& state, const std::shared_ptr<Peer>& peer)
{
    ScriptPlayer player(state, peer);
    while (PlayNext(player) || (!HasFailed() && peer->Pause(kSlice))) {
    }
    if (HasFailed())
        peer->End(Ending::ByServer);
    state.RaiseHangUp(*peer);

    // A test may add a step after the connection's end too: ReceiveAll, then AwaitHangUp.
    while (!HasFailed() && !peer->IsAskedToEnd()) {
        if (!PlayNext(player))
            std::this_thread::sleep_for(kSlice);
    }
}

bool Script::HasFailed() const
{
    const std::scoped_lock scope(lock);
    return !failure.empty();
}

std::string Script::FirstStepNotPlayed() const
{
    const std::scoped_lock scope(lock);
    if (played == steps.size())
        return "";
    return std::string(NameOf(channel)) + " connection " + std::to_string(number) + ", step " +
           std::to_string(played + 1) + ", " + steps[played].name + ": " +
           (failure.empty() ? "did not come about" : failure);
}

}  // namespace printserver
