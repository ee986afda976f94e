#include "spooler/policy.h"

#include <algorithm>
#include <iterator>

namespace spooler {

namespace {

constexpr Rule kPolicy[] = {
    {Outcome::Sent, Follow::Nothing, "sent", "the print server said that the document is through"},
    {Outcome::CancelledAtServer, Follow::Nothing, "cancelled-at-server",
     "the document was cancelled at the print server"},
    {Outcome::CancelledHere, Follow::Nothing, "cancelled", "the document was cancelled"},
    {Outcome::Unconfirmed, Follow::AskPerson, "unconfirmed",
     "all of the document is out, but the print server never said what became of the card"},
    {Outcome::NotConnected, Follow::TryAgain, "not-connected", "the link could not be set up"},
    {Outcome::LostInQueue, Follow::TryAgain, "lost-in-queue",
     "the link was lost before any of the document was out"},
    {Outcome::LostWhileSending, Follow::SendAgain, "lost-while-sending",
     "the link was lost while the document went out"},
    {Outcome::DocumentFailed, Follow::Nothing, "document-failed",
     "the document could not be read to its end"},
};

}  // namespace

std::span<const Rule> Policy()
{
    return kPolicy;
}

const Rule& RuleFor(Outcome outcome)
{
    return *std::ranges::find(kPolicy, outcome, &Rule::outcome);
}

}  // namespace spooler
