#pragma once

#include <span>

#include "spooler/api_visibility.h"

namespace spooler {

// How an attempt at a document ended.
enum class Outcome {
    Sent,               // the print server said that the document is through
    CancelledAtServer,  // the print server said that somebody cancelled it there
    CancelledHere,      // the user's stop; part of a card may be printed if bytes are out
    Unconfirmed,        // every byte is out, and the print server never said what became of the card
    NotConnected,       // the link could not be set up; no byte of the document is out
    LostInQueue,        // the link was lost while the document waited for its turn; no byte is out
    LostWhileSending,   // the link was lost while bytes went out; the last one is not out
    DocumentFailed      // the document can't be read, or changed while it was printed
};

// What follows. The rule behind it: what may have been printed is never printed again unasked.
enum class Follow {
    Nothing,    // the outcome stands
    TryAgain,   // after a growing pause, for as long as the user wants
    SendAgain,  // the same, and the user is told: the document starts anew from its first byte
    AskPerson   // somebody has to look at the printer before the document may be printed again
};

struct Rule {
    Outcome outcome;
    Follow follow;
    const char* word;  // for programs: "sent", "cancelled-at-server", "unconfirmed" ...
    const char* text;  // for people, a sentence without its full stop
};

// The whole policy, a rule for each outcome. `farlink print` and the CUPS backend go by it alone.
SPOOLER_API std::span<const Rule> Policy();
SPOOLER_API const Rule& RuleFor(Outcome outcome);

}  // namespace spooler
