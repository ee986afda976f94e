#include "printserver/check/session.h"

#include <algorithm>

namespace printserver::check {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Milliseconds kSlice{20};
constexpr Milliseconds kFinalLimit{30000};
constexpr std::size_t kPiece = std::size_t{64} * 1024;

bool IsFinal(int state)
{
    return state >= kFinished && state <= kCancelled;
}

}  // namespace

// Takes a message of the opening, of which the first bytes have to be as wanted.
void Session::ReadField(const char* point, const Bytes& wanted, std::size_t known)
{
    Bytes got;
    for (const auto until = Clock::now() + target->atOnce; got.size() < wanted.size();) {
        Bytes piece(wanted.size() - got.size());
        const ReadResult result = data.Read(piece, kSlice);
        if (!got.empty() && result.count > 0)
            torn = std::string(point) + " in pieces";
        got.insert(got.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(result.count));
        const bool goesOn = result.state == ReadState::Bytes || result.state == ReadState::Nothing;
        if (!goesOn || Clock::now() > until)
            break;
    }
    if (got.size() != wanted.size() ||
        !std::equal(wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(known), got.begin()))
        throw OpeningMismatch(point, Hex(wanted) + (known < wanted.size() ? " with any id" : ""),
                              got.empty() ? "nothing" : Hex(got));
    if (known < wanted.size())
        number = GetU16(std::span(got).subspan(known));
}

void Session::OpenData()
{
    data = ConnectOrThrow(*target, target->port);
    ReadField("session-id", SessionId(0), 3);
    ReadField("trans-mode", TransMode(), 3);
}

void Session::OpenCommand(bool bind)
{
    command.emplace(*target);
    command->AskVersion();
    if (bind)
        command->Bind(number);
}

void Session::Open()
{
    OpenData();
    OpenCommand();
    command->StartKeepAlives();
    command->StartNotifications();
}

void Session::AwaitTurn()
{
    for (const auto until = Clock::now() + target->turn; command->Record().queuePosition > 0;) {
        if (Clock::now() > until)
            throw Mismatch("the position falls to 0",
                           "position " + std::to_string(command->Record().queuePosition) + " for " +
                               std::to_string(target->turn.count() / 1000) + " s",
                           "The position is above 0 until printer and card are ready for this document, then "
                           "0.");
        command->Pass(kSlice);
    }
}

void Session::CheckWhileSending()
{
    command->Pass(Milliseconds(0));
    const Lpq& record = command->Record();
    if (record.queuePosition > 0)
        throw Mismatch("position 0 once data flows", "position " + std::to_string(record.queuePosition),
                       "After that it does not rise again.");
    if (IsFinal(record.boundJobState))
        throw Mismatch("no final state before the data's end",
                       "state " + std::to_string(record.boundJobState),
                       "States 7 and 8 are not sent before the data's end; 9 may be, at any time.");
}

void Session::SendDocument(const Bytes& document)
{
    for (std::size_t sent = 0; sent < document.size();) {
        CheckWhileSending();
        const auto rest = std::span(document).subspan(sent);
        const auto count = data.Write(rest.first(std::min(rest.size(), kPiece)), kSlice);
        if (!count)
            throw Mismatch("the server takes the document",
                           "it closed the data connection after " + std::to_string(sent) + " bytes",
                           "the server takes the document's bytes until the connection ends");
        sent += *count;
    }
    CheckWhileSending();
}

int Session::AwaitFinalState(Milliseconds limit, const char* page)
{
    for (const auto until = Clock::now() + limit; !IsFinal(command->Record().boundJobState);) {
        if (Clock::now() > until)
            throw Mismatch("state 7, 8 or 9 within " + std::to_string(limit.count() / 1000) + " s",
                           "state " + std::to_string(command->Record().boundJobState) + " to the end", page);
        command->Pass(kSlice);
    }
    return command->Record().boundJobState;
}

Bytes Session::ReadData(std::size_t count, Milliseconds limit)
{
    Bytes bytes;
    for (const auto until = Clock::now() + limit; bytes.size() < count && Clock::now() < until;) {
        command->Pass(Milliseconds(0));
        Bytes piece(count - bytes.size());
        const ReadResult result = data.Read(piece, kSlice);
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(result.count));
    }
    return bytes;
}

bool Session::AwaitDataEnd(Milliseconds limit)
{
    Bytes ignored(4096);
    for (const auto until = Clock::now() + limit; Clock::now() < until;) {
        const ReadState state = data.Read(ignored, kSlice).state;
        if (state != ReadState::Bytes && state != ReadState::Nothing)
            return true;
    }
    return false;
}

void Session::Print(const Bytes& document)
{
    Open();
    AwaitTurn();
    SendDocument(document);
    EndData();
    const int state = AwaitFinalState(
        kFinalLimit, "A document without a final state (7, 8 or 9) within 30 s of its last byte is given up");
    if (state != kFinished)
        throw Mismatch("state 7", "state " + std::to_string(state),
                       state == kFailed ? "State 8 counts as through, like 7"
                                        : "State 9 deletes the job in the spooler.");
    command->HangUp();
}

}  // namespace printserver::check
