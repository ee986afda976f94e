#pragma once

#include "platform/platform.h"
#include "spooler/spooler_error.h"

namespace spooler {

// Ends one thread's pause early. Any thread sets it; a Set before the Wait counts for it.
class WakeEvent {
public:
    WakeEvent() : event(CreateEventW(nullptr, FALSE, FALSE, nullptr))
    {
        if (event == nullptr)
            Throw(GetLastError(), "This machine has no room for another event.");
    }
    ~WakeEvent() { (void)CloseHandle(event); }
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    void Set() { (void)SetEvent(event); }
    void Wait(DWORD milliseconds) { (void)WaitForSingleObject(event, milliseconds); }

private:
    const HANDLE event;
};

}  // namespace spooler
