#pragma once

#include "printserver/peer.h"
#include "printserver/wire.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace printserver {

class ScriptPlayer;
struct ServerState;

// What the server does on one connection, step by step:
//
//   server.Data().Accept().Send(SessionId(7)).Send(TransMode()).ReceiveAll();
//   server.Command().Accept().AnswerVersion("1.10").AnswerBind(7).AnswerStartKeepAlives()
//                   .AnswerStartNotifications(Lpq(0, 2)).Wait([&] { return printed.load(); })
//                   .SendNotification(Lpq(0, 7)).AwaitHangUp();
//   ...
//   EXPECT_EQ("", server.FirstStepNotPlayed());
//
// Each call of PrintServer::Data() or Command() scripts one further connection of that channel, in their
// order. A step that does not come about within a minute, or comes out otherwise, ends the script and hangs
// up. After the last step the connection stays open until the server stops, and steps may still be added
// while it plays.
//
// The monitor's keep-alives come by its own clock. So a step of the command channel passes over those that
// stand in front of what it waits for; only ExpectKeepAlive takes one.
class Script {
public:
    Script(Channel side, int connection) : channel(side), number(connection) {}

    Script& Accept();

    Script& Send(Bytes bytes);
    Script& SendKeepAlive();  // with the request id that fits the version answered before
    Script& SendNotification(const Lpq& record);

    Script& Expect(Bytes bytes);  // exactly these; on the command channel one message
    Script& ExpectFrame(std::uint32_t type, std::uint32_t requestId);  // whatever it carries besides
    Script& ExpectKeepAlive();
    Script& Receive(std::size_t count);  // data channel: bytes of the document
    Script& ReceiveAll();  // the document up to its orderly end; PrintServer::Documents() has it

    // Each waits for exactly the monitor's request and replies without error.
    Script& AnswerVersion(const std::string& text);
    Script& AnswerBind(unsigned session);
    Script& AnswerStartKeepAlives();  // whichever period and timeout, in the form that fits the version
    Script& AnswerStartNotifications(const Lpq& record);
    Script& AnswerSuppress();
    Script& AnswerParallelRead(unsigned count);  // the bytes go out by a Send of the data channel's script
    Script& AnswerQuery(std::uint32_t control, Bytes payload);  // whatever its input and output size

    Script& Wait(std::function<bool()> isOver);  // asked again and again, on the connection's thread
    Script& HangUp();
    Script& Reset();
    Script& AwaitHangUp();  // an end in order or by reset; anything else that arrives first is a fault

    // Plays the steps on the connection's thread, until one fails or the connection is asked to end. It
    // raises HungUp as soon as the connection is over.
    void Play(ServerState& state, const std::shared_ptr<Peer>& peer);
    // "" once all steps are played; else "data connection 1, step 3, ReceiveAll: reason".
    std::string FirstStepNotPlayed() const;
    bool HasFailed() const;

private:
    // "" when the step came about, else what came about instead.
    using Action = std::function<std::string(ScriptPlayer&)>;
    struct Step {
        std::string name;
        Action action;
    };

    Script& Add(std::string name, Action action);
    Script& Answer(std::string name, Bytes request, Bytes reply);
    Script& AnswerAny(std::string name, std::uint32_t type, std::uint32_t requestId, Bytes reply);
    // False when there is no further step for now, or the step came out otherwise.
    bool PlayNext(ScriptPlayer& player);

    const Channel channel;
    const int number;
    mutable std::mutex lock;
    std::vector<Step> steps;
    std::size_t played = 0;
    std::string failure;
};

}  // namespace printserver
