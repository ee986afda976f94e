#include "simulate/print_server.h"

#include <algorithm>

#include "simulate/world.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary
using simulated::Endpoint;
using simulated::kForever;
using simulated::kMillisecond;
using simulated::kSecond;
using simulated::Micros;
using simulated::Scheduler;

namespace {

constexpr Micros kPatience = 300 * kSecond;  // a connection that lasts longer is closed

bool Send(Endpoint& connection, const Bytes& bytes)
{
    return connection.Send(reinterpret_cast<const char*>(bytes.data()), bytes.size()) ==
           static_cast<int>(bytes.size());
}

void SetWord(Bytes& frame, std::size_t word, std::uint32_t value)
{
    const Bytes bytes = U32(value);
    if (frame.size() >= word * 4 + 4)
        std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<std::ptrdiff_t>(word * 4));
}

}  // namespace

struct PrintServer::Command {
    Endpoint& connection;
    Session* session = nullptr;
    std::string input{};
    Micros nextKeepAlive = kForever;
    Micros period = 0;
    bool notifies = false;
    Micros notifiesSince = 0;
    Lpq last{};
};

Manners Manners::Draw(Plan& plan)
{
    constexpr const char* kVersions[] = {"1.10", "1.9", "1.0", "2.0", "0.9"};
    constexpr Micros kTimes[] = {200 * kMillisecond, 0,           20 * kMillisecond, kSecond,
                                 4 * kSecond,        15 * kSecond};
    Manners drawn;
    drawn.version = plan.Among(kVersions);
    drawn.tellsNoVersion = plan.Sometimes(12);
    drawn.queue = static_cast<int>(plan.Seldom(4, 4));
    drawn.perPosition = plan.Sometimes(3) ? 10 * kSecond : kSecond;
    drawn.printing = plan.Among(kTimes);
    drawn.final = 7 + static_cast<int>(plan.Seldom(8, 3));
    drawn.cancels = plan.Sometimes(12);
    constexpr int kBursts[] = {0, 5, 200, 2500};
    drawn.burst = kBursts[plan.Seldom(24, std::size(kBursts))];
    drawn.unasked = static_cast<int>(plan.Seldom(16, 20));
    drawn.offered = plan.Sometimes(8) ? 40 : 4;
    drawn.answering = plan.Sometimes(8) ? 300 * kMillisecond : 0;
    if (plan.Sometimes(2)) {
        plan.mayFail = true;
        drawn.step = static_cast<Step>(plan.Choose(kSteps));
        drawn.fault = static_cast<Fault>(plan.Choose(kFaults));
        drawn.occurrence = 1 + plan.Choose(2);
    }
    return drawn;
}

PrintServer::PrintServer(World& its, unsigned address, unsigned short number, const Manners& drawn)
    : manners(drawn), world(its), host(its.network.AddHost(address, its.Seed() + address)), port(number)
{
    host.Listen(port, [this](Endpoint& connection) { Take(connection, false); });
    host.Listen(static_cast<unsigned short>(port + 2),
                [this](Endpoint& connection) { Take(connection, true); });
}

void PrintServer::Take(Endpoint& connection, bool isCommand)
{
    connections.push_back(&connection);
    Scheduler::Current().Start(isCommand ? "command connection" : "data connection",
                               simulated::Thread::Kind::Outside, [this, &connection, isCommand] {
                                   isCommand ? ServeCommand(connection) : ServeData(connection);
                                   std::erase(connections, &connection);
                               });
}

void PrintServer::Restart()
{
    for (Endpoint* connection : connections)
        connection->Forget();
}

void PrintServer::Stop()
{
    isStopped = true;
    host.Stop();
    for (Endpoint* connection : connections)
        connection->Reset();
}

bool PrintServer::IsDue(Step step)
{
    return manners.fault != Fault::None && step == manners.step && ++seen == manners.occurrence;
}

