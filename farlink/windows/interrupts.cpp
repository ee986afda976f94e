#include "farlink/interrupts.h"

#include <atomic>

#include "platform/platform.h"

namespace farlink {

namespace {

std::atomic<bool> interruptAsked{false};
std::atomic<bool> endAsked{false};

constexpr UINT kInterruptedTwice = 130;
// The system ends the process as soon as the handler of a closing window or a shutdown returns.
constexpr DWORD kTimeToEndMs = 4000;

// On a thread that the system makes for it.
BOOL WINAPI OnControl(DWORD event)
{
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
        if (interruptAsked.exchange(true))
            ExitProcess(kInterruptedTwice);
        return TRUE;
    }
    endAsked = true;
    Sleep(kTimeToEndMs);
    return TRUE;
}

}  // namespace

void CatchInterrupts()
{
    SetConsoleCtrlHandler(OnControl, TRUE);
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
