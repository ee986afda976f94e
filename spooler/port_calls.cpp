// What is asked of a port itself, apart from any job; and the spooler as a whole.

#include <algorithm>

#include "platform/platform.h"
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

// A stored port in a monitor of its own, to talk to the printer without a job.
struct Talk {
    explicit Talk(LPCWSTR port) : Talk(StoredPort(ToUtf8(port))) {}
    explicit Talk(const PortSettings& settings)
        : name("port \"" + settings.name + "\""), asked(settings, StoredLogSettings(), 0)
    {
    }
    void Start()
    {
        if (!asked.StartChannel())
            ThrowWordOfMonitor("The " + name + " can't be used.");
    }

    const std::string name;
    PrivatePort asked;
};

constexpr DWORD kReadPauseMs = 100;
constexpr std::size_t kReadPiece = 4096;  // a request for bytes carries 16 bits of their number

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
        Talk talk(port);
        if (!talk.asked.ServesQueries())
            Throw(ERROR_NOT_SUPPORTED, "The monitor of the " + talk.name + " serves no queries.");
        talk.Start();
        if (!talk.asked.Query(controlId, {static_cast<const BYTE*>(input), inputSize},
                              {static_cast<BYTE*>(output), outputSize}, returned))
            ThrowWordOfMonitor("The " + talk.name + " gave no reply.");
    });
}

SPOOLER_EXPORT BOOL ReadFromPort(LPCWSTR port, void* output, DWORD outputSize, DWORD waitMs, DWORD* returned)
{
    return BoolCall([&] {
        RequireReference(port);
        RequireReference(returned);
        *returned = 0;
        RequireParameter(output != nullptr || outputSize == 0, "There is no place for the bytes.");
        Talk talk(port);
        if (!talk.asked.ServesReading())
            Throw(ERROR_NOT_SUPPORTED, "The monitor of the " + talk.name + " reads nothing back.");
        talk.Start();
        const std::span<BYTE> room(static_cast<BYTE*>(output), outputSize);
        DWORD lastByte = GetTickCount();
        while (*returned < outputSize) {
            std::size_t got = 0;
            const auto rest = room.subspan(*returned);
            if (!talk.asked.Read(rest.first(std::min(rest.size(), kReadPiece)), &got))
                ThrowWordOfMonitor("Nothing can be read from the " + talk.name + ".");
            *returned += static_cast<DWORD>(got);
            if (got > 0)
                lastByte = GetTickCount();
            else if (GetTickCount() - lastByte >= waitMs)
                return;
            else
                Sleep(kReadPauseMs);
        }
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
