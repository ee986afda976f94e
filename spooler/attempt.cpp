#include "spooler/attempt.h"

#include <algorithm>
#include <exception>

#include "platform/platform.h"
#include "platform/posix/debug_listener.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr std::uint64_t kBufferSize = std::uint64_t{64} * 1024;
constexpr DWORD kPauseInQueueMs = 500;
constexpr DWORD kLookAtLinkEveryMs = 2000;
constexpr DWORD kReadBackEveryMs = 1000;
constexpr std::size_t kReadBackSize = 4096;

// A query that is answered by the monitor itself while the document waits in the print server's queue. Should
// the turn come at that very moment, it reaches the printer, so that it is one that no printer knows.
constexpr DWORD kSignOfLife = 0x7FFFFFFF;

}  // namespace

Hearing::Hearing(std::function<void(LPCSTR)> listener)
{
    SetDebugOutputListener(std::move(listener));
}

Hearing::~Hearing()
{
    SetDebugOutputListener({});
}

Attempt::Attempt(const Order& wanted, const Document& printed, Job& printedJob, SharedListener& told,
                 std::stop_token token)
    : order(wanted),
      document(printed),
      job(printedJob),
      listener(told),
      stop(std::move(token)),
      settings(order.port()),
      buffer(static_cast<std::size_t>(std::min(kBufferSize, document.Size()))),
      hearing([this](LPCSTR line) { Hear(line); }),
      port(settings, order.log(), order.eventTypes),
      onStop(stop, [this] {
          wake.Set();
          port.Delete();
      })
{
    job.Reset();
}

// On any thread of the monitor.
void Attempt::Hear(LPCSTR line)
{
    const std::string message = MessageOf(line);
    listener.Tell([&](Listener& told) { told.OnLogLine(message); });
    if (!lines.Take(message))
        return;
    listener.TellProgress([&](Progress& progress) { progress.queuePosition = lines.QueuePosition(); });
    wake.Set();
}

Attempt::Ending Attempt::Run()
{
    if (!port.StartJob(job.printer, job.id, job.title)) {
        const DWORD error = GetLastError();
        if (stop.stop_requested())
            return {Outcome::CancelledHere, {}};
        return {Outcome::NotConnected, lines.WhyItFailed(settings, error)};
    }
    const DWORD begun = GetTickCount();
    lastLook = begun;
    lastRead = begun;
    try {
        const Ending ending = Finish(WriteAll());
        linkedMs = GetTickCount() - begun;
        return ending;
    } catch (const SpoolerError& error) {
        return Failed(error.text);
    } catch (const std::exception& error) {
        return Failed(error.what());
    }
}

// The first byte goes alone: once the port takes it, the document's turn at the print server has come, so
// that the caller is told of the last ones only then, and not while it waits. The last ones are as many as
// fit in one buffer, since a server that gets all but one byte may well print.
Attempt::Step Attempt::WriteAll()
{
    const std::uint64_t size = document.Size();
    const std::uint64_t lead =
        size - std::min(size, std::max<std::uint64_t>(1, std::min(kBufferSize, size - 1)));
    Step step = lead == 0 ? Step::Taken : WriteUpTo(1);
    if (step == Step::Taken)
        step = WriteUpTo(lead);
    if (step != Step::Taken)
        return step;
    document.RequireUnchanged();
    listener.Tell([](Listener& told) { told.OnBeforeLastByte(); });
    return WriteUpTo(size);
}

Attempt::Step Attempt::WriteUpTo(std::uint64_t end)
{
    while (written < end) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), end - written));
        const std::span<BYTE> bytes = std::span(buffer).first(size);
        document.Read(written, bytes);
        if (const Step step = Hand(bytes); step != Step::Taken)
            return step;
    }
    return Step::Taken;
}

Attempt::Step Attempt::Hand(std::span<BYTE> bytes)
{
    while (!bytes.empty()) {
        if (stop.stop_requested() || IsCancelledAtServer())
            return Step::Cancelled;
        std::size_t taken = 0;
        const bool done = port.Write(bytes, &taken);
        lastError = GetLastError();
        bytes = bytes.subspan(taken);
        written += taken;
        const Phase phase = done && taken == 0 ? Phase::WaitingInQueue : Phase::Sending;
        listener.TellProgress([&](Progress& progress) {
            progress.phase = phase;
            progress.written = written;
        });
        if (!done)
            return Step::Lost;
        const Step step = taken == 0 ? PauseInQueue() : ReadBack();
        if (step != Step::Taken)
            return step;
    }
    return Step::Taken;
}

// Between two writes that take nothing.
Attempt::Step Attempt::PauseInQueue()
{
    if (LinkIsDead()) {
        port.Delete();  // it would wait for the print server's last word
        return Step::Lost;
    }
    wake.Wait(kPauseInQueueMs);
    return Step::Taken;
}

// Writes go on succeeding with nothing when the link dies in the queue. A query fails then; but it fails too
// when the turn came in between and the printer refused it. Then the write that follows takes bytes, so that
// two failures with such a write between them are sure.
bool Attempt::LinkIsDead()
{
    if (!port.ServesQueries() || (!doubt && GetTickCount() - lastLook < kLookAtLinkEveryMs))
        return false;
    lastLook = GetTickCount();
    BYTE answer[4];
    DWORD returned = 0;
    const bool wasInDoubt = doubt;
    doubt = !port.Query(kSignOfLife, {}, answer, &returned);
    return doubt && wasInDoubt;
}

Attempt::Step Attempt::ReadBack()
{
    if (!order.readBack || IsAllOut() || !port.ServesReading() ||
        GetTickCount() - lastRead < kReadBackEveryMs)
        return Step::Taken;
    lastRead = GetTickCount();
    std::vector<BYTE> back(kReadBackSize);
    std::size_t got = 0;
    const bool done = port.Read(back, &got);
    lastError = GetLastError();
    if (got != 0)
        listener.Tell([&](Listener& told) { told.OnReadBack(std::span(back).first(got)); });
    return done ? Step::Taken : Step::Lost;
}

Attempt::Ending Attempt::Finish(Step step)
{
    if (IsAllOut())
        listener.TellProgress([](Progress& progress) { progress.phase = Phase::WaitingForCard; });
    else if (step == Step::Lost || stop.stop_requested())
        port.Delete();  // a part is not to end in good order; and whoever stops may not have got to it yet
    port.End();
    if (IsCancelledAtServer())
        return {Outcome::CancelledAtServer, {}};
    if (job.IsSent() && IsAllOut())
        return {Outcome::Sent, {}};
    if (stop.stop_requested())
        return {Outcome::CancelledHere, {}};
    if (IsAllOut())
        return {Outcome::Unconfirmed, lines.WhyUnconfirmed()};
    const Outcome lost = written == 0 ? Outcome::LostInQueue : Outcome::LostWhileSending;
    return {lost, lines.WhyItFailed(settings, step == Step::Lost ? lastError : ERROR_SUCCESS)};
}

// What is out of the document is left as it is: an end in good order would have it printed.
Attempt::Ending Attempt::Failed(std::string why)
{
    port.Delete();
    port.End();
    if (why.ends_with('.'))
        why.pop_back();
    return {Outcome::DocumentFailed, {why, "print the document again when it is whole"}};
}

}  // namespace spooler
