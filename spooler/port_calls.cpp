// What is asked of a port itself, apart from any job.

#include <functional>

#include "platform/posix/utf.h"
#include "spooler/api.h"
#include "spooler/opened_port.h"
#include "spooler/spooler.h"

namespace spooler {

namespace {

// The thread's last error is the monitor's.
[[noreturn]] void ThrowWordOfMonitor(const std::string& what)
{
    const DWORD word = GetLastError();
    Throw(word == ERROR_SUCCESS ? ERROR_GEN_FAILURE : word, what);
}

void InChannelMode(LPCWSTR port, const std::function<void(OpenedPort&, const std::string& name)>& action)
{
    RequireReference(port);
    const WideString wide = port;
    const std::string name = "port \"" + ToUtf8(wide) + "\"";
    const std::shared_ptr<Instance> spooler = Instance::Get();
    const std::shared_ptr<Monitor> monitor = spooler->monitors->OwnerOfPort(wide);
    if (monitor == nullptr)
        Throw(ERROR_UNKNOWN_PORT, "There is no " + name + ".");
    spooler->runners->WhileIdle(wide, [&] {
        OpenedPort opened(*monitor, wide);
        if (!opened.IsOpen())
            Throw(ERROR_UNKNOWN_PORT, "There is no " + name + ".");
        if (!opened.StartChannel())
            ThrowWordOfMonitor("The " + name + " can't be used.");
        action(opened, name);
    });
}

}  // namespace

SPOOLER_EXPORT BOOL QueryPort(LPCWSTR port, DWORD controlId, const void* input, DWORD inputSize, void* output,
                              DWORD outputSize, DWORD* returned)
{
    return BoolCall([&] {
        RequireReference(returned);
        *returned = 0;
        RequireParameter(input != nullptr || inputSize == 0, "There is no input.");
        RequireParameter(output != nullptr || outputSize == 0, "There is no place for the reply.");
        InChannelMode(port, [&](OpenedPort& opened, const std::string& name) {
            if (!opened.ServesQueries())
                Throw(ERROR_NOT_SUPPORTED, "The monitor of the " + name + " serves no queries.");
            if (!opened.Query(controlId, {static_cast<const BYTE*>(input), inputSize},
                              {static_cast<BYTE*>(output), outputSize}, returned))
                ThrowWordOfMonitor("The " + name + " gave no reply.");
        });
    });
}

SPOOLER_EXPORT BOOL CheckPort(LPCWSTR port)
{
    return BoolCall([&] {
        InChannelMode(port, [](OpenedPort& opened, const std::string& name) {
            BYTE nothing = 0;
            std::size_t taken = 0;
            if (!opened.Write({&nothing, 0}, &taken))
                ThrowWordOfMonitor("The " + name + " can't open its connections to the print server.");
        });
    });
}

}  // namespace spooler
