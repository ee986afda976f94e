#include "farlink/posix/signal_watch.h"

#include <unistd.h>

#include <csignal>
#include <system_error>
#include <thread>

#include "farlink/failure.h"

namespace farlink {

namespace {

constexpr timespec kSameMoment{1, 0};
constexpr timespec kPatience{4, 0};

bool IsIgnored(int number)
{
    struct sigaction now = {};
    return sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

// nohup is for SIGHUP. A script's background command has SIGINT ignored too, but who sends it one means it.
sigset_t WatchedSignals()
{
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    sigaddset(&watched, SIGTERM);
    if (!IsIgnored(SIGHUP))
        sigaddset(&watched, SIGHUP);
    return watched;
}

void Await(const sigset_t& watched)
{
    int number = 0;
    while (sigwait(&watched, &number) != 0)
        continue;
}

// Signals that come together are one.
void TakeThoseOfTheSameMoment(const sigset_t& watched)
{
    while (sigtimedwait(&watched, nullptr, &kSameMoment) > 0)
        continue;
}

// On a thread of its own, since what is told of the stop may wait for a reader of our output.
void RequestStop(std::stop_source stop)
{
    try {
        std::thread([stop]() mutable { stop.request_stop(); }).detach();
    } catch (const std::system_error&) {
        stop.request_stop();
    }
}

void Watch(const sigset_t& watched, const std::stop_source& stop)
{
    Await(watched);
    RequestStop(stop);
    TakeThoseOfTheSameMoment(watched);
    (void)sigtimedwait(&watched, nullptr, &kPatience);
    _exit(static_cast<int>(ExitStatus::Deleted));
}

}  // namespace

std::stop_token WatchSignals()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGINT, SIG_DFL);
    const sigset_t watched = WatchedSignals();
    pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    const std::stop_source stop;
    try {
        std::thread(Watch, watched, stop).detach();  // until the process ends
    } catch (const std::system_error& error) {
        throw Failure(std::string("This machine has no room for another thread: ") + error.what());
    }
    return stop.get_token();
}

}  // namespace farlink
