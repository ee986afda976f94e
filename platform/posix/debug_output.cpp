#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/posix/call_switch.h"
#include "platform/posix/held_signal.h"

// A daemon's standard error is nobody's debugger, so that the text goes there only on request.
void OutputDebugStringA(LPCSTR text)
{
    posix_layer::CountCall("OutputDebugStringA");
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
