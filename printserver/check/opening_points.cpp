#include "printserver/check/point.h"

namespace printserver::check {
namespace {

// Each step of the opening fails under its own name, so the whole opening is the check of each.
void Open(const CheckOptions& options)
{
    Session session(options.target);
    session.Open();
}

void OpenInWholeMessages(const CheckOptions& options)
{
    Session session(options.target);
    session.Open();
    if (!session.Torn().empty())
        throw Mismatch("each message in one piece", session.Torn());
}

constexpr const char* kOpeningPage = "No other command, order or length is accepted.";
constexpr const char* kReplyPage =
    "A reply is known by its `type` and `requestId` and by its place in the stream.";

constexpr Point kPoints[] = {
    {"session-id", "The data connection opens with a session id", kOpeningPage, 0, Open},
    {"trans-mode", "Then it becomes transparent", kOpeningPage, 0, Open},
    {"version-reply", "The server tells its version",
     "The version text is read as two numbers with a point between, compared by number", 0, Open},
    {"bind-reply", "A command connection is bound to the session", kReplyPage, 0, Open},
    {"keep-alives-reply", "Keep-alives are started",
     "The first one must not leave before the reply to the start request.", 0, Open},
    {"first-record", "Notifications start with a first record",
     "The first record answers the start of notifications at once, in the queue as well.", 0, Open},
    {"one-send", "Each message of the server comes in one piece",
     "The server sends each message with one `send`, header and payload together", 0, OpenInWholeMessages},
};

}  // namespace

std::span<const Point> OpeningPoints()
{
    return kPoints;
}

}  // namespace printserver::check
