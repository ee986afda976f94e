// What is asked of a port itself, apart from any job; and the spooler as a whole.

#include "platform/posix/utf.h"
#include "spooler/api.h"
#include "spooler/private_port.h"
#include "spooler/spooler.h"

namespace spooler {

namespace {

// The thread's last error is the monitor's.
[[noreturn]] void ThrowWordOfMonitor(const std::string& what)
{
    const DWORD word = GetLastError();
    Throw(word == ERROR_SUCCESS ? ERROR_GEN_FAILURE : word, what);
}

}  // namespace

SPOOLER_EXPORT BOOL QueryPort(LPCWSTR port, DWORD controlId, const void* input, DWORD inputSize, void* output,
                              DWORD outputSize, DWORD* returned)
{
    return BoolCall([&] {
        RequireReference(port);
        RequireReference(returned);
        *returned = 0;
        RequireParameter(input != nullptr || inputSize == 0, "There is no input.");
        RequireParameter(output != nullptr || outputSize == 0, "There is no place for the reply.");
        const PortSettings settings = StoredPort(ToUtf8(port));
        const std::string name = "port \"" + settings.name + "\"";
        PrivatePort asked(settings, StoredLogSettings(), 0);
        if (!asked.ServesQueries())
            Throw(ERROR_NOT_SUPPORTED, "The monitor of the " + name + " serves no queries.");
        if (!asked.StartChannel())
            ThrowWordOfMonitor("The " + name + " can't be used.");
        if (!asked.Query(controlId, {static_cast<const BYTE*>(input), inputSize},
                         {static_cast<BYTE*>(output), outputSize}, returned))
            ThrowWordOfMonitor("The " + name + " gave no reply.");
    });
}

SPOOLER_EXPORT BOOL ShutdownSpooler()
{
    return BoolCall([] { Instance::Shutdown(); });
}

SPOOLER_EXPORT DWORD GetSpoolerErrorText(LPSTR buffer, DWORD size)
{
    const std::string& text = LastErrorText();
    if (buffer != nullptr && size != 0)
        buffer[text.copy(buffer, size - 1)] = 0;
    return static_cast<DWORD>(text.size() + 1);
}

}  // namespace spooler
