#include "printserver/check/point.h"

#include <future>

namespace printserver::check {
namespace {

constexpr Milliseconds kNoNews{3000};  // for what must not come
constexpr Milliseconds kSoon{5000};

void PrintSmall(const CheckOptions& options)
{
    Session(options.target).Print(options.smallDocument);
}

void PrintLarge(const CheckOptions& options)
{
    Session(options.target).Print(options.largeDocument);
}

void PrintTwoAtOnce(const CheckOptions& options)
{
    auto other = std::async(std::launch::async, [&options] { PrintSmall(options); });
    try {
        PrintSmall(options);
        other.get();
    } catch (const OpeningMismatch& mismatch) {  // not reached by one session, well by another
        throw Mismatch("a second session beside the first: " + mismatch.expected, mismatch.what());
    }
}

// A session in the queue: behind one that keeps the printer, unless it was not the first anyway.
struct Queued {
    explicit Queued(const Target& target) : holder(target), session(target)
    {
        holder.Open();
        if (holder.Command().Record().queuePosition > 0)
            std::swap(holder, session);
        else
            session.Open();
        if (session.Command().Record().queuePosition <= 0)
            throw NotSeen("the server gave no position above 0; try again while it has something to do");
    }

    Session holder;
    Session session;
};

void WaitForTurn(const CheckOptions& options)
{
    Queued queued(options.target);
    queued.holder = Session(options.target);
    queued.session.AwaitTurn();
}

void CancelInQueue(const CheckOptions& options)
{
    Queued queued(options.target);
    queued.session.EndData();
    const int state = queued.session.AwaitFinalState(
        options.target.atOnce,
        "Data that ends while the position is above 0 is a document that was given up");
    if (state != kCancelled)
        throw Mismatch("state 9", "state " + std::to_string(state));
}

Bytes HalfOf(const Bytes& document)
{
    return Bytes(document.begin(), document.begin() + static_cast<std::ptrdiff_t>(document.size() / 2));
}

// Up to the middle of a document.
void BeginDocument(Session& session, const CheckOptions& options)
{
    session.Open();
    session.AwaitTurn();
    session.SendDocument(HalfOf(options.smallDocument));
}

void ResetWhileSending(const CheckOptions& options)
{
    Session session(options.target);
    BeginDocument(session, options);
    session.ResetData();
    int state = 0;
    try {
        state = session.AwaitFinalState(kNoNews, nullptr);
    } catch (const Mismatch&) {
        return;  // no final state, or the server has closed the command connection too
    }
    throw Mismatch("no final state", "state " + std::to_string(state));
}

void EndCommandWhileSending(const CheckOptions& options)
{
    Session session(options.target);
    BeginDocument(session, options);
    session.Command().HangUp();
    if (!session.AwaitDataEnd(kSoon))
        throw Mismatch("the data connection closed", "it stands");
}

enum class Phase { Unbound, Bound, Sending, Printing };

// The client's machine goes down: everything that was open is reset. Another session finds the server well.
template <Phase phase>
void LoseClient(const CheckOptions& options)
{
    {
        Session session(options.target);
        if (phase == Phase::Unbound) {
            session.OpenData();
        } else if (phase == Phase::Bound) {
            session.Open();
        } else {
            BeginDocument(session, options);
            if (phase == Phase::Printing)
                session.EndData();
        }
        session.ResetData();
        if (phase != Phase::Unbound)
            session.Command().Reset();
    }
    try {
        Session(options.target).Open();
    } catch (const OpeningMismatch& mismatch) {
        throw Mismatch("a session that opens after another one was lost: " + mismatch.expected,
                       mismatch.what());
    }
}

constexpr const char* kLostPage = "A lost session disturbs no other one.";

constexpr Point kPoints[] = {
    {"queue-positions", "A document waits for its turn",
     "The position is above 0 until printer and card are ready for this document, then 0.", 0, WaitForTurn},
    {"cancel-queued", "A document that is given up in the queue is cancelled",
     "Silence here makes the monitor wait for 30 s and holds up its port.", 0, CancelInQueue},
    {"cancel-sending", "A document whose data connection is reset never comes to a final state",
     "After a reset of the data connection the document is broken, and no final state is sent.", 0,
     ResetWhileSending},
    {"lost-command", "The end of the command connection ends the session",
     "When the command connection ends, the server closes the data connection too.", 0,
     EndCommandWhileSending},
    {"lost-unbound", "A client is lost before the bind", kLostPage, 0, LoseClient<Phase::Unbound>},
    {"lost-bound", "A client is lost after the opening", kLostPage, 0, LoseClient<Phase::Bound>},
    {"lost-sending", "A client is lost in the middle of a document", kLostPage, 0,
     LoseClient<Phase::Sending>},
    {"lost-printing", "A client is lost with the document's last byte", kLostPage, 0,
     LoseClient<Phase::Printing>},
    {"small-document", "A small document prints",
     "A document without a final state (7, 8 or 9) within 30 s of its last byte is given up", 1, PrintSmall},
    {"large-document", "A large document prints",
     "A document without a final state (7, 8 or 9) within 30 s of its last byte is given up", 1, PrintLarge},
    {"several-sessions", "Two documents print at once",
     "Several sessions may stand at once, a document each; the server serves all of them.", 2,
     PrintTwoAtOnce},
};

}  // namespace

std::span<const Point> DocumentPoints()
{
    return kPoints;
}

}  // namespace printserver::check