bool PrintServer::Say(Endpoint& connection, Step step, Bytes message, bool isCommand)
{
    if (silenced.contains(&connection))
        return true;
    if (IsDue(step) && !PlayFault(connection, message, isCommand))
        return connection.IsOpen();
    return Send(connection, message);
}

// False when the message doesn't leave any more.
bool PrintServer::PlayFault(Endpoint& connection, Bytes& message, bool isCommand)
{
    world.Tell("the print server breaks the protocol here");
    const Bytes half(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(message.size() / 2));
    switch (manners.fault) {
        case Fault::None:
            break;
        case Fault::Close:
            connection.Close();
            return false;
        case Fault::Reset:
            connection.Reset();
            return false;
        case Fault::Silence:
            silenced[&connection] = true;
            return false;
        case Fault::Drop:
            return false;
        case Fault::Delay:
            (void)Scheduler::Current().Wait(nullptr, Scheduler::Current().Now() + 5 * kSecond);
            break;
        case Fault::Garbage:
            message.assign(40, 0xEE);
            break;
        case Fault::HalfThenSilence:
            (void)Send(connection, half);
            silenced[&connection] = true;
            return false;
        case Fault::HalfThenClose:
            (void)Send(connection, half);
            connection.Close();
            return false;
        case Fault::WrongType:
            SetWord(message, 0, 9);
            break;
        case Fault::WrongId:
            SetWord(message, 1, 99);
            break;
        case Fault::ErrorCode:
            SetWord(message, 2, 5);
            break;
        case Fault::ShortPayload:
            if (message.size() > kHeaderSize)
                message.resize(kHeaderSize + 1);
            SetWord(message, 3, 1);
            break;
        case Fault::HugeLength:
            SetWord(message, 3, 0xFFFFFFF0);
            break;
        case Fault::AnotherInFront:
            if (isCommand)
                message = Join(KeepAlive(KeepAliveId(ParseVersion(manners.version))), message);
            break;
    }
    return true;
}

void PrintServer::ServeData(Endpoint& connection)
{
    const unsigned number = nextSession++;
    Session& session = sessions[number];
    session.document = world.Find(connection.document);
    session.data = &connection;
    bool goesOn = Say(connection, Step::SessionId, SessionId(number), false) &&
                  Say(connection, Step::TransMode, TransMode(), false);
    if (manners.unasked > 0 && goesOn)
        goesOn = Send(connection, Bytes(static_cast<std::size_t>(manners.unasked), 'u'));
    while (goesOn)
        goesOn = TakeData(connection, session);
    connection.Close();
    session.data = nullptr;
}

// False at the data's end.
bool PrintServer::TakeData(Endpoint& connection, Session& session)
{
    char buffer[4096];
    const Micros until = Scheduler::Current().Now() + kPatience;
    const int count = connection.Receive(buffer, sizeof buffer, false, until);
    Document& document = *session.document;
    if (count > 0) {
        world.checks.DataArrived(document, session.received, buffer, static_cast<std::size_t>(count));
        session.received += static_cast<std::size_t>(count);
        Bytes none;
        return !IsDue(Step::Data) || PlayFault(connection, none, false);
    }
    if (count == 0) {
        document.isWhole = true;
        document.received = std::max(document.received, session.received);
        session.hasEnded = true;
        session.endedAt = Scheduler::Current().Now();
        world.Tell("the print server has the whole document of job " + std::to_string(document.job) + ", " +
                   std::to_string(document.received) + " bytes");
    } else {
        world.Tell("the print server has lost the data connection of job " + std::to_string(document.job));
    }
    return false;
}

Lpq PrintServer::Record(Command& command) const
{
    const Micros now = Scheduler::Current().Now();
    const Session* const session = command.session;
    if (session == nullptr)
        return {0, 1};
    const auto position =
        manners.queue - static_cast<int>((now - command.notifiesSince) / manners.perPosition);
    if (position > 0 && !session->hasEnded)  // an empty document waits for nobody
        return {position, 1};
    if (manners.cancels && session->received > 0)
        return {0, 9};
    if (!session->hasEnded)
        return {0, 2};
    return {0, now - session->endedAt < manners.printing ? 3 : manners.final};
}

