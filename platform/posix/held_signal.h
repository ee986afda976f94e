#pragma once

#include <pthread.h>
#include <signal.h>

#include <cerrno>

namespace posix_layer {

// Holds a signal back on this thread, for a write whose failure must not end the process.
class HeldSignal {
public:
    explicit HeldSignal(int number)
    {
        sigemptyset(&held);
        sigaddset(&held, number);
        pthread_sigmask(SIG_BLOCK, &held, &before);
        // One that the thread doesn't block itself can't be waiting.
        sigset_t waiting;
        wasWaiting = sigismember(&before, number) == 1 && sigpending(&waiting) == 0 &&
                     sigismember(&waiting, number) == 1;
    }
    ~HeldSignal() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    HeldSignal(const HeldSignal&) = delete;
    HeldSignal& operator=(const HeldSignal&) = delete;

    // Takes off the signal that the failed write has raised. Keeps errno.
    void TakeOff() const
    {
        const int error = errno;
        const timespec atOnce{};
        while (!wasWaiting && sigtimedwait(&held, nullptr, &atOnce) == -1 && errno == EINTR)
            continue;
        errno = error;
    }

private:
    sigset_t held;
    sigset_t before;
    bool wasWaiting;
};

}  // namespace posix_layer
