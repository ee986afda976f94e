// What belongs to a thread: its number, its last error, its slots; and time.

#include "platform/simulated/clock.h"
#include "platform/simulated/scheduler.h"

using simulated::kMillisecond;
using simulated::Scheduler;
using simulated::Thread;

namespace {

DWORD firstTick = 0;
std::array<bool, Thread::kSlots> slotIsTaken{};
Thread beforeTheRun(0, "outside of a run", Thread::Kind::Outside, nullptr);

Thread& Self()
{
    return Scheduler::IsRunning() ? Scheduler::Current().Self() : beforeTheRun;
}

void Point(const char* call)
{
    if (Scheduler::IsRunning())
        Scheduler::Current().Point(call);
}

std::uint64_t Milliseconds()
{
    return Scheduler::IsRunning() ? Scheduler::Current().Now() / kMillisecond : 0;
}

}  // namespace

void simulated::SetFirstTick(DWORD tick)
{
    firstTick = tick;
}

DWORD GetLastError()
{
    return Self().lastError;
}

void SetLastError(DWORD error)
{
    Self().lastError = error;
}

DWORD GetCurrentThreadId()
{
    return Self().Id();
}

DWORD GetTickCount()
{
    Point("GetTickCount");
    return firstTick + static_cast<DWORD>(Milliseconds());
}

void Sleep(DWORD milliseconds)
{
    Point("Sleep");
    Scheduler& scheduler = Scheduler::Current();
    (void)scheduler.Wait(nullptr, scheduler.Now() + milliseconds * kMillisecond);
}

// The first day of the year 2000.
void GetLocalTime(SYSTEMTIME* time)
{
    const std::uint64_t now = Milliseconds();
    const auto part = [now](std::uint64_t unit, std::uint64_t count) {
        return static_cast<WORD>(now / unit % count);
    };
    *time = {2000,
             1,
             6,
             static_cast<WORD>(1 + now / 86'400'000),
             part(3'600'000, 24),
             part(60'000, 60),
             part(1000, 60),
             part(1, 1000)};
}

DWORD TlsAlloc()
{
    for (DWORD slot = 0; slot < Thread::kSlots; ++slot) {
        if (!slotIsTaken[slot]) {
            slotIsTaken[slot] = true;
            return slot;
        }
    }
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD slot)
{
    slotIsTaken.at(slot) = false;
    return TRUE;
}

LPVOID TlsGetValue(DWORD slot)
{
    Point("TlsGetValue");
    SetLastError(ERROR_SUCCESS);
    return Self().slots.at(slot);
}

BOOL TlsSetValue(DWORD slot, LPVOID value)
{
    Point("TlsSetValue");
    Self().slots.at(slot) = value;
    return TRUE;
}
