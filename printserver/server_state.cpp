#include "printserver/server_state.h"

#include <algorithm>

namespace printserver {

void Settings::SetVersion(std::string text)
{
    const std::scoped_lock scope(lock);
    version = std::move(text);
}

void Settings::SetCourse(const Course& next)
{
    const std::scoped_lock scope(lock);
    course = next;
}

void Settings::OfferParallelData(const Bytes& more)
{
    const std::scoped_lock scope(lock);
    parallelData.insert(parallelData.end(), more.begin(), more.end());
}

void Settings::SetQueryAnswer(QueryAnswer answer)
{
    const std::scoped_lock scope(lock);
    queryAnswer = std::move(answer);
}

std::string Settings::TheVersion() const
{
    const std::scoped_lock scope(lock);
    return version;
}

Course Settings::TheCourse() const
{
    const std::scoped_lock scope(lock);
    return course;
}

Bytes Settings::TakeParallelData(std::size_t most)
{
    const std::scoped_lock scope(lock);
    const auto end = parallelData.begin() + static_cast<std::ptrdiff_t>(std::min(most, parallelData.size()));
    Bytes taken(parallelData.begin(), end);
    parallelData.erase(parallelData.begin(), end);
    return taken;
}

Bytes Settings::AnswerQuery(std::uint32_t control, const Bytes& input) const
{
    QueryAnswer answer;
    {
        const std::scoped_lock scope(lock);
        answer = queryAnswer;
    }
    return answer ? answer(control, input) : input;
}

void ServerState::Raise(EventKind kind, const Peer& peer, int session, std::string text, int number)
{
    Event event;
    event.kind = kind;
    event.channel = peer.Side();
    event.connection = peer.Number();
    event.session = session;
    event.number = number;
    event.text = std::move(text);
    events.Raise(std::move(event));
}

void ServerState::RaiseHangUp(const Peer& peer)
{
    Raise(EventKind::HungUp, peer, -1, NameOf(peer.TheEnding()));
}

void ServerState::RaiseDocument(const Peer& peer, int session, const Document& document)
{
    Event event;
    event.kind = document.whole ? EventKind::DocumentComplete : EventKind::DocumentBroken;
    event.channel = peer.Side();
    event.connection = peer.Number();
    event.session = session;
    event.document = document.name;
    event.size = document.size;
    event.bytes = document.bytes;
    event.text = document.name + (document.whole ? " is whole: " : " is broken: ") +
                 std::to_string(document.size) + " bytes";
    events.Raise(std::move(event));
}

namespace {

// True when the fault ended the connection.
bool PlaysEnd(Peer& peer, const Fault& fault)
{
    if (fault.TheKind() == Fault::Kind::Close)
        peer.End(Ending::ByServer);
    if (fault.TheKind() == Fault::Kind::Reset)
        peer.End(Ending::ByServerReset);
    return !peer.IsOpen();
}

bool SendDelayed(Peer& peer, const Bytes& message, Milliseconds wait)
{
    if (peer.Side() == Channel::Data)  // the opening's two messages keep their order
        return peer.Pause(wait) && peer.Send(message);
    peer.SendLater(message, wait);
    return true;
}

bool SendHalf(Peer& peer, const Fault& fault, const Bytes& half)
{
    if (!peer.Send(half))
        return false;
    if (fault.ClosesAfter())
        peer.End(Ending::ByServer);
    else
        peer.Mute();
    return peer.IsOpen();
}

void RaiseFault(ServerState& state, const Peer& peer, Step step, const Fault& fault)
{
    state.Raise(EventKind::FaultPlayed, peer, -1,
                std::string("fault at ") + NameOf(step) + ": " + fault.Name());
}

}  // namespace

bool SendMessage(ServerState& state, Peer& peer, Step step, const Bytes& message)
{
    const auto fault = state.faults.Take(step);
    if (!fault)
        return peer.Send(message);
    RaiseFault(state, peer, step, *fault);
    if (PlaysEnd(peer, *fault))
        return false;
    switch (fault->TheKind()) {
        case Fault::Kind::Silence:
            peer.Mute();
            return true;
        case Fault::Kind::Drop:
            return true;
        case Fault::Kind::Delay:
            return SendDelayed(peer, message, fault->Wait());
        case Fault::Kind::Half:
            return SendHalf(peer, *fault, fault->Change(message, peer.Side()));
        case Fault::Kind::SingleBytes:
            return peer.SendSingly(message);
        default:
            return peer.Send(fault->Change(message, peer.Side()));
    }
}

bool PlayMoment(ServerState& state, Peer& peer, Step step)
{
    const auto fault = state.faults.Take(step);
    return !fault || PlayMoment(state, peer, step, *fault);
}

bool PlayMoment(ServerState& state, Peer& peer, Step step, const Fault& fault)
{
    RaiseFault(state, peer, step, fault);
    if (PlaysEnd(peer, fault))
        return false;
    if (fault.TheKind() == Fault::Kind::Delay)
        return peer.Pause(fault.Wait());
    peer.Mute();
    return false;
}

}  // namespace printserver
