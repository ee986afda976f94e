#include "spooler/printing.h"

#include <algorithm>

#include "platform/platform.h"
#include "spooler/attempt.h"

namespace spooler {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFirstPause{1000};
constexpr milliseconds kLongestPause{30000};

// How long to wait before the next attempt, if there is to be one. Pauses grow until there was a link.
class Patience {
public:
    explicit Patience(std::optional<milliseconds> limit) : retryFor(limit) {}

    std::optional<milliseconds> PauseAfter(milliseconds withoutLink, bool wasLinked)
    {
        spent += withoutLink;
        next = wasLinked ? kFirstPause : std::min(next * 2, kLongestPause);
        const milliseconds left = retryFor ? *retryFor - spent : next;
        if (left <= milliseconds::zero())
            return std::nullopt;
        const milliseconds pause = std::min(next, left);
        spent += pause;
        return pause;
    }

private:
    const std::optional<milliseconds> retryFor;
    milliseconds spent{0};
    milliseconds next = kFirstPause / 2;
};

// Until the time is over, or the stop comes.
void Pause(milliseconds pause, const std::stop_token& stop)
{
    WakeEvent wake;
    const std::stop_callback onStop(stop, [&] { wake.Set(); });
    if (!stop.stop_requested())
        wake.Wait(static_cast<DWORD>(pause.count()));
}

class Printing {
public:
    Printing(const Order& wanted, const Document& printed, Listener& listener, std::stop_token token)
        : order(wanted),
          document(printed),
          told(listener, document.Size()),
          stop(std::move(token)),
          job(Job::Begin(ToUtf16(order.port().name), ToUtf16(order.title), document.Size())),
          patience(order.retryFor)
    {
    }

    Result Run()
    {
        while (!stop.stop_requested()) {
            const std::optional<milliseconds> pause = TryOnce();
            if (!pause)
                return result;
            told.Tell([&](Listener& listener) { listener.OnAttemptFailed(result, *pause); });
            told.TellProgress([](Progress& progress) { progress.phase = Phase::Pausing; });
            Pause(*pause, stop);
        }
        result.outcome = Outcome::CancelledHere;
        result.reason = {};
        return result;
    }

private:
    // Gives the pause before the next attempt, if there is to be one.
    std::optional<milliseconds> TryOnce()
    {
        ++result.attempts;
        told.TellProgress([&](Progress& progress) {
            progress = {.attempt = result.attempts, .total = document.Size(), .queuePosition = {}};
        });
        const DWORD begun = GetTickCount();
        Attempt attempt(order, document, *job, told, stop);
        Attempt::Ending ending = attempt.Run();
        result.outcome = ending.outcome;
        result.reason = std::move(ending.reason);
        result.written = attempt.Written();
        result.bytesWereOut = result.bytesWereOut || result.written != 0;
        const Follow follow = RuleFor(result.outcome).follow;
        if (follow != Follow::TryAgain && follow != Follow::SendAgain)
            return std::nullopt;
        const DWORD withoutLinkMs = GetTickCount() - begun - attempt.LinkedMs();
        return patience.PauseAfter(milliseconds(withoutLinkMs), attempt.LinkedMs() != 0);
    }

    const Order& order;
    const Document& document;
    SharedListener told;
    const std::stop_token stop;
    const std::shared_ptr<Job> job;
    Patience patience;
    Result result;
};

}  // namespace

Result PrintDocument(const Order& order, const Document& document, Listener& listener, std::stop_token stop)
{
    return Printing(order, document, listener, std::move(stop)).Run();
}

}  // namespace spooler
