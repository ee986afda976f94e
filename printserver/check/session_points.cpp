#include "printserver/check/point.h"

#include <vector>

namespace printserver::check {
namespace {

constexpr Milliseconds kUnboundLimit{30000};
constexpr Milliseconds kUnboundSlack{10000};
constexpr Milliseconds kNoNews{1000};

void CompareNumbers(const CheckOptions& options)
{
    std::vector<Session> sessions;
    for (int round = 0; round < 4; ++round) {
        if (round == 3)
            sessions.erase(sessions.begin());  // its number may come again, the others' may not
        Session next(options.target);
        next.OpenData();
        for (const Session& open : sessions)
            if (open.Number() == next.Number())
                throw Mismatch("another number for each open session",
                               "number " + std::to_string(next.Number()) + " twice");
        sessions.push_back(std::move(next));
    }
}

void ExpectRefusal(CommandClient& command, unsigned session)
{
    if (command.TryBind(session) == 0)
        throw Mismatch("an error code other than 0", "session " + std::to_string(session) + " bound");
}

void BindUnknown(const CheckOptions& options)
{
    Session session(options.target);
    session.OpenData();
    CommandClient command(options.target);
    command.AskVersion();
    ExpectRefusal(command, session.Number() ^ 0x5555);
}

void BindTwice(const CheckOptions& options)
{
    Session session(options.target);
    session.Open();
    CommandClient second(options.target);
    second.AskVersion();
    ExpectRefusal(second, session.Number());
    second.HangUp();
    session.Command().Pass(kNoNews);  // throws if the first one was disturbed
}

void CloseWithoutAByte(const CheckOptions& options)
{
    Session session(options.target);
    session.Open();
    session.AwaitTurn();
    session.EndData();
    (void)session.AwaitFinalState(options.target.atOnce,
                                  "If the session was bound, the server reports state 7 at once");
}

void LeaveUnbound(const CheckOptions& options)
{
    Session session(options.target);
    session.OpenData();
    if (!session.AwaitDataEnd(kUnboundLimit + kUnboundSlack))
        throw Mismatch("the data connection closed after 30 s without a bind", "it stands after 40 s");
}

constexpr const char* kBindPage =
    "A bind to a number that no data connection has, or to which another command connection is bound "
    "already, is "
    "answered with an error code; that other one is not disturbed.";

constexpr Point kPoints[] = {
    {"session-numbers", "Open sessions have different numbers",
     "A session number is not given again while one of its two connections stands.", 0, CompareNumbers},
    {"unknown-session", "A bind to an unknown session is refused", kBindPage, 0, BindUnknown},
    {"bound-session", "A second bind to a session is refused", kBindPage, 0, BindTwice},
    {"empty-session", "A session without a byte is through at once", "A session may close without a byte", 0,
     CloseWithoutAByte},
    {"unbound-session", "A session that nobody binds is closed; this takes 30 s",
     "A data connection to which no command connection is bound within 30 s is closed by the server.", 0,
     LeaveUnbound},
};

}  // namespace

std::span<const Point> SessionPoints()
{
    return kPoints;
}

}  // namespace printserver::check
