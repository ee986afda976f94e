#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/posix/call_switch.h"

namespace {

// Holds SIGPIPE back on this thread and takes it off if it came: a reader of standard error that has gone
// away must not end the process.
class HeldSigpipe {
public:
    HeldSigpipe()
    {
        sigset_t waiting;
        sigemptyset(&waiting);
        sigpending(&waiting);
        wasWaiting = sigismember(&waiting, SIGPIPE) == 1;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, &before);
    }
    ~HeldSigpipe()
    {
        const timespec atOnce{};
        while (!wasWaiting && sigtimedwait(&pipe, nullptr, &atOnce) == -1 && errno == EINTR)
            continue;
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    HeldSigpipe(const HeldSigpipe&) = delete;
    HeldSigpipe& operator=(const HeldSigpipe&) = delete;

private:
    sigset_t pipe;
    sigset_t before;
    bool wasWaiting;
};

}  // namespace

// A daemon's standard error is nobody's debugger, so that the text goes there only on request.
void OutputDebugStringA(LPCSTR text)
{
    posix_layer::CountCall("OutputDebugStringA");
    const char* wanted = std::getenv("FARLINK_DEBUG_OUTPUT");
    if (text == nullptr || wanted == nullptr || *wanted == 0)
        return;
    const HeldSigpipe held;
    std::string_view rest(text);
    while (!rest.empty()) {
        const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
        if (written > 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return;
    }
}
