#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <utility>

#include "platform/posix/call_switch.h"
#include "platform/posix/debug_listener.h"
#include "platform/posix/held_signal.h"

namespace {

struct Listening {
    std::shared_mutex lock;  // shared by those who speak
    std::function<void(LPCSTR)> listener;
};

// Never destroyed: the last lines come from the ends of libraries.
Listening& TheListening()
{
    static auto* const listening = new Listening;
    return *listening;
}

// False when nobody listens.
bool TellListener(LPCSTR text)
{
    Listening& listening = TheListening();
    const std::shared_lock<std::shared_mutex> speaking(listening.lock);
    if (listening.listener)
        listening.listener(text);
    return static_cast<bool>(listening.listener);
}

}  // namespace

void SetDebugOutputListener(std::function<void(LPCSTR text)> listener)
{
    Listening& listening = TheListening();
    const std::unique_lock<std::shared_mutex> changing(listening.lock);
    listening.listener = std::move(listener);
}

// A daemon's standard error is nobody's debugger, so that the text goes there only on request.
void OutputDebugStringA(LPCSTR text)
{
    posix_layer::CountCall("OutputDebugStringA");
    if (text != nullptr && TellListener(text))
        return;
    const char* wanted = std::getenv("FARLINK_DEBUG_OUTPUT");
    if (text == nullptr || wanted == nullptr || *wanted == 0)
        return;
    // A reader of standard error that has gone away must not end the process.
    const posix_layer::HeldSignal held(SIGPIPE);
    std::string_view rest(text);
    while (!rest.empty()) {
        const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
        if (written > 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return held.TakeOff();
    }
}