void PrintServer::SayRecord(Command& command, Step step)
{
    const Lpq record = Record(command);
    command.last = record;
    if (record.boundJobState >= 7 && command.session != nullptr) {
        Document& document = *command.session->document;
        for (int i = 0; i < manners.burst; ++i)
            (void)Send(command.connection, Notification({0, 3, i % 100, 0}));
        document.saidFinal = true;
        document.saidCancelled |= record.boundJobState == 9;
        world.Tell("the print server says state " + std::to_string(record.boundJobState) + " of job " +
                   std::to_string(document.job));
    }
    (void)Say(command.connection, step, Notification(record), true);
}

void PrintServer::ServeCommand(Endpoint& connection)
{
    Command command{connection};
    const Micros end = Scheduler::Current().Now() + kPatience;
    while (Scheduler::Current().Now() < end && connection.IsOpen()) {
        char buffer[4096];
        const Micros look = command.notifies ? 100 * kMillisecond : kSecond;
        const Micros until = std::min(command.nextKeepAlive, Scheduler::Current().Now() + look);
        const int count = connection.Receive(buffer, sizeof buffer, false, until);
        if (count == 0 || count == Endpoint::kFailed)
            break;
        if (count > 0)
            command.input.append(buffer, static_cast<std::size_t>(count));
        for (;;) {
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(command.input.data());
            const auto frame = ParseFrame({bytes, command.input.size()});
            if (!frame)
                break;
            command.input.erase(0, kHeaderSize + frame->payload.size());
            Answer(command, *frame);
        }
        Talk(command);
    }
    connection.Close();
}

void PrintServer::Talk(Command& command)
{
    const Micros now = Scheduler::Current().Now();
    if (now >= command.nextKeepAlive) {
        command.nextKeepAlive = now + command.period;
        const Version version = manners.tellsNoVersion ? Version{1, 0} : ParseVersion(manners.version);
        (void)Say(command.connection, Step::KeepAlive, KeepAlive(KeepAliveId(version)), true);
    }
    if (command.notifies && Record(command) != command.last)
        SayRecord(command, Step::Notification);
}

void PrintServer::Answer(Command& command, const CommandFrame& request)
{
    const auto say = [&](Step step, const Bytes& message) {
        (void)Say(command.connection, step, message, true);
    };
    if (request.type == kTypePrinterData) {
        if (manners.answering > 0)
            (void)Scheduler::Current().Wait(nullptr, Scheduler::Current().Now() + manners.answering);
        return say(Step::QueryReply, QueryReply(request.requestId, request.payload));
    }
    switch (request.requestId) {
        case kProtocolVersion:
            return say(Step::VersionReply,
                       manners.tellsNoVersion ? Reply(kProtocolVersion, 4) : VersionReply(manners.version));
        case kBindSession: {
            const auto found = sessions.find(request.payload.size() == 2 ? GetU16(request.payload) : 0);
            if (found == sessions.end())
                return say(Step::BindReply, Reply(kBindSession, kErrorUnknownSession));
            command.session = &found->second;
            return say(Step::BindReply, Reply(kBindSession));
        }
        case kStartKeepAlives:
            say(Step::StartKeepAlivesReply, Reply(kStartKeepAlives));
            command.period = std::max(1u, GetU16(request.payload)) * kSecond;
            command.nextKeepAlive = Scheduler::Current().Now() + command.period;
            return;
        case kLpqInfo:
            command.notifies = true;
            command.notifiesSince = Scheduler::Current().Now();
            return SayRecord(command, Step::FirstRecord);
        case kSuppressSyslog:
            return say(Step::SuppressReply, Reply(kSuppressSyslog));
        case kParallelRead:
            if (command.session != nullptr && command.session->data != nullptr)
                (void)Send(*command.session->data, Bytes(manners.offered, 'r'));
            return say(Step::ReadReply, Reply(kParallelRead, 0, U16(manners.offered)));
        default:
            return;  // a keep-alive
    }
}
