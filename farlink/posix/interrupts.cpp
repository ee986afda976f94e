#include "farlink/interrupts.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

namespace farlink {

namespace {

std::atomic<bool> interruptAsked{false};
std::atomic<bool> endAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes them");

constexpr int kInterruptedTwice = 130;

extern "C" void OnSignal(int number)
{
    if (number != SIGINT)
        endAsked = true;
    else if (interruptAsked.exchange(true))
        _exit(kInterruptedTwice);
}

}  // namespace

void CatchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

bool InterruptAsked()
{
    return interruptAsked;
}

bool EndAsked()
{
    return endAsked;
}

}  // namespace farlink
